// The camera SDK's operations over the virtual devices. Arguments are checked
// here, at the boundary; one lock guards the library's state, and no
// exception crosses into the caller.
#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "virtual_camera/camera_config.h"
#include "virtual_camera/frame_pictures.h"
#include "virtual_camera/session.h"
#include "virtual_camera/status_codes.h"

namespace {

using boxdim::virtual_camera::Device;
using boxdim::virtual_camera::Session;
namespace vc = boxdim::virtual_camera;

constexpr char kSdkVersion[] = "corvane_sdk virtual-1.0";

std::mutex g_mutex;
std::unique_ptr<Session> g_session;

template <typename Body>
std::int32_t guarded(Body&& body) {
  std::lock_guard<std::mutex> lock(g_mutex);
  try {
    return body();
  } catch (const std::exception& e) {
    std::cerr << "corvane_sdk: internal error: " << e.what() << '\n';
    return vc::kInternalError;
  } catch (...) {
    std::cerr << "corvane_sdk: internal error\n";
    return vc::kInternalError;
  }
}

template <typename Body>
std::int32_t initialised(Body&& body) {
  return guarded([&]() -> std::int32_t { return g_session ? body() : vc::kNotInitialised; });
}

// Text and capability queries work on any device FindDevice reported; all
// other per-device operations need it opened.
enum class Needs { kKnown, kOpen };

template <typename Body>
std::int32_t on_device(std::int32_t id, Needs needs, Body&& body) {
  return initialised([&]() -> std::int32_t {
    Device* device = g_session->find(id);
    if (device == nullptr) return vc::kUnknownDevice;
    if (needs == Needs::kOpen && !device->is_open()) return vc::kDeviceNotOpen;
    return body(*device);
  });
}

std::int32_t copy_text(const std::string& text, std::int32_t& length, char* buffer) {
  const auto needed = static_cast<std::int32_t>(text.size() + 1);
  if (buffer != nullptr) {
    if (length < needed) return vc::kBufferTooSmall;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
  }
  length = needed;
  return vc::kOk;
}

std::int32_t copy_list(const std::vector<int>& values, std::int32_t& count, std::int32_t* list) {
  const auto needed = static_cast<std::int32_t>(values.size());
  if (list != nullptr) {
    if (count < needed) return vc::kBufferTooSmall;
    std::copy(values.begin(), values.end(), list);
  }
  count = needed;
  return vc::kOk;
}

}  // namespace

namespace Corvane {

std::int32_t GetSDKVersion(std::int32_t& length, char* buffer) {
  return guarded([&] { return copy_text(kSdkVersion, length, buffer); });
}

std::int32_t InitSDK() {
  return guarded([]() -> std::int32_t {
    if (g_session) return vc::kAlreadyInitialised;
    try {
      g_session = std::make_unique<Session>(vc::read_config_from_environment());
    } catch (const vc::ConfigError& e) {
      std::cerr << "corvane_sdk: " << e.what() << '\n';
      return vc::kBadConfiguration;
    }
    return vc::kOk;
  });
}

std::int32_t UnInitSDK() {
  return initialised([] {
    g_session.reset();
    return vc::kOk;
  });
}

std::int32_t FindDevice(std::int32_t& count, DeviceInfo* devices) {
  return initialised([&]() -> std::int32_t {
    const auto& all = g_session->devices();
    const auto needed = static_cast<std::int32_t>(all.size());
    if (devices != nullptr) {
      if (count < needed) return vc::kBufferTooSmall;
      for (std::size_t i = 0; i < all.size(); ++i) devices[i] = all[i]->info();
    }
    count = needed;
    g_session->mark_discovered();
    return vc::kOk;
  });
}

std::int32_t OpenDevice(const DeviceInfo& device) {
  return on_device(device.id, Needs::kKnown, [](Device& d) { return d.open(); });
}

std::int32_t GetDeviceSN(std::int32_t device_id, std::int32_t& length, char* buffer) {
  return on_device(device_id, Needs::kKnown,
                   [&](Device& d) { return copy_text(d.serial_number(), length, buffer); });
}

std::int32_t GetDeviceHWVersion(std::int32_t device_id, std::int32_t& length, char* buffer) {
  return on_device(device_id, Needs::kKnown,
                   [&](Device& d) { return copy_text(d.hardware_version(), length, buffer); });
}

std::int32_t QueryDeviceSupportFrameType(std::int32_t device_id, std::int32_t& count,
                                         std::int32_t* frame_types) {
  return on_device(device_id, Needs::kKnown, [&](Device& d) {
    return copy_list(d.capabilities().frame_types, count, frame_types);
  });
}

std::int32_t QueryDeviceSupportResolution(std::int32_t device_id, std::int32_t frame_type,
                                          std::int32_t& count, std::int32_t* resolutions) {
  return on_device(device_id, Needs::kKnown, [&](Device& d) -> std::int32_t {
    if (!d.capabilities().has_frame_type(frame_type)) return vc::kUnsupportedFrameType;
    return copy_list(d.capabilities().resolutions(frame_type), count, resolutions);
  });
}

std::int32_t SetFrameResolution(std::int32_t device_id, std::int32_t frame_type,
                                std::int32_t resolution) {
  return on_device(device_id, Needs::kOpen,
                   [&](Device& d) { return d.set_resolution(frame_type, resolution); });
}

std::int32_t StartStreaming(std::int32_t device_id, std::int32_t stream_type) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) { return d.start(stream_type); });
}

std::int32_t ChangeStreaming(std::int32_t device_id, std::int32_t stream_type) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) { return d.change(stream_type); });
}

std::int32_t StopStreaming(std::int32_t device_id) {
  return on_device(device_id, Needs::kOpen, [](Device& d) { return d.stop(); });
}

std::int32_t GetLastFrameData(std::int32_t device_id, FrameData*& frame) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) { return d.poll(frame); });
}

std::int32_t GetFilter(std::int32_t device_id, bool& enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    enabled = d.settings().median_filter;
    return vc::kOk;
  });
}

std::int32_t SetFilter(std::int32_t device_id, bool enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    d.set_median_filter(enabled);
    return vc::kOk;
  });
}

std::int32_t AddFilter(std::int32_t device_id, std::int32_t filter_type) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) { return d.add_filter(filter_type); });
}

std::int32_t GetMirror(std::int32_t device_id, bool& enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    enabled = d.settings().mirror;
    return vc::kOk;
  });
}

std::int32_t SetMirror(std::int32_t device_id, bool enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    d.set_mirror(enabled);
    return vc::kOk;
  });
}

std::int32_t GetFlip(std::int32_t device_id, bool& enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    enabled = d.settings().flip;
    return vc::kOk;
  });
}

std::int32_t SetFlip(std::int32_t device_id, bool enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    d.set_flip(enabled);
    return vc::kOk;
  });
}

std::int32_t GetTrailFilter(std::int32_t device_id, bool& enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    enabled = d.settings().trail_filter;
    return vc::kOk;
  });
}

std::int32_t SetTrailFilter(std::int32_t device_id, bool enabled) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    d.set_trail_filter(enabled);
    return vc::kOk;
  });
}

std::int32_t GetIntegralTimeRange(std::int32_t device_id, std::int32_t frame_type,
                                  std::int32_t& min, std::int32_t& max) {
  return on_device(device_id, Needs::kOpen,
                   [&](Device& d) { return d.integration_time_range(frame_type, min, max); });
}

std::int32_t GetIntegralTime(std::int32_t device_id, std::int32_t& value) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) {
    value = d.settings().integration_time_us;
    return vc::kOk;
  });
}

std::int32_t SetIntegralTime(std::int32_t device_id, std::int32_t value) {
  return on_device(device_id, Needs::kOpen,
                   [&](Device& d) { return d.set_integration_time(value); });
}

std::int32_t GetIntric(std::int32_t device_id, std::int32_t frame_type, Intrinsics& intrinsics) {
  return on_device(device_id, Needs::kOpen,
                   [&](Device& d) { return d.intrinsics(frame_type, intrinsics); });
}

std::int32_t GetRGBD(std::int32_t device_id, RGBDFrame& frame) {
  return on_device(device_id, Needs::kOpen, [&](Device& d) { return d.aligned_pair(frame); });
}

std::int32_t GetDepthColor(const std::uint16_t* depth, std::int32_t width, std::int32_t height,
                           unsigned char* color) {
  return initialised([&]() -> std::int32_t {
    if (depth == nullptr || color == nullptr || width <= 0 || height <= 0) {
      return vc::kInvalidArgument;
    }
    // cv::Mat has no read-only view; depth_colour only reads the samples.
    const cv::Mat samples(height, width, CV_16UC1, const_cast<std::uint16_t*>(depth));
    const cv::Mat coloured = vc::depth_colour(samples);
    std::memcpy(color, coloured.data, coloured.total() * coloured.elemSize());
    return vc::kOk;
  });
}

}  // namespace Corvane
