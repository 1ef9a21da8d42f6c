// A device that plays back a capture folder at the camera's frame rate, so
// that recorded frames go through the program as live ones would.
#pragma once

#include <cstddef>
#include <filesystem>
#include <set>
#include <vector>

#include "virtual_camera/capture_folder.h"
#include "virtual_camera/device.h"

namespace boxdim::virtual_camera {

// A capture holds raw, depth and infrared frames but no colour: device type 3
// streams exactly those (raw, depth, depth + infrared).
constexpr int kReplayDeviceType = 3;

// One camera of a capture folder: a folder that two cameras were captured
// into (files 1_... and 2_...) plays as two devices.
class ReplayDevice : public Device {
 public:
  // `sets` are the camera's playable sets as the folder was scanned; empty
  // when it has none, which OpenDevice then reports.
  ReplayDevice(int id, std::filesystem::path folder, std::vector<CapturedSet> sets);

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
  // A frame that cannot be read is reported once, and once the folder has
  // lost all its frames only that is reported: the stream asks for a set
  // every frame period, and a vanished capture would flood the console.
  void report_unreadable(const std::filesystem::path& file);

  const std::filesystem::path folder_;
  const std::vector<CapturedSet> sets_;
  std::vector<std::size_t> playlist_;  // indices into sets_ that the stream plays
  std::set<std::filesystem::path> reported_files_;
  bool reported_folder_empty_ = false;
};

}  // namespace boxdim::virtual_camera
