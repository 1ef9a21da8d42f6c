// Measures rendered scenes against their ground truth: families of scenes
// sampled over the range a station sees, an engine run on each, and the
// error statistics per family. Tests assert on these; `boxdim-cli evaluate`
// prints them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "scene/depth_scene.h"

namespace boxdim {

enum class FamilyKind {
  kField,      // one carton as a real station sees it (see sample_family)
  kTopDown,    // one box, clean, camera straight down
  kTilted,     // one box, clean, camera tilted 2-20 degrees either way, rolled up to 5
  kNoisy,      // one box, time-of-flight noise, half of the cameras tilted
  kRealistic,  // one box with everything a real scene holds (see sample_family)
  kCluttered,  // two or three boxes; the one under the image centre is scored
  kReject,     // a box partly out of view, or an empty floor: right when not measured
};

struct SceneFamily {
  std::string name;
  FamilyKind kind = FamilyKind::kTopDown;

  // Whether its scenes are to be measured (all but reject).
  bool measurable() const { return kind != FamilyKind::kReject; }
};

// "field", "top-down", "tilted", "noisy", "realistic", "cluttered", "reject".
std::vector<SceneFamily> accuracy_families();

// Scenes of a family, drawn one at a time and reproducibly from `seed`.
// field: a carton 150-600 mm long, 100-600 mm wide, 50-400 mm high, under a
// 640 x 480 camera 0.9-1.8 m above the table, tilted up to 15 degrees,
// seen through the physical sensor: every pixel integrates its footprint; a
// time-of-flight camera (three in four; its flying-pixel filter off, weak or
// strong, its edge smoothing on or off) or a structured-light one (depth
// steps of 1.5-3 mm at 1 m, growing with the distance squared, and edges
// blurred); noise and dropouts from the light each surface returns
// (cartons brown, dark or white); a range bias by reflectivity, a fixed
// pattern over the image and a periodic error with the distance, the same in
// every frame; multipath; a table that bows and gives under the box. The
// carton has rounded rims (2-10 mm), and mostly flaps meeting along a seam
// (a ridge or valley, often one flap over the other, a crack between them or
// tape over it), an uneven lid, a bulge centred or off centre, labels, now
// and then a notch or a hand hole; and in three scenes in ten another box
// stands at the border of the view, partly out of it.
// top-down, tilted, noisy: boxes 150-600 mm long, at least 80 mm and 40 % of
// the length wide, 60-400 mm high, under a camera 0.8-1.8 m above the floor,
// turned 0-90 degrees; noise of 2 mm at 1 m, 20 % flying edge pixels, 0.5 %
// dropouts. realistic: boxes from 50 x 50 x 30 mm to 600 x 600 x 400 mm
// anywhere in view under a camera 0.7-2.3 m high tilted up to 25 degrees,
// in one of four camera modes (640 x 480, 320 x 240 binned, a wide and a
// narrow lens), with noise, multipath up to 12 mm, a dark top on three boxes
// in ten and a lid bulging up to 12 mm or sagging up to 8 mm on half of them.
// cluttered: two or three boxes apart from each other, noise and multipath.
// reject: half an empty floor, half a box with only 30-80 % of its top in
// view. A measurable family keeps only scenes whose box lies wholly in the
// frame (20 px margin) with every side of its top at least 16 px long, as an
// operator would place it; cluttered scenes also keep the scored top in full
// view of the camera.
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
  SceneGroundTruth truth;  // of the scored box
  std::string engine;
  // A measured box stands for the scored one: the measured box nearest its
  // top's centre, within a third of its shorter side in a scene of several
  // boxes; in a scene without the box, any measured box.
  bool ok = false;
  std::string failed_stage;  // why not, when not ok
  std::string reason;        // the failing stage's own message
  BoxDimensions measured;
  // Each dimension's uncertainty, when the engine tells it.
  std::optional<BoxDimensions> uncertainty;
  // The box was found but its size could not be told within the division.
  bool uncertain = false;
  double elapsed_ms = 0.0;
  // Detections of any status whose centre lies on no box's top in the image:
  // a side, the floor, something that is not a box.
  int stray_detections = 0;
};

// Renders the scene and measures it with a fresh engine of that name, as the
// first frame of its camera, the random sampling seeded with `ransac_seed`.
// The engine's log is discarded; a failure keeps the stage's own message.
SceneMeasurement measure_scene(const SceneParameters& scene, const std::string& engine,
                               std::time_t ransac_seed, float division_mm = 5.0f);
// The same on a scene already rendered.
SceneMeasurement measure_scene(const SceneParameters& scene, const RenderedScene& rendered,
                               const std::string& engine, std::time_t ransac_seed,
                               float division_mm = 5.0f);

struct ErrorStatistics {
  double median_mm = 0.0;
  double p95_mm = 0.0;  // 95th percentile of the absolute error
};

// Whether the scene's main box stands wholly in the frame (its top and its
// base 20 px inside the borders) with every side of its top at least 16 px
// long in the image: as an operator would place a box to be measured.
bool measurable_box(const SceneParameters& scene);

// The main box's top in the image: its centre, and its shortest side (px).
cv::Point2f top_centre_px(const SceneGroundTruth& truth);
double shortest_top_side_px(const SceneGroundTruth& truth);

// Median and 95th percentile of absolute errors; zeros for none.
ErrorStatistics error_statistics(std::vector<double> errors);

// The tolerance a station is held to: every dimension within it.
constexpr double kToleranceMm = 5.0;

struct FamilyStatistics {
  int scenes = 0;
  int measured = 0;  // for reject: measured although it should not have been
  int within_tolerance = 0;
  ErrorStatistics length, width, height;  // over the measured scenes
  double median_ms = 0.0;                 // time per frame
  int scenes_with_stray = 0;              // with a detection on no box's top
  int uncertain = 0;                      // the box found, its size not within the division
  // Of the measured scenes with an uncertainty, how many, and how many of
  // their length, width and height errors lie within it.
  int with_uncertainty = 0;
  int within_uncertainty[3] = {0, 0, 0};
  // "stage: reason" -> number of scenes.
  std::map<std::string, int> failures;

  double success_rate() const { return scenes == 0 ? 0.0 : double(measured) / scenes; }
  double within_tolerance_rate() const {
    return scenes == 0 ? 0.0 : double(within_tolerance) / scenes;
  }
  double stray_rate() const { return scenes == 0 ? 0.0 : double(scenes_with_stray) / scenes; }
  double uncertain_rate() const { return scenes == 0 ? 0.0 : double(uncertain) / scenes; }
  // The share of errors within their uncertainty: the lowest of the three
  // dimensions'.
  double covered_rate() const {
    if (with_uncertainty == 0) return 0.0;
    const int fewest =
        std::min({within_uncertainty[0], within_uncertainty[1], within_uncertainty[2]});
    return double(fewest) / with_uncertainty;
  }
};

FamilyStatistics summarise(const std::vector<SceneMeasurement>& measurements);

}  // namespace boxdim
