// The acceptance test of the virtual camera: a client written against the
// camera SDK contract alone receives frames of the scene that, seen with the
// intrinsics the camera reports, measure as the scene's box.
#include <gtest/gtest.h>

#include <sstream>

#include "pipeline/station_pipeline.h"
#include "support/test_frames.h"
#include "virtual_camera/camera_config.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera::testing {
namespace {

// Nothing configured: one device of type 1 showing the default scene, set up
// as the program sets up such a device.
TEST_F(VirtualCameraTest, StreamsFramesOfTheDefaultSceneWhoseBoxMeasuresTrue) {
  open_first(nullptr, nullptr);
  ASSERT_EQ(Corvane::SetFrameResolution(1, Corvane::kFrameDepth, 2), 0);
  ASSERT_EQ(Corvane::SetFrameResolution(1, Corvane::kFrameColor, 4), 0);
  ASSERT_EQ(Corvane::StartStreaming(1, 2), 0);
  Corvane::Intrinsics k{};
  ASSERT_EQ(Corvane::GetIntric(1, Corvane::kFrameDepth, k), 0);

  const Frame frame = frames_of(*next_set())[0];
  ASSERT_EQ(frame.kind, Corvane::kFrameDepth);

  MeasurementState state;
  std::ostringstream log, errors;
  boxdim::testing::capture_state(state, log, errors);
  state.intrinsics = {k.fx, k.fy, k.cx, k.cy};
  boxdim::testing::load_frame(state, frame.samples());
  ASSERT_TRUE(run_measurement(state).ok) << log.str();
  const BoxDimensions truth = render_scene(default_scene()).truth.dimensions;
  EXPECT_NEAR(state.dimensions.box_length, truth.box_length, 5.0f);
  EXPECT_NEAR(state.dimensions.box_width, truth.box_width, 5.0f);
  EXPECT_NEAR(state.dimensions.box_height, truth.box_height, 5.0f);
}

}  // namespace
}  // namespace boxdim::virtual_camera::testing
