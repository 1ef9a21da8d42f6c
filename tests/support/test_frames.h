// Helpers shared by the tests: states with captured logs and a fixed seed,
// and depth frames to feed them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include "measure/measurement_state.h"
#include "scene/depth_scene.h"

namespace boxdim::testing {

// A state whose log lines land in `log` / `error_log` and whose RANSAC stages
// seed with `seed`. The streams must outlive the state's use.
void capture_state(MeasurementState& state, std::ostringstream& log, std::ostringstream& error_log,
                   std::time_t seed = 1);

// Base fixture of the stage tests: a state whose log lines land in `log` and
// `errors` and whose RANSAC stages seed with 1.
class StageTest : public ::testing::Test {
 protected:
  StageTest() { capture_state(state, log, errors); }

  MeasurementState state;
  std::ostringstream log;
  std::ostringstream errors;
};

// Sets the state's frame size from `depth` (CV_16UC1) and prepares the frame;
// returns the picture prepare_frame leaves for display.
cv::Mat load_frame(MeasurementState& state, const cv::Mat& depth);

// A state whose cloud holds `depth` as is, with the centre window the driver
// would set: for stages that start after the frame preparation.
void load_cloud(MeasurementState& state, const cv::Mat& depth);

// The clean 400 x 300 x 200 mm box, 1 m under the camera, looking straight down.
SceneParameters standard_scene();

// The same box turned 10 degrees, 800 mm under the station camera delivering
// frames of `size` (its 640 x 480 intrinsics carried over to that size): big
// enough in the image to be measured at 320 x 240 too.
SceneParameters scene_at_size(cv::Size size);

}  // namespace boxdim::testing
