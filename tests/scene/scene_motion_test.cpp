// A scene over time: the box there only between its placing and removal, a
// conveyor moving it alone, other boxes appearing at their own times, and a
// seed of its own for every frame.
#include "scene/scene_motion.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace boxdim {
namespace {

struct MotionCase {
  std::string name;
  SceneMotion motion;
  double seconds;
  bool box_there;
  float offset_x;               // the main box's
  std::vector<float> others_x;  // the other boxes there, by offset
};

void PrintTo(const MotionCase& c, std::ostream* os) { *os << c.name; }

class SceneMotionTest : public ::testing::TestWithParam<MotionCase> {};

TEST_P(SceneMotionTest, PutsEachBoxWhereAndWhenItIs) {
  const MotionCase& c = GetParam();
  SceneParameters scene;
  scene.offset_mm = {10.0f, 5.0f};
  scene.seed = 40;
  scene.other_boxes = {FloorBox{}, FloorBox{}};
  scene.other_boxes[0].offset_mm = {300.0f, 0.0f};
  scene.other_boxes[1].offset_mm = {-300.0f, 0.0f};
  const SceneParameters at = scene_at(scene, c.motion, c.seconds, 7);
  EXPECT_EQ(at.with_box, c.box_there);
  EXPECT_FLOAT_EQ(at.offset_mm.x, c.offset_x);
  EXPECT_FLOAT_EQ(at.offset_mm.y, 5.0f);
  ASSERT_EQ(at.other_boxes.size(), c.others_x.size());
  for (std::size_t i = 0; i < c.others_x.size(); ++i) {
    // Relative to the main box: where they stand on the floor stays put.
    EXPECT_FLOAT_EQ(at.offset_mm.x + at.other_boxes[i].offset_mm.x, c.others_x[i]);
  }
  EXPECT_EQ(at.seed, 47u);
}

SceneMotion placed_and_removed() {
  SceneMotion m;
  m.placed_s = 1.0;
  m.removed_s = 3.0;
  return m;
}

SceneMotion box_after_box() {
  SceneMotion m = placed_and_removed();
  m.every_s = 4.0;
  return m;
}

SceneMotion conveyor() {
  SceneMotion m;
  m.conveyor_mm_s = 500.0f;
  return m;
}

SceneMotion second_box_later() {
  SceneMotion m;
  m.others_placed_s = {2.0};
  m.others_removed_s = {4.0};
  return m;
}

INSTANTIATE_TEST_SUITE_P(
    Times, SceneMotionTest,
    ::testing::Values(
        MotionCase{"still", SceneMotion{}, 5.0, true, 10.0f, {310.0f, -290.0f}},
        MotionCase{"before_placed", placed_and_removed(), 0.99, false, 10.0f, {310.0f, -290.0f}},
        MotionCase{"placed", placed_and_removed(), 1.0, true, 10.0f, {310.0f, -290.0f}},
        MotionCase{"removed", placed_and_removed(), 3.0, false, 10.0f, {310.0f, -290.0f}},
        MotionCase{"next_round_not_yet", box_after_box(), 4.5, false, 10.0f, {310.0f, -290.0f}},
        MotionCase{"next_round_placed", box_after_box(), 9.5, true, 10.0f, {310.0f, -290.0f}},
        MotionCase{"next_round_removed", box_after_box(), 11.0, false, 10.0f, {310.0f, -290.0f}},
        MotionCase{"on_a_conveyor", conveyor(), 2.0, true, 1010.0f, {310.0f, -290.0f}},
        MotionCase{"second_box_not_yet", second_box_later(), 1.5, true, 10.0f, {-290.0f}},
        MotionCase{"second_box_there", second_box_later(), 2.5, true, 10.0f, {310.0f, -290.0f}},
        MotionCase{"second_box_gone", second_box_later(), 4.0, true, 10.0f, {-290.0f}}),
    [](const auto& info) { return info.param.name; });

TEST(SceneMotion, IsStillOnlyWhenNothingChanges) {
  EXPECT_TRUE(SceneMotion{}.still());
  EXPECT_FALSE(placed_and_removed().still());
  EXPECT_FALSE(conveyor().still());
  EXPECT_FALSE(box_after_box().still());
  EXPECT_FALSE(second_box_later().still());
}

}  // namespace
}  // namespace boxdim
