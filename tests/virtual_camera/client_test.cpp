// The acceptance test of the virtual camera: what a client written against the
// camera SDK contract alone receives is the renderer's frame of the scene, seen
// with the intrinsics the camera reports, so the measurement finds the box.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <vector>

#include "measure/pipeline.h"
#include "support/test_frames.h"
#include "virtual_camera/camera_config.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera::testing {
namespace {

// Nothing configured: one device of type 1 showing the default scene, set up
// as the program sets up such a device.
TEST_F(VirtualCameraTest, StreamsTheRenderersFramesOfTheDefaultSceneAndTheBoxMeasures) {
  open_first(nullptr, nullptr);
  ASSERT_EQ(Corvane::SetFrameResolution(1, Corvane::kFrameDepth, 2), 0);
  ASSERT_EQ(Corvane::SetFrameResolution(1, Corvane::kFrameColor, 4), 0);
  ASSERT_EQ(Corvane::StartStreaming(1, 2), 0);
  Corvane::Intrinsics k{};
  ASSERT_EQ(Corvane::GetIntric(1, Corvane::kFrameDepth, k), 0);

  // The camera cycles through four noise seeds from the scene's own.
  SceneParameters scene = default_scene();
  scene.intrinsics = {k.fx, k.fy, k.cx, k.cy};
  std::vector<cv::Mat> renders;
  for (int i = 0; i < 4; ++i) {
    SceneParameters seeded = scene;
    seeded.seed = scene.seed + i;
    renders.push_back(render_scene(seeded).depth);
  }
  for (int set = 0; set < 4; ++set) {
    const Frame frame = frames_of(*next_set())[0];
    ASSERT_EQ(frame.kind, Corvane::kFrameDepth);
    const cv::Mat depth = frame.samples();
    EXPECT_TRUE(std::any_of(renders.begin(), renders.end(),
                            [&](const cv::Mat& render) {
                              return render.size() == depth.size() &&
                                     cv::countNonZero(render != depth) == 0;
                            }))
        << "set " << set;
  }

  MeasurementState state;
  std::ostringstream log, errors;
  boxdim::testing::capture_state(state, log, errors);
  state.intrinsics = scene.intrinsics;
  boxdim::testing::load_frame(state, frames_of(*next_set())[0].samples());
  ASSERT_TRUE(run_measurement(state).ok) << log.str();
  const BoxDimensions truth = render_scene(scene).truth.dimensions;
  EXPECT_NEAR(state.dimensions.box_length, truth.box_length, 5.0f);
  EXPECT_NEAR(state.dimensions.box_width, truth.box_width, 5.0f);
  EXPECT_NEAR(state.dimensions.box_height, truth.box_height, 5.0f);
}

}  // namespace
}  // namespace boxdim::virtual_camera::testing
