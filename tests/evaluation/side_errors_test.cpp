#include "evaluation/side_errors.h"

#include <gtest/gtest.h>

#include "precise/box_detector.h"

namespace boxdim {
namespace {

SceneParameters turned_box() {
  SceneParameters s;
  s.yaw_deg = 31.0f;
  s.offset_mm = {60.0f, -40.0f};
  return s;
}

// The true top as a fit, every side placed, with side `moved` pushed out by
// `by` mm: that side alone reads off, by as much, with its sign.
struct MovedSide {
  int moved;
  float by;
};

class SideErrorsOfAMovedSide : public ::testing::TestWithParam<MovedSide> {};

TEST_P(SideErrorsOfAMovedSide, ShowOnThatSideAlone) {
  const MovedSide c = GetParam();
  const SceneGroundTruth truth = scene_ground_truth(turned_box());
  precise::BoxFit fit;
  fit.status = BoxStatus::kMeasured;
  for (int i = 0; i < 4; ++i) fit.corners_mm[i] = truth.top_corners_camera[i];
  for (precise::SideEdge& side : fit.sides) side.found = true;
  // Side k runs from corner k + 1 to corner k + 2.
  const cv::Point3f a = fit.corners_mm[(c.moved + 1) % 4];
  const cv::Point3f b = fit.corners_mm[(c.moved + 2) % 4];
  const cv::Point3f inner = fit.corners_mm[(c.moved + 3) % 4];
  cv::Point3f out = b - inner;  // along the sides that meet this one
  out *= 1.0f / static_cast<float>(cv::norm(out));
  fit.corners_mm[(c.moved + 1) % 4] = a + c.by * out;
  fit.corners_mm[(c.moved + 2) % 4] = b + c.by * out;

  const auto errors = side_errors(fit, truth);
  for (int k = 0; k < 4; ++k) {
    ASSERT_TRUE(errors[k].has_value()) << "side " << k;
    EXPECT_NEAR(errors[k]->error_mm, k == c.moved ? c.by : 0.0, 1e-3) << "side " << k;
  }
}

INSTANTIATE_TEST_SUITE_P(EverySide, SideErrorsOfAMovedSide,
                         ::testing::Values(MovedSide{0, 2.0f}, MovedSide{1, -3.0f},
                                           MovedSide{2, 1.5f}, MovedSide{3, -0.5f}));

TEST(SideErrors, ASideLeftWhereTheFirstRectangleWasHasNone) {
  const SceneGroundTruth truth = scene_ground_truth(turned_box());
  precise::BoxFit fit;
  for (int i = 0; i < 4; ++i) fit.corners_mm[i] = truth.top_corners_camera[i];
  fit.sides[0].found = true;
  fit.sides[1].standing = true;
  fit.sides[1].found = true;
  const auto errors = side_errors(fit, truth);
  EXPECT_TRUE(errors[0].has_value());
  EXPECT_TRUE(errors[1].has_value());
  EXPECT_FALSE(errors[2].has_value());
  EXPECT_FALSE(errors[3].has_value());
  EXPECT_EQ(errors[1]->placement, SidePlacement::kStanding);
  EXPECT_EQ(errors[0]->placement, SidePlacement::kHidingNoRim);
}

// On a detection, each pair of opposite sides adds up to the error of the
// dimension between them (within what the fit's slight turn leaves).
class SideErrorsOfADetection : public ::testing::TestWithParam<float> {};

TEST_P(SideErrorsOfADetection, AddUpToTheDimensionsErrors) {
  SceneParameters scene = turned_box();
  scene.tilt_deg = GetParam();
  const RenderedScene rendered = render_scene(scene);
  precise::BoxDetector detector;
  const std::vector<precise::BoxFit>& fits = detector.detect(rendered.depth, scene.intrinsics, 1);
  ASSERT_EQ(fits.size(), 1u);
  const precise::BoxFit& fit = fits[0];
  ASSERT_EQ(fit.status, BoxStatus::kMeasured) << fit.reason;
  const auto errors = side_errors(fit, rendered.truth);
  for (const auto& e : errors) ASSERT_TRUE(e.has_value());
  // Sides 0 and 2 span corners 0 to 1, sides 1 and 3 corners 1 to 2.
  const double along = cv::norm(fit.corners_mm[1] - fit.corners_mm[0]);
  const double across = cv::norm(fit.corners_mm[2] - fit.corners_mm[1]);
  const BoxDimensions& truth = rendered.truth.dimensions;
  const double true_along = along >= across ? truth.box_length : truth.box_width;
  const double true_across = along >= across ? truth.box_width : truth.box_length;
  EXPECT_NEAR(errors[0]->error_mm + errors[2]->error_mm, along - true_along, 0.15);
  EXPECT_NEAR(errors[1]->error_mm + errors[3]->error_mm, across - true_across, 0.15);
}

INSTANTIATE_TEST_SUITE_P(Tilts, SideErrorsOfADetection, ::testing::Values(0.0f, 12.0f));

}  // namespace
}  // namespace boxdim
