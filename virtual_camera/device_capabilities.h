// What each device type can stream: its frame types, stream types and
// resolution codes. Calls outside these are refused, as by the real camera.
#pragma once

#include <vector>

namespace boxdim::virtual_camera {

struct Capabilities {
  std::vector<int> frame_types;
  std::vector<int> stream_types;

  bool has_frame_type(int frame_type) const;
  bool has_stream_type(int stream_type) const;
  // Empty for a frame type the device lacks. Infrared lists the depth codes,
  // since its frames follow the depth resolution.
  std::vector<int> resolutions(int frame_type) const;
  bool has_resolution(int frame_type, int resolution) const;
};

// Device types 1-7; any other type can do nothing.
Capabilities capabilities_of(int device_type);

}  // namespace boxdim::virtual_camera
