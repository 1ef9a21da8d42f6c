#include "fake_corvane_sdk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace boxdim::testing {

namespace {

FakeSdk* instance = new FakeSdk();

std::string args(std::initializer_list<std::int64_t> values) {
  std::string text;
  for (const std::int64_t value : values) {
    if (!text.empty()) text += ",";
    text += std::to_string(value);
  }
  return text;
}

std::string with_buffer(const std::string& head, const void* buffer) {
  return (head.empty() ? "" : head + ",") + (buffer != nullptr ? "buffer" : "null");
}

// Two-call text query: the length with the terminator (0 for no text), then the text.
void answer_text(const std::string& text, std::int32_t& length, char* buffer) {
  if (buffer == nullptr) {
    length = text.empty() ? 0 : static_cast<std::int32_t>(text.size() + 1);
    return;
  }
  std::memset(buffer, 0, static_cast<std::size_t>(length));
  std::memcpy(buffer, text.data(), std::min<std::size_t>(text.size(), length - 1));
}

void answer_codes(const std::vector<std::int32_t>& codes, std::int32_t& count,
                  std::int32_t* buffer) {
  if (buffer == nullptr) {
    count = static_cast<std::int32_t>(codes.size());
    return;
  }
  count = std::min<std::int32_t>(count, static_cast<std::int32_t>(codes.size()));
  std::copy_n(codes.begin(), count, buffer);
}

// Runs `effect` on the device when the call is not scripted to fail.
template <typename Effect>
std::int32_t on_device(const char* name, std::int32_t id, const std::string& arguments,
                       Effect effect) {
  const std::int32_t status = fake_sdk().enter(name, arguments);
  if (status != 0) return status;
  FakeDevice* device = fake_sdk().device(id);
  if (device == nullptr) return FakeSdk::kNoDevice;
  return effect(*device);
}

}  // namespace

FakeSdk& fake_sdk() { return *instance; }

void reset_fake_sdk() {
  delete instance;
  instance = new FakeSdk();
}

FakeDevice& FakeSdk::add_device(std::int32_t id, std::int32_t type) {
  FakeDevice device;
  device.info.id = id;
  device.info.type = type;
  std::snprintf(device.info.name, sizeof device.info.name, "cam%d", id);
  devices.push_back(device);
  return devices.back();
}

FakeDevice* FakeSdk::device(std::int32_t id) {
  for (FakeDevice& device : devices) {
    if (device.info.id == id) return &device;
  }
  return nullptr;
}

std::string FakeSdk::calls_text() const {
  std::string text;
  for (const std::string& call : calls_) text += (text.empty() ? "" : " ") + call;
  return text;
}

std::vector<std::string> FakeSdk::calls_named(const std::string& name) const {
  std::vector<std::string> named;
  for (const std::string& call : calls_) {
    if (call.compare(0, name.size() + 1, name + "(") == 0) named.push_back(call);
  }
  return named;
}

std::int32_t FakeSdk::enter(const std::string& name, const std::string& arguments) {
  const std::string call = name + "(" + arguments + ")";
  calls_.push_back(call);
  for (const std::string& key : {call, name}) {
    const auto failure = failures_.find(key);
    if (failure != failures_.end()) return failure->second;
  }
  return 0;
}

}  // namespace boxdim::testing

namespace Corvane {

using boxdim::testing::args;
using boxdim::testing::fake_sdk;
using boxdim::testing::FakeDevice;
using boxdim::testing::on_device;
using boxdim::testing::with_buffer;

std::int32_t GetSDKVersion(std::int32_t& length, char* buffer) {
  const std::int32_t status = fake_sdk().enter("GetSDKVersion", with_buffer("", buffer));
  if (status == 0) boxdim::testing::answer_text(fake_sdk().version, length, buffer);
  return status;
}

std::int32_t InitSDK() { return fake_sdk().enter("InitSDK", ""); }
std::int32_t UnInitSDK() { return fake_sdk().enter("UnInitSDK", ""); }

std::int32_t FindDevice(std::int32_t& count, DeviceInfo* devices) {
  const std::int32_t status = fake_sdk().enter("FindDevice", with_buffer("", devices));
  if (status != 0) return status;
  const auto& known = fake_sdk().devices;
  if (devices == nullptr) {
    count = static_cast<std::int32_t>(known.size());
    return 0;
  }
  count = std::min<std::int32_t>(count, static_cast<std::int32_t>(known.size()));
  for (std::int32_t i = 0; i < count; ++i) devices[i] = known[i].info;
  return 0;
}

std::int32_t OpenDevice(const DeviceInfo& device) {
  return on_device("OpenDevice", device.id, args({device.id}), [](FakeDevice&) { return 0; });
}

std::int32_t GetDeviceSN(std::int32_t id, std::int32_t& length, char* buffer) {
  return on_device("GetDeviceSN", id, with_buffer(args({id}), buffer), [&](FakeDevice& d) {
    boxdim::testing::answer_text(d.serial, length, buffer);
    return 0;
  });
}

std::int32_t GetDeviceHWVersion(std::int32_t id, std::int32_t& length, char* buffer) {
  return on_device("GetDeviceHWVersion", id, with_buffer(args({id}), buffer), [&](FakeDevice& d) {
    boxdim::testing::answer_text(d.hw_version, length, buffer);
    return 0;
  });
}

std::int32_t QueryDeviceSupportFrameType(std::int32_t id, std::int32_t& count,
                                         std::int32_t* frame_types) {
  return on_device("QueryDeviceSupportFrameType", id, with_buffer(args({id}), frame_types),
                   [&](FakeDevice& d) {
                     boxdim::testing::answer_codes(d.frame_types, count, frame_types);
                     return 0;
                   });
}

std::int32_t QueryDeviceSupportResolution(std::int32_t id, std::int32_t frame_type,
                                          std::int32_t& count, std::int32_t* resolutions) {
  return on_device("QueryDeviceSupportResolution", id,
                   with_buffer(args({id, frame_type}), resolutions), [&](FakeDevice& d) {
                     boxdim::testing::answer_codes(d.resolutions[frame_type], count, resolutions);
                     return 0;
                   });
}

std::int32_t SetFrameResolution(std::int32_t id, std::int32_t frame_type, std::int32_t resolution) {
  return on_device("SetFrameResolution", id, args({id, frame_type, resolution}),
                   [](FakeDevice&) { return 0; });
}

std::int32_t StartStreaming(std::int32_t id, std::int32_t stream_type) {
  return on_device("StartStreaming", id, args({id, stream_type}), [](FakeDevice&) { return 0; });
}

std::int32_t ChangeStreaming(std::int32_t id, std::int32_t stream_type) {
  return on_device("ChangeStreaming", id, args({id, stream_type}), [](FakeDevice&) { return 0; });
}

std::int32_t StopStreaming(std::int32_t id) {
  return on_device("StopStreaming", id, args({id}), [](FakeDevice&) { return 0; });
}

std::int32_t GetLastFrameData(std::int32_t id, FrameData*& frame) {
  return on_device("GetLastFrameData", id, args({id}), [&](FakeDevice& d) -> std::int32_t {
    if (d.frame_sets.empty()) return boxdim::testing::FakeSdk::kNoFrame;
    auto& sdk = fake_sdk();
    sdk.current = std::move(d.frame_sets.front());
    d.frame_sets.pop_front();
    sdk.current_data.frame_count = static_cast<std::int32_t>(sdk.current.frames.size());
    sdk.current_data.frame_info = sdk.current.frames.data();
    sdk.current_data.data = sdk.current.data.data();
    frame = &sdk.current_data;
    return 0;
  });
}

namespace {

template <bool FakeDevice::*Member>
std::int32_t get_switch(const char* name, std::int32_t id, bool& enabled) {
  return on_device(name, id, args({id}), [&](FakeDevice& d) {
    enabled = d.*Member;
    return 0;
  });
}

template <bool FakeDevice::*Member>
std::int32_t set_switch(const char* name, std::int32_t id, bool enabled) {
  return on_device(name, id, args({id, enabled}), [&](FakeDevice& d) {
    d.*Member = enabled;
    return 0;
  });
}

}  // namespace

std::int32_t GetFilter(std::int32_t id, bool& on) {
  return get_switch<&FakeDevice::filter>("GetFilter", id, on);
}
std::int32_t SetFilter(std::int32_t id, bool on) {
  return set_switch<&FakeDevice::filter>("SetFilter", id, on);
}
std::int32_t GetMirror(std::int32_t id, bool& on) {
  return get_switch<&FakeDevice::mirror>("GetMirror", id, on);
}
std::int32_t SetMirror(std::int32_t id, bool on) {
  return set_switch<&FakeDevice::mirror>("SetMirror", id, on);
}
std::int32_t GetFlip(std::int32_t id, bool& on) {
  return get_switch<&FakeDevice::flip>("GetFlip", id, on);
}
std::int32_t SetFlip(std::int32_t id, bool on) {
  return set_switch<&FakeDevice::flip>("SetFlip", id, on);
}
std::int32_t GetTrailFilter(std::int32_t id, bool& on) {
  return get_switch<&FakeDevice::trail_filter>("GetTrailFilter", id, on);
}
std::int32_t SetTrailFilter(std::int32_t id, bool on) {
  return set_switch<&FakeDevice::trail_filter>("SetTrailFilter", id, on);
}

std::int32_t AddFilter(std::int32_t id, std::int32_t filter_type) {
  return on_device("AddFilter", id, args({id, filter_type}), [](FakeDevice&) { return 0; });
}

std::int32_t GetIntegralTimeRange(std::int32_t id, std::int32_t frame_type, std::int32_t& min,
                                  std::int32_t& max) {
  return on_device("GetIntegralTimeRange", id, args({id, frame_type}), [&](FakeDevice& d) {
    min = d.integral_min;
    max = d.integral_max;
    return 0;
  });
}

std::int32_t GetIntegralTime(std::int32_t id, std::int32_t& value) {
  return on_device("GetIntegralTime", id, args({id}), [&](FakeDevice& d) {
    value = d.integral_time;
    return 0;
  });
}

std::int32_t SetIntegralTime(std::int32_t id, std::int32_t value) {
  return on_device("SetIntegralTime", id, args({id, value}), [&](FakeDevice& d) {
    d.integral_time = value;
    return 0;
  });
}

std::int32_t GetIntric(std::int32_t id, std::int32_t frame_type, Intrinsics& intrinsics) {
  return on_device("GetIntric", id, args({id, frame_type}), [&](FakeDevice& d) {
    intrinsics = d.intrinsics;
    return 0;
  });
}

std::int32_t GetRGBD(std::int32_t id, RGBDFrame& frame) {
  return on_device("GetRGBD", id, args({id}), [&](FakeDevice& d) {
    frame.width = d.rgbd_width;
    frame.height = d.rgbd_height;
    frame.depth = d.rgbd_depth.data();
    frame.color = d.rgbd_color.data();
    return 0;
  });
}

// Colours a sample as (low byte, high byte, 7), so a test can tell it was used.
std::int32_t GetDepthColor(const std::uint16_t* depth, std::int32_t width, std::int32_t height,
                           unsigned char* color) {
  const std::int32_t status = fake_sdk().enter("GetDepthColor", args({width, height}));
  if (status != 0) return status;
  for (std::int32_t i = 0; i < width * height; ++i) {
    color[3 * i] = static_cast<unsigned char>(depth[i] & 0xff);
    color[3 * i + 1] = static_cast<unsigned char>(depth[i] >> 8);
    color[3 * i + 2] = 7;
  }
  return 0;
}

}  // namespace Corvane
