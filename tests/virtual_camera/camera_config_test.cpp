// Reading the virtual camera's configuration from BOXDIM_CAMERA and
// BOXDIM_SCENE, and how InitSDK reports a value it cannot use.
#include "virtual_camera/camera_config.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "virtual_camera/status_codes.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera {
namespace {

// The devices, S and the type or R and the folder, then the scene's numbers
// in the order of its keys; or the ConfigError's message.
std::string read_config() {
  std::ostringstream text;
  try {
    const CameraConfig config = read_config_from_environment();
    for (const ConfiguredDevice& d : config.devices) {
      text << (d.source == ConfiguredDevice::Source::kReplay ? "R" + d.folder
                                                             : "S" + std::to_string(d.type))
           << " ";
    }
    const SceneParameters& s = config.scene;
    text << "| " << s.box_length_mm << "x" << s.box_width_mm << "x" << s.box_height_mm << " "
         << s.camera_height_mm << " " << s.tilt_deg << " " << s.roll_deg << " " << s.yaw_deg << " "
         << s.offset_mm.x << ":" << s.offset_mm.y << " " << s.noise.sigma_at_1m_mm << " "
         << s.noise.flying_pixel_probability << " " << s.noise.dropout_probability << " " << s.seed;
    const SceneMotion& m = config.motion;
    if (!m.still()) {
      text << " | placed " << m.placed_s << " removed " << m.removed_s << " speed "
           << m.conveyor_mm_s;
      if (m.every_s > 0.0) text << " every " << m.every_s;
    }
  } catch (const ConfigError& e) {
    return e.what();
  }
  return text.str();
}

class CameraConfigTest : public testing::VirtualCameraTest {};

// nullptr leaves a variable unset.
TEST_F(CameraConfigTest, VariablesBecomeDevicesAndASceneOrNameTheBadItem) {
  struct Case {
    const char* camera;
    const char* scene;
    std::string expected;
  };
  std::vector<Case> cases = {
      {nullptr, nullptr, "S1 | 400x300x200 1000 0 0 15 0:0 1 0 0 1"},
      {"sim, sim:7 ,replay:C:/captures", " tilt = 4 ",
       "S1 S7 RC:/captures | 400x300x200 1000 4 0 15 0:0 1 0 0 1"},
      {"",
       "box=500x350.5x120,camera-height=1200,tilt=10,roll=-3,yaw=30,offset=20:-10,noise=1.5,"
       "flying=0.2,dropout=0.005,seed=7",
       "| 500x350.5x120 1200 10 -3 30 20:-10 1.5 0.2 0.005 7"},
      {"sim,sim:0", nullptr, "BOXDIM_CAMERA: 'sim:0' has no device type 0 (1-7)"},
      {"replay:", nullptr, "BOXDIM_CAMERA: 'replay:' names no capture folder"},
      {"SIM", nullptr, "BOXDIM_CAMERA: 'SIM' is not a device (sim, sim:TYPE or replay:DIR)"},
      {"sim,", nullptr, "BOXDIM_CAMERA: 'sim,' has an empty item"},
      {nullptr, "box=400x300", "BOXDIM_SCENE: 'box=400x300' needs LxWxH in mm"},
      {nullptr, "tilt", "BOXDIM_SCENE: 'tilt' is not key=value"},
      {nullptr, "yaw=10,tilt=ten", "BOXDIM_SCENE: 'tilt=ten' is not a number"},
      {nullptr, "zoom=2",
       "BOXDIM_SCENE: 'zoom=2' has an unknown key 'zoom' (box, camera-height, tilt, roll, yaw, "
       "offset, noise, flying, dropout, seed, placed, removed, every, speed)"},
      {nullptr, "placed=0.5,removed=4,speed=-500",
       "S1 | 400x300x200 1000 0 0 15 0:0 1 0 0 1 | placed 0.5 removed 4 speed -500"},
      {nullptr, "speed=800",
       "S1 | 400x300x200 1000 0 0 15 0:0 1 0 0 1 | placed 0 removed inf speed 800"},
      {nullptr, "placed=-1", "BOXDIM_SCENE: 'placed=-1' needs seconds from 0"},
      {nullptr, "speed=9000", "BOXDIM_SCENE: 'speed=9000' needs a speed from -5000 to 5000 mm/s"},
      {nullptr, "placed=3,removed=2",
       "BOXDIM_SCENE: 'placed=3,removed=2' removes the box before it is placed"},
      {nullptr, "placed=1,removed=3,every=8",
       "S1 | 400x300x200 1000 0 0 15 0:0 1 0 0 1 | placed 1 removed 3 speed 0 every 8"},
      {nullptr, "placed=1,removed=3,every=2",
       "BOXDIM_SCENE: 'placed=1,removed=3,every=2' repeats before the box is removed (every "
       "must exceed removed)"},
      {nullptr, "every=0", "BOXDIM_SCENE: 'every=0' needs seconds above 0"},
      {nullptr, "yaw=1,yaw=2", "BOXDIM_SCENE: 'yaw=2' sets yaw a second time"},
      {nullptr, "seed=2.5", "BOXDIM_SCENE: 'seed=2.5' needs a whole number from 0"},
  };
  // A station connects a handful of cameras; hundreds would take gigabytes.
  const auto sims = [](int n) {
    std::string list = "sim";
    for (int i = 1; i < n; ++i) list += ",sim";
    return list;
  };
  const std::string sixteen = sims(16);
  const std::string three_hundred = sims(300);
  std::string sixteen_devices;
  for (int i = 0; i < 16; ++i) sixteen_devices += "S1 ";
  cases.push_back(
      {sixteen.c_str(), nullptr, sixteen_devices + "| 400x300x200 1000 0 0 15 0:0 1 0 0 1"});
  cases.push_back(
      {three_hundred.c_str(), nullptr, "BOXDIM_CAMERA: 300 devices; at most 16 are supported"});
  for (const Case& c : cases) {
    c.camera ? setenv("BOXDIM_CAMERA", c.camera, 1) : unsetenv("BOXDIM_CAMERA");
    c.scene ? setenv("BOXDIM_SCENE", c.scene, 1) : unsetenv("BOXDIM_SCENE");
    EXPECT_EQ(read_config(), c.expected)
        << (c.camera ? c.camera : "") << " / " << (c.scene ? c.scene : "");
  }
}

// A value that parses but cannot be rendered fails InitSDK all the same.
TEST_F(CameraConfigTest, ABadVariableFailsInitWithOneLine) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(init("sim", "box=0x300x200"), kBadConfiguration);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "corvane_sdk: BOXDIM_SCENE: box length must be positive (got 0 mm)\n");
  std::int32_t count = 0;
  EXPECT_EQ(Corvane::FindDevice(count, nullptr), kNotInitialised) << "initialised all the same";
}

}  // namespace
}  // namespace boxdim::virtual_camera
