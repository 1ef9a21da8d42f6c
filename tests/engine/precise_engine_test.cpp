// A result kept from frame to frame holds exactly what a fresh one would: no
// box, failure or primary of an earlier frame survives into a later one.
#include "engine/precise_engine.h"

#include <gtest/gtest.h>

#include <vector>

#include "scene/depth_scene.h"
#include "source/rendered_sequence.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

// Frames whose results differ in every part: three boxes, an empty floor, a
// box half out of view, one box, a smaller image with a box.
std::vector<DepthFrame> changing_frames() {
  std::vector<SceneParameters> scenes(5, testing::standard_scene());
  scenes[0].other_boxes = {FloorBox{300, 200, 150, {-430, 150}, 20, {}},
                           FloorBox{200, 200, 300, {400, -100}, 60, {}}};
  scenes[1].with_box = false;
  scenes[2].offset_mm = {700.0f, 0.0f};
  scenes[4] = testing::scene_at_size({320, 240});
  std::vector<DepthFrame> frames;
  for (std::size_t i = 0; i < scenes.size(); ++i) {
    scenes[i].noise = {1.0f, 0.1f, 0.002f};
    scenes[i].seed = 70 + static_cast<int>(i);
    DepthFrame frame;
    frame.depth = render_scene(scenes[i]).depth;
    frame.intrinsics = scenes[i].intrinsics;
    frame.camera_id = static_cast<int>(i % 2);
    frame.timestamp_us = 1000 * static_cast<std::int64_t>(i);
    frames.push_back(frame);
  }
  return frames;
}

void expect_same(const MeasurementResult& kept, const MeasurementResult& fresh, int frame) {
  SCOPED_TRACE(::testing::Message() << "frame " << frame);
  EXPECT_EQ(kept.camera_id, fresh.camera_id);
  EXPECT_EQ(kept.timestamp_us, fresh.timestamp_us);
  EXPECT_EQ(kept.primary, fresh.primary);
  ASSERT_EQ(kept.failure.has_value(), fresh.failure.has_value());
  if (fresh.failure) {
    EXPECT_EQ(kept.failure->stage, fresh.failure->stage);
    EXPECT_EQ(kept.failure->message, fresh.failure->message);
  }
  ASSERT_EQ(kept.boxes.size(), fresh.boxes.size());
  for (std::size_t b = 0; b < fresh.boxes.size(); ++b) {
    const BoxMeasurement& k = kept.boxes[b];
    const BoxMeasurement& f = fresh.boxes[b];
    EXPECT_EQ(k.status, f.status) << "box " << b;
    EXPECT_EQ(k.dimensions.box_length, f.dimensions.box_length) << "box " << b;
    EXPECT_EQ(k.dimensions.box_width, f.dimensions.box_width) << "box " << b;
    EXPECT_EQ(k.dimensions.box_height, f.dimensions.box_height) << "box " << b;
    EXPECT_EQ(k.corners_px, f.corners_px) << "box " << b;
    EXPECT_EQ(k.corners_mm, f.corners_mm) << "box " << b;
    EXPECT_EQ(k.centre_px, f.centre_px) << "box " << b;
    EXPECT_EQ(k.track_id, f.track_id) << "box " << b;
    ASSERT_EQ(k.fused.has_value(), f.fused.has_value()) << "box " << b;
    if (f.fused) {
      EXPECT_EQ(k.fused->dimensions.box_length, f.fused->dimensions.box_length) << "box " << b;
      EXPECT_EQ(k.fused->frames, f.fused->frames) << "box " << b;
    }
    EXPECT_EQ(k.confidence, f.confidence) << "box " << b;
  }
  ASSERT_EQ(kept.events.size(), fresh.events.size());
  for (std::size_t e = 0; e < fresh.events.size(); ++e) {
    EXPECT_EQ(kept.events[e].kind, fresh.events[e].kind) << "event " << e;
    EXPECT_EQ(kept.events[e].track_id, fresh.events[e].track_id) << "event " << e;
  }
  ASSERT_EQ(kept.picture.size(), fresh.picture.size());
  if (!fresh.picture.empty()) {
    EXPECT_EQ(cv::norm(kept.picture, fresh.picture, cv::NORM_INF), 0.0);
  }
}

class KeptResultTest : public ::testing::TestWithParam<bool> {};

TEST_P(KeptResultTest, HoldsWhatAFreshResultHolds) {
  EngineContext context;
  context.seed_clock = [] { return std::time_t{5}; };
  context.draw_pictures = GetParam();
  PreciseEngine fresh_engine(context);
  PreciseEngine kept_engine(context);
  MeasurementResult kept;
  const std::vector<DepthFrame> frames = changing_frames();
  // Through the frames twice, so that every kind of result follows every other.
  for (int pass = 0; pass < 2; ++pass) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
      const MeasurementResult fresh = fresh_engine.measure(frames[i]);
      kept_engine.measure_into(frames[i], kept);
      expect_same(kept, fresh, static_cast<int>(i));
    }
  }
  // The frames hold what the test means them to: boxes of every count, and a
  // failed frame.
  const MeasurementResult three = fresh_engine.measure(frames[0]);
  EXPECT_EQ(three.boxes.size(), 3u);
  EXPECT_TRUE(fresh_engine.measure(frames[1]).failure.has_value());
}

INSTANTIATE_TEST_SUITE_P(Pictures, KeptResultTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "drawn" : "not_drawn"; });

// The events of a sequence, in order, and the frame each came in.
struct SequenceEvents {
  std::vector<TrackEvent> events;
  std::vector<int> frames;
};

SequenceEvents events_of(const std::vector<SceneParameters>& scenes) {
  EngineContext context;
  context.seed_clock = [] { return std::time_t{9}; };
  context.draw_pictures = false;
  PreciseEngine engine(context);
  RenderedSequence sequence(scenes);
  SequenceEvents out;
  MeasurementResult result;
  int frame = 0;
  while (std::optional<DepthFrame> depth = sequence.next()) {
    engine.measure_into(*depth, result);
    for (const TrackEvent& event : result.events) {
      out.events.push_back(event);
      out.frames.push_back(frame);
    }
    ++frame;
  }
  return out;
}

SceneParameters noisy_frame(int frame) {
  SceneParameters scene = testing::standard_scene();
  scene.camera_height_mm = 1200.0f;
  scene.noise = {2.0f, 0.2f, 0.005f};
  scene.seed = 500 + frame;
  return scene;
}

void expect_one_box_seen_through(const SequenceEvents& seen, const SceneParameters& box,
                                 float tolerance_mm) {
  ASSERT_EQ(seen.events.size(), 3u);
  EXPECT_EQ(seen.events[0].kind, TrackEventKind::kPlaced);
  EXPECT_EQ(seen.events[1].kind, TrackEventKind::kMeasured);
  EXPECT_EQ(seen.events[2].kind, TrackEventKind::kRemoved);
  EXPECT_EQ(seen.events[0].track_id, seen.events[1].track_id);
  EXPECT_EQ(seen.events[0].track_id, seen.events[2].track_id);
  const BoxDimensions& read = seen.events[1].reading.dimensions;
  EXPECT_NEAR(read.box_length, box.box_length_mm, tolerance_mm);
  EXPECT_NEAR(read.box_width, box.box_width_mm, tolerance_mm);
  EXPECT_NEAR(read.box_height, box.box_height_mm, tolerance_mm);
  const BoxDimensions& uncertainty = seen.events[1].reading.uncertainty;
  EXPECT_NEAR(read.box_length, box.box_length_mm, uncertainty.box_length);
  EXPECT_NEAR(read.box_width, box.box_width_mm, uncertainty.box_width);
  EXPECT_NEAR(read.box_height, box.box_height_mm, uncertainty.box_height);
}

TEST(PreciseEngineTracking, ABoxPlacedLeftAndTakenAwayIsPlacedMeasuredAndRemovedOnce) {
  std::vector<SceneParameters> scenes;
  for (int frame = 0; frame < 80; ++frame) {
    SceneParameters scene = noisy_frame(frame);
    scene.with_box = frame >= 10 && frame < 60;
    scenes.push_back(scene);
  }
  const SequenceEvents seen = events_of(scenes);
  // A sharp box under noise: its edges go out by half of the rounding the
  // pixels cannot rule out.
  expect_one_box_seen_through(seen, scenes[10], 2.0f);
  // Measured within half a second of being put down, gone within a third of
  // a second of being taken away.
  if (seen.frames.size() == 3) {
    EXPECT_LE(seen.frames[1], 10 + 15);
    EXPECT_GE(seen.frames[2], 60);
    EXPECT_LE(seen.frames[2], 60 + 10);
  }
}

TEST(PreciseEngineTracking, ABoxCarriedAcrossTheViewKeepsOneTrackAndIsMeasuredOnce) {
  // 0.5 m/s along the image's rows, from out of view on one side to out of
  // view on the other.
  std::vector<SceneParameters> scenes;
  for (int frame = 0; frame < 150; ++frame) {
    SceneParameters scene = noisy_frame(frame);
    scene.offset_mm = {-1150.0f + 500.0f * frame / 30.0f, 0.0f};
    scene.with_box = std::abs(scene.offset_mm.x) < 1150.0f;
    scenes.push_back(scene);
  }
  expect_one_box_seen_through(events_of(scenes), scenes[0], 2.0f);
}

}  // namespace
}  // namespace boxdim
