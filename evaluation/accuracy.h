// Measures rendered scenes against their ground truth: families of scenes
// sampled over the range a station sees, the pipeline run on each, and the
// error statistics per family. Tests assert on these; `boxdim-cli evaluate`
// prints them.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "scene/depth_scene.h"

namespace boxdim {

// How the camera looks at the floor. Tilted: 2-20 degrees either way about
// its x axis and rolled up to 5 degrees.
enum class CameraPose { kStraightDown, kTilted, kEither };

struct SceneFamily {
  std::string name;
  CameraPose pose = CameraPose::kStraightDown;
  bool noisy = false;  // time-of-flight noise, flying pixels and dropouts
};

// "top-down" (clean, straight down), "tilted" (clean, tilted) and "noisy"
// (time-of-flight noise, half of the scenes tilted).
std::vector<SceneFamily> accuracy_families();

// Scenes of a family, drawn one at a time and reproducibly from `seed`: boxes
// 150-600 mm long, at least 80 mm and 40 % of the length wide, 60-400 mm
// high, under a camera 0.8-1.8 m above the floor, turned 0-90 degrees. Only
// scenes whose box lies wholly in the frame (20 px margin) are kept, as an
// operator would place it.
class SceneSampler {
 public:
  SceneSampler(SceneFamily family, int count, std::uint64_t seed);

  // The next scene; nothing once `count` were drawn, or when 100 draws per
  // scene asked for were not enough to find them.
  std::optional<SceneParameters> next();

 private:
  SceneFamily family_;
  int count_;
  int drawn_ = 0;
  int draws_ = 0;
  std::mt19937_64 rng_;
};

// All `count` scenes of the family at once (fewer when the draws ran out).
std::vector<SceneParameters> sample_family(const SceneFamily& family, int count,
                                           std::uint64_t seed);

struct SceneMeasurement {
  SceneParameters scene;
  SceneGroundTruth truth;
  bool ok = false;
  std::string failed_stage;  // empty when ok
  std::string reason;        // the failing stage's own message
  BoxDimensions measured;
};

// Renders the scene and measures it with a fresh engine of that name, as the
// first frame of its camera, the random sampling seeded with `ransac_seed`.
// The engine's log is discarded; a failure keeps the stage's own message.
SceneMeasurement measure_scene(const SceneParameters& scene, const std::string& engine,
                               std::time_t ransac_seed);

struct ErrorStatistics {
  double median_mm = 0.0;
  double p95_mm = 0.0;  // 95th percentile of the absolute error
};

struct FamilyStatistics {
  int scenes = 0;
  int measured = 0;
  ErrorStatistics length, width, height;  // over the measured scenes
  // "stage: reason" -> number of scenes.
  std::map<std::string, int> failures;

  double success_rate() const { return scenes == 0 ? 0.0 : double(measured) / scenes; }
};

FamilyStatistics summarise(const std::vector<SceneMeasurement>& measurements);

}  // namespace boxdim
