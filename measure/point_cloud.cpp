#include "measure/point_cloud.h"

#include <stdexcept>
#include <string>

namespace boxdim {

void build_point_cloud(MeasurementState& state) {
  const std::size_t pixels = static_cast<std::size_t>(state.width) * state.height;
  if (state.depth.size() != pixels) {
    throw std::logic_error("build_point_cloud: depth holds " + std::to_string(state.depth.size()) +
                           " samples for a frame of " + std::to_string(pixels) + " pixels");
  }
  state.cloud.resize(pixels);
  const CameraIntrinsics& k = state.intrinsics;
  const float inv_fx = static_cast<float>(1.0 / k.fx);
  const float inv_fy = static_cast<float>(1.0 / k.fy);
  // c - cx per column, computed once; the products keep their order,
  // (d * (c - cx)) * (1 / fx), so every point is the same to the bit.
  state.cloud_column_offsets.resize(state.width);
  for (int c = 0; c < state.width; ++c) state.cloud_column_offsets[c] = c - k.cx;
  const float* column_offset = state.cloud_column_offsets.data();
  const std::uint16_t* depth = state.depth.data();
  cv::Point3f* point = state.cloud.data();
  for (int r = 0; r < state.height; ++r) {
    const float row_offset = r - k.cy;
    for (int c = 0; c < state.width; ++c) {
      const float d = static_cast<float>(depth[c]);
      point[c] = cv::Point3f(d * column_offset[c] * inv_fx, d * row_offset * inv_fy, d);
    }
    depth += state.width;
    point += state.width;
  }
}

}  // namespace boxdim
