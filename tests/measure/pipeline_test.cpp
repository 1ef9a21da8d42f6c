#include "measure/pipeline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "support/test_frames.h"

namespace boxdim {
namespace {

class PipelineTest : public ::testing::Test {
 protected:
  void SetUp() override { testing::capture_state(state, log, errors); }

  MeasurementOutcome measure(const cv::Mat& depth) {
    testing::load_frame(state, depth);
    return run_measurement(state);
  }

  MeasurementState state;
  std::ostringstream log;
  std::ostringstream errors;
};

TEST_F(PipelineTest, TooFewDeepCentreSamplesEndTheFrameAtTheCentreSelection) {
  cv::Mat depth(480, 640, CV_16UC1, cv::Scalar(80));  // closer than 10 cm
  testing::load_frame(state, depth);
  cv::Mat output(4, 4, CV_8UC3, cv::Scalar(7, 7, 7));
  measure_frame(state, output);
  EXPECT_EQ(output.size(), cv::Size(4, 4)) << "output untouched";
  EXPECT_EQ(log.str(), "select_points_by_center select points less than 50;\n");
  EXPECT_STREQ(run_measurement(state).failed_stage, "select_points_by_center");
}

TEST_F(PipelineTest, ARenderedBoxPassesThePlaneStageAndStopsAtTheFootprint) {
  const RenderedScene scene = render_scene(testing::standard_scene());
  const MeasurementOutcome outcome = measure(scene.depth);
  EXPECT_FALSE(outcome.ok);
  EXPECT_STREQ(outcome.failed_stage, "compute_length_width");

  EXPECT_NEAR(state.plane.c, 1.0f, 1e-4f);
  EXPECT_NEAR(state.plane.d, -800.0f, 0.5f);
  EXPECT_EQ(state.top_plane_pixels, state.selected_pixels);
  // The outline is the box's top face at a quarter of the resolution.
  const cv::Rect outline = cv::boundingRect(state.top_rect_contour_points);
  const cv::Point2f a = scene.truth.top_corners_px[0];
  const cv::Point2f c = scene.truth.top_corners_px[2];
  EXPECT_NEAR(outline.width * 4, std::abs(c.x - a.x), 12.0f);
  EXPECT_NEAR(outline.height * 4, std::abs(c.y - a.y), 12.0f);
  for (const char* line : {"num_iterate: ", "last_ransac_equation :  "}) {
    EXPECT_NE(log.str().find(line), std::string::npos) << line << " missing in\n" << log.str();
  }
}

TEST_F(PipelineTest, AFailedFrameLeavesTheOutputAsTheFramePreparationMadeIt) {
  const RenderedScene scene = render_scene(testing::standard_scene());
  testing::load_frame(state, scene.depth);
  cv::Mat output = state.result_image.clone();
  const cv::Mat before = output.clone();
  measure_frame(state, output);
  EXPECT_EQ(cv::norm(output, before, cv::NORM_INF), 0.0);
}

// The plane and its mean inlier distance belong to the camera, not to one
// frame: a frame that ends early leaves them for the next one.
TEST_F(PipelineTest, ThePlaneAndItsMeanDistanceCarryOverToTheNextFrame) {
  SceneParameters scene = testing::standard_scene();
  scene.noise.sigma_at_1m_mm = 4.0f;
  measure(render_scene(scene).depth);
  const PlaneEquation first = state.plane;
  const float mean_distance = state.plane_mean_distance;
  ASSERT_GT(mean_distance, 0.0f);
  measure(cv::Mat(480, 640, CV_16UC1, cv::Scalar(0)));  // no depth at all
  EXPECT_EQ(state.plane.d, first.d);
  EXPECT_EQ(state.last_ransac_equation.c, first.c);
  EXPECT_EQ(state.plane_mean_distance, mean_distance);
}

class OddFrameSizeTest : public PipelineTest, public ::testing::WithParamInterface<cv::Size> {};

// Frames of any size are measured without reading or writing outside a buffer
// (run the suite under AddressSanitizer to see it); they simply fail early.
TEST_P(OddFrameSizeTest, MeasuresWithoutCrashing) {
  const cv::Size size = GetParam();
  cv::Mat depth(size, CV_16UC1, cv::Scalar(900));
  const MeasurementOutcome outcome = measure(depth);
  EXPECT_FALSE(outcome.ok);
  ASSERT_NE(outcome.failed_stage, nullptr);
  EXPECT_EQ(state.result_image.size(), size);
}

INSTANTIATE_TEST_SUITE_P(Sizes, OddFrameSizeTest,
                         ::testing::Values(cv::Size(1, 1), cv::Size(3, 2), cv::Size(20, 20),
                                           cv::Size(31, 33), cv::Size(320, 240), cv::Size(642, 479),
                                           cv::Size(800, 600)));

}  // namespace
}  // namespace boxdim
