// The smallest rectangle around points: the area and centre cv::minAreaRect
// finds, every point inside it, and nothing for points that span no area.
#include "precise/min_area_rectangle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

namespace boxdim::precise {
namespace {

struct PointsCase {
  std::string name;
  std::function<std::vector<cv::Point2f>(cv::RNG&)> points;
};

void PrintTo(const PointsCase& c, std::ostream* os) { *os << c.name; }

// The outline pixels of a turned rectangle, as a top's boundary gives them.
std::vector<cv::Point2f> turned_outline(cv::RNG& rng) {
  const float angle = static_cast<float>(rng.uniform(0.0, CV_PI));
  cv::Mat1b mask(300, 300, std::uint8_t{0});
  cv::Point2f corners[4];
  cv::RotatedRect(cv::Point2f(150.0f, 150.0f),
                  cv::Size2f(static_cast<float>(rng.uniform(20, 200)),
                             static_cast<float>(rng.uniform(20, 200))),
                  angle * 180.0f / static_cast<float>(CV_PI))
      .points(corners);
  std::vector<cv::Point> polygon(corners, corners + 4);
  cv::fillConvexPoly(mask, polygon, 255);
  std::vector<cv::Point> nonzero;
  cv::findNonZero(mask, nonzero);
  std::vector<cv::Point2f> points;
  for (const cv::Point& p : nonzero) {
    if (mask(p.y - 1, p.x) == 0 || mask(p.y + 1, p.x) == 0 || mask(p.y, p.x - 1) == 0 ||
        mask(p.y, p.x + 1) == 0) {
      points.emplace_back(p);
    }
  }
  return points;
}

std::vector<cv::Point2f> cloud(cv::RNG& rng) {
  std::vector<cv::Point2f> points(200);
  for (cv::Point2f& p : points) {
    p = {static_cast<float>(rng.gaussian(80.0)), static_cast<float>(rng.gaussian(30.0))};
  }
  return points;
}

// Many points on the hull's edges and repeated ones: the hull keeps its corners.
std::vector<cv::Point2f> square_with_repeats(cv::RNG&) {
  std::vector<cv::Point2f> points;
  for (int i = 0; i <= 10; ++i) {
    for (const cv::Point2f p : {cv::Point2f(i, 0), cv::Point2f(i, 10), cv::Point2f(0, i),
                                cv::Point2f(10, i), cv::Point2f(5, 5)}) {
      points.push_back(p);
      points.push_back(p);
    }
  }
  return points;
}

class MinAreaRectangleTest : public ::testing::TestWithParam<PointsCase> {};

TEST_P(MinAreaRectangleTest, FindsOpenCvsRectangleAndHoldsEveryPoint) {
  cv::RNG rng(7);
  std::vector<cv::Point2f> sorted, hull;
  for (int trial = 0; trial < 20; ++trial) {
    const std::vector<cv::Point2f> points = GetParam().points(rng);
    const cv::RotatedRect expected = cv::minAreaRect(points);
    const std::optional<AreaRectangle> found = min_area_rectangle(points, sorted, hull);
    ASSERT_TRUE(found.has_value());
    const double area = 4.0 * found->half[0] * found->half[1];
    EXPECT_NEAR(area, expected.size.area(), 1e-3 * expected.size.area() + 1e-3) << trial;
    EXPECT_NEAR(found->centre.x, expected.center.x, 0.05f) << trial;
    EXPECT_NEAR(found->centre.y, expected.center.y, 0.05f) << trial;
    const cv::Point2f axis(std::cos(found->angle), std::sin(found->angle));
    const cv::Point2f across(-axis.y, axis.x);
    for (const cv::Point2f& p : points) {
      const cv::Point2f d = p - found->centre;
      ASSERT_LE(std::abs(d.dot(axis)), found->half[0] + 1e-3f);
      ASSERT_LE(std::abs(d.dot(across)), found->half[1] + 1e-3f);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Points, MinAreaRectangleTest,
                         ::testing::Values(PointsCase{"turned_outline", turned_outline},
                                           PointsCase{"gaussian_cloud", cloud},
                                           PointsCase{"square_with_repeats", square_with_repeats}),
                         [](const auto& info) { return info.param.name; });

TEST(MinAreaRectangle, NothingForPointsThatSpanNoArea) {
  std::vector<cv::Point2f> sorted, hull;
  EXPECT_FALSE(min_area_rectangle({}, sorted, hull));
  EXPECT_FALSE(min_area_rectangle({{1, 1}, {1, 1}, {1, 1}}, sorted, hull));
  EXPECT_FALSE(min_area_rectangle({{0, 0}, {1, 1}, {2, 2}, {5, 5}}, sorted, hull));
}

}  // namespace
}  // namespace boxdim::precise
