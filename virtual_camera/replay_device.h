// A device that plays back a capture folder at the camera's frame rate, so
// that recorded frames go through the program as live ones would.
#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "virtual_camera/capture_folder.h"
#include "virtual_camera/device.h"

namespace boxdim::virtual_camera {

// A capture holds raw, depth and infrared frames but no colour: device type 3
// streams exactly those (raw, depth, depth + infrared).
constexpr int kReplayDeviceType = 3;

class ReplayDevice : public Device {
 public:
  ReplayDevice(int id, std::filesystem::path folder);

  std::string serial_number() const override;
  std::string hardware_version() const override;

 protected:
  const char* device_name() const override { return "replayed capture"; }
  Status open_source() override;
  Status prepare_stream() override;
  Status produce_set(std::int64_t set_index, FrameSet& set) override;
  // The captured size of the kind, or of the other sensor image when the
  // capture has none of that kind: resolution codes cannot change a recording.
  cv::Size frame_size(int kind) const override;

 private:
  const std::filesystem::path folder_;
  std::vector<CapturedSet> sets_;
  std::vector<std::size_t> playlist_;  // indices into sets_ that the stream plays
};

}  // namespace boxdim::virtual_camera
