#include "precise/frame_points.h"

#include <cmath>
#include <limits>

namespace boxdim::precise {

void compute_points(const cv::Mat& depth, const CameraIntrinsics& k, cv::Mat3f& points) {
  CV_Assert(depth.type() == CV_16UC1);
  points.create(depth.rows, depth.cols);
  const float inv_fx = 1.0f / k.fx;
  const float inv_fy = 1.0f / k.fy;
  for (int v = 0; v < depth.rows; ++v) {
    const auto* samples = depth.ptr<std::uint16_t>(v);
    cv::Vec3f* row = points[v];
    const float y_per_mm = (v - k.cy) * inv_fy;
    for (int u = 0; u < depth.cols; ++u) {
      const float z = samples[u];
      row[u] = cv::Vec3f((u - k.cx) * inv_fx * z, y_per_mm * z, z);
    }
  }
}

void compute_heights(const cv::Mat3f& points, const FloorPlane& floor, cv::Mat1f& heights) {
  heights.create(points.rows, points.cols);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (int v = 0; v < points.rows; ++v) {
    const cv::Vec3f* row = points[v];
    float* out = heights[v];
    for (int u = 0; u < points.cols; ++u) {
      out[u] = row[u][2] > 0.0f ? floor.height(row[u]) : nan;
    }
  }
}

bool ray_at_height(float column, float row, const CameraIntrinsics& k, const FloorPlane& floor,
                   float height, cv::Vec3f& point) {
  const cv::Vec3f ray((column - k.cx) / k.fx, (row - k.cy) / k.fy, 1.0f);
  // normal . (t ray) + offset = height
  const float along = floor.normal.dot(ray);
  if (std::abs(along) < 1e-6f) return false;
  const float t = (height - floor.offset) / along;
  if (t <= 0.0f) return false;
  point = t * ray;
  return true;
}

}  // namespace boxdim::precise
