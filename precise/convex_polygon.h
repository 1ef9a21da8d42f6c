// Pixels of convex polygons in the image (a top's outline, the ring
// between two outlines), visited row by row without a mask or a list.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>

namespace boxdim::precise {

// Where row y crosses a convex polygon of `count` vertices in order: the
// columns from x0 to x1.
inline bool convex_span(const cv::Point2f* polygon, int count, float y, float& x0, float& x1) {
  bool crossed = false;
  for (int i = 0; i < count; ++i) {
    const cv::Point2f& a = polygon[i];
    const cv::Point2f& b = polygon[(i + 1) % count];
    if ((y < a.y && y < b.y) || (y > a.y && y > b.y)) continue;
    const float x = a.y == b.y ? std::min(a.x, b.x) : a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y);
    const float x_end = a.y == b.y ? std::max(a.x, b.x) : x;
    x0 = crossed ? std::min(x0, x) : x;
    x1 = crossed ? std::max(x1, x_end) : x_end;
    crossed = true;
  }
  return crossed;
}

template <std::size_t N>
bool convex_span(const std::array<cv::Point2f, N>& polygon, float y, float& x0, float& x1) {
  return convex_span(polygon.data(), static_cast<int>(N), y, x0, x1);
}

// A convex polygon of up to eight vertices: the hull of two quadrilaterals
// (a box's top and its base, in the image).
struct Octagon {
  std::array<cv::Point2f, 8> vertices;
  int count = 0;
};

// The convex hull of the two quadrilaterals' corners, in order.
Octagon hull_of(const std::array<cv::Point2f, 4>& a, const std::array<cv::Point2f, 4>& b);

inline bool convex_span(const Octagon& polygon, float y, float& x0, float& x1) {
  return convex_span(polygon.vertices.data(), polygon.count, y, x0, x1);
}

// Calls visit(u, v) for each pixel of a `size` image whose centre lies in the
// convex `outer` polygon but not in `inner`, row by row.
template <typename Polygon, typename Visit>
void for_each_ring_pixel(const Polygon& outer, const Polygon& inner, cv::Size size, Visit visit) {
  for (int v = 0; v < size.height; ++v) {
    float x0, x1, hole0, hole1;
    if (!convex_span(outer, static_cast<float>(v), x0, x1)) continue;
    const int u0 = std::max(0, static_cast<int>(std::ceil(x0)));
    const int u1 = std::min(size.width - 1, static_cast<int>(std::floor(x1)));
    int skip0 = u1 + 1;
    int skip1 = u1;
    if (convex_span(inner, static_cast<float>(v), hole0, hole1)) {
      skip0 = static_cast<int>(std::ceil(hole0));
      skip1 = static_cast<int>(std::floor(hole1));
    }
    for (int u = u0; u <= u1; ++u) {
      if (u >= skip0 && u <= skip1) {
        u = skip1;
        continue;
      }
      visit(u, v);
    }
  }
}

}  // namespace boxdim::precise
