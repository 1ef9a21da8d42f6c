#include "virtual_camera/camera_config.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <map>
#include <set>
#include <type_traits>

namespace boxdim::virtual_camera {
namespace {

constexpr const char* kCameraVariable = "BOXDIM_CAMERA";
constexpr const char* kSceneVariable = "BOXDIM_SCENE";

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (true) {
    const std::size_t end = text.find(separator, begin);
    parts.push_back(text.substr(begin, end - begin));
    if (end == std::string::npos) return parts;
    begin = end + 1;
  }
}

[[noreturn]] void fail(const char* variable, const std::string& item, const std::string& reason) {
  throw ConfigError(std::string(variable) + ": '" + item + "' " + reason);
}

// from_chars, unlike strtod, ignores the locale and accepts no leading
// spaces or signs that would hide a typo.
template <typename Number>
bool parse_number(const std::string& text, Number& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return false;
  if constexpr (std::is_floating_point_v<Number>) return std::isfinite(value);
  return true;
}

ConfiguredDevice parse_device(const std::string& item) {
  const std::string kSim = "sim:";
  const std::string kReplay = "replay:";
  if (item == "sim") return ConfiguredDevice{};
  if (item.rfind(kSim, 0) == 0) {
    const std::string type_text = item.substr(kSim.size());
    int type = 0;
    if (!parse_number(type_text, type) || type < 1 || type > 7) {
      fail(kCameraVariable, item, "has no device type " + type_text + " (1-7)");
    }
    return ConfiguredDevice{ConfiguredDevice::Source::kSimulated, type, ""};
  }
  if (item.rfind(kReplay, 0) == 0) {
    const std::string folder = item.substr(kReplay.size());
    if (folder.empty()) fail(kCameraVariable, item, "names no capture folder");
    ConfiguredDevice replay;
    replay.source = ConfiguredDevice::Source::kReplay;
    replay.folder = folder;
    return replay;
  }
  fail(kCameraVariable, item, "is not a device (sim, sim:TYPE or replay:DIR)");
}

float scene_number(const std::string& item, const std::string& value) {
  float number = 0.0f;
  if (!parse_number(value, number)) fail(kSceneVariable, item, "is not a number");
  return number;
}

std::vector<float> scene_numbers(const std::string& item, const std::string& value, char separator,
                                 std::size_t count, const char* form) {
  const std::vector<std::string> parts = split(value, separator);
  std::vector<float> numbers;
  for (const std::string& part : parts) {
    float number = 0.0f;
    if (parts.size() != count || !parse_number(part, number)) {
      fail(kSceneVariable, item, std::string("needs ") + form + " in mm");
    }
    numbers.push_back(number);
  }
  return numbers;
}

// The keys that take one number.
using NumberField = float& (*)(SceneParameters&);
const std::map<std::string, NumberField>& number_fields() {
  static const std::map<std::string, NumberField> fields = {
      {"camera-height", [](SceneParameters& s) -> float& { return s.camera_height_mm; }},
      {"tilt", [](SceneParameters& s) -> float& { return s.tilt_deg; }},
      {"roll", [](SceneParameters& s) -> float& { return s.roll_deg; }},
      {"yaw", [](SceneParameters& s) -> float& { return s.yaw_deg; }},
      {"noise", [](SceneParameters& s) -> float& { return s.noise.sigma_at_1m_mm; }},
      {"flying", [](SceneParameters& s) -> float& { return s.noise.flying_pixel_probability; }},
      {"dropout", [](SceneParameters& s) -> float& { return s.noise.dropout_probability; }},
  };
  return fields;
}

void set_scene_item(SceneParameters& scene, SceneMotion& motion, const std::string& item,
                    const std::string& key, const std::string& value) {
  if (const auto field = number_fields().find(key); field != number_fields().end()) {
    field->second(scene) = scene_number(item, value);
  } else if (key == "placed" || key == "removed") {
    const float seconds = scene_number(item, value);
    if (!(seconds >= 0.0f)) fail(kSceneVariable, item, "needs seconds from 0");
    (key == "placed" ? motion.placed_s : motion.removed_s) = seconds;
  } else if (key == "every") {
    motion.every_s = scene_number(item, value);
    if (!(motion.every_s > 0.0)) fail(kSceneVariable, item, "needs seconds above 0");
  } else if (key == "speed") {
    motion.conveyor_mm_s = scene_number(item, value);
    if (!(std::abs(motion.conveyor_mm_s) <= 5000.0f)) {
      fail(kSceneVariable, item, "needs a speed from -5000 to 5000 mm/s");
    }
  } else if (key == "box") {
    const std::vector<float> sides = scene_numbers(item, value, 'x', 3, "LxWxH");
    scene.box_length_mm = sides[0];
    scene.box_width_mm = sides[1];
    scene.box_height_mm = sides[2];
  } else if (key == "offset") {
    // ':' because ',' already separates the items.
    const std::vector<float> offset = scene_numbers(item, value, ':', 2, "DX:DY");
    scene.offset_mm = {offset[0], offset[1]};
  } else if (key == "seed") {
    if (!parse_number(value, scene.seed)) fail(kSceneVariable, item, "needs a whole number from 0");
  } else {
    fail(kSceneVariable, item,
         "has an unknown key '" + key +
             "' (box, camera-height, tilt, roll, yaw, offset, noise, flying, dropout, seed, "
             "placed, removed, every, speed)");
  }
}

}  // namespace

std::vector<ConfiguredDevice> parse_devices(const std::string& text) {
  std::vector<ConfiguredDevice> devices;
  if (trim(text).empty()) return devices;
  const std::vector<std::string> items = split(text, ',');
  if (items.size() > kMaxDevices) {
    throw ConfigError(std::string(kCameraVariable) + ": " + std::to_string(items.size()) +
                      " devices; at most " + std::to_string(kMaxDevices) + " are supported");
  }
  for (const std::string& part : items) {
    const std::string item = trim(part);
    if (item.empty()) fail(kCameraVariable, text, "has an empty item");
    devices.push_back(parse_device(item));
  }
  return devices;
}

SceneParameters default_scene() {
  SceneParameters scene;
  scene.box_length_mm = 400.0f;
  scene.box_width_mm = 300.0f;
  scene.box_height_mm = 200.0f;
  scene.camera_height_mm = 1000.0f;
  scene.yaw_deg = 15.0f;
  scene.noise.sigma_at_1m_mm = 1.0f;
  scene.seed = 1;
  return scene;
}

SceneParameters parse_scene(const std::string& text, SceneMotion& motion) {
  SceneParameters scene = default_scene();
  motion = SceneMotion{};
  std::set<std::string> seen;
  if (!trim(text).empty()) {
    for (const std::string& part : split(text, ',')) {
      const std::string item = trim(part);
      const std::size_t equals = item.find('=');
      if (equals == std::string::npos) fail(kSceneVariable, item, "is not key=value");
      const std::string key = trim(item.substr(0, equals));
      set_scene_item(scene, motion, item, key, trim(item.substr(equals + 1)));
      if (!seen.insert(key).second) fail(kSceneVariable, item, "sets " + key + " a second time");
    }
  }
  if (motion.removed_s <= motion.placed_s) {
    fail(kSceneVariable, text, "removes the box before it is placed");
  }
  if (motion.every_s > 0.0 && !(motion.every_s > motion.removed_s)) {
    fail(kSceneVariable, text, "repeats before the box is removed (every must exceed removed)");
  }
  try {
    validate_scene(scene);
  } catch (const std::invalid_argument& e) {
    throw ConfigError(std::string(kSceneVariable) + ": " + e.what());
  }
  return scene;
}

CameraConfig read_config_from_environment() {
  CameraConfig config;
  const char* camera = std::getenv(kCameraVariable);
  config.devices =
      camera ? parse_devices(camera) : std::vector<ConfiguredDevice>{ConfiguredDevice{}};
  const char* scene = std::getenv(kSceneVariable);
  config.scene = parse_scene(scene ? scene : "", config.motion);
  return config;
}

}  // namespace boxdim::virtual_camera
