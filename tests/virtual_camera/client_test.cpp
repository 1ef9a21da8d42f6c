// The acceptance test of the virtual camera: a client written against the
// camera SDK contract alone streams depth frames as the program does, in real
// time, and the measurement pipeline finds the simulated box's dimensions on
// them as well as it does on the renderer's own frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "measure/frame_preparation.h"
#include "measure/pipeline.h"
#include "scene/depth_scene.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

// The scene the virtual camera shows when nothing configures it.
SceneParameters default_scene() {
  SceneParameters scene = testing::standard_scene();
  scene.yaw_deg = 15.0f;
  scene.noise.sigma_at_1m_mm = 1.0f;
  scene.seed = 1;
  return scene;
}

// The largest error over the three dimensions.
double worst_error(const BoxDimensions& measured, const BoxDimensions& truth) {
  return std::max({std::abs(measured.box_length - truth.box_length),
                   std::abs(measured.box_width - truth.box_width),
                   std::abs(measured.box_height - truth.box_height)});
}

class ClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("BOXDIM_CAMERA");
    unsetenv("BOXDIM_SCENE");
    testing::capture_state(state, log, errors);
  }
  void TearDown() override { Corvane::UnInitSDK(); }

  MeasurementState state;
  std::ostringstream log;
  std::ostringstream errors;
};

TEST_F(ClientTest, MeasuresTheSimulatedBoxOnStreamedDepthFrames) {
  ASSERT_EQ(Corvane::InitSDK(), 0);
  std::int32_t count = 0;
  ASSERT_EQ(Corvane::FindDevice(count, nullptr), 0);
  ASSERT_EQ(count, 1);
  std::vector<Corvane::DeviceInfo> devices(static_cast<std::size_t>(count));
  ASSERT_EQ(Corvane::FindDevice(count, devices.data()), 0);
  const Corvane::DeviceInfo& camera = devices[0];
  ASSERT_EQ(camera.type, 1);
  ASSERT_EQ(Corvane::OpenDevice(camera), 0);

  // Set up as the program sets up a device of type 1.
  ASSERT_EQ(Corvane::SetFrameResolution(camera.id, Corvane::kFrameDepth, 2), 0);
  ASSERT_EQ(Corvane::SetFrameResolution(camera.id, Corvane::kFrameColor, 4), 0);
  ASSERT_EQ(Corvane::StartStreaming(camera.id, 2), 0);

  Corvane::Intrinsics record{};
  ASSERT_EQ(Corvane::GetIntric(camera.id, Corvane::kFrameDepth, record), 0);
  state.intrinsics = {record.fx, record.fy, record.cx, record.cy};

  const SceneParameters scene = default_scene();
  const BoxDimensions truth = render_scene(scene).truth.dimensions;
  std::vector<BoxDimensions> measured;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (measured.size() < 6 && std::chrono::steady_clock::now() < deadline) {
    Corvane::FrameData* frame = nullptr;
    if (Corvane::GetLastFrameData(camera.id, frame) != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      continue;
    }
    ASSERT_EQ(frame->frame_count, 1);
    const Corvane::FrameInfo& info = frame->frame_info[0];
    ASSERT_EQ(info.kind, Corvane::kFrameDepth);
    ASSERT_EQ(info.width, 640);
    ASSERT_EQ(info.height, 480);
    set_frame_size(state, info.width, info.height);
    cv::Mat display;
    prepare_frame(state, reinterpret_cast<const std::uint16_t*>(frame->data), display);
    const MeasurementOutcome outcome = run_measurement(state);
    ASSERT_TRUE(outcome.ok) << outcome.failed_stage << ": " << log.str();
    measured.push_back(state.dimensions);
  }
  ASSERT_EQ(measured.size(), 6u) << "the camera stopped delivering frames";
  EXPECT_EQ(Corvane::StopStreaming(camera.id), 0);

  // The renderer's own frames of the same scene, with the four seeds the
  // camera cycles through, measured in one state as a camera's would be.
  MeasurementState reference_state;
  testing::capture_state(reference_state, log, errors);
  double reference_error = 0.0;
  for (int i = 0; i < 4; ++i) {
    SceneParameters frame_scene = scene;
    frame_scene.seed = scene.seed + i;
    testing::load_frame(reference_state, render_scene(frame_scene).depth);
    ASSERT_TRUE(run_measurement(reference_state).ok) << log.str();
    reference_error = std::max(reference_error, worst_error(reference_state.dimensions, truth));
  }
  ASSERT_LT(reference_error, 5.0);
  for (const BoxDimensions& dimensions : measured) {
    EXPECT_LE(worst_error(dimensions, truth), reference_error + 0.5)
        << dimensions.box_length << " x " << dimensions.box_width << " x " << dimensions.box_height;
  }
}

}  // namespace
}  // namespace boxdim
