// The square morphology must give OpenCV's pixels exactly, at the image's
// border too, and on views of a larger canvas.
#include "precise/binary_morphology.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <string>

namespace boxdim::precise {
namespace {

struct MaskCase {
  std::string name;
  cv::Size size;
  double set_share;  // of the random mask's pixels
};

class SquareMorphologyTest : public ::testing::TestWithParam<MaskCase> {};

cv::Mat1b random_mask(cv::Size size, double set_share, unsigned seed) {
  cv::RNG rng(seed);
  cv::Mat1b mask(size);
  for (int v = 0; v < size.height; ++v) {
    for (int u = 0; u < size.width; ++u) mask(v, u) = rng.uniform(0.0, 1.0) < set_share ? 255 : 0;
  }
  return mask;
}

TEST_P(SquareMorphologyTest, GivesOpenCvsPixels) {
  const MaskCase& c = GetParam();
  for (unsigned seed = 1; seed <= 5; ++seed) {
    const cv::Mat1b mask = random_mask(c.size, c.set_share, seed);
    for (int radius = 1; radius <= 3; ++radius) {
      const cv::Mat kernel =
          cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * radius + 1, 2 * radius + 1));
      cv::Mat expected_eroded, expected_dilated, expected_closed;
      cv::erode(mask, expected_eroded, kernel);
      cv::dilate(mask, expected_dilated, kernel);
      cv::morphologyEx(mask, expected_closed, cv::MORPH_CLOSE, kernel);

      // Outputs are views of a larger canvas, as a fit uses them.
      cv::Mat1b canvas(c.size.height + 7, c.size.width + 5, std::uint8_t{77});
      cv::Mat1b scratch;
      cv::Mat1b out = view_of_size(canvas, c.size);
      erode_square(mask, out, radius, scratch);
      EXPECT_EQ(cv::norm(out, expected_eroded, cv::NORM_INF), 0) << "erode r" << radius;
      dilate_square(mask, out, radius, scratch);
      EXPECT_EQ(cv::norm(out, expected_dilated, cv::NORM_INF), 0) << "dilate r" << radius;
      mask.copyTo(out);
      close_square(out, out, radius, scratch);
      EXPECT_EQ(cv::norm(out, expected_closed, cv::NORM_INF), 0) << "close r" << radius;
      EXPECT_EQ(out.data, canvas.data) << "the view was replaced";
      // Nothing outside the view was written.
      EXPECT_EQ(cv::countNonZero(canvas.rowRange(c.size.height, canvas.rows) != 77), 0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Masks, SquareMorphologyTest,
    ::testing::Values(MaskCase{"sparse", {40, 30}, 0.1}, MaskCase{"half", {40, 30}, 0.5},
                      MaskCase{"dense", {33, 47}, 0.95}, MaskCase{"all_set", {9, 6}, 1.0},
                      MaskCase{"one_pixel", {1, 1}, 1.0}, MaskCase{"one_row", {25, 1}, 0.8},
                      MaskCase{"one_column", {1, 25}, 0.8}, MaskCase{"narrow", {3, 40}, 0.9}),
    [](const ::testing::TestParamInfo<MaskCase>& info) { return info.param.name; });

}  // namespace
}  // namespace boxdim::precise
