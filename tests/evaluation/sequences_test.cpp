// Sequences judged as evaluate judges them: the kinds' scripts hold the boxes
// and times they promise, and short sequences of each kind through the
// precise engine get their events right, with fused readings at least as good
// as single frames.
#include "evaluation/sequences.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_frames.h"

namespace boxdim {
namespace {

TEST(SequenceScripts, HoldTheBoxesAndTimesOfTheirKind) {
  for (const SequenceFamily& family : sequence_families()) {
    SCOPED_TRACE(family.name);
    const std::vector<SequenceScript> scripts = sample_sequences(family, 3, 11);
    ASSERT_EQ(scripts.size(), 3u);
    for (const SequenceScript& s : scripts) {
      const int boxes = s.scene.with_box ? 1 + static_cast<int>(s.scene.other_boxes.size()) : 0;
      EXPECT_EQ(static_cast<int>(s.rests_at_s.size()), boxes);
      const double end_s = static_cast<double>(s.frames) / s.frames_per_second;
      switch (family.kind) {
        case SequenceKind::kPlaced:
          // Left long enough to see whether its reading stays put.
          EXPECT_GE(s.motion.removed_s - s.motion.placed_s, 10.0);
          EXPECT_GT(end_s, s.motion.removed_s);
          break;
        case SequenceKind::kTwoBoxes:
          ASSERT_EQ(boxes, 2);
          EXPECT_GT(s.motion.others_placed_s.at(0), s.motion.placed_s);
          EXPECT_GT(end_s, s.motion.others_removed_s.at(0));
          break;
        case SequenceKind::kCarried: {
          const float speed = std::abs(s.motion.conveyor_mm_s);
          EXPECT_GE(speed, 200.0f);
          EXPECT_LE(speed, 1000.0f);
          // Out of view at both ends.
          const SceneParameters first = scene_at(s.scene, s.motion, 0.0, 0);
          const SceneParameters last = scene_at(s.scene, s.motion, s.motion.removed_s, 0);
          for (const SceneParameters& at : {first, last}) {
            for (const cv::Point2f& c : scene_ground_truth(at).top_corners_px) {
              EXPECT_TRUE(c.x < 0 || c.x >= at.image_width) << c;
            }
          }
          break;
        }
        case SequenceKind::kEmptyFloor:
          EXPECT_EQ(boxes, 0);
          break;
        case SequenceKind::kField:
          // A carton under the physical sensor, left a while.
          EXPECT_TRUE(s.scene.sensor.physical());
          EXPECT_GT(s.scene.top.rim_radius_mm, 0.0f);
          EXPECT_GE(s.motion.removed_s - s.motion.placed_s, 3.5);
          break;
      }
    }
  }
}

SequenceScript short_script(SequenceKind kind) {
  SequenceScript s;
  s.scene = testing::standard_scene();
  s.scene.camera_height_mm = 1200.0f;
  s.scene.noise = {2.0f, 0.2f, 0.005f};
  s.scene.noise.multipath_mm = 8.0f;
  s.scene.seed = 31;
  switch (kind) {
    case SequenceKind::kPlaced:
      s.motion.placed_s = 0.3;
      s.motion.removed_s = 1.6;
      s.frames = 60;
      s.rests_at_s = {0.3};
      break;
    case SequenceKind::kTwoBoxes:
      s.scene.offset_mm = {-250.0f, 0.0f};
      s.scene.other_boxes = {FloorBox{250, 200, 150, {520, 40}, 30, {}}};
      s.motion.placed_s = 0.2;
      s.motion.removed_s = 1.8;
      s.motion.others_placed_s = {0.8};
      s.motion.others_removed_s = {1.8};
      s.frames = 66;
      s.rests_at_s = {0.2, 0.8};
      break;
    case SequenceKind::kCarried:
      s.scene.offset_mm = {-1150.0f, 0.0f};
      s.motion.conveyor_mm_s = 1000.0f;
      s.motion.removed_s = 2.3;
      s.frames = 90;
      s.rests_at_s = {-1.0};
      break;
    case SequenceKind::kEmptyFloor:
      s.scene.with_box = false;
      s.frames = 30;
      break;
    case SequenceKind::kField:
      // A carton with a rounded rim and a taped seam, under a time-of-flight
      // camera whose filter blanks its edges.
      s.scene.noise = {1.0f, 0.0f, 0.002f};
      s.scene.sensor.footprint_samples = 4;
      s.scene.sensor.flying_filter = FlyingPixelFilter::kWeak;
      s.scene.top.rim_radius_mm = 5.0f;
      s.scene.top.seam.present = true;
      s.scene.top.seam.taped = true;
      s.motion.placed_s = 0.3;
      s.motion.removed_s = 1.6;
      s.frames = 60;
      s.rests_at_s = {0.3};
      break;
  }
  return s;
}

class ShortSequenceTest : public ::testing::TestWithParam<SequenceKind> {};

TEST_P(ShortSequenceTest, GetsItsEventsRightWithFusedReadingsAsGoodAsSingleFrames) {
  const SequenceOutcome o = run_sequence(short_script(GetParam()), 1);
  EXPECT_TRUE(o.events_right);
  ASSERT_EQ(o.fused_errors[0].size(), static_cast<std::size_t>(o.boxes));
  for (int d = 0; d < 3; ++d) {
    for (const double e : o.fused_errors[d]) {
      EXPECT_LE(e, 2.0) << "dimension " << d;
    }
  }
  for (const double s : o.settle_s) EXPECT_LE(s, 0.5);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ShortSequenceTest,
                         ::testing::Values(SequenceKind::kPlaced, SequenceKind::kTwoBoxes,
                                           SequenceKind::kCarried, SequenceKind::kEmptyFloor,
                                           SequenceKind::kField),
                         [](const auto& info) {
                           return sequence_families()[static_cast<int>(info.param)].name ==
                                          "two-boxes"
                                      ? std::string("two_boxes")
                                      : sequence_families()[static_cast<int>(info.param)].name;
                         });

}  // namespace
}  // namespace boxdim
