// Everything InitSDK brings up and UnInitSDK tears down: the configured
// devices, and whether FindDevice has made them known to the caller.
#pragma once

#include <memory>
#include <vector>

#include "virtual_camera/camera_config.h"
#include "virtual_camera/device.h"

namespace boxdim::virtual_camera {

class Session {
 public:
  // Device ids count from 1 in the configuration's order.
  explicit Session(const CameraConfig& config);

  const std::vector<std::unique_ptr<Device>>& devices() const { return devices_; }
  void mark_discovered() { discovered_ = true; }
  // nullptr for an id that FindDevice has not reported.
  Device* find(int id) const;

 private:
  std::vector<std::unique_ptr<Device>> devices_;
  bool discovered_ = false;
};

}  // namespace boxdim::virtual_camera
