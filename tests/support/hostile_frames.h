// Frames and intrinsics no camera should send, shared by the tests that run
// them through the station pipeline and through every engine.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <ostream>
#include <vector>

#include "core/camera_intrinsics.h"

namespace boxdim::testing {

enum class HostileOutcome { kFails, kMeasuresTheBox, kEither };

struct HostileCase {
  const char* name;
  cv::Size size;
  std::function<cv::Mat(cv::Size)> frame;  // CV_16UC1 of that size
  CameraIntrinsics intrinsics;
  HostileOutcome outcome;
};

inline void PrintTo(const HostileCase& c, std::ostream* os) { *os << c.name; }

// The 400 x 300 x 200 mm box of standard_scene() is what the measured cases
// hold.
const std::vector<HostileCase>& hostile_cases();

}  // namespace boxdim::testing
