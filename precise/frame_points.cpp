#include "precise/frame_points.h"

#include <cmath>
#include <limits>

namespace boxdim::precise {

void compute_heights(const cv::Mat& depth, const CameraIntrinsics& k, const FloorPlane& floor,
                     float above_mm, float above_per_mm, cv::Mat1f& heights, cv::Mat1b& above) {
  CV_Assert(depth.type() == CV_16UC1);
  heights.create(depth.rows, depth.cols);
  above.create(depth.rows, depth.cols);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // height = z * (normal . ray) + offset, with ray = ((u - cx) / fx, (v - cy) / fy, 1).
  const float per_column = floor.normal[0] / k.fx;
  const float offset = floor.offset;
  const int columns = depth.cols;
  for (int v = 0; v < depth.rows; ++v) {
    const auto* z = depth.ptr<std::uint16_t>(v);
    float* out = heights[v];
    std::uint8_t* up = above[v];
    const float row_part =
        floor.normal[1] * (v - k.cy) / k.fy + floor.normal[2] - per_column * k.cx;
    // Branch-free, so that the compiler can do several pixels at once.
    for (int u = 0; u < columns; ++u) {
      const float zf = z[u];
      const float h = zf * (row_part + per_column * static_cast<float>(u)) + offset;
      const bool sampled = zf > 0.0f && zf < 65535.0f;  // as has_depth()
      out[u] = sampled ? h : nan;
      up[u] = sampled & (h > above_mm + above_per_mm * zf);
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
