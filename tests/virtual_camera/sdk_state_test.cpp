// The SDK's bookkeeping: what each call needs before it may run, one refusal
// for each reason, and the pacing of the frames it delivers.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "virtual_camera/status_codes.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera::testing {
namespace {

using namespace Corvane;

class SdkStateTest : public VirtualCameraTest {};

TEST_F(SdkStateTest, EachCallIsRefusedForItsReasonInTurn) {
  struct Step {
    std::string call;
    std::function<std::int32_t()> run;
    std::int32_t status;
  };
  std::int32_t n = 0;
  char text[64];
  FrameData* frame = nullptr;
  RGBDFrame pair{};
  unsigned char colour[3];
  DeviceInfo devices[2];
  const DeviceInfo first{1, 1, 0, {}, 0, 0};
  // Each step runs after the ones before it.
  const std::vector<Step> steps = {
      {"FindDevice before InitSDK", [&] { return FindDevice(n, nullptr); }, kNotInitialised},
      {"InitSDK", [&] { return init("sim,sim:7"); }, kOk},
      {"InitSDK again", [] { return InitSDK(); }, kAlreadyInitialised},
      {"OpenDevice before FindDevice", [&] { return OpenDevice(first); }, kUnknownDevice},
      {"FindDevice into a list of one", [&] { return FindDevice(n = 1, devices); },
       kBufferTooSmall},
      {"FindDevice", [&] { return FindDevice(n, nullptr); }, kOk},
      {"GetDeviceSN of device 3", [&] { return GetDeviceSN(3, n = 64, text); }, kUnknownDevice},
      {"GetDeviceSN before OpenDevice", [&] { return GetDeviceSN(2, n = 64, text); }, kOk},
      {"StartStreaming before OpenDevice", [] { return StartStreaming(1, 2); }, kDeviceNotOpen},
      {"OpenDevice", [&] { return OpenDevice(first); }, kOk},
      {"OpenDevice again", [&] { return OpenDevice(first); }, kDeviceAlreadyOpen},
      {"GetDeviceSN into a small buffer", [&] { return GetDeviceSN(1, n = 4, text); },
       kBufferTooSmall},
      {"SetFrameResolution of frame type 5", [] { return SetFrameResolution(1, 5, 1); },
       kUnsupportedFrameType},
      {"SetFrameResolution 4 of depth", [] { return SetFrameResolution(1, kFrameDepth, 4); },
       kUnsupportedResolution},
      {"SetIntegralTime off its step", [] { return SetIntegralTime(1, 675); }, kBadIntegrationTime},
      {"AddFilter 5", [] { return AddFilter(1, 5); }, kUnsupportedFilter},
      {"GetDepthColor of no samples", [&] { return GetDepthColor(nullptr, 1, 1, colour); },
       kInvalidArgument},
      {"StopStreaming", [] { return StopStreaming(1); }, kNotStreaming},
      {"StartStreaming 8", [] { return StartStreaming(1, 8); }, kUnsupportedStreamType},
      {"StartStreaming 7", [] { return StartStreaming(1, 7); }, kOk},
      {"GetRGBD before a frame", [&] { return GetRGBD(1, pair); }, kNoFrameYet},
      {"StartStreaming again", [] { return StartStreaming(1, 2); }, kAlreadyStreaming},
      {"ChangeStreaming 2", [] { return ChangeStreaming(1, 2); }, kOk},
      {"GetRGBD of depth alone", [&] { return GetRGBD(1, pair); }, kNotAlignedStream},
      {"GetLastFrameData before a period passes", [&] { return GetLastFrameData(1, frame); },
       kNoNewFrame},
      {"UnInitSDK", [] { return UnInitSDK(); }, kOk},
      {"UnInitSDK again", [] { return UnInitSDK(); }, kNotInitialised},
  };
  for (const Step& step : steps) EXPECT_EQ(step.run(), step.status) << step.call;
}

TEST_F(SdkStateTest, DeliversOneSetPerFramePeriodAndSkipsMissedOnes) {
  // Steps of the clock and whether the poll after each finds a new set.
  struct Step {
    double periods;
    bool new_set;
  };
  const std::vector<Step> steps = {
      {0.0, false}, {0.5, false}, {0.55, true}, {0.0, false}, {0.9, false},
      {0.2, true},  {3.5, true},  {0.0, false}, {0.6, true},
  };
  open_first("sim");
  ASSERT_EQ(StartStreaming(1, 2), 0);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    now_ += std::chrono::duration_cast<std::chrono::nanoseconds>(steps[i].periods * kFrameStep);
    FrameData* set = nullptr;
    const std::int32_t status = GetLastFrameData(1, set);
    EXPECT_EQ(status == 0, steps[i].new_set) << "step " << i << ", status " << status;
    EXPECT_EQ(set != nullptr, steps[i].new_set) << "step " << i;
  }
}

}  // namespace
}  // namespace boxdim::virtual_camera::testing
