#include "fake_corvane_sdk.h"

#include <algorithm>
#include <cstdio>

namespace boxdim::testing {

namespace {

FakeSdk instance;

std::string args(std::initializer_list<std::int64_t> values) {
  std::string text;
  for (const std::int64_t value : values) text += (text.empty() ? "" : ",") + std::to_string(value);
  return text;
}

std::string with_buffer(const std::string& head, const void* buffer) {
  return (head.empty() ? "" : head + ",") + (buffer != nullptr ? "buffer" : "null");
}

// Records the call; returns its scripted status, or 0.
std::int32_t enter(const std::string& name, const std::string& arguments) {
  const std::string call = name + "(" + arguments + ")";
  instance.calls.push_back(call);
  for (const std::string& key : {call, name}) {
    const auto failure = instance.failures.find(key);
    if (failure != instance.failures.end()) return failure->second;
  }
  return 0;
}

// Records the call and, unless it is scripted to fail, runs `effect` on the device.
template <typename Effect>
std::int32_t on_device(const std::string& name, std::int32_t id, const std::string& arguments,
                       Effect effect) {
  const std::int32_t status = enter(name, arguments);
  if (status != 0) return status;
  FakeDevice* device = instance.device(id);
  return device == nullptr ? FakeSdk::kNoDevice : effect(*device);
}

std::int32_t no_effect(FakeDevice&) { return 0; }

// The two-call pattern: the size for a null buffer, else up to `size` items.
template <typename T>
std::int32_t answer(const std::vector<T>& items, std::int32_t& size, T* buffer) {
  if (buffer == nullptr) {
    size = static_cast<std::int32_t>(items.size());
  } else {
    size = std::min(size, static_cast<std::int32_t>(items.size()));
    std::copy_n(items.begin(), size, buffer);
  }
  return 0;
}

// A text's length counts its terminator; an empty text has length 0.
std::vector<char> terminated(const std::string& text) {
  return text.empty() ? std::vector<char>{}
                      : std::vector<char>(text.c_str(), text.c_str() + text.size() + 1);
}

std::int32_t get_switch(const std::string& name, std::int32_t id, bool& on) {
  return on_device("Get" + name, id, args({id}), [&](FakeDevice& d) {
    on = d.switches[name];
    return 0;
  });
}

std::int32_t set_switch(const std::string& name, std::int32_t id, bool on) {
  return on_device("Set" + name, id, args({id, on}), [&](FakeDevice& d) {
    d.switches[name] = on;
    return 0;
  });
}

}  // namespace

FakeSdk& fake_sdk() { return instance; }
void reset_fake_sdk() { instance = FakeSdk{}; }

FakeDevice& FakeSdk::add_device(std::int32_t id, std::int32_t type) {
  FakeDevice& device = devices.emplace_back();
  device.info.id = id;
  device.info.type = type;
  std::snprintf(device.info.name, sizeof device.info.name, "cam%d", id);
  return device;
}

FakeDevice* FakeSdk::device(std::int32_t id) {
  for (FakeDevice& device : devices) {
    if (device.info.id == id) return &device;
  }
  return nullptr;
}

std::string FakeSdk::calls_text() const {
  std::string text;
  for (const std::string& call : calls) text += (text.empty() ? "" : " ") + call;
  return text;
}

std::vector<std::string> FakeSdk::calls_named(const std::string& name) const {
  std::vector<std::string> named;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(named),
               [&](const std::string& call) { return call.rfind(name + "(", 0) == 0; });
  return named;
}

}  // namespace boxdim::testing

namespace Corvane {

using namespace boxdim::testing;

std::int32_t GetSDKVersion(std::int32_t& length, char* buffer) {
  const std::int32_t status = enter("GetSDKVersion", with_buffer("", buffer));
  return status != 0 ? status : answer(terminated(fake_sdk().version), length, buffer);
}

std::int32_t InitSDK() { return enter("InitSDK", ""); }
std::int32_t UnInitSDK() { return enter("UnInitSDK", ""); }

std::int32_t FindDevice(std::int32_t& count, DeviceInfo* devices) {
  const std::int32_t status = enter("FindDevice", with_buffer("", devices));
  if (status != 0) return status;
  std::vector<DeviceInfo> known;
  for (const FakeDevice& device : fake_sdk().devices) known.push_back(device.info);
  return answer(known, count, devices);
}

std::int32_t OpenDevice(const DeviceInfo& device) {
  return on_device("OpenDevice", device.id, args({device.id}), no_effect);
}

std::int32_t GetDeviceSN(std::int32_t id, std::int32_t& length, char* buffer) {
  return on_device("GetDeviceSN", id, with_buffer(args({id}), buffer),
                   [&](FakeDevice& d) { return answer(terminated(d.serial), length, buffer); });
}

std::int32_t GetDeviceHWVersion(std::int32_t id, std::int32_t& length, char* buffer) {
  return on_device("GetDeviceHWVersion", id, with_buffer(args({id}), buffer),
                   [&](FakeDevice& d) { return answer(terminated(d.hw_version), length, buffer); });
}

std::int32_t QueryDeviceSupportFrameType(std::int32_t id, std::int32_t& count,
                                         std::int32_t* types) {
  return on_device("QueryDeviceSupportFrameType", id, with_buffer(args({id}), types),
                   [&](FakeDevice& d) { return answer(d.frame_types, count, types); });
}

std::int32_t QueryDeviceSupportResolution(std::int32_t id, std::int32_t frame_type,
                                          std::int32_t& count, std::int32_t* codes) {
  return on_device("QueryDeviceSupportResolution", id, with_buffer(args({id, frame_type}), codes),
                   [&](FakeDevice& d) { return answer(d.resolutions[frame_type], count, codes); });
}

std::int32_t SetFrameResolution(std::int32_t id, std::int32_t frame_type, std::int32_t resolution) {
  return on_device("SetFrameResolution", id, args({id, frame_type, resolution}), no_effect);
}

std::int32_t StartStreaming(std::int32_t id, std::int32_t stream_type) {
  return on_device("StartStreaming", id, args({id, stream_type}), no_effect);
}

std::int32_t ChangeStreaming(std::int32_t id, std::int32_t stream_type) {
  return on_device("ChangeStreaming", id, args({id, stream_type}), no_effect);
}

std::int32_t StopStreaming(std::int32_t id) {
  return on_device("StopStreaming", id, args({id}), no_effect);
}

std::int32_t GetLastFrameData(std::int32_t id, FrameData*& frame) {
  return on_device("GetLastFrameData", id, args({id}), [&](FakeDevice& d) -> std::int32_t {
    if (d.frame_sets.empty()) return FakeSdk::kNoFrame;
    FakeSdk& sdk = fake_sdk();
    sdk.current = std::move(d.frame_sets.front());
    d.frame_sets.pop_front();
    sdk.current_data = {static_cast<std::int32_t>(sdk.current.frames.size()),
                        sdk.current.frames.data(), sdk.current.data.data()};
    frame = &sdk.current_data;
    return 0;
  });
}

std::int32_t GetFilter(std::int32_t id, bool& on) { return get_switch("Filter", id, on); }
std::int32_t SetFilter(std::int32_t id, bool on) { return set_switch("Filter", id, on); }
std::int32_t GetMirror(std::int32_t id, bool& on) { return get_switch("Mirror", id, on); }
std::int32_t SetMirror(std::int32_t id, bool on) { return set_switch("Mirror", id, on); }
std::int32_t GetFlip(std::int32_t id, bool& on) { return get_switch("Flip", id, on); }
std::int32_t SetFlip(std::int32_t id, bool on) { return set_switch("Flip", id, on); }
std::int32_t GetTrailFilter(std::int32_t id, bool& on) { return get_switch("TrailFilter", id, on); }
std::int32_t SetTrailFilter(std::int32_t id, bool on) { return set_switch("TrailFilter", id, on); }

std::int32_t AddFilter(std::int32_t id, std::int32_t filter_type) {
  return on_device("AddFilter", id, args({id, filter_type}), no_effect);
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
    frame = d.rgbd;
    return 0;
  });
}

std::int32_t GetDepthColor(const std::uint16_t*, std::int32_t width, std::int32_t height,
                           unsigned char* color) {
  const std::int32_t status = enter("GetDepthColor", args({width, height}));
  if (status == 0) std::fill_n(color, 3 * width * height, 0);
  return status;
}

}  // namespace Corvane
