#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <random>

#include "measure/frame_preparation.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

// The edge image as OpenCV's filters make it: 5 x 5 Sobel in each direction to
// 16-bit signed, absolute values, saturating sum.
cv::Mat opencv_edges(const cv::Mat& depth) {
  cv::Mat gx, gy, edges;
  cv::Sobel(depth, gx, CV_16S, 1, 0, 5, 1.0, 0.0, cv::BORDER_REFLECT_101);
  cv::Sobel(depth, gy, CV_16S, 0, 1, 5, 1.0, 0.0, cv::BORDER_REFLECT_101);
  cv::absdiff(gx, cv::Scalar::all(0), gx);
  cv::absdiff(gy, cv::Scalar::all(0), gy);
  cv::add(gx, gy, edges);
  return edges;
}

struct EdgeCase {
  int width, height;
  int low, high;  // sample range
};

class EdgeImageTest : public testing::StageTest, public ::testing::WithParamInterface<EdgeCase> {};

// Frames a few pixels wide mirror their borders more than once; full-range
// samples saturate both gradients and their sum.
TEST_P(EdgeImageTest, MatchesOpenCvsSobelPixelForPixel) {
  const EdgeCase c = GetParam();
  std::mt19937 random(static_cast<unsigned>(c.width * 1000 + c.height));
  cv::Mat depth(c.height, c.width, CV_16UC1);
  std::uniform_int_distribution<int> sample(c.low, c.high), coin(0, 3);
  for (int y = 0; y < c.height; ++y) {
    for (int x = 0; x < c.width; ++x) {
      // Plateaus with steps, as depth frames have, mixed with random samples.
      depth.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(
          coin(random) == 0 ? sample(random) : (x / 7 % 2 ? c.high : c.low));
    }
  }
  testing::load_frame(state, depth);
  const cv::Mat expected = opencv_edges(depth);
  ASSERT_EQ(state.edge_image.type(), CV_16SC1);
  EXPECT_EQ(cv::norm(state.edge_image, expected, cv::NORM_INF), 0.0);
}

INSTANTIATE_TEST_SUITE_P(Frames, EdgeImageTest,
                         ::testing::Values(EdgeCase{1, 1, 0, 65535}, EdgeCase{2, 3, 0, 65535},
                                           EdgeCase{3, 2, 500, 2000}, EdgeCase{5, 5, 0, 65535},
                                           EdgeCase{7, 640, 0, 65535}, EdgeCase{641, 3, 0, 65535},
                                           EdgeCase{640, 480, 800, 1600},
                                           EdgeCase{640, 480, 0, 65535}),
                         [](const auto& info) {
                           return std::to_string(info.param.width) + "x" +
                                  std::to_string(info.param.height) + "_" +
                                  std::to_string(info.param.high);
                         });

}  // namespace
}  // namespace boxdim
