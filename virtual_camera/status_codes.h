// The status codes the virtual camera returns through the camera SDK: 0 for
// success, a distinct negative value for each reason a call is refused.
#pragma once

#include <cstdint>

namespace boxdim::virtual_camera {

enum Status : std::int32_t {
  kOk = 0,
  kNotInitialised = -1,
  kAlreadyInitialised = -2,
  kBadConfiguration = -3,
  kUnknownDevice = -4,
  kDeviceNotOpen = -5,
  kDeviceAlreadyOpen = -6,
  kDeviceUnavailable = -7,
  kAlreadyStreaming = -8,
  kNotStreaming = -9,
  kNoNewFrame = -10,
  kNoFrameYet = -11,
  kNotAlignedStream = -12,
  kUnsupportedFrameType = -13,
  kUnsupportedStreamType = -14,
  kUnsupportedResolution = -15,
  kBadIntegrationTime = -16,
  kUnsupportedFilter = -17,
  kInvalidArgument = -18,
  kBufferTooSmall = -19,
  kNoFramesForStream = -20,
  kReadFailed = -21,
  kInternalError = -22,
};

}  // namespace boxdim::virtual_camera
