#include "virtual_camera/session.h"

#include <iostream>
#include <utility>

#include "virtual_camera/replay_device.h"
#include "virtual_camera/simulated_device.h"

namespace boxdim::virtual_camera {

Session::Session(const CameraConfig& config) {
  int id = 1;
  for (const ConfiguredDevice& device : config.devices) {
    if (device.source == ConfiguredDevice::Source::kReplay) {
      // Names and sizes only: the frames are read as they play.
      std::vector<std::vector<CapturedSet>> cameras =
          sets_by_camera(scan_capture(device.folder, std::cerr));
      // A folder without playable frames still makes a device, whose
      // OpenDevice says what is wrong with it.
      if (cameras.empty()) cameras.emplace_back();
      for (std::vector<CapturedSet>& sets : cameras) {
        devices_.push_back(std::make_unique<ReplayDevice>(id++, device.folder, std::move(sets)));
      }
    } else {
      devices_.push_back(
          std::make_unique<SimulatedDevice>(id++, device.type, config.scene, config.motion));
    }
  }
  if (devices_.size() > kMaxDevices) {
    throw ConfigError("BOXDIM_CAMERA: " + std::to_string(devices_.size()) +
                      " devices with the cameras of the capture folders; at most " +
                      std::to_string(kMaxDevices) + " are supported");
  }
}

Device* Session::find(int id) const {
  if (!discovered_ || id < 1 || id > static_cast<int>(devices_.size())) return nullptr;
  return devices_[static_cast<std::size_t>(id - 1)].get();
}

}  // namespace boxdim::virtual_camera
