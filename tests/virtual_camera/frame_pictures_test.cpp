// The pictures derived from a rendered scene and the colour encodings: what a
// viewer of each picture relies on.
#include "virtual_camera/frame_pictures.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "scene/depth_scene.h"

namespace boxdim::virtual_camera {
namespace {

cv::Mat decode_yuyv(const cv::Mat& bgr) {
  cv::Mat packed(bgr.size(), CV_8UC2);
  pack_yuyv(bgr, packed.data);
  cv::Mat decoded;
  cv::cvtColor(packed, decoded, cv::COLOR_YUV2BGR_YUYV);
  return decoded;
}

TEST(FramePictures, YuyvDecodesBackToTheColoursOfPixelPairs) {
  const std::vector<cv::Vec3b> colours = {{0, 0, 0},      {255, 255, 255}, {128, 128, 128},
                                          {96, 140, 190}, {255, 0, 0},     {0, 255, 0},
                                          {0, 0, 255},    {20, 200, 120}};
  for (const cv::Vec3b& colour : colours) {
    const cv::Mat bgr(2, 4, CV_8UC3, cv::Scalar(colour[0], colour[1], colour[2]));
    const cv::Mat decoded = decode_yuyv(bgr);
    // Saturated primaries lose a little to video range's rounding.
    EXPECT_LE(cv::norm(decoded, bgr, cv::NORM_INF), 3.0) << colour;
  }
}

// One row: floor at 1 m, box at 1 m and at 0.5 m, floor at 2 m, no return.
struct Row {
  cv::Mat depth = (cv::Mat_<std::uint16_t>(1, 5) << 1000, 1000, 500, 2000, 0);
  cv::Mat surfaces = (cv::Mat_<std::uint8_t>(1, 5) << kFloorSurface, kBoxSurface, kBoxSurface,
                      kFloorSurface, kNoSurface);
};

TEST(FramePictures, InfraredFallsWithDistanceSquaredAndGrowsWithIntegration) {
  const Row row;
  const cv::Mat ir = infrared_picture(row.depth, row.surfaces, kNominalIntegrationTimeUs);
  const auto at = [](const cv::Mat& m, int u) {
    return static_cast<double>(m.at<std::uint16_t>(0, u));
  };
  EXPECT_GT(at(ir, 1), at(ir, 0)) << "cardboard reflects more than the floor";
  EXPECT_NEAR(at(ir, 2), 4 * at(ir, 1), 2.0);
  EXPECT_NEAR(at(ir, 3), at(ir, 0) / 4, 1.0);
  EXPECT_EQ(at(ir, 4), 0.0);
  // The program shows half the amplitude, capped at 255: the floor at 1 m
  // must neither vanish nor saturate.
  EXPECT_GT(at(ir, 0) / 2, 40.0);
  EXPECT_LT(at(ir, 0) / 2, 200.0);

  const cv::Mat longer = infrared_picture(row.depth, row.surfaces, 3 * kNominalIntegrationTimeUs);
  EXPECT_NEAR(at(longer, 0), 3 * at(ir, 0), 1.0);
}

}  // namespace
}  // namespace boxdim::virtual_camera
