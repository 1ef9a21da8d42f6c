// What the program keeps about its cameras from start-up to shutdown: the
// enumerated devices, which of them stream, their integration times, and the
// shell it reports through.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "app/shell.h"

namespace boxdim {

struct Session {
  explicit Session(Shell& shell) : shell_(&shell) {}

  Shell& shell() const { return *shell_; }
  // In the order the SDK listed them; commands act on all of them, open or not.
  std::vector<Corvane::DeviceInfo> devices;
  // Per device: its stream started at start-up (the stop command leaves it set).
  std::vector<bool> opened;
  // Per device: integration-time range and current value, as the u and d keys last read them.
  std::vector<std::int32_t> integral_min;
  std::vector<std::int32_t> integral_max;
  std::vector<std::int32_t> integral_time;
  bool quit = false;
  // Status of the latest SDK call. The stop report of a device that never
  // streamed repeats it, so it must follow every call, not only the stops.
  std::int32_t status = 0;

  // Sizes the per-device arrays to the device list: nothing open, times 0.
  void reset_device_arrays() {
    opened.assign(devices.size(), false);
    integral_min.assign(devices.size(), 0);
    integral_max.assign(devices.size(), 0);
    integral_time.assign(devices.size(), 0);
  }

  std::int32_t record(std::int32_t result) {
    status = result;
    return result;
  }

  // Records an SDK call's status and reports it under `label` when it failed.
  bool succeeded(std::int32_t result, const std::string& label) {
    if (record(result) != 0) print_error(shell_->out, label, result);
    return result == 0;
  }

 private:
  Shell* shell_;
};

}  // namespace boxdim
