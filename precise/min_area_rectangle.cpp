#include "precise/min_area_rectangle.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace boxdim::precise {

namespace {

// > 0 when o -> a -> b turns counter-clockwise.
double turn(const cv::Point2f& o, const cv::Point2f& a, const cv::Point2f& b) {
  return (double(a.x) - o.x) * (double(b.y) - o.y) - (double(a.y) - o.y) * (double(b.x) - o.x);
}

}  // namespace

void convex_hull(const std::vector<cv::Point2f>& points, std::vector<cv::Point2f>& sorted,
                 std::vector<cv::Point2f>& hull) {
  // Andrew's monotone chain: the lower hull left to right, then the upper one
  // back.
  sorted.assign(points.begin(), points.end());
  std::sort(sorted.begin(), sorted.end(), [](const cv::Point2f& a, const cv::Point2f& b) {
    return a.x < b.x || (a.x == b.x && a.y < b.y);
  });
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  hull.clear();
  if (sorted.size() < 3) {
    hull = sorted;
    return;
  }
  for (const cv::Point2f& p : sorted) {
    while (hull.size() >= 2 && turn(hull[hull.size() - 2], hull.back(), p) <= 0.0) hull.pop_back();
    hull.push_back(p);
  }
  const std::size_t lower = hull.size() + 1;
  for (auto p = sorted.rbegin() + 1; p != sorted.rend(); ++p) {
    while (hull.size() >= lower && turn(hull[hull.size() - 2], hull.back(), *p) <= 0.0) {
      hull.pop_back();
    }
    hull.push_back(*p);
  }
  hull.pop_back();  // the first point, reached again
}

std::optional<AreaRectangle> min_area_rectangle(const std::vector<cv::Point2f>& points,
                                                std::vector<cv::Point2f>& sorted,
                                                std::vector<cv::Point2f>& hull) {
  convex_hull(points, sorted, hull);
  if (hull.size() < 3) return std::nullopt;
  // The smallest rectangle has a side along one of the hull's edges.
  std::optional<AreaRectangle> best;
  double best_area = std::numeric_limits<double>::infinity();
  for (std::size_t e = 0; e < hull.size(); ++e) {
    const cv::Point2f edge = hull[(e + 1) % hull.size()] - hull[e];
    const double length = std::hypot(edge.x, edge.y);
    if (length <= 0.0) continue;
    const double ax = edge.x / length;
    const double ay = edge.y / length;
    double lo_a = std::numeric_limits<double>::infinity();
    double hi_a = -lo_a;
    double lo_b = lo_a;
    double hi_b = -lo_a;
    for (const cv::Point2f& p : hull) {
      const double a = p.x * ax + p.y * ay;
      const double b = -p.x * ay + p.y * ax;
      lo_a = std::min(lo_a, a);
      hi_a = std::max(hi_a, a);
      lo_b = std::min(lo_b, b);
      hi_b = std::max(hi_b, b);
    }
    const double area = (hi_a - lo_a) * (hi_b - lo_b);
    if (area < best_area) {
      best_area = area;
      const double ca = 0.5 * (lo_a + hi_a);
      const double cb = 0.5 * (lo_b + hi_b);
      AreaRectangle r;
      r.centre =
          cv::Point2f(static_cast<float>(ca * ax - cb * ay), static_cast<float>(ca * ay + cb * ax));
      r.angle = static_cast<float>(std::atan2(ay, ax));
      r.half[0] = static_cast<float>(0.5 * (hi_a - lo_a));
      r.half[1] = static_cast<float>(0.5 * (hi_b - lo_b));
      best = r;
    }
  }
  if (!best || best_area <= 0.0) return std::nullopt;
  return best;
}

}  // namespace boxdim::precise
