// Boxes scripted frame by frame, as a detector would see them: each box keeps
// one id while it is in view, is placed, measured and removed exactly once,
// and its fused reading is right however the odd frame goes wrong.
#include "tracking/box_tracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace boxdim::tracking {
namespace {

constexpr std::int64_t kFrameUs = 33333;

// What the detector reports of one box in one frame; nothing when it is not
// in view.
struct Seen {
  BoxStatus status = BoxStatus::kMeasured;
  cv::Point3f centre_mm;
  BoxDimensions error;  // added to the box's size in this frame
};

struct ScriptedBox {
  BoxDimensions size;
  std::function<std::optional<Seen>(int frame)> seen;
  int placed = 1;  // events expected
  int measured = 1;
  int removed = 1;
  // The frame it comes to rest from: its measured event comes within half a
  // second of it. -1: it never rests.
  int rests_from = 0;
};

struct TrackerCase {
  std::string name;
  int frames;
  std::vector<ScriptedBox> boxes;
  bool frames_carry_time = true;
};

void PrintTo(const TrackerCase& c, std::ostream* os) { *os << c.name; }

// Noise of a few tenths of a millimetre, as a detector's frames have.
BoxDimensions jitter(std::mt19937& rng) {
  std::normal_distribution<float> noise(0.0f, 0.6f);
  return {noise(rng), noise(rng), noise(rng)};
}

const BoxDimensions kBox{400.0f, 300.0f, 200.0f};
const cv::Point3f kUnderCamera(0.0f, 0.0f, 1000.0f);

// A box standing at `where` from frame `from` to frame `to` (exclusive).
std::function<std::optional<Seen>(int)> standing(cv::Point3f where, int from, int to) {
  auto rng = std::make_shared<std::mt19937>(from * 131 + to);
  return [=](int frame) -> std::optional<Seen> {
    if (frame < from || frame >= to) return std::nullopt;
    return Seen{BoxStatus::kMeasured, where, jitter(*rng)};
  };
}

// A 400 mm box carried along x at `speed` mm/s through a view 1000 mm wide:
// partial while its top crosses the view's edges.
std::function<std::optional<Seen>(int)> carried(float speed) {
  auto rng = std::make_shared<std::mt19937>(static_cast<int>(speed));
  return [=](int frame) -> std::optional<Seen> {
    const float x = -800.0f + speed * frame * kFrameUs * 1e-6f;
    const float low = x - 200.0f;
    const float high = x + 200.0f;
    if (high < -500.0f || low > 500.0f) return std::nullopt;
    const bool whole = low >= -500.0f && high <= 500.0f;
    // The visible part's centre, as a detector gives it for a cut top.
    const float seen_x = 0.5f * (std::max(low, -500.0f) + std::min(high, 500.0f));
    return Seen{whole ? BoxStatus::kMeasured : BoxStatus::kPartial,
                cv::Point3f(seen_x, 0.0f, 1000.0f), jitter(*rng)};
  };
}

class BoxTrackerTest : public ::testing::TestWithParam<TrackerCase> {};

TEST_P(BoxTrackerTest, EachBoxKeepsItsIdAndGetsItsEventsOnce) {
  const TrackerCase& c = GetParam();
  BoxTracker tracker;
  std::vector<Sighting> sightings;
  std::vector<int> owner;  // the scripted box of each sighting
  std::vector<Assignment> assignments;
  std::vector<TrackEvent> events;
  std::map<int, std::optional<int>> id_of_box;
  std::map<int, int> box_of_id;
  std::map<int, std::vector<TrackEvent>> events_of_box;
  std::map<int, int> measured_frame;
  for (int frame = 0; frame < c.frames; ++frame) {
    sightings.clear();
    owner.clear();
    for (std::size_t b = 0; b < c.boxes.size(); ++b) {
      const std::optional<Seen> seen = c.boxes[b].seen(frame);
      if (!seen) continue;
      Sighting s;
      s.status = seen->status;
      s.centre_mm = seen->centre_mm;
      s.dimensions = {c.boxes[b].size.box_length + seen->error.box_length,
                      c.boxes[b].size.box_width + seen->error.box_width,
                      c.boxes[b].size.box_height + seen->error.box_height};
      sightings.push_back(s);
      owner.push_back(static_cast<int>(b));
    }
    events.clear();
    tracker.update(c.frames_carry_time ? frame * kFrameUs : 0, sightings, assignments, events);
    ASSERT_EQ(assignments.size(), sightings.size());
    for (std::size_t s = 0; s < sightings.size(); ++s) {
      const int id = assignments[s].track_id;
      ASSERT_GE(id, 1) << "frame " << frame;
      auto [known, first] = id_of_box.try_emplace(owner[s], id);
      EXPECT_EQ(known->second, id) << "box " << owner[s] << " switched ids at frame " << frame;
      box_of_id[id] = owner[s];
    }
    for (const TrackEvent& event : events) {
      ASSERT_TRUE(box_of_id.count(event.track_id)) << "an event of no box at frame " << frame;
      const int box = box_of_id[event.track_id];
      events_of_box[box].push_back(event);
      if (event.kind == TrackEventKind::kMeasured) measured_frame[box] = frame;
    }
  }
  for (std::size_t b = 0; b < c.boxes.size(); ++b) {
    SCOPED_TRACE(::testing::Message() << "box " << b);
    const ScriptedBox& box = c.boxes[b];
    int counts[3] = {0, 0, 0};
    std::vector<TrackEventKind> order;
    for (const TrackEvent& event : events_of_box[static_cast<int>(b)]) {
      ++counts[static_cast<int>(event.kind)];
      order.push_back(event.kind);
      if (event.kind == TrackEventKind::kMeasured) {
        EXPECT_NEAR(event.reading.dimensions.box_length, box.size.box_length, 1.0f);
        EXPECT_NEAR(event.reading.dimensions.box_width, box.size.box_width, 1.0f);
        EXPECT_NEAR(event.reading.dimensions.box_height, box.size.box_height, 1.0f);
        EXPECT_LE(event.reading.uncertainty_mm, 1.0f);
      }
    }
    EXPECT_EQ(counts[0], box.placed);
    EXPECT_EQ(counts[1], box.measured);
    EXPECT_EQ(counts[2], box.removed);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));  // placed, measured, removed
    if (box.measured == 1 && box.rests_from >= 0) {
      EXPECT_LE(measured_frame[static_cast<int>(b)] - box.rests_from, 15);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, BoxTrackerTest,
    ::testing::Values(
        TrackerCase{
            "placed_left_and_removed", 200, {{kBox, standing(kUnderCamera, 10, 160), 1, 1, 1, 10}}},
        // Frames of files carry no time: they count as a frame period apart.
        TrackerCase{"frames_without_time",
                    200,
                    {{kBox, standing(kUnderCamera, 10, 160), 1, 1, 1, 10}},
                    false},
        // Still there at the end: never removed.
        TrackerCase{"still_there", 100, {{kBox, standing(kUnderCamera, 0, 100), 1, 1, 0}}},
        TrackerCase{"two_boxes_one_after_the_other",
                    260,
                    {{kBox, standing(kUnderCamera, 0, 260), 1, 1, 0},
                     {{300, 200, 150}, standing({380.0f, 0.0f, 1050.0f}, 60, 200), 1, 1, 1, 60}}},
        // Beside each other, closer than a box's side.
        TrackerCase{"two_small_boxes_side_by_side",
                    120,
                    {{{60, 60, 60}, standing({0.0f, 0.0f, 1140.0f}, 0, 120), 1, 1, 0},
                     {{60, 60, 60}, standing({62.0f, 0.0f, 1140.0f}, 0, 120), 1, 1, 0}}},
        // A hand over the box for a few frames, then gone from view for a
        // few, and two frames that read the box 15 mm too high.
        TrackerCase{"a_hand_and_a_bad_frame",
                    120,
                    {{kBox,
                      [base = standing(kUnderCamera, 0, 120)](int frame) -> std::optional<Seen> {
                        std::optional<Seen> seen = base(frame);
                        if (frame >= 30 && frame < 36) {
                          seen->status = BoxStatus::kIrregular;
                          seen->centre_mm.x += 40.0f;
                        }
                        if (frame == 3 || frame == 5) seen->error.box_height += 15.0f;
                        if (frame >= 40 && frame < 44) return std::nullopt;
                        return seen;
                      },
                      1, 1, 0}}},
        // Detections of a frame or two are noise, not boxes.
        TrackerCase{"flicker",
                    60,
                    {{kBox,
                      [](int frame) -> std::optional<Seen> {
                        if (frame != 10 && frame != 11) return std::nullopt;
                        return Seen{BoxStatus::kPartial, {-450.0f, 0.0f, 1000.0f}, {}};
                      },
                      0, 0, 0}}},
        // Carried across the view: one id from entering to leaving, measured
        // while fully in view.
        TrackerCase{"carried_at_0_2_m_per_s", 250, {{kBox, carried(200.0f), 1, 1, 1, -1}}},
        TrackerCase{"carried_at_0_5_m_per_s", 120, {{kBox, carried(500.0f), 1, 1, 1, -1}}},
        TrackerCase{"carried_at_1_m_per_s", 80, {{kBox, carried(1000.0f), 1, 1, 1, -1}}}),
    [](const auto& info) { return info.param.name; });

// A box taken away and another put in its place within a blink: a new box,
// for its size is not the old one's.
TEST(BoxTracker, ABoxSwappedForAnotherOfOtherSizeIsANewBox) {
  BoxTracker tracker;
  std::vector<Assignment> assignments;
  std::vector<TrackEvent> events;
  std::vector<int> ids;
  for (int frame = 0; frame < 80; ++frame) {
    Sighting s;
    s.centre_mm = kUnderCamera;
    s.dimensions = frame < 40 ? kBox : BoxDimensions{350.0f, 300.0f, 200.0f};
    tracker.update(frame * kFrameUs, {s}, assignments, events);
    ids.push_back(assignments[0].track_id);
  }
  EXPECT_NE(ids[39], ids[40]);
  EXPECT_EQ(ids[40], ids[79]);
  int measured = 0;
  for (const TrackEvent& e : events) measured += e.kind == TrackEventKind::kMeasured;
  EXPECT_EQ(measured, 2);
}

// A box whose every frame is uncertain by more than the division (a rim
// the camera cannot see, a blanked edge that all frames share) is followed
// and placed, but never measured: no reading leaves the station that it
// cannot stand behind. Within a wider division the same frames are.
TEST(BoxTracker, AReadingIsMeasuredOnlyWithinTheDivision) {
  for (const float division : {2.0f, 5.0f}) {
    BoxTracker tracker(division);
    std::vector<Assignment> assignments;
    std::vector<TrackEvent> events;
    for (int frame = 0; frame < 60; ++frame) {
      Sighting s;
      s.status = BoxStatus::kUncertain;
      s.centre_mm = kUnderCamera;
      s.dimensions = kBox;
      s.uncertainty = {3.0f, 2.0f, 1.5f};
      tracker.update(frame * kFrameUs, {s}, assignments, events);
    }
    int counts[3] = {0, 0, 0};
    for (const TrackEvent& e : events) ++counts[static_cast<int>(e.kind)];
    SCOPED_TRACE(division);
    EXPECT_EQ(counts[static_cast<int>(TrackEventKind::kPlaced)], 1);
    EXPECT_EQ(counts[static_cast<int>(TrackEventKind::kMeasured)], division < 3.0f ? 0 : 1);
    ASSERT_TRUE(assignments[0].reading.has_value());
    EXPECT_FLOAT_EQ(assignments[0].reading->uncertainty_mm, 3.0f);
  }
}

// A top that is no rectangle, on its own, is a bag or a piece of a box's
// side: nothing to follow, no events.
TEST(BoxTracker, AnIrregularTopOnItsOwnIsNoBox) {
  BoxTracker tracker;
  std::vector<Assignment> assignments;
  std::vector<TrackEvent> events;
  Sighting bag;
  bag.status = BoxStatus::kIrregular;
  bag.centre_mm = kUnderCamera;
  for (int frame = 0; frame < 30; ++frame) {
    tracker.update(frame * kFrameUs, {bag}, assignments, events);
    EXPECT_EQ(assignments[0].track_id, -1) << "frame " << frame;
  }
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(tracker.active_tracks(), 0);
}

// More boxes than slots: the first hundred are followed, the others not,
// and nothing breaks.
TEST(BoxTracker, FollowsAtMostItsSlotsOfBoxes) {
  BoxTracker tracker;
  std::vector<Sighting> sightings(120);
  for (std::size_t i = 0; i < sightings.size(); ++i) {
    sightings[i].centre_mm = cv::Point3f(300.0f * (i % 12), 300.0f * (i / 12), 1500.0f);
    sightings[i].dimensions = kBox;
  }
  std::vector<Assignment> assignments;
  std::vector<TrackEvent> events;
  for (int frame = 0; frame < 3; ++frame) {
    tracker.update(frame * kFrameUs, sightings, assignments, events);
  }
  int followed = 0;
  for (const Assignment& a : assignments) followed += a.track_id >= 0;
  EXPECT_EQ(followed, BoxTracker::kMaxTracks);
  EXPECT_EQ(tracker.active_tracks(), BoxTracker::kMaxTracks);
  EXPECT_EQ(events.size(), static_cast<std::size_t>(BoxTracker::kMaxTracks));  // placed
}

}  // namespace
}  // namespace boxdim::tracking
