// The SDK's bookkeeping: what each call needs before it may run, the two-call
// queries, and what each device type reports and accepts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "virtual_camera/status_codes.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera::testing {
namespace {

using namespace Corvane;

// Where the calls below leave their results.
std::int32_t n;
char text[64];
std::int32_t list[8];
FrameData* frame;
RGBDFrame pair;
Intrinsics k;

struct Call {
  std::string name;
  std::function<std::int32_t(std::int32_t id)> run;
};

// One operation of each kind the SDK checks alike: text and capability
// queries, which need a known device, and the stream and setting calls, which
// need it opened.
const std::vector<Call> kDeviceCalls = {
    {"GetDeviceSN", [](std::int32_t id) { return GetDeviceSN(id, n = 64, text); }},
    {"QueryDeviceSupportResolution",
     [](std::int32_t id) { return QueryDeviceSupportResolution(id, 2, n = 8, list); }},
    {"SetFrameResolution", [](std::int32_t id) { return SetFrameResolution(id, 2, 2); }},
    {"StartStreaming", [](std::int32_t id) { return StartStreaming(id, 7); }},
    {"ChangeStreaming", [](std::int32_t id) { return ChangeStreaming(id, 2); }},
    {"GetLastFrameData", [](std::int32_t id) { return GetLastFrameData(id, frame); }},
    {"GetRGBD", [](std::int32_t id) { return GetRGBD(id, pair); }},
    {"StopStreaming", [](std::int32_t id) { return StopStreaming(id); }},
    {"SetMirror", [](std::int32_t id) { return SetMirror(id, true); }},
    {"GetIntric", [](std::int32_t id) { return GetIntric(id, 2, k); }},
    {"OpenDevice",
     [](std::int32_t id) {
       return OpenDevice(DeviceInfo{id, 1, 0, {}, 0, 0});
     }},
};

std::int32_t run(const std::string& name, std::int32_t id) {
  return std::find_if(kDeviceCalls.begin(), kDeviceCalls.end(),
                      [&](const Call& c) { return c.name == name; })
      ->run(id);
}

class SdkStateTest : public VirtualCameraTest {};

TEST_F(SdkStateTest, CallsBeforeInitFindDeviceOrOpenDeviceAreRefused) {
  std::uint16_t depth = 1000;
  unsigned char colour[3];
  for (const Call& call : kDeviceCalls) EXPECT_EQ(call.run(1), kNotInitialised) << call.name;
  EXPECT_EQ(FindDevice(n, nullptr), kNotInitialised);
  EXPECT_EQ(GetDepthColor(&depth, 1, 1, colour), kNotInitialised);
  EXPECT_EQ(UnInitSDK(), kNotInitialised);
  EXPECT_EQ(GetSDKVersion(n, nullptr), 0);

  ASSERT_EQ(init("sim,sim"), 0);
  EXPECT_EQ(InitSDK(), kAlreadyInitialised);
  for (const Call& call : kDeviceCalls) EXPECT_EQ(call.run(1), kUnknownDevice) << call.name;
  find_devices();
  for (const std::int32_t id : {0, -1, 3}) {
    for (const Call& call : kDeviceCalls) EXPECT_EQ(call.run(id), kUnknownDevice) << call.name;
  }
  // Only the text and capability queries answer before OpenDevice.
  for (const Call& call : kDeviceCalls) {
    if (call.name == "OpenDevice") continue;
    const bool text_query = call.name.rfind("Query", 0) == 0 || call.name == "GetDeviceSN";
    EXPECT_EQ(call.run(2), text_query ? kOk : kDeviceNotOpen) << call.name;
  }
  ASSERT_EQ(UnInitSDK(), 0);
  EXPECT_EQ(UnInitSDK(), kNotInitialised);
}

TEST_F(SdkStateTest, StreamCallsNeedTheRightStreamState) {
  // Each step runs after the ones before it, on one device.
  const std::vector<std::pair<std::string, std::int32_t>> steps = {
      {"OpenDevice", kDeviceAlreadyOpen}, {"ChangeStreaming", kNotStreaming},
      {"StopStreaming", kNotStreaming},   {"GetLastFrameData", kNotStreaming},
      {"GetRGBD", kNotStreaming},         {"StartStreaming", kOk},
      {"GetRGBD", kNoFrameYet},           {"StartStreaming", kAlreadyStreaming},
      {"ChangeStreaming", kOk},           {"GetRGBD", kNotAlignedStream},
      {"GetLastFrameData", kNoNewFrame},  {"StopStreaming", kOk},
      {"StopStreaming", kNotStreaming},
  };
  open_first("sim");
  for (std::size_t i = 0; i < steps.size(); ++i) {
    EXPECT_EQ(run(steps[i].first, 1), steps[i].second) << "step " << i << ": " << steps[i].first;
  }
}

TEST_F(SdkStateTest, BadArgumentsAreRefused) {
  open_first("sim:3");
  std::uint16_t depth[4] = {900, 1000, 0, 1100};
  unsigned char colour[12];
  const std::vector<std::function<std::int32_t()>> calls = {
      [&] { return GetDepthColor(nullptr, 2, 2, colour); },
      [&] { return GetDepthColor(depth, 2, 2, nullptr); },
      [&] { return GetDepthColor(depth, 0, 2, colour); },
      [&] { return GetDepthColor(depth, 2, -1, colour); },
      [] { return AddFilter(1, 0); },
      [] { return AddFilter(1, 5); },
      [] { return StartStreaming(1, 8); },
      [] { return SetFrameResolution(1, 0, 1); },
      [] { return GetIntric(1, 9, k); },
  };
  for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_LT(calls[i](), 0) << "call " << i;
  EXPECT_EQ(GetDepthColor(depth, 2, 2, colour), 0);
}

TEST_F(SdkStateTest, TwoCallQueriesReportTheirSizeAndRefuseSmallBuffers) {
  struct Case {
    const char* name;
    std::function<std::int32_t(std::int32_t& size, void* buffer)> query;
    std::size_t element_size;
    std::string text;  // "" for lists
  };
  const std::vector<Case> cases = {
      {"version", [](auto& n, void* b) { return GetSDKVersion(n, static_cast<char*>(b)); }, 1,
       "corvane_sdk virtual-1.0"},
      {"colour resolutions",
       [](auto& n, void* b) {
         return QueryDeviceSupportResolution(1, kFrameColor, n, static_cast<std::int32_t*>(b));
       },
       4, ""},
      {"devices", [](auto& n, void* b) { return FindDevice(n, static_cast<DeviceInfo*>(b)); },
       sizeof(DeviceInfo), ""},
  };
  ASSERT_EQ(init("sim,sim:5"), 0);
  find_devices();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::int32_t size = 0;
    ASSERT_EQ(c.query(size, nullptr), 0);
    const std::size_t bytes = static_cast<std::size_t>(size) * c.element_size;
    std::vector<unsigned char> buffer(bytes + 1, 0xAB);
    std::int32_t too_small = size - 1;
    EXPECT_EQ(c.query(too_small, buffer.data()), kBufferTooSmall);
    EXPECT_EQ(std::count(buffer.begin(), buffer.end(), 0xAB), static_cast<long>(bytes + 1));
    ASSERT_EQ(c.query(size, buffer.data()), 0);
    EXPECT_EQ(buffer[bytes], 0xAB) << "wrote past the size it reported";
    if (!c.text.empty()) {
      EXPECT_EQ(std::string(buffer.begin(), buffer.end() - 1), c.text + '\0');
    }
  }
}

TEST_F(SdkStateTest, EachDeviceTypeOffersExactlyItsFramesStreamsAndResolutions) {
  struct Case {
    std::vector<std::int32_t> frame_types;
    std::vector<int> stream_types;
  };
  const std::vector<Case> by_type = {
      {{1, 2, 3, 4}, {1, 2, 3, 4, 5, 6, 7}},
      {{1, 2, 3, 4}, {1, 2, 3, 4, 5, 6, 7}},
      {{1, 2, 3}, {1, 2, 4}},
      {{1, 2, 3}, {1, 2, 4}},
      {{1, 2, 3}, {1, 2, 4}},
      {{1, 2, 3}, {1, 2, 4}},
      {{2, 3}, {2, 4}},
  };
  // Resolution codes by frame type 1-4; infrared follows depth.
  const std::vector<std::vector<std::int32_t>> codes = {{}, {1, 2}, {1, 2}, {1, 2}, {2, 4}};
  const auto has = [](const auto& values, int value) {
    return std::find(values.begin(), values.end(), value) != values.end();
  };
  ASSERT_EQ(init("sim:1,sim:2,sim:3,sim:4,sim:5,sim:6,sim:7"), 0);
  const std::vector<DeviceInfo> devices = find_devices();
  for (std::size_t i = 0; i < by_type.size(); ++i) {
    const Case& c = by_type[i];
    const std::int32_t id = devices[i].id;
    SCOPED_TRACE(::testing::Message() << "device type " << devices[i].type);
    EXPECT_EQ(devices[i].type, static_cast<int>(i + 1));
    ASSERT_EQ(OpenDevice(devices[i]), 0);
    ASSERT_EQ(QueryDeviceSupportFrameType(id, n = 8, list), 0);
    EXPECT_EQ(std::vector<std::int32_t>(list, list + n), c.frame_types);
    for (std::int32_t type = 0; type <= 5; ++type) {
      const bool offered = has(c.frame_types, type);
      EXPECT_EQ(QueryDeviceSupportResolution(id, type, n = 8, list) == 0, offered) << type;
      if (offered) {
        EXPECT_EQ(std::vector<std::int32_t>(list, list + n), codes[type]) << type;
      }
      for (std::int32_t code = 0; code <= 5; ++code) {
        EXPECT_EQ(SetFrameResolution(id, type, code) == 0, offered && has(codes[type], code))
            << "frame type " << type << " resolution " << code;
      }
    }
    for (int stream = 0; stream <= 8; ++stream) {
      const std::int32_t status = StartStreaming(id, stream);
      EXPECT_EQ(status == 0, has(c.stream_types, stream)) << "stream " << stream;
      if (status == 0) StopStreaming(id);
    }
    ASSERT_EQ(StartStreaming(id, 2), 0);
    EXPECT_EQ(ChangeStreaming(id, 3) == 0, has(c.stream_types, 3));
  }
}

}  // namespace
}  // namespace boxdim::virtual_camera::testing
