#include "measure/point_in_polygon.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <random>

namespace boxdim {
namespace {

// Every pixel of a window around the polygons, so that outline pixels,
// vertices, horizontal runs and the rows just outside are all asked.
void expect_same_as_opencv(const std::vector<cv::Point>& polygon, const cv::Rect& window) {
  const PolygonRowIndex index(polygon, window.y + 2, window.y + window.height - 2);
  for (int y = window.y; y < window.y + window.height; ++y) {
    for (int x = window.x; x < window.x + window.width; ++x) {
      const int expected = static_cast<int>(cv::pointPolygonTest(
          polygon, cv::Point2f(static_cast<float>(x), static_cast<float>(y)), false));
      ASSERT_EQ(polygon_side(polygon, {x, y}), expected) << "pixel " << x << "," << y;
      ASSERT_EQ(index.side({x, y}), expected) << "indexed pixel " << x << "," << y;
    }
  }
}

// Traced outlines of random blobs: one-pixel steps, thin necks that the
// tracer walks twice, concave bays.
TEST(PointInPolygonTest, TracedOutlinesOfRandomBlobsAnswerAsOpenCv) {
  std::mt19937 random(7);
  for (int trial = 0; trial < 40; ++trial) {
    cv::Mat mask(40, 50, CV_8UC1, cv::Scalar(0));
    std::uniform_int_distribution<int> x(2, 47), y(2, 37), size(1, 9);
    for (int blob = 0; blob < 6; ++blob) {
      cv::rectangle(mask, cv::Rect(x(random), y(random), size(random), size(random)),
                    cv::Scalar(255), cv::FILLED);
    }
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(mask, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    for (const auto& contour : contours) expect_same_as_opencv(contour, {-2, -2, 54, 44});
  }
}

// Few-vertex polygons as the height stage builds them, some self-crossing or
// degenerate, with coordinates far outside the window. (OpenCV refuses an
// empty polygon; the pipeline never asks one.)
TEST(PointInPolygonTest, SparsePolygonsAnswerAsOpenCv) {
  std::mt19937 random(11);
  std::uniform_int_distribution<int> coordinate(-10, 40), count(1, 8);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<cv::Point> polygon(count(random));
    for (cv::Point& p : polygon) p = {coordinate(random), coordinate(random)};
    if (trial % 10 == 0) polygon.front() = {1000000, -1000000};
    expect_same_as_opencv(polygon, {-3, -3, 36, 36});
  }
}

}  // namespace
}  // namespace boxdim
