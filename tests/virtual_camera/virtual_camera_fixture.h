// A virtual camera brought up for one test: the environment it reads, InitSDK,
// FindDevice and OpenDevice, and a clock the test steps by hand.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "virtual_camera/virtual_clock.h"

namespace boxdim::virtual_camera::testing {

// A little over one frame period, so that each step is worth exactly one frame.
constexpr std::chrono::nanoseconds kFrameStep(33'333'334);

// One frame of a set, located by the sizes of the frames before it.
struct Frame {
  int kind = 0;
  cv::Size size;
  const unsigned char* data = nullptr;

  // A copy of the 16-bit samples.
  cv::Mat samples() const {
    return cv::Mat(size, CV_16UC1, const_cast<unsigned char*>(data)).clone();
  }
};

inline std::vector<Frame> frames_of(const Corvane::FrameData& set) {
  std::vector<Frame> frames;
  std::size_t offset = 0;
  for (int i = 0; i < set.frame_count; ++i) {
    const Corvane::FrameInfo& info = set.frame_info[i];
    frames.push_back({info.kind, cv::Size(info.width, info.height), set.data + offset});
    offset += static_cast<std::size_t>(info.width) * info.height * 2;
  }
  return frames;
}

class VirtualCameraTest : public ::testing::Test {
 protected:
  void SetUp() override {
    set_clock([this] { return now_; });
  }

  void TearDown() override {
    Corvane::UnInitSDK();
    unsetenv("BOXDIM_CAMERA");
    unsetenv("BOXDIM_SCENE");
    set_clock(nullptr);
  }

  // nullptr leaves the variable unset. A noise-free scene renders one frame
  // that every set repeats.
  std::int32_t init(const char* camera, const char* scene = "noise=0") {
    set_variable("BOXDIM_CAMERA", camera);
    set_variable("BOXDIM_SCENE", scene);
    return Corvane::InitSDK();
  }

  std::vector<Corvane::DeviceInfo> find_devices() {
    std::int32_t count = 0;
    EXPECT_EQ(Corvane::FindDevice(count, nullptr), 0);
    std::vector<Corvane::DeviceInfo> devices(static_cast<std::size_t>(count));
    EXPECT_EQ(Corvane::FindDevice(count, devices.data()), 0);
    return devices;
  }

  // Brings the camera up and opens its first device.
  void open_first(const char* camera, const char* scene = "noise=0") {
    ASSERT_EQ(init(camera, scene), 0);
    const std::vector<Corvane::DeviceInfo> devices = find_devices();
    ASSERT_FALSE(devices.empty());
    ASSERT_EQ(Corvane::OpenDevice(devices[0]), 0);
  }

  // Lets one frame period pass and fetches the set it brought.
  Corvane::FrameData* next_set(std::int32_t device_id = 1) {
    now_ += kFrameStep;
    Corvane::FrameData* frame = nullptr;
    EXPECT_EQ(Corvane::GetLastFrameData(device_id, frame), 0);
    return frame;
  }

  std::chrono::steady_clock::time_point now_{std::chrono::hours(1)};

 private:
  static void set_variable(const char* name, const char* value) {
    if (value == nullptr) {
      unsetenv(name);
    } else {
      setenv(name, value, 1);
    }
  }
};

}  // namespace boxdim::virtual_camera::testing
