#include "virtual_camera/session.h"

#include "virtual_camera/replay_device.h"
#include "virtual_camera/simulated_device.h"

namespace boxdim::virtual_camera {

Session::Session(const CameraConfig& config) {
  int id = 1;
  for (const ConfiguredDevice& device : config.devices) {
    if (device.source == ConfiguredDevice::Source::kReplay) {
      devices_.push_back(std::make_unique<ReplayDevice>(id, device.folder));
    } else {
      devices_.push_back(std::make_unique<SimulatedDevice>(id, device.type, config.scene));
    }
    ++id;
  }
}

Device* Session::find(int id) const {
  if (!discovered_ || id < 1 || id > static_cast<int>(devices_.size())) return nullptr;
  return devices_[static_cast<std::size_t>(id - 1)].get();
}

}  // namespace boxdim::virtual_camera
