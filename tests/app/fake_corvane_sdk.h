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
  bool filter = false;
  bool mirror = false;
  bool flip = false;
  bool trail_filter = false;
  std::int32_t integral_min = 100;
  std::int32_t integral_max = 2000;
  std::int32_t integral_time = 500;
  Corvane::Intrinsics intrinsics{};
  std::deque<FakeFrameSet> frame_sets;  // handed out one per poll
  // The aligned pair GetRGBD returns.
  int rgbd_width = 0;
  int rgbd_height = 0;
  std::vector<std::uint16_t> rgbd_depth;
  std::vector<unsigned char> rgbd_color;
};

class FakeSdk {
 public:
  // Returned by GetLastFrameData while a device has no new frame set.
  static constexpr std::int32_t kNoFrame = 11;
  // Returned for a device id the fake does not know.
  static constexpr std::int32_t kNoDevice = 12;

  std::string version = "9.8.7";
  std::vector<FakeDevice> devices;

  FakeDevice& add_device(std::int32_t id, std::int32_t type);
  FakeDevice* device(std::int32_t id);

  // Calls named `call` ("InitSDK") or with exactly that text
  // ("SetFrameResolution(1,4,4)") return `code` and have no effect.
  void fail(const std::string& call, std::int32_t code) { failures_[call] = code; }
  // Every call in order, as "Name(arguments)"; buffers show as "null" or "buffer".
  const std::vector<std::string>& calls() const { return calls_; }
  // The calls joined by single spaces.
  std::string calls_text() const;
  // Calls named `name`, in order.
  std::vector<std::string> calls_named(const std::string& name) const;
  int count(const std::string& name) const { return static_cast<int>(calls_named(name).size()); }

  // For the fake's functions: records the call, returns its scripted status.
  std::int32_t enter(const std::string& name, const std::string& arguments);

  // The frame set last handed out; the SDK owns it until the next poll.
  FakeFrameSet current;
  Corvane::FrameData current_data{};

 private:
  std::map<std::string, std::int32_t> failures_;
  std::vector<std::string> calls_;
};

// The SDK every Corvane:: function of the fake serves.
FakeSdk& fake_sdk();
void reset_fake_sdk();

}  // namespace boxdim::testing
