// One depth frame as every source hands it to every engine: the samples, the
// intrinsics that turn them into points, and which camera took it when.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

#include "core/camera_intrinsics.h"

namespace boxdim {

struct DepthFrame {
  // CV_16UC1, millimetres, 0 where the camera had no return. A view of the
  // source's buffer (valid until the source's next frame) or owned.
  cv::Mat depth;
  CameraIntrinsics intrinsics;
  int camera_id = 0;              // the SDK's device id; 0 for files and renderings
  std::int64_t timestamp_us = 0;  // when the frame was taken, microseconds
  std::string origin;             // a file's path; empty for cameras and renderings
};

}  // namespace boxdim
