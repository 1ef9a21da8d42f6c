// Frames and intrinsics no camera should send: each must end as a failed frame
// or a measurement, never a crash, a hang or (in the sanitizer build) an
// access outside a buffer; and the next good frame must still be measured.
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "footprint/line_fitting.h"
#include "measure/frame_preparation.h"
#include "pipeline/station_pipeline.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
const CameraIntrinsics kDefaultIntrinsics;

cv::Mat filled(cv::Size size, std::uint16_t value) { return cv::Mat(size, CV_16UC1, value); }

cv::Mat one_valid_pixel(cv::Size size) {
  cv::Mat depth = filled(size, 0);
  depth.at<std::uint16_t>(size.height / 2, size.width / 2) = 1000;
  return depth;
}

// A camera of this size: principal point in the middle, focal length scaled
// with the width.
CameraIntrinsics scaled_intrinsics(cv::Size size) {
  const float scale = static_cast<float>(size.width) / 640.0f;
  return {506.426f * scale, 506.605f * scale, size.width / 2.0f, size.height / 2.0f};
}

// The standard box as that camera sees it.
cv::Mat box_frame(cv::Size size) {
  SceneParameters scene = testing::standard_scene();
  scene.image_width = size.width;
  scene.image_height = size.height;
  scene.intrinsics = scaled_intrinsics(size);
  return render_scene(scene).depth;
}

enum Outcome { kFails, kMeasuresTheBox, kEither };

struct HostileCase {
  const char* name;
  cv::Size size;
  std::function<cv::Mat(cv::Size)> frame;
  CameraIntrinsics intrinsics;
  Outcome outcome;
};

void PrintTo(const HostileCase& c, std::ostream* os) { *os << c.name; }

class HostileFrameTest : public testing::StageTest,
                         public ::testing::WithParamInterface<HostileCase> {};

TEST_P(HostileFrameTest, EndsAsAFailedFrameOrAResultAndSpoilsNothingAfter) {
  const HostileCase& c = GetParam();
  state.intrinsics = c.intrinsics;
  const cv::Mat depth = c.frame(c.size);
  testing::load_frame(state, depth);
  MeasurementOutcome outcome;
  ASSERT_NO_THROW(outcome = run_measurement(state));
  if (c.outcome == kFails) {
    EXPECT_FALSE(outcome.ok) << "measured " << state.dimensions.box_length;
  } else if (c.outcome == kMeasuresTheBox) {
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

const cv::Size kVga(640, 480);
const auto kBox = [](cv::Size size) { return box_frame(size); };
const auto kZeros = [](cv::Size size) { return filled(size, 0); };
const auto kSaturated = [](cv::Size size) { return filled(size, 65535); };

INSTANTIATE_TEST_SUITE_P(
    Frames, HostileFrameTest,
    ::testing::Values(
        HostileCase{"all_zeros", kVga, kZeros, kDefaultIntrinsics, kFails},
        HostileCase{"all_65535", kVga, kSaturated, kDefaultIntrinsics, kFails},
        HostileCase{"one_valid_pixel", kVga, one_valid_pixel, kDefaultIntrinsics, kFails},
        HostileCase{"nan_intrinsics", kVga, kBox, {kNaN, kNaN, kNaN, kNaN}, kFails},
        HostileCase{"zero_intrinsics", kVga, kBox, {0.0f, 0.0f, 0.0f, 0.0f}, kFails},
        HostileCase{"infinite_focal_length", kVga, kBox, {kInf, kInf, 323.0f, 231.0f}, kFails},
        HostileCase{
            "negative_focal_length", kVga, kBox, {-506.0f, -506.0f, 323.0f, 231.0f}, kEither},
        HostileCase{
            "principal_point_far_away", kVga, kBox, {506.0f, 506.0f, 1e30f, -1e30f}, kFails},
        HostileCase{"one_pixel", {1, 1}, kSaturated, kDefaultIntrinsics, kFails},
        HostileCase{"one_row", {1024, 1}, one_valid_pixel, kDefaultIntrinsics, kFails},
        HostileCase{"one_column", {1, 1024}, kSaturated, kDefaultIntrinsics, kFails},
        HostileCase{"box_639x479", {639, 479}, kBox, scaled_intrinsics({639, 479}), kEither},
        HostileCase{"box_641x481", {641, 481}, kBox, scaled_intrinsics({641, 481}), kEither},
        HostileCase{
            "box_1280x960", {1280, 960}, kBox, scaled_intrinsics({1280, 960}), kMeasuresTheBox},
        HostileCase{"box_64x48", {64, 48}, kBox, scaled_intrinsics({64, 48}), kEither}),
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
