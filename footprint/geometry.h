// Small plane-geometry helpers shared by the footprint and height stages.
#pragma once

#include <opencv2/core.hpp>

namespace boxdim {

// Euclidean length, computed in double precision from the components.
double point_norm(const cv::Point& v);
double point_norm(const cv::Point2f& v);
double point_norm(const cv::Point3f& v);

// Distance of p from the line through `origin` with unit normal `normal`:
// |(p - origin) . normal|.
float point_line_distance(const cv::Point2f& origin, const cv::Point2f& normal,
                          const cv::Point2f& p);

// Unit normal (b.y - a.y, a.x - b.x) / |b - a| of the line through a and b,
// in single precision; NaN when the two points coincide, so that no point is
// ever within any distance of that "line".
cv::Point2f line_unit_normal(const cv::Point& a, const cv::Point& b);

}  // namespace boxdim
