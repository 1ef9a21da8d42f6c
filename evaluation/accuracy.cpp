#include "evaluation/accuracy.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <sstream>
#include <utility>

#include "engine/engine_factory.h"

namespace boxdim {

namespace {

constexpr float kFrameMarginPx = 20.0f;
constexpr int kMaxDrawsPerScene = 100;

bool inside_frame(const cv::Point2f& p, const SceneParameters& scene) {
  return p.x >= kFrameMarginPx && p.y >= kFrameMarginPx &&
         p.x <= scene.image_width - 1 - kFrameMarginPx &&
         p.y <= scene.image_height - 1 - kFrameMarginPx;
}

// The top corners and, one box height further along the top face's normal,
// the bottom corners all project into the frame.
bool box_in_frame(const SceneParameters& scene) {
  const SceneGroundTruth truth = scene_ground_truth(scene);
  const PlaneEquation& n = truth.top_plane;
  for (const cv::Point3f& top : truth.top_corners_camera) {
    const cv::Point3f bottom = top + scene.box_height_mm * cv::Point3f(n.a, n.b, n.c);
    if (!inside_frame(point_to_pixel(top, scene.intrinsics), scene) ||
        !inside_frame(point_to_pixel(bottom, scene.intrinsics), scene)) {
      return false;
    }
  }
  return true;
}

SceneParameters draw_scene(const SceneFamily& family, std::mt19937_64& rng) {
  const auto uniform = [&](float lo, float hi) {
    return std::uniform_real_distribution<float>(lo, hi)(rng);
  };
  SceneParameters scene;
  scene.box_length_mm = uniform(150.0f, 600.0f);
  scene.box_width_mm = uniform(std::max(80.0f, 0.4f * scene.box_length_mm), scene.box_length_mm);
  scene.box_height_mm = uniform(60.0f, 400.0f);
  scene.camera_height_mm = uniform(800.0f, 1800.0f);
  scene.yaw_deg = uniform(0.0f, 90.0f);
  const bool tilted = family.pose == CameraPose::kTilted ||
                      (family.pose == CameraPose::kEither && std::bernoulli_distribution(0.5)(rng));
  if (tilted) {
    // Either way: the side face the camera sees lies at the top or the bottom
    // of the image, and the height stage treats the two differently.
    const float sign = std::bernoulli_distribution(0.5)(rng) ? 1.0f : -1.0f;
    scene.tilt_deg = sign * uniform(2.0f, 20.0f);
    scene.roll_deg = uniform(-5.0f, 5.0f);
  }
  if (family.noisy) scene.noise = {2.0f, 0.2f, 0.005f};
  scene.seed = rng();
  return scene;
}

ErrorStatistics error_statistics(std::vector<double> errors) {
  if (errors.empty()) return {};
  std::sort(errors.begin(), errors.end());
  const auto at = [&](double q) {
    return errors[static_cast<std::size_t>(std::ceil(q * errors.size())) - 1];
  };
  return {at(0.5), at(0.95)};
}

}  // namespace

std::vector<SceneFamily> accuracy_families() {
  return {{"top-down", CameraPose::kStraightDown, false},
          {"tilted", CameraPose::kTilted, false},
          {"noisy", CameraPose::kEither, true}};
}

SceneSampler::SceneSampler(SceneFamily family, int count, std::uint64_t seed)
    : family_(std::move(family)), count_(count), rng_(seed) {}

std::optional<SceneParameters> SceneSampler::next() {
  while (drawn_ < count_ && draws_ < count_ * kMaxDrawsPerScene) {
    ++draws_;
    SceneParameters scene = draw_scene(family_, rng_);
    if (box_in_frame(scene)) {
      ++drawn_;
      return scene;
    }
  }
  return std::nullopt;
}

std::vector<SceneParameters> sample_family(const SceneFamily& family, int count,
                                           std::uint64_t seed) {
  SceneSampler sampler(family, count, seed);
  std::vector<SceneParameters> scenes;
  while (std::optional<SceneParameters> scene = sampler.next()) scenes.push_back(*scene);
  return scenes;
}

SceneMeasurement measure_scene(const SceneParameters& scene, const std::string& engine_name,
                               std::time_t ransac_seed) {
  SceneMeasurement result;
  result.scene = scene;
  const RenderedScene rendered = render_scene(scene);
  result.truth = rendered.truth;

  std::ostringstream discarded;
  EngineContext context;
  context.log = &discarded;
  context.error_log = &discarded;
  context.seed_clock = [ransac_seed] { return ransac_seed; };
  const std::unique_ptr<Engine> engine = create_engine(engine_name, context);
  DepthFrame frame;
  frame.depth = rendered.depth;
  frame.intrinsics = scene.intrinsics;
  const MeasurementResult measured = engine->measure(frame);
  if (const BoxMeasurement* box = measured.primary_box()) {
    result.ok = true;
    result.measured = box->dimensions;
  } else if (measured.failure) {
    result.failed_stage = measured.failure->stage;
    result.reason = measured.failure->message;
  } else {
    result.failed_stage = "no box";
  }
  return result;
}

FamilyStatistics summarise(const std::vector<SceneMeasurement>& measurements) {
  FamilyStatistics stats;
  std::vector<double> length, width, height;
  for (const SceneMeasurement& m : measurements) {
    ++stats.scenes;
    if (!m.ok) {
      ++stats.failures[m.failed_stage + ": " + m.reason];
      continue;
    }
    ++stats.measured;
    length.push_back(std::abs(m.measured.box_length - m.truth.dimensions.box_length));
    width.push_back(std::abs(m.measured.box_width - m.truth.dimensions.box_width));
    height.push_back(std::abs(m.measured.box_height - m.truth.dimensions.box_height));
  }
  stats.length = error_statistics(length);
  stats.width = error_statistics(width);
  stats.height = error_statistics(height);
  return stats;
}

}  // namespace boxdim
