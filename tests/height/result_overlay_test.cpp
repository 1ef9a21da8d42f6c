#include "height/result_overlay.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "support/test_frames.h"

namespace boxdim {
namespace {

const cv::Vec3b kGreen(0, 255, 0), kRed(0, 0, 255);

// A 240 x 180 px top face 800 mm in front of the camera, facing it.
class OverlayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    state.result_image = cv::Mat(480, 640, CV_8UC3, cv::Scalar::all(0));
    state.box_corners = {{200, 150}, {440, 150}, {440, 330}, {200, 330}};
    const CameraIntrinsics& k = state.intrinsics;
    for (const cv::Point2f& p : state.box_corners) {
      state.corners_3d.emplace_back((p.x - k.cx) / k.fx * 800, (p.y - k.cy) / k.fy * 800, 800);
    }
    state.plane = {0, 0, 1, -800};
  }
  cv::Vec3b at(const cv::Point2f& p) const {
    return state.result_image.at<cv::Vec3b>(cv::Point(p));
  }

  MeasurementState state;
};

// A box of no height: the bottom outline is the top one, and the top's green
// is drawn last, over the blue; the vertical edges shrink to red points.
TEST_F(OverlayTest, AFlatBoxShowsItsTopOverItsBottom) {
  state.dimensions.box_height = 0.0f;
  draw_measurement_result(state);
  ASSERT_EQ(state.overlay_bottom_corners.size(), 4u);
  for (int i = 0; i < 4; ++i) {
    const cv::Point2f top = state.box_corners[i], next = state.box_corners[(i + 1) % 4];
    EXPECT_NEAR(cv::norm(state.overlay_bottom_corners[i] - top), 0.0, 1e-3);
    EXPECT_EQ(at((top + next) * 0.5f), kGreen);
    EXPECT_EQ(at(top), kRed);
  }
}

TEST_F(OverlayTest, DimensionsTruncatedAndPlacedByThirds) {
  struct {
    int width;
    BoxDimensions dims;
    const char* texts[3];
  } cases[] = {{640, {412.7f, 300.0f, 49.9f}, {"L: 412mm", "W: 300mm", "H: 49mm"}},
               // 641 tells 2 * width / 3 (427) from 2 * (width / 3) (426).
               {641, {400.0f, 299.99f, -0.6f}, {"L: 400mm", "W: 299mm", "H: 0mm"}}};
  for (const auto& c : cases) {
    state.result_image.setTo(0);
    state.width = c.width;
    state.dimensions = c.dims;
    draw_measurement_result(state);
    cv::Mat expected(480, 640, CV_8UC3, cv::Scalar::all(0));
    const int xs[3] = {25, c.width / 3 + 25, 2 * c.width / 3 + 25};
    for (int i = 0; i < 3; ++i) {
      cv::putText(expected, c.texts[i], {xs[i], 25}, cv::FONT_HERSHEY_SIMPLEX, 0.6,
                  cv::Scalar(0, 0, 255), 1, cv::LINE_8);
    }
    const cv::Rect band(0, 0, 640, 40);  // the wire frame stays below it
    EXPECT_EQ(cv::norm(state.result_image(band), expected(band), cv::NORM_INF), 0.0) << c.texts[0];
  }
}

}  // namespace
}  // namespace boxdim
