#include "evaluation/sequences.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>

#include "engine/precise_engine.h"

namespace boxdim {

namespace {

constexpr int kFramesPerSecond = 30;
// How long a box is left before it is taken away: long enough to see
// whether its reading stays put.
constexpr double kPlacedForS = 10.5;
// A field carton rests for less: each of its frames takes some 0.1 s to render.
constexpr double kFieldPlacedForS = 4.0;
constexpr double kEmptyBeforeS = 0.5;
// Frames after the last box left, for its removal to be told.
constexpr double kEmptyAfterS = 0.7;
constexpr double kSecondBoxAfterS = 1.7;
constexpr double kBothTakenAwayAtS = 4.5;
// Cluttered scenes drawn per two-box sequence, at most, to find one whose
// second box is wholly in view.
constexpr int kMaxDrawsPerSequence = 20;

float uniform(std::mt19937_64& rng, float lo, float hi) {
  return std::uniform_real_distribution<float>(lo, hi)(rng);
}

int frames_for(double seconds) { return static_cast<int>(std::ceil(seconds * kFramesPerSecond)); }

cv::Point2f centre_of(const std::array<cv::Point2f, 4>& corners) {
  cv::Point2f centre(0.0f, 0.0f);
  for (const cv::Point2f& c : corners) centre += 0.25f * c;
  return centre;
}

double shortest_side_px(const std::array<cv::Point2f, 4>& corners) {
  double shortest = 1e9;
  for (int i = 0; i < 4; ++i) {
    shortest = std::min(shortest, double(cv::norm(corners[(i + 1) % 4] - corners[i])));
  }
  return shortest;
}

// How far (px) the centre of what the engine saw may be from a box's top
// centre for it to stand for that box: a third of the top's shorter side.
double match_radius_px(const SceneGroundTruth& truth) {
  return std::max(4.0, shortest_side_px(truth.top_corners_px) / 3.0);
}

SequenceScript placed_script(const SceneParameters& scene, double placed_for_s = kPlacedForS) {
  SequenceScript script;
  script.scene = scene;
  script.motion.placed_s = kEmptyBeforeS;
  script.motion.removed_s = kEmptyBeforeS + placed_for_s;
  script.frames = frames_for(script.motion.removed_s + kEmptyAfterS);
  script.rests_at_s = {kEmptyBeforeS};
  return script;
}

SequenceScript two_boxes_script(SceneParameters scene) {
  scene.other_boxes.resize(1);
  SequenceScript script;
  script.scene = scene;
  script.motion.placed_s = kEmptyBeforeS;
  script.motion.removed_s = kBothTakenAwayAtS;
  script.motion.others_placed_s = {kEmptyBeforeS + kSecondBoxAfterS};
  script.motion.others_removed_s = {kBothTakenAwayAtS};
  script.frames = frames_for(kBothTakenAwayAtS + kEmptyAfterS);
  script.rests_at_s = {kEmptyBeforeS, kEmptyBeforeS + kSecondBoxAfterS};
  return script;
}

// The box starts out of view on one side and ends out of view on the other.
SequenceScript carried_script(SceneParameters scene, std::mt19937_64& rng) {
  const float speed = uniform(rng, 200.0f, 1000.0f);
  const CameraIntrinsics& k = scene.intrinsics;
  const float half_view =
      scene.camera_height_mm * std::max(k.cx, scene.image_width - k.cx) / k.fx /
          std::cos(std::max(std::abs(scene.tilt_deg), std::abs(scene.roll_deg)) * 0.0174533f) +
      0.5f * std::hypot(scene.box_length_mm, scene.box_width_mm) + 100.0f;
  const float direction = std::bernoulli_distribution(0.5)(rng) ? 1.0f : -1.0f;
  SequenceScript script;
  scene.offset_mm.x = -direction * half_view;
  script.scene = scene;
  script.motion.conveyor_mm_s = direction * speed;
  script.frames = frames_for(2.0 * half_view / speed);
  script.motion.removed_s = static_cast<double>(script.frames) / kFramesPerSecond;
  script.frames += frames_for(kEmptyAfterS);
  script.rests_at_s = {-1.0};
  return script;
}

SequenceScript empty_script(SceneParameters scene) {
  SequenceScript script;
  scene.with_box = false;
  script.scene = scene;
  script.frames = frames_for(3.0);
  return script;
}

// The scene with its other box `i` in the main box's place, to judge it as
// the main box is judged.
SceneParameters other_as_main(const SceneParameters& scene, std::size_t i) {
  const FloorBox& other = scene.other_boxes.at(i);
  SceneParameters as_main = scene;
  as_main.box_length_mm = other.length_mm;
  as_main.box_width_mm = other.width_mm;
  as_main.box_height_mm = other.height_mm;
  as_main.offset_mm = scene.offset_mm + other.offset_mm;
  as_main.yaw_deg = other.yaw_deg;
  as_main.top = other.top;
  as_main.other_boxes.clear();
  return as_main;
}

struct BoxInFrame {
  int box;  // 0: the main box, 1 + i: other box i
  SceneGroundTruth truth;
};

std::vector<BoxInFrame> boxes_in_frame(const SceneParameters& at, const RenderedScene& rendered,
                                       const SceneParameters& script_scene,
                                       const SceneMotion& motion, double seconds) {
  std::vector<BoxInFrame> boxes;
  if (at.with_box) boxes.push_back({0, rendered.truth});
  // scene_at leaves out the other boxes not on the floor: number the rest
  // as in the script.
  std::size_t shown = 0;
  for (std::size_t i = 0; i < script_scene.other_boxes.size(); ++i) {
    if (!motion.other_there(i, seconds)) continue;
    boxes.push_back({1 + static_cast<int>(i), rendered.other_truths[shown++]});
  }
  return boxes;
}

// The box whose top centre is nearest `centre_px`, within its match radius.
const BoxInFrame* box_at(const std::vector<BoxInFrame>& boxes, const cv::Point2f& centre_px) {
  const BoxInFrame* nearest = nullptr;
  double nearest_distance = 0.0;
  for (const BoxInFrame& b : boxes) {
    const double distance = cv::norm(centre_of(b.truth.top_corners_px) - centre_px);
    if (distance <= match_radius_px(b.truth) && (!nearest || distance < nearest_distance)) {
      nearest = &b;
      nearest_distance = distance;
    }
  }
  return nearest;
}

void add_errors(const BoxDimensions& measured, const BoxDimensions& truth,
                std::vector<double> (&errors)[3]) {
  errors[0].push_back(std::abs(measured.box_length - truth.box_length));
  errors[1].push_back(std::abs(measured.box_width - truth.box_width));
  errors[2].push_back(std::abs(measured.box_height - truth.box_height));
}

double standard_deviation(const std::vector<double>& values) {
  if (values.size() < 2) return 0.0;
  double mean = 0.0;
  for (const double v : values) mean += v;
  mean /= values.size();
  double sum = 0.0;
  for (const double v : values) sum += (v - mean) * (v - mean);
  return std::sqrt(sum / (values.size() - 1));
}

}  // namespace

std::vector<SequenceFamily> sequence_families() {
  return {{"placed", SequenceKind::kPlaced},
          {"two-boxes", SequenceKind::kTwoBoxes},
          {"carried", SequenceKind::kCarried},
          {"empty", SequenceKind::kEmptyFloor},
          {"field", SequenceKind::kField}};
}

std::vector<SequenceScript> sample_sequences(const SequenceFamily& family, int count,
                                             std::uint64_t seed) {
  std::mt19937_64 rng(seed);
  const bool two = family.kind == SequenceKind::kTwoBoxes;
  // Two boxes: drawn as cluttered scenes, of which only those whose second
  // box is as wholly in view as the first are kept.
  const FamilyKind scenes = two                                   ? FamilyKind::kCluttered
                            : family.kind == SequenceKind::kField ? FamilyKind::kField
                                                                  : FamilyKind::kRealistic;
  SceneSampler sampler(SceneFamily{"", scenes}, two ? kMaxDrawsPerSequence * count : count, rng());
  std::vector<SequenceScript> scripts;
  while (static_cast<int>(scripts.size()) < count) {
    const std::optional<SceneParameters> scene = sampler.next();
    if (!scene) break;
    if (two && !measurable_box(other_as_main(*scene, 0))) continue;
    switch (family.kind) {
      case SequenceKind::kPlaced:
        scripts.push_back(placed_script(*scene));
        break;
      case SequenceKind::kTwoBoxes:
        scripts.push_back(two_boxes_script(*scene));
        break;
      case SequenceKind::kCarried:
        scripts.push_back(carried_script(*scene, rng));
        break;
      case SequenceKind::kEmptyFloor:
        scripts.push_back(empty_script(*scene));
        break;
      case SequenceKind::kField: {
        // The box the sequence follows alone: another one cut by the view's
        // border is a single frame's test.
        SceneParameters carton = *scene;
        carton.other_boxes.clear();
        scripts.push_back(placed_script(carton, kFieldPlacedForS));
        break;
      }
    }
  }
  return scripts;
}

SequenceOutcome run_sequence(const SequenceScript& script, std::time_t ransac_seed) {
  EngineContext context;
  context.seed_clock = [ransac_seed] { return ransac_seed; };
  context.draw_pictures = false;
  PreciseEngine engine(context);
  MeasurementResult result;

  const int box_count =
      script.scene.with_box ? 1 + static_cast<int>(script.scene.other_boxes.size()) : 0;
  SequenceOutcome outcome;
  outcome.boxes = box_count;
  std::map<int, std::set<int>> ids_of_box;
  std::map<int, int> measured_events_of_box;
  std::map<int, BoxDimensions> truth_of_box;
  std::map<int, double> measured_at_s;
  std::map<int, std::vector<double>> readings_after[3];
  std::map<int, BoxDimensions> last_reading;
  int placed = 0;
  int removed = 0;
  int stray_measured = 0;
  for (int frame = 0; frame < script.frames; ++frame) {
    const double seconds = static_cast<double>(frame) / script.frames_per_second;
    const SceneParameters at = scene_at(script.scene, script.motion, seconds, frame);
    const RenderedScene rendered = render_scene(at);
    DepthFrame depth;
    depth.depth = rendered.depth;
    depth.intrinsics = at.intrinsics;
    depth.timestamp_us = static_cast<std::int64_t>(std::llround(seconds * 1e6));
    engine.measure_into(depth, result);
    outcome.frame_ms.push_back(result.elapsed_ms);

    const std::vector<BoxInFrame> boxes =
        boxes_in_frame(at, rendered, script.scene, script.motion, seconds);
    for (const BoxInFrame& b : boxes) truth_of_box[b.box] = b.truth.dimensions;
    for (const BoxMeasurement& detection : result.boxes) {
      const BoxInFrame* box = box_at(boxes, detection.centre_px);
      if (!box) continue;
      if (detection.track_id) ids_of_box[box->box].insert(*detection.track_id);
      if (detection.status == BoxStatus::kMeasured) {
        add_errors(detection.dimensions, box->truth.dimensions, outcome.frame_errors);
      }
      // The reading after the box's measured event, while it rests.
      if (detection.fused && measured_at_s.count(box->box) &&
          script.rests_at_s[static_cast<std::size_t>(box->box)] >= 0.0) {
        readings_after[0][box->box].push_back(detection.fused->dimensions.box_length);
        readings_after[1][box->box].push_back(detection.fused->dimensions.box_width);
        readings_after[2][box->box].push_back(detection.fused->dimensions.box_height);
        last_reading[box->box] = detection.fused->dimensions;
      }
    }
    for (const TrackEvent& event : result.events) {
      if (event.kind == TrackEventKind::kPlaced) ++placed;
      if (event.kind == TrackEventKind::kRemoved) ++removed;
      if (event.kind != TrackEventKind::kMeasured) continue;
      const BoxInFrame* box = box_at(boxes, centre_of(event.corners_px));
      if (!box) {
        ++stray_measured;
        continue;
      }
      if (++measured_events_of_box[box->box] > 1) continue;
      measured_at_s[box->box] = seconds;
      std::vector<double> errors[3];
      add_errors(event.reading.dimensions, box->truth.dimensions, errors);
      for (int d = 0; d < 3; ++d) outcome.fused_errors[d].push_back(errors[d][0]);
      const double rest = script.rests_at_s[static_cast<std::size_t>(box->box)];
      if (rest >= 0.0) outcome.settle_s.push_back(seconds - rest);
    }
  }

  const auto wrong = [&](const std::string& problem) {
    if (outcome.problem.empty()) outcome.problem = problem;
  };
  if (placed != box_count)
    wrong(std::to_string(placed) + " placed for " + std::to_string(box_count) + " boxes");
  if (removed != box_count)
    wrong(std::to_string(removed) + " removed for " + std::to_string(box_count) + " boxes");
  if (stray_measured > 0) wrong("a measured event off the boxes");
  for (int b = 0; b < box_count; ++b) {
    const std::string which = b == 0 ? "the box" : "box " + std::to_string(b + 1);
    if (measured_events_of_box[b] != 1) {
      wrong(which + " measured " + std::to_string(measured_events_of_box[b]) + " times");
    }
    if (ids_of_box[b].size() != 1) {
      wrong(which + " on " + std::to_string(ids_of_box[b].size()) + " tracks");
    }
    if (last_reading.count(b)) add_errors(last_reading[b], truth_of_box[b], outcome.late_errors);
    if (readings_after[0].count(b) && readings_after[0][b].size() >= 2) {
      double sd = 0.0;
      for (int d = 0; d < 3; ++d) sd = std::max(sd, standard_deviation(readings_after[d][b]));
      outcome.reading_sd_mm.push_back(sd);
    }
  }
  outcome.events_right = outcome.problem.empty();
  return outcome;
}

SequenceStatistics summarise(const std::vector<SequenceOutcome>& outcomes) {
  SequenceStatistics stats;
  std::vector<double> fused[3];
  std::vector<double> late[3];
  std::vector<double> single[3];
  std::vector<double> settle;
  std::vector<double> ms;
  for (const SequenceOutcome& o : outcomes) {
    ++stats.sequences;
    stats.boxes += o.boxes;
    stats.events_right += o.events_right;
    if (!o.problem.empty()) ++stats.problems[o.problem];
    for (int d = 0; d < 3; ++d) {
      fused[d].insert(fused[d].end(), o.fused_errors[d].begin(), o.fused_errors[d].end());
      late[d].insert(late[d].end(), o.late_errors[d].begin(), o.late_errors[d].end());
      single[d].insert(single[d].end(), o.frame_errors[d].begin(), o.frame_errors[d].end());
    }
    settle.insert(settle.end(), o.settle_s.begin(), o.settle_s.end());
    stats.any_late = stats.any_late || !o.late_errors[0].empty();
    for (const double sd : o.reading_sd_mm) {
      stats.reading_sd_max_mm = std::max(stats.reading_sd_max_mm, sd);
      stats.any_reading_sd = true;
    }
    ms.insert(ms.end(), o.frame_ms.begin(), o.frame_ms.end());
  }
  for (int d = 0; d < 3; ++d) {
    stats.fused[d] = error_statistics(fused[d]);
    stats.late[d] = error_statistics(late[d]);
    stats.single_frame[d] = error_statistics(single[d]);
  }
  if (!settle.empty()) {
    stats.any_settled = true;
    std::sort(settle.begin(), settle.end());
    stats.settle_median_s = settle[(settle.size() - 1) / 2];
    stats.settle_max_s = settle.back();
  }
  if (!ms.empty()) {
    std::nth_element(ms.begin(), ms.begin() + ms.size() / 2, ms.end());
    stats.median_ms = ms[ms.size() / 2];
  }
  return stats;
}

}  // namespace boxdim
