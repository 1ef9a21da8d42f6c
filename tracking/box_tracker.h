// Boxes followed from frame to frame: each detection matched to a track by
// where its top is (predicted from the track's motion) and, when both are
// known, by its size; tracks left unseen age out. A track's measured frames
// fuse into one reading, and its events say when the box appeared, when its
// reading settled and when it left.
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "core/measurement_result.h"
#include "core/track_event.h"
#include "precise/top_surface.h"
#include "tracking/reading_fusion.h"

namespace boxdim::tracking {

// One detection as the tracker sees it.
struct Sighting {
  BoxStatus status = BoxStatus::kMeasured;
  cv::Point3f centre_mm;     // the top's centre in the camera's frame
  BoxDimensions dimensions;  // when measured
  std::array<cv::Point2f, 4> corners_px{};
  // The sums of its top's heights, x along the top's longer side, when
  // measured (none: the height is the median of the frames').
  const precise::TopMoments* top = nullptr;
  // What its height adds to the highest point of the surface of those sums.
  float height_adjustment_mm = 0.0f;
  // Each dimension's uncertainty in this frame (measured or uncertain).
  BoxDimensions uncertainty;
};

// What the tracker made of a sighting: its track (-1: none, for a box too
// small to follow, an irregular top that continues no track, or when every
// slot is taken) and the track's reading once it was measured in a frame.
struct Assignment {
  int track_id = -1;
  std::optional<FusedReading> reading;
};

class BoxTracker {
 public:
  static constexpr int kMaxTracks = 100;

  // `division_mm`: a reading's measured event waits until every dimension's
  // uncertainty is within the station's division.
  explicit BoxTracker(float division_mm = 5.0f);
  void set_division(float division_mm) { division_mm_ = division_mm; }

  // The frame's sightings at `time_us` (frames that all carry one time, as
  // files do, count as 1/30 s apart): one assignment per sighting, and the
  // frame's events appended to `events`. Nothing is allocated once the
  // output vectors have grown.
  void update(std::int64_t time_us, const std::vector<Sighting>& sightings,
              std::vector<Assignment>& assignments, std::vector<TrackEvent>& events);
  // Forgets every track without events, as after the camera was moved.
  void reset();
  int active_tracks() const;

 private:
  struct Track {
    bool active = false;
    int id = 0;
    cv::Point3f centre;
    cv::Point3f velocity;  // mm/s
    std::int64_t last_seen_us = 0;
    int seen = 0;               // frames matched
    int missed = 0;             // frames unmatched since the last match
    int measured_still = 0;     // measured frames since it came to rest
    int measured_in_a_row = 0;  // measured frames since it was last not
    bool placed = false;
    bool measured = false;
    ReadingFusion fusion;
    std::optional<FusedReading> reading;  // the fusion's, once it has a frame
    std::array<cv::Point2f, 4> corners_px{};
  };
  struct Pair {
    float cost;
    int track;
    int sighting;
  };

  std::optional<float> match_cost(const Track& track, const Sighting& sighting,
                                  float seconds) const;
  void follow(Track& track, const Sighting& sighting, float seconds, std::int64_t time_us,
              Assignment& assignment, std::vector<TrackEvent>& events);
  static float seconds_between(std::int64_t earlier_us, std::int64_t later_us, int frames);

  std::vector<Track> tracks_;  // kMaxTracks slots
  std::vector<Pair> pairs_;
  std::vector<char> sighting_taken_;
  std::vector<char> track_taken_;
  int next_id_ = 1;
  float division_mm_ = 5.0f;
};

}  // namespace boxdim::tracking
