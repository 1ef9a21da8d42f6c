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
  state.cloud.clear();
  const CameraIntrinsics& k = state.intrinsics;
  const float inv_fx = static_cast<float>(1.0 / k.fx);
  const float inv_fy = static_cast<float>(1.0 / k.fy);
  const std::uint16_t* depth = state.depth.data();
  for (int r = 0; r < state.height; ++r) {
    for (int c = 0; c < state.width; ++c) {
      const float d = static_cast<float>(*depth++);
      state.cloud.emplace_back(d * (c - k.cx) * inv_fx, d * (r - k.cy) * inv_fy, d);
    }
  }
}

}  // namespace boxdim
