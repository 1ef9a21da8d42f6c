// Reading the virtual camera's configuration from BOXDIM_CAMERA and
// BOXDIM_SCENE, and how InitSDK reports a value it cannot use.
#include "virtual_camera/camera_config.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "virtual_camera/status_codes.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera {
namespace {

using Source = ConfiguredDevice::Source;

// The ConfigError's message, or "" when the parse succeeds.
std::string error_of(const std::function<void()>& parse) {
  try {
    parse();
  } catch (const ConfigError& e) {
    return e.what();
  }
  return "";
}

// Each device as text, S and its type or R and its folder; or the error.
TEST(CameraConfig, DeviceListsBecomeDevicesInOrderOrNameTheBadItem) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {"sim, sim:7 ,replay:C:/captures", "S1 S7 RC:/captures "},
      {"sim,sim:0", "BOXDIM_CAMERA: 'sim:0' has no device type 0 (1-7)"},
      {"replay:", "BOXDIM_CAMERA: 'replay:' names no capture folder"},
      {"SIM", "BOXDIM_CAMERA: 'SIM' is not a device (sim, sim:TYPE or replay:DIR)"},
      {"sim,", "BOXDIM_CAMERA: 'sim,' has an empty item"},
  };
  for (const auto& [text, expected] : cases) {
    std::string devices;
    const std::string error = error_of([&] {
      for (const ConfiguredDevice& d : parse_devices(text)) {
        devices += d.source == Source::kReplay ? "R" + d.folder : "S" + std::to_string(d.type);
        devices += " ";
      }
    });
    EXPECT_EQ(devices + error, expected) << text;
  }
}

TEST(CameraConfig, SceneItemsSetTheirParameters) {
  const SceneParameters s = parse_scene(
      "box=500x350.5x120,camera-height=1200,tilt=10,roll=-3,yaw=30,offset=20:-10,noise=1.5,"
      "flying=0.2,dropout=0.005,seed=7");
  EXPECT_EQ(std::vector<float>({s.box_length_mm, s.box_width_mm, s.box_height_mm,
                                s.camera_height_mm, s.tilt_deg, s.roll_deg, s.yaw_deg,
                                s.offset_mm.x, s.offset_mm.y, s.noise.sigma_at_1m_mm,
                                s.noise.flying_pixel_probability, s.noise.dropout_probability}),
            std::vector<float>({500, 350.5f, 120, 1200, 10, -3, 30, 20, -10, 1.5f, 0.2f, 0.005f}));
  EXPECT_EQ(s.seed, 7u);
  // Items left out keep the defaults.
  const SceneParameters tilted = parse_scene(" tilt = 4 ");
  EXPECT_EQ(tilted.tilt_deg, 4.0f);
  EXPECT_EQ(tilted.yaw_deg, 15.0f);
}

TEST(CameraConfig, BadScenesNameTheItemAndTheReason) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"box=400x300", "BOXDIM_SCENE: 'box=400x300' needs LxWxH in mm"},
      {"tilt", "BOXDIM_SCENE: 'tilt' is not key=value"},
      {"yaw=10,tilt=ten", "BOXDIM_SCENE: 'tilt=ten' is not a number"},
      {"zoom=2",
       "BOXDIM_SCENE: 'zoom=2' has an unknown key 'zoom' (box, camera-height, tilt, "
       "roll, yaw, offset, noise, flying, dropout, seed)"},
      {"yaw=1,yaw=2", "BOXDIM_SCENE: 'yaw=2' sets yaw a second time"},
      {"seed=2.5", "BOXDIM_SCENE: 'seed=2.5' needs a whole number from 0"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_EQ(error_of([&] { parse_scene(text); }), message) << text;
  }
}

class InitReportTest : public testing::VirtualCameraTest {};

// A value that parses but cannot be rendered fails InitSDK all the same.
TEST_F(InitReportTest, ABadVariableFailsInitWithOneLine) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(init("sim", "box=0x300x200"), kBadConfiguration);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "corvane_sdk: BOXDIM_SCENE: box length must be positive (got 0 mm)\n");
  std::int32_t count = 0;
  EXPECT_EQ(Corvane::FindDevice(count, nullptr), kNotInitialised) << "initialised all the same";
}

}  // namespace
}  // namespace boxdim::virtual_camera
