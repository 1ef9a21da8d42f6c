#include "tracking/box_tracker.h"

#include <algorithm>
#include <cmath>

namespace boxdim::tracking {
namespace {

// A frame period when frames carry no usable time.
constexpr float kFrameSeconds = 1.0f / 30.0f;
// How far a top may be from where its track was heading (mm): a box carried
// at 1 m/s moves 33 mm a frame, and a box entering the view shows a growing
// part of its top, whose centre jumps by more.
constexpr float kMaxMissMm = 100.0f;
// How much a measured size may differ from its track's reading (mm) and
// still be that box: single frames are within a few millimetres.
constexpr float kMaxSizeChangeMm = 25.0f;
// A track's reading counts for matching once it has this many frames.
constexpr int kReadingFramesForMatching = 3;
// Frames a box must be seen in (one of them measured) before it counts as
// placed: a detection of one or two frames is noise, not a box.
constexpr int kFramesToPlace = 3;
// Frames a track may go unseen before its box counts as gone (a third of a
// second at 30 frames a second: a hand passing over the box does not end it).
constexpr int kFramesToRemove = 10;
// Slower than this (mm/s) a box is at rest: the centre of a still top wanders
// by a fraction of a millimetre from frame to frame.
constexpr float kStillSpeed = 30.0f;
// A reading settles when its standard error is under this (mm) and it has
// enough frames: at rest, or fully in view while moving. It is measured
// once settled with every dimension's uncertainty within the division.
constexpr float kSettledUncertaintyMm = 0.5f;
constexpr int kStillFramesToSettle = 8;
constexpr int kMovingFramesToSettle = 10;
// How much of a new velocity estimate replaces the last one.
constexpr float kVelocityGain = 0.5f;

float norm(const cv::Point3f& p) { return std::sqrt(p.dot(p)); }

float largest_size_change(const BoxDimensions& a, const BoxDimensions& b) {
  return std::max({std::abs(a.box_length - b.box_length), std::abs(a.box_width - b.box_width),
                   std::abs(a.box_height - b.box_height)});
}

}  // namespace

BoxTracker::BoxTracker(float division_mm)
    : tracks_(kMaxTracks), track_taken_(kMaxTracks), division_mm_(division_mm) {
  // A track pairs with the few tops within reach of it: room for that from
  // the start, so that the second frame does not allocate.
  pairs_.reserve(8 * kMaxTracks);
}

float BoxTracker::seconds_between(std::int64_t earlier_us, std::int64_t later_us, int frames) {
  // In doubles: any two times a caller passes, however far apart, subtract
  // without overflow.
  const float seconds =
      static_cast<float>((static_cast<double>(later_us) - static_cast<double>(earlier_us)) * 1e-6);
  return seconds > 0.0f ? seconds : static_cast<float>(frames) * kFrameSeconds;
}

std::optional<float> BoxTracker::match_cost(const Track& track, const Sighting& sighting,
                                            float seconds) const {
  const cv::Point3f predicted = track.centre + track.velocity * seconds;
  const float miss = norm(sighting.centre_mm - predicted);
  // The centre of a top that is cut or spoilt is that of the part seen,
  // anywhere on the box's top as far as the track knows.
  float reach = kMaxMissMm;
  if (sighting.status != BoxStatus::kMeasured && track.reading) {
    const BoxDimensions& size = track.reading->dimensions;
    reach += 0.5f * std::hypot(size.box_length, size.box_width);
  }
  if (!(miss <= reach)) return std::nullopt;
  float size_change = 0.0f;
  if (sighting.status == BoxStatus::kMeasured && track.reading &&
      track.reading->frames >= kReadingFramesForMatching) {
    size_change = largest_size_change(sighting.dimensions, track.reading->dimensions);
    if (!(size_change <= kMaxSizeChangeMm)) return std::nullopt;
  }
  return miss + size_change;
}

void BoxTracker::follow(Track& track, const Sighting& sighting, float seconds, std::int64_t time_us,
                        Assignment& assignment, std::vector<TrackEvent>& events) {
  const cv::Point3f velocity = (sighting.centre_mm - track.centre) * (1.0f / seconds);
  track.velocity = kVelocityGain * velocity + (1.0f - kVelocityGain) * track.velocity;
  track.centre = sighting.centre_mm;
  track.last_seen_us = time_us;
  track.corners_px = sighting.corners_px;
  ++track.seen;
  track.missed = 0;
  const bool still = norm(track.velocity) < kStillSpeed;
  // An uncertain box has its numbers too: many frames of it may tell its
  // size within the division where one cannot.
  if (sighting.status == BoxStatus::kMeasured || sighting.status == BoxStatus::kUncertain) {
    track.fusion.add(sighting.dimensions, sighting.top, sighting.height_adjustment_mm,
                     sighting.uncertainty);
    track.reading = track.fusion.reading();
    ++track.measured_in_a_row;
    track.measured_still = still ? track.measured_still + 1 : 0;
  } else {
    track.measured_in_a_row = 0;
    if (!still) track.measured_still = 0;
  }

  assignment.track_id = track.id;
  assignment.reading = track.reading;

  TrackEvent event;
  event.track_id = track.id;
  event.time_us = time_us;
  event.corners_px = track.corners_px;
  // A box is placed once it has been seen long enough and measured at least
  // once: a sliver at the frame's border, cut from frame to frame, is no box
  // yet, and a box seen only cut never gets a reading anyway.
  if (!track.placed && track.seen >= kFramesToPlace && track.reading) {
    track.placed = true;
    event.kind = TrackEventKind::kPlaced;
    events.push_back(event);
  }
  if (track.placed && !track.measured && assignment.reading &&
      assignment.reading->standard_error_mm <= kSettledUncertaintyMm &&
      assignment.reading->uncertainty_mm <= division_mm_ &&
      (track.measured_still >= kStillFramesToSettle ||
       track.measured_in_a_row >= kMovingFramesToSettle)) {
    track.measured = true;
    event.kind = TrackEventKind::kMeasured;
    event.reading = *assignment.reading;
    events.push_back(event);
  }
}

void BoxTracker::update(std::int64_t time_us, const std::vector<Sighting>& sightings,
                        std::vector<Assignment>& assignments, std::vector<TrackEvent>& events) {
  const int n_sightings = static_cast<int>(sightings.size());
  assignments.assign(sightings.size(), Assignment{});
  sighting_taken_.assign(sightings.size(), 0);
  std::fill(track_taken_.begin(), track_taken_.end(), 0);

  // Every plausible pair, cheapest first; each track and sighting is taken
  // by its cheapest pair that is still free.
  pairs_.clear();
  for (int t = 0; t < kMaxTracks; ++t) {
    const Track& track = tracks_[t];
    if (!track.active) continue;
    const float seconds = seconds_between(track.last_seen_us, time_us, track.missed + 1);
    for (int s = 0; s < n_sightings; ++s) {
      if (sightings[s].status == BoxStatus::kTooSmall) continue;
      if (const std::optional<float> cost = match_cost(track, sightings[s], seconds)) {
        pairs_.push_back(Pair{*cost, t, s});
      }
    }
  }
  std::sort(pairs_.begin(), pairs_.end(), [](const Pair& a, const Pair& b) {
    return a.cost < b.cost ||
           (a.cost == b.cost &&
            (a.track < b.track || (a.track == b.track && a.sighting < b.sighting)));
  });
  for (const Pair& pair : pairs_) {
    if (track_taken_[pair.track] || sighting_taken_[pair.sighting]) continue;
    track_taken_[pair.track] = 1;
    sighting_taken_[pair.sighting] = 1;
    Track& track = tracks_[pair.track];
    const float seconds = seconds_between(track.last_seen_us, time_us, track.missed + 1);
    follow(track, sightings[pair.sighting], seconds, time_us, assignments[pair.sighting], events);
  }

  // Tracks not seen: gone after a while; a box that was never placed leaves
  // no event.
  for (int t = 0; t < kMaxTracks; ++t) {
    Track& track = tracks_[t];
    if (!track.active || track_taken_[t]) continue;
    if (++track.missed < kFramesToRemove) continue;
    if (track.placed) {
      TrackEvent event;
      event.kind = TrackEventKind::kRemoved;
      event.track_id = track.id;
      event.time_us = time_us;
      events.push_back(event);
    }
    track.active = false;
  }

  // New boxes, in free slots while there are any. A top that is no
  // rectangle only keeps a box's track going (a hand over the box): on its
  // own it is a bag, or a piece of a box's side, not a box.
  for (int s = 0; s < n_sightings; ++s) {
    if (sighting_taken_[s] || sightings[s].status == BoxStatus::kTooSmall ||
        sightings[s].status == BoxStatus::kIrregular) {
      continue;
    }
    const auto slot = std::find_if(tracks_.begin(), tracks_.end(),
                                   [](const Track& track) { return !track.active; });
    if (slot == tracks_.end()) break;
    Track& track = *slot;
    track.active = true;
    track.id = next_id_++;
    track.centre = sightings[s].centre_mm;
    track.velocity = cv::Point3f(0.0f, 0.0f, 0.0f);
    track.seen = 0;
    track.missed = 0;
    track.measured_still = 0;
    track.measured_in_a_row = 0;
    track.placed = false;
    track.measured = false;
    track.fusion.clear();
    track.reading.reset();
    // Its first frame, as any later one: at rest until it moves.
    track.last_seen_us = time_us;
    follow(track, sightings[s], kFrameSeconds, time_us, assignments[s], events);
  }
}

void BoxTracker::reset() {
  for (Track& track : tracks_) track.active = false;
}

int BoxTracker::active_tracks() const {
  return static_cast<int>(
      std::count_if(tracks_.begin(), tracks_.end(), [](const Track& t) { return t.active; }));
}

}  // namespace boxdim::tracking
