// The carton's lid as the renderer draws it: each shape where and as deep as
// asked, nothing of it where not, and its highest point for the truth.
#include "scene/carton_top.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>

namespace boxdim {
namespace {

// A 400 x 300 mm top: its long axis is x.
constexpr double kHalfLength = 200.0;
constexpr double kHalfWidth = 150.0;

struct ReliefCase {
  std::string name;
  std::function<void(BoxTop&)> shape;
  double x, y;
  double relief;  // mm, within 0.05
};

void PrintTo(const ReliefCase& c, std::ostream* os) { *os << c.name; }

class CartonRelief : public ::testing::TestWithParam<ReliefCase> {};

TEST_P(CartonRelief, IsWhereItIsDrawnAndAsDeep) {
  const ReliefCase& c = GetParam();
  BoxTop top;
  c.shape(top);
  const CartonTopShape shape(top, kHalfLength, kHalfWidth);
  EXPECT_NEAR(shape.relief(c.x, c.y), c.relief, 0.05);
  EXPECT_GE(shape.upper_bound(), shape.highest() - 1e-9);
  EXPECT_LE(shape.lower_bound(), shape.relief(c.x, c.y) + 1e-9);
}

void rim(BoxTop& t) { t.rim_radius_mm = 8.0f; }
void seam_with_step_and_crack(BoxTop& t) {
  t.seam.present = true;
  t.seam.offset_mm = 10.0f;
  t.seam.step_mm = 3.0f;
  t.seam.crack_width_mm = 4.0f;
  t.seam.crack_depth_mm = 30.0f;
}
void taped(BoxTop& t) {
  seam_with_step_and_crack(t);
  t.seam.taped = true;
}
void notch(BoxTop& t) { t.notches = {TopNotch{1, 50.0f, 60.0f, 30.0f, 40.0f}}; }
void handle(BoxTop& t) {
  t.handle.present = true;
  t.handle.from_end_mm = 50.0f;
  t.handle.depth_mm = 25.0f;
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, CartonRelief,
    ::testing::Values(ReliefCase{"flat", [](BoxTop&) {}, 120.0, -90.0, 0.0},
                      // A quarter circle: the full radius down at the edge, nothing a
                      // radius in, 8 - sqrt(64 - 16) = 1.07 mm at 4 mm in.
                      ReliefCase{"rim_at_the_edge", rim, kHalfLength, 0.0, -8.0},
                      ReliefCase{"rim_4_mm_in", rim, kHalfLength - 4.0, 20.0,
                                 -(8.0 - std::sqrt(48.0))},
                      ReliefCase{"rim_a_radius_in", rim, 0.0, kHalfWidth - 8.0, 0.0},
                      // The seam runs along the long axis (x), 10 mm off the centre line.
                      ReliefCase{"raised_flap", seam_with_step_and_crack, 0.0, 40.0, 3.0},
                      ReliefCase{"lower_flap", seam_with_step_and_crack, 0.0, -20.0, 0.0},
                      ReliefCase{"in_the_crack", seam_with_step_and_crack, -50.0, 11.0, -30.0},
                      ReliefCase{"tape_covers_the_crack", taped, -50.0, 9.0, 0.0},
                      ReliefCase{"in_the_notch", notch, 50.0, kHalfWidth - 10.0, -40.0},
                      ReliefCase{"beside_the_notch", notch, 90.0, kHalfWidth - 10.0, 0.0},
                      ReliefCase{"in_the_hand_hole", handle, kHalfLength - 50.0, 20.0, -25.0},
                      ReliefCase{"beyond_the_hand_hole", handle, kHalfLength - 80.0, 0.0, 0.0}),
    [](const auto& info) { return info.param.name; });

TEST(CartonTop, AnOffCentreBulgePeaksWhereItIsPutAndFadesToTheWalls) {
  BoxTop top;
  top.offset_bulge_mm = 6.0f;
  top.offset_bulge_at = {0.5f, -0.3f};
  const CartonTopShape shape(top, kHalfLength, kHalfWidth);
  EXPECT_NEAR(shape.relief(0.5 * kHalfLength, -0.3 * kHalfWidth), 6.0, 1e-6);
  EXPECT_NEAR(shape.highest(), 6.0, 0.01);
  EXPECT_LT(shape.relief(0.0, 0.0), 5.0);
  EXPECT_NEAR(shape.relief(kHalfLength, 0.0), 0.0, 1e-9);
  EXPECT_NEAR(shape.relief(0.0, -kHalfWidth), 0.0, 1e-9);
}

// The truth's height: what rises above the walls, and only that.
TEST(CartonTop, TheHighestPointCountsRisesNotDrops) {
  BoxTop sagging;
  sagging.lid_mm = -5.0f;
  sagging.rim_radius_mm = 6.0f;
  sagging.notches = {TopNotch{0, 0.0f, 60.0f, 30.0f, 40.0f}};
  EXPECT_LE(CartonTopShape(sagging, kHalfLength, kHalfWidth).highest(), 0.0);

  BoxTop raised;
  raised.seam.present = true;
  raised.seam.step_mm = 4.0f;
  raised.bumps = {TopBump{{-60.0f, 60.0f}, 2.5f, 20.0f}};
  // The bump stands on the raised flap: 4 + 2.5.
  EXPECT_NEAR(CartonTopShape(raised, kHalfLength, kHalfWidth).highest(), 6.5, 0.05);
}

TEST(CartonTop, TapeIsGlossyAndTheCrackAndHandHoleAreShaded) {
  BoxTop top;
  seam_with_step_and_crack(top);
  top.labels = {TopLabel{{-100.0f, -80.0f}, {80.0f, 60.0f}, 0.9f}};
  const CartonTopShape cracked(top, kHalfLength, kHalfWidth);
  EXPECT_LT(cracked.reflectivity(0.0, 10.0), cracked.reflectivity(0.0, 60.0));
  EXPECT_NEAR(cracked.reflectivity(-100.0, -80.0), 0.9, 1e-6);
  EXPECT_FALSE(cracked.glossy(0.0, 10.0));
  EXPECT_TRUE(cracked.step_near(0.0, 14.0, 2.5));
  EXPECT_FALSE(cracked.step_near(0.0, 60.0, 2.5));
  top.seam.taped = true;
  const CartonTopShape with_tape(top, kHalfLength, kHalfWidth);
  EXPECT_TRUE(with_tape.glossy(0.0, 30.0));
  EXPECT_FALSE(with_tape.glossy(0.0, 40.0));
}

TEST(CartonTop, ShapesThatDoNotFitTheBoxAreRefusedByName) {
  const auto refused = [](const std::function<void(BoxTop&)>& shape, const std::string& name) {
    BoxTop top;
    shape(top);
    try {
      validate_box_top(top, 400.0f, 300.0f, 100.0f, "box");
    } catch (const std::invalid_argument& e) {
      return std::string(e.what()).find(name) != std::string::npos;
    }
    return false;
  };
  EXPECT_TRUE(refused([](BoxTop& t) { t.rim_radius_mm = 200.0f; }, "box rim radius"));
  EXPECT_TRUE(refused([](BoxTop& t) { t.rim_radius_mm = NAN; }, "box rim radius"));
  EXPECT_TRUE(refused(
      [](BoxTop& t) {
        seam_with_step_and_crack(t);
        t.seam.crack_depth_mm = 95.0f;  // deeper than the box can hold
      },
      "box crack depth"));
  EXPECT_TRUE(refused([](BoxTop& t) { t.notches = {TopNotch{4}}; }, "notch side"));
  EXPECT_TRUE(refused([](BoxTop& t) { t.offset_bulge_at = {0.9f, 0.0f}; }, "offset bulge"));
  EXPECT_FALSE(refused(handle, "box"));
}

}  // namespace
}  // namespace boxdim
