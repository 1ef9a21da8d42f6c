// The virtual camera's configuration, read from the environment at InitSDK: the devices
// (BOXDIM_CAMERA) and the scene the simulated ones look at (BOXDIM_SCENE).
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "scene/depth_scene.h"
#include "scene/scene_motion.h"

namespace boxdim::virtual_camera {

struct ConfiguredDevice {
  enum class Source { kSimulated, kReplay };
  Source source = Source::kSimulated;
  int type = 1;        // simulated devices only: device type 1-7
  std::string folder;  // replayed devices only: the capture folder
};

struct CameraConfig {
  std::vector<ConfiguredDevice> devices;
  SceneParameters scene;
  SceneMotion motion;  // how the scene changes while the cameras film it
};

// Its message names the variable, the offending item and the reason, ready
// for a one-line report.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// More devices than a station connects; each costs its frame buffers and,
// when simulated, renders of its own.
constexpr std::size_t kMaxDevices = 16;

// Comma-separated "sim", "sim:TYPE" or "replay:DIR", at most kMaxDevices; an
// empty text means no device at all. Spaces around an item are ignored.
std::vector<ConfiguredDevice> parse_devices(const std::string& text);

// Comma-separated key=value items over default_scene(): box=LxWxH,
// camera-height, tilt, roll, yaw, offset=DX:DY, noise, flying, dropout, seed;
// and into `motion`, how it changes over time: placed=S and removed=S
// (seconds from the stream's start), speed=MM_S (a conveyor along the image's
// columns). The scene must also pass validate_scene.
SceneParameters parse_scene(const std::string& text, SceneMotion& motion);

// A 400 x 300 x 200 mm box on a floor 1 m below the camera, turned 15
// degrees, with 1 mm of range noise at 1 m.
SceneParameters default_scene();

// Without BOXDIM_CAMERA one simulated device of type 1; without
// BOXDIM_SCENE the default scene. Throws ConfigError.
CameraConfig read_config_from_environment();

}  // namespace boxdim::virtual_camera
