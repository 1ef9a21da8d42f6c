#include "virtual_camera/device_capabilities.h"

#include <algorithm>

#include "app/camera_sdk/corvane_sdk.h"

namespace boxdim::virtual_camera {
namespace {

bool contains(const std::vector<int>& values, int value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

}  // namespace

bool Capabilities::has_frame_type(int frame_type) const {
  return contains(frame_types, frame_type);
}

bool Capabilities::has_stream_type(int stream_type) const {
  return contains(stream_types, stream_type);
}

std::vector<int> Capabilities::resolutions(int frame_type) const {
  if (!has_frame_type(frame_type)) return {};
  if (frame_type == Corvane::kFrameColor) return {2, 4};
  return {1, 2};
}

bool Capabilities::has_resolution(int frame_type, int resolution) const {
  return contains(resolutions(frame_type), resolution);
}

Capabilities capabilities_of(int device_type) {
  using namespace Corvane;
  if (device_type == 1 || device_type == 2) {
    return {{kFrameRaw, kFrameDepth, kFrameIr, kFrameColor}, {1, 2, 3, 4, 5, 6, 7}};
  }
  if (device_type >= 3 && device_type <= 6) {
    return {{kFrameRaw, kFrameDepth, kFrameIr}, {1, 2, 4}};
  }
  if (device_type == 7) return {{kFrameDepth, kFrameIr}, {2, 4}};
  return {};
}

}  // namespace boxdim::virtual_camera
