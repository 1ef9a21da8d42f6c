// A scriptable stand-in for the camera SDK: a test sets up the devices and
// their frame sets, makes chosen calls fail, and reads back every call made.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"

namespace boxdim::testing {

// One frame set as GetLastFrameData hands it out.
struct FakeFrameSet {
  std::vector<Corvane::FrameInfo> frames;
  std::vector<unsigned char> data;
};

struct FakeDevice {
  Corvane::DeviceInfo info{};
  std::string serial = "SN-A";
  std::string hw_version = "HW-1";
  std::vector<std::int32_t> frame_types{2};
  std::map<std::int32_t, std::vector<std::int32_t>> resolutions{{2, {2}}};
  std::map<std::string, bool> switches;  // "Filter", "Mirror", "Flip", "TrailFilter"
  std::int32_t integral_min = 100;
  std::int32_t integral_max = 2000;
  std::int32_t integral_time = 500;
  Corvane::Intrinsics intrinsics{};
  std::deque<FakeFrameSet> frame_sets;  // handed out one per poll
  Corvane::RGBDFrame rgbd{};            // what GetRGBD returns; the test owns the pixels
};

struct FakeSdk {
  // Returned by GetLastFrameData while a device has no new frame set, and for
  // a device id the fake does not know.
  static constexpr std::int32_t kNoFrame = 11;
  static constexpr std::int32_t kNoDevice = 12;

  std::string version = "9.8.7";
  std::vector<FakeDevice> devices;
  // Every call in order, as "Name(arguments)"; buffers show as "null" or "buffer".
  std::vector<std::string> calls;
  // Calls named "InitSDK", or with exactly the text "SetFrameResolution(1,4,4)",
  // return the status given and have no effect.
  std::map<std::string, std::int32_t> failures;
  // The frame set last handed out; the SDK owns it until the next poll.
  FakeFrameSet current;
  Corvane::FrameData current_data{};

  FakeDevice& add_device(std::int32_t id, std::int32_t type);
  FakeDevice* device(std::int32_t id);
  void fail(const std::string& call, std::int32_t status) { failures[call] = status; }
  // The calls joined by single spaces.
  std::string calls_text() const;
  // Calls named `name`, in order.
  std::vector<std::string> calls_named(const std::string& name) const;
};

// The SDK every Corvane:: function of the fake serves.
FakeSdk& fake_sdk();
void reset_fake_sdk();

}  // namespace boxdim::testing
