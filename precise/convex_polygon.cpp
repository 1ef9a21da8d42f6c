#include "precise/convex_polygon.h"

namespace boxdim::precise {

Octagon hull_of(const std::array<cv::Point2f, 4>& a, const std::array<cv::Point2f, 4>& b) {
  std::array<cv::Point2f, 8> points;
  std::copy(a.begin(), a.end(), points.begin());
  std::copy(b.begin(), b.end(), points.begin() + 4);
  std::sort(points.begin(), points.end(), [](const cv::Point2f& p, const cv::Point2f& q) {
    return p.x < q.x || (p.x == q.x && p.y < q.y);
  });
  const auto turn = [](const cv::Point2f& o, const cv::Point2f& p, const cv::Point2f& q) {
    return (p.x - o.x) * (q.y - o.y) - (p.y - o.y) * (q.x - o.x);
  };
  // Andrew's monotone chain: lower hull, then upper, without their shared ends twice.
  std::array<cv::Point2f, 16> chain;
  int k = 0;
  for (int i = 0; i < 8; ++i) {
    while (k >= 2 && turn(chain[k - 2], chain[k - 1], points[i]) <= 0.0f) --k;
    chain[k++] = points[i];
  }
  for (int i = 6, lower = k + 1; i >= 0; --i) {
    while (k >= lower && turn(chain[k - 2], chain[k - 1], points[i]) <= 0.0f) --k;
    chain[k++] = points[i];
  }
  Octagon hull;
  hull.count = std::min(8, k - 1);
  std::copy(chain.begin(), chain.begin() + hull.count, hull.vertices.begin());
  return hull;
}

}  // namespace boxdim::precise
