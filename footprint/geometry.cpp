#include "footprint/geometry.h"

#include <cmath>

namespace boxdim {

double point_norm(const cv::Point& v) {
  const double x = v.x;
  const double y = v.y;
  return std::sqrt(x * x + y * y);
}

double point_norm(const cv::Point2f& v) {
  const double x = v.x;
  const double y = v.y;
  return std::sqrt(x * x + y * y);
}

double point_norm(const cv::Point3f& v) {
  const double x = v.x;
  const double y = v.y;
  const double z = v.z;
  return std::sqrt(x * x + y * y + z * z);
}

float point_line_distance(const cv::Point2f& origin, const cv::Point2f& normal,
                          const cv::Point2f& p) {
  return std::fabs((p.x - origin.x) * normal.x + (p.y - origin.y) * normal.y);
}

cv::Point2f line_unit_normal(const cv::Point& a, const cv::Point& b) {
  const float dx = static_cast<float>(a.x - b.x);
  const float dy = static_cast<float>(b.y - a.y);
  const float length = std::sqrt(dy * dy + dx * dx);
  return {dy / length, dx / length};
}

}  // namespace boxdim
