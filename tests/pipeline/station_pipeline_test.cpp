#include "pipeline/station_pipeline.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/test_frames.h"

namespace boxdim {
namespace {

class PipelineTest : public testing::StageTest {
 protected:
  MeasurementOutcome measure(const cv::Mat& depth) {
    testing::load_frame(state, depth);
    return run_measurement(state);
  }
};

// A measured frame replaces the caller's picture with a copy of the result,
// whatever size the caller's picture had.
TEST_F(PipelineTest, AMeasuredFrameHandsBackACopyOfTheResultPicture) {
  testing::load_frame(state, render_scene(testing::standard_scene()).depth);
  cv::Mat output(4, 4, CV_8UC3, cv::Scalar(7, 7, 7));
  measure_frame(state, output);
  ASSERT_EQ(output.size(), cv::Size(640, 480));
  EXPECT_EQ(cv::norm(output, state.result_image, cv::NORM_INF), 0.0);
  output.setTo(cv::Scalar(0, 0, 0));
  EXPECT_GT(cv::norm(state.result_image, cv::NORM_INF), 0.0) << "a copy, not the state's picture";
}

// A frame ends at the first stage that fails, with that stage's line alone,
// and leaves the output as the frame preparation made it. A level floor and
// no box has a plane, but its outline has no edges to fit.
TEST_F(PipelineTest, AFailedFrameEndsAtItsStageAndLeavesTheOutputUntouched) {
  const std::vector<std::pair<std::uint16_t, const char*>> cases = {
      {80, "select_points_by_center"},  // closer than 10 cm
      {1000, "compute_length_width"}};
  for (const auto& [depth_mm, stage] : cases) {
    log.str("");
    testing::load_frame(state, cv::Mat(480, 640, CV_16UC1, cv::Scalar(depth_mm)));
    cv::Mat output = state.result_image.clone();
    const cv::Mat before = output.clone();
    measure_frame(state, output);
    EXPECT_EQ(cv::norm(output, before, cv::NORM_INF), 0.0) << stage;
    if (depth_mm == 80) {
      EXPECT_EQ(log.str(), "select_points_by_center select points less than 50;\n");
    }
    EXPECT_STREQ(run_measurement(state).failed_stage, stage);
  }
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
                         ::testing::Values(cv::Size(1, 1), cv::Size(3, 2), cv::Size(31, 33),
                                           cv::Size(642, 479), cv::Size(800, 600)),
                         [](const auto& info) {
                           return std::to_string(info.param.width) + "x" +
                                  std::to_string(info.param.height);
                         });

}  // namespace
}  // namespace boxdim
