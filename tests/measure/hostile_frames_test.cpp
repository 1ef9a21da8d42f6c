// Frames and intrinsics no camera should send: each must end as a failed frame
// or a measurement, never a crash, a hang or (in the sanitizer build) an
// access outside a buffer; and the next good frame must still be measured.
#include "support/hostile_frames.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "footprint/line_fitting.h"
#include "measure/frame_preparation.h"
#include "pipeline/station_pipeline.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

const CameraIntrinsics kDefaultIntrinsics;

using testing::HostileCase;
using testing::HostileOutcome;

class HostileFrameTest : public testing::StageTest,
                         public ::testing::WithParamInterface<HostileCase> {};

TEST_P(HostileFrameTest, EndsAsAFailedFrameOrAResultAndSpoilsNothingAfter) {
  const HostileCase& c = GetParam();
  state.intrinsics = c.intrinsics;
  const cv::Mat depth = c.frame(c.size);
  testing::load_frame(state, depth);
  MeasurementOutcome outcome;
  ASSERT_NO_THROW(outcome = run_measurement(state));
  if (c.outcome == HostileOutcome::kFails) {
    EXPECT_FALSE(outcome.ok) << "measured " << state.dimensions.box_length;
  } else if (c.outcome == HostileOutcome::kMeasuresTheBox) {
    ASSERT_TRUE(outcome.ok) << log.str();
    EXPECT_NEAR(state.dimensions.box_length, 400.0f, 3.0f);
  }
  EXPECT_EQ(state.result_image.size(), c.size);

  // The camera goes back to sane frames: the plane and its statistics carry
  // over, and must not keep the next frame from being measured.
  state.intrinsics = kDefaultIntrinsics;
  testing::load_frame(state, render_scene(testing::standard_scene()).depth);
  ASSERT_TRUE(run_measurement(state).ok) << log.str();
  EXPECT_NEAR(state.dimensions.box_length, 400.0f, 3.0f);
  EXPECT_NEAR(state.dimensions.box_height, 200.0f, 3.0f);
}

INSTANTIATE_TEST_SUITE_P(Frames, HostileFrameTest, ::testing::ValuesIn(testing::hostile_cases()),
                         [](const auto& info) { return std::string(info.param.name); });

// Two nearly parallel side lines meet far outside the frame; the side to such
// a corner is not walked pixel by pixel (it took seconds at 10^7 pixels) but
// yields no edge points, as one to a corner that is not a number.
TEST_F(HostileFrameTest, ACoarseCornerFarOutsideTheFrameFailsTheEdgeFitAtOnce) {
  state.edge_image = cv::Mat::zeros(state.height, state.width, CV_16SC1);
  cv::rectangle(state.edge_image, cv::Rect(100, 100, 201, 151), cv::Scalar(500));
  state.coarse_corners = {{100.0f, 100.0f}, {1.0e7f, 100.5f}, {300.0f, 250.0f}, {100.0f, 250.0f}};
  std::vector<cv::Vec4f> lines;
  EXPECT_FALSE(refine_edge_lines(state, lines));
  EXPECT_EQ(log.str(), " ransac_fitline points less than 10;\n");
}

}  // namespace
}  // namespace boxdim
