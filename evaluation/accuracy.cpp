#include "evaluation/accuracy.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <random>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "engine/engine_factory.h"

namespace boxdim {

namespace {

constexpr float kFrameMarginPx = 20.0f;
constexpr int kMaxDrawsPerScene = 100;
// A top face shorter than this on a side cannot be measured to a tolerance of
// millimetres: every pixel is several of them.
constexpr double kMinTopSidePx = 16.0;
// Boxes of a cluttered scene stand at least this far apart (mm).
constexpr float kClutterGapMm = 60.0f;

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

}  // namespace

double shortest_top_side_px(const SceneGroundTruth& truth) {
  double shortest = 1e9;
  for (int i = 0; i < 4; ++i) {
    shortest = std::min(
        shortest, double(cv::norm(truth.top_corners_px[(i + 1) % 4] - truth.top_corners_px[i])));
  }
  return shortest;
}

cv::Point2f top_centre_px(const SceneGroundTruth& truth) {
  cv::Point2f centre(0.0f, 0.0f);
  for (const cv::Point2f& corner : truth.top_corners_px) centre += 0.25f * corner;
  return centre;
}

namespace {

// The share of the box's top face (in the image) that lies within the frame.
double top_share_in_view(const SceneParameters& scene) {
  const SceneGroundTruth truth = scene_ground_truth(scene);
  const std::vector<cv::Point2f> top(truth.top_corners_px.begin(), truth.top_corners_px.end());
  const float w = static_cast<float>(scene.image_width);
  const float h = static_cast<float>(scene.image_height);
  const std::vector<cv::Point2f> frame = {{0, 0}, {w, 0}, {w, h}, {0, h}};
  std::vector<cv::Point2f> overlap;
  const double area = std::abs(cv::contourArea(top));
  if (area <= 0.0) return 0.0;
  return cv::intersectConvexConvex(top, frame, overlap) / area;
}

// Whether every pixel well inside the scored box's top sees that top: no
// other box stands in the way.
bool top_in_full_view(const SceneParameters& scene) {
  // Clean, flat and seen at the pixels' centres: what stands in front of
  // the top is all that is asked.
  SceneParameters clean = scene;
  clean.noise = DepthNoise{};
  clean.sensor = SensorModel{};
  clean.top = BoxTop{};
  clean.table = TableShape{};
  const RenderedScene rendered = render_scene(clean);
  const PlaneEquation& plane = rendered.truth.top_plane;
  const CameraIntrinsics& k = scene.intrinsics;
  cv::Mat1b face = cv::Mat1b::zeros(rendered.depth.size());
  std::vector<cv::Point> corners;
  for (const cv::Point2f& c : rendered.truth.top_corners_px) {
    corners.emplace_back(cvRound(c.x), cvRound(c.y));
  }
  cv::fillConvexPoly(face, corners, 255);
  cv::erode(face, face, cv::Mat(), cv::Point(-1, -1), 2);
  for (int v = 0; v < face.rows; ++v) {
    for (int u = 0; u < face.cols; ++u) {
      if (!face(v, u)) continue;
      // The depth at which this pixel's ray meets the top's plane.
      const double x = (u - k.cx) / k.fx;
      const double y = (v - k.cy) / k.fy;
      const double expected = -plane.d / (plane.a * x + plane.b * y + plane.c);
      if (std::abs(rendered.depth.at<std::uint16_t>(v, u) - expected) > 2.0) return false;
    }
  }
  return true;
}

float uniform(std::mt19937_64& rng, float lo, float hi) {
  return std::uniform_real_distribution<float>(lo, hi)(rng);
}

bool chance(std::mt19937_64& rng, double p) { return std::bernoulli_distribution(p)(rng); }

SceneParameters draw_classic(FamilyKind kind, std::mt19937_64& rng) {
  SceneParameters scene;
  scene.box_length_mm = uniform(rng, 150.0f, 600.0f);
  scene.box_width_mm =
      uniform(rng, std::max(80.0f, 0.4f * scene.box_length_mm), scene.box_length_mm);
  scene.box_height_mm = uniform(rng, 60.0f, 400.0f);
  scene.camera_height_mm = uniform(rng, 800.0f, 1800.0f);
  scene.yaw_deg = uniform(rng, 0.0f, 90.0f);
  const bool tilted =
      kind == FamilyKind::kTilted || (kind == FamilyKind::kNoisy && chance(rng, 0.5));
  if (tilted) {
    // Either way: the side face the camera sees lies at the top or the bottom
    // of the image, and the height stage treats the two differently.
    const float sign = chance(rng, 0.5) ? 1.0f : -1.0f;
    scene.tilt_deg = sign * uniform(rng, 2.0f, 20.0f);
    scene.roll_deg = uniform(rng, -5.0f, 5.0f);
  }
  if (kind == FamilyKind::kNoisy) scene.noise = {2.0f, 0.2f, 0.005f};
  scene.seed = rng();
  return scene;
}

// One of the camera's modes: 640 x 480, the same sensor binned to 320 x 240,
// or a wider or narrower lens; the principal point a few pixels off centre.
void draw_camera_mode(SceneParameters& scene, std::mt19937_64& rng) {
  const int mode = std::uniform_int_distribution<int>(0, 3)(rng);
  CameraIntrinsics k;
  if (mode == 1) {
    scene.image_width = 320;
    scene.image_height = 240;
    k = scale_intrinsics(k, kDefaultIntrinsicsSize, cv::Size(320, 240));
  } else if (mode >= 2) {
    const float zoom = mode == 2 ? 0.75f : 1.3f;
    k.fx *= zoom;
    k.fy *= zoom;
  }
  const float shift = scene.image_width / 80.0f;
  k.cx += uniform(rng, -shift, shift);
  k.cy += uniform(rng, -shift, shift);
  scene.intrinsics = k;
}

// Camera pose, noise and multipath of the harder families.
void draw_real_camera(SceneParameters& scene, std::mt19937_64& rng, float min_height,
                      float max_height, float max_tilt) {
  scene.camera_height_mm = uniform(rng, min_height, max_height);
  scene.tilt_deg = (chance(rng, 0.5) ? 1.0f : -1.0f) * uniform(rng, 0.0f, max_tilt);
  scene.roll_deg = uniform(rng, -5.0f, 5.0f);
  scene.noise = {2.0f, 0.2f, 0.005f};
  scene.noise.multipath_mm = uniform(rng, 0.0f, 12.0f);
  scene.noise.dark_noise_factor = uniform(rng, 2.0f, 3.0f);
}

BoxTop draw_top(std::mt19937_64& rng) {
  BoxTop top;
  top.dark = chance(rng, 0.3);
  if (chance(rng, 0.5))
    top.lid_mm = chance(rng, 0.5) ? uniform(rng, 0.0f, 12.0f) : -uniform(rng, 0.0f, 8.0f);
  return top;
}

SceneParameters draw_realistic(std::mt19937_64& rng) {
  SceneParameters scene;
  scene.box_length_mm = uniform(rng, 50.0f, 600.0f);
  scene.box_width_mm =
      uniform(rng, std::max(50.0f, 0.3f * scene.box_length_mm), scene.box_length_mm);
  scene.box_height_mm = uniform(rng, 30.0f, 400.0f);
  scene.yaw_deg = uniform(rng, 0.0f, 90.0f);
  scene.top = draw_top(rng);
  draw_real_camera(scene, rng, 700.0f, 2300.0f, 25.0f);
  scene.camera_height_mm = std::max(scene.camera_height_mm, scene.box_height_mm + 150.0f);
  draw_camera_mode(scene, rng);
  scene.offset_mm = {uniform(rng, -300.0f, 300.0f), uniform(rng, -250.0f, 250.0f)};
  scene.seed = rng();
  return scene;
}

// The radius of the circle around a box's footprint.
float footprint_radius(float length, float width) { return 0.5f * std::hypot(length, width); }

SceneParameters draw_cluttered(std::mt19937_64& rng) {
  SceneParameters scene;
  scene.box_length_mm = uniform(rng, 120.0f, 450.0f);
  scene.box_width_mm =
      uniform(rng, std::max(80.0f, 0.4f * scene.box_length_mm), scene.box_length_mm);
  scene.box_height_mm = uniform(rng, 60.0f, 350.0f);
  scene.yaw_deg = uniform(rng, 0.0f, 90.0f);
  draw_real_camera(scene, rng, 1300.0f, 2300.0f, 20.0f);
  scene.offset_mm = {uniform(rng, -50.0f, 50.0f), uniform(rng, -50.0f, 50.0f)};
  const int others = chance(rng, 0.5) ? 1 : 2;
  std::vector<std::pair<cv::Point2f, float>> placed = {
      {{0.0f, 0.0f}, footprint_radius(scene.box_length_mm, scene.box_width_mm)}};
  for (int i = 0; i < others; ++i) {
    FloorBox other;
    other.length_mm = uniform(rng, 120.0f, 450.0f);
    other.width_mm = uniform(rng, std::max(80.0f, 0.4f * other.length_mm), other.length_mm);
    other.height_mm = uniform(rng, 60.0f, 350.0f);
    other.yaw_deg = uniform(rng, 0.0f, 90.0f);
    const float radius = footprint_radius(other.length_mm, other.width_mm);
    const float angle = uniform(rng, 0.0f, 6.2831853f);
    const float distance = placed[0].second + radius + uniform(rng, kClutterGapMm, 250.0f);
    other.offset_mm = {distance * std::cos(angle), distance * std::sin(angle)};
    placed.emplace_back(other.offset_mm, radius);
    scene.other_boxes.push_back(other);
  }
  scene.seed = rng();
  return scene;
}

// The physical sensor of a field scene: a time-of-flight camera with its
// filters as set, or a structured-light one; its errors repeated in every
// frame.
SensorModel draw_sensor(std::mt19937_64& rng) {
  SensorModel s;
  s.footprint_samples = 4;
  if (chance(rng, 0.75)) {
    s.sensing = DepthSensing::kTimeOfFlight;
    const double filter = uniform(rng, 0.0f, 1.0f);
    s.flying_filter = filter < 0.2   ? FlyingPixelFilter::kOff
                      : filter < 0.6 ? FlyingPixelFilter::kWeak
                                     : FlyingPixelFilter::kStrong;
    s.edge_smoothing = chance(rng, 0.5);
  } else {
    s.sensing = DepthSensing::kStructuredLight;
    s.depth_step_at_1m_mm = uniform(rng, 1.5f, 3.0f);
    s.edge_blur_px = uniform(rng, 0.7f, 1.5f);
  }
  s.reflectivity_bias_mm = uniform(rng, 0.0f, 2.0f);
  s.fixed_pattern_mm = uniform(rng, -2.0f, 2.0f);
  s.fixed_ramp_x_mm = uniform(rng, -1.5f, 1.5f);
  s.fixed_ramp_y_mm = uniform(rng, -1.5f, 1.5f);
  s.wiggle_mm = uniform(rng, 0.0f, 2.0f);
  s.wiggle_phase_rad = uniform(rng, 0.0f, 6.2831853f);
  return s;
}

// A carton's lid as cartons come: rims always rounded, flaps mostly meeting
// along a seam, and the rest now and then.
BoxTop draw_carton(std::mt19937_64& rng, float length, float width, float height) {
  BoxTop top;
  const float half_long = 0.5f * std::max(length, width);
  const float half_short = 0.5f * std::min(length, width);
  const double board = uniform(rng, 0.0f, 1.0f);
  top.reflectivity = board < 0.7   ? uniform(rng, 0.3f, 0.6f)
                     : board < 0.9 ? uniform(rng, 0.06f, 0.15f)
                                   : uniform(rng, 0.7f, 0.9f);
  top.dark = top.reflectivity < 0.2f;
  top.rim_radius_mm = std::min(uniform(rng, 2.0f, 10.0f), 0.4f * half_short);
  // Shapes that reach down stay well within the box.
  const float room = 0.7f * height;
  if (chance(rng, 0.8)) {
    CartonSeam& seam = top.seam;
    seam.present = true;
    seam.offset_mm = uniform(rng, -0.05f, 0.05f) * half_short;
    seam.ridge_mm = uniform(rng, -4.0f, 3.0f);
    seam.ridge_width_mm = std::min(uniform(rng, 8.0f, 30.0f), half_short);
    if (chance(rng, 0.4))
      seam.step_mm = (chance(rng, 0.5) ? 1.0f : -1.0f) * uniform(rng, 1.0f, 5.0f);
    seam.taped = chance(rng, 0.5);
    seam.tape_width_mm = std::min(48.0f, 2.0f * half_short);
    if (!seam.taped && chance(rng, 0.5)) {
      seam.crack_width_mm = uniform(rng, 2.0f, 6.0f);
      seam.crack_depth_mm = std::min(uniform(rng, 20.0f, 60.0f), room);
    }
  }
  if (chance(rng, 0.6)) {
    const int bumps = std::uniform_int_distribution<int>(1, 4)(rng);
    for (int i = 0; i < bumps; ++i) {
      TopBump b;
      b.centre_mm = {uniform(rng, -0.5f, 0.5f) * length, uniform(rng, -0.5f, 0.5f) * width};
      b.height_mm = (chance(rng, 0.5) ? 1.0f : -1.0f) * uniform(rng, 1.0f, 4.0f);
      b.radius_mm = std::min(uniform(rng, 30.0f, 100.0f), half_long);
      top.bumps.push_back(b);
    }
  }
  if (chance(rng, 0.3)) top.lid_mm = uniform(rng, -6.0f, 8.0f);
  if (chance(rng, 0.2)) {
    top.offset_bulge_mm = uniform(rng, 2.0f, 8.0f);
    top.offset_bulge_at = {uniform(rng, -0.6f, 0.6f), uniform(rng, -0.6f, 0.6f)};
  }
  if (chance(rng, 0.4)) {
    TopLabel label;
    label.size_mm = {std::min(100.0f, 0.6f * length), std::min(150.0f, 0.6f * width)};
    label.centre_mm = {uniform(rng, -0.2f, 0.2f) * length, uniform(rng, -0.2f, 0.2f) * width};
    label.reflectivity = uniform(rng, 0.75f, 0.9f);
    top.labels.push_back(label);
  }
  if (chance(rng, 0.08)) {
    TopNotch n;
    n.side = std::uniform_int_distribution<int>(0, 3)(rng);
    const float edge = n.side % 2 == 0 ? width : length;
    const float inward = n.side % 2 == 0 ? length : width;
    n.width_mm = std::min(uniform(rng, 30.0f, 80.0f), 0.5f * edge);
    n.position_mm = uniform(rng, -0.25f, 0.25f) * edge;
    n.reach_mm = std::min(uniform(rng, 15.0f, 40.0f), 0.3f * inward);
    n.drop_mm = std::min(uniform(rng, 20.0f, 50.0f), room);
    top.notches.push_back(n);
  }
  if (half_short >= 60.0f && half_long >= 100.0f && chance(rng, 0.12)) {
    HandleRecess& h = top.handle;
    h.present = true;
    h.at_positive_end = chance(rng, 0.5);
    h.width_mm = 30.0f;
    h.length_mm = std::min(90.0f, 1.2f * half_short);
    h.from_end_mm = uniform(rng, 35.0f, 60.0f);
    h.depth_mm = std::min(uniform(rng, 20.0f, 40.0f), room);
  }
  return top;
}

SceneParameters draw_field(std::mt19937_64& rng) {
  SceneParameters scene;
  scene.box_length_mm = uniform(rng, 150.0f, 600.0f);
  scene.box_width_mm =
      uniform(rng, std::max(100.0f, 0.3f * scene.box_length_mm), scene.box_length_mm);
  scene.box_height_mm = uniform(rng, 50.0f, 400.0f);
  scene.yaw_deg = uniform(rng, 0.0f, 90.0f);
  scene.camera_height_mm = std::max(uniform(rng, 900.0f, 1800.0f), scene.box_height_mm + 500.0f);
  scene.tilt_deg = (chance(rng, 0.5) ? 1.0f : -1.0f) * uniform(rng, 0.0f, 15.0f);
  scene.roll_deg = uniform(rng, -5.0f, 5.0f);
  const float shift = scene.image_width / 80.0f;
  scene.intrinsics.cx += uniform(rng, -shift, shift);
  scene.intrinsics.cy += uniform(rng, -shift, shift);
  scene.offset_mm = {uniform(rng, -250.0f, 250.0f), uniform(rng, -200.0f, 200.0f)};
  scene.top = draw_carton(rng, scene.box_length_mm, scene.box_width_mm, scene.box_height_mm);
  scene.sensor = draw_sensor(rng);
  // The noise is white paper's at 1 m; a carton returns less light and so
  // reads noisier.
  scene.noise.sigma_at_1m_mm = uniform(rng, 0.8f, 2.0f);
  scene.noise.dropout_probability = 0.002f;
  scene.noise.multipath_mm = uniform(rng, 0.0f, 8.0f);
  scene.table.warp_mm = uniform(rng, -1.5f, 1.5f);
  if (chance(rng, 0.5)) {
    scene.table.dip_mm = uniform(rng, 1.0f, 3.0f);
    scene.table.dip_radius_mm = uniform(rng, 100.0f, 300.0f);
  }
  if (chance(rng, 0.3)) {
    // Another box at the border of the view, partly out of it.
    FloorBox other;
    other.length_mm = uniform(rng, 150.0f, 500.0f);
    other.width_mm = uniform(rng, 100.0f, other.length_mm);
    other.height_mm = uniform(rng, 50.0f, std::min(400.0f, scene.camera_height_mm - 500.0f));
    other.yaw_deg = uniform(rng, 0.0f, 90.0f);
    other.top = draw_carton(rng, other.length_mm, other.width_mm, other.height_mm);
    const float angle = uniform(rng, 0.0f, 6.2831853f);
    const float reach = uniform(rng, 0.9f, 1.3f) * 0.55f * scene.camera_height_mm;
    other.offset_mm = {reach * std::cos(angle) - scene.offset_mm.x,
                       0.75f * reach * std::sin(angle) - scene.offset_mm.y};
    scene.other_boxes.push_back(other);
  }
  scene.seed = rng();
  return scene;
}

// Boxes of a cluttered scene may not stand in each other.
bool boxes_apart(const SceneParameters& scene) {
  std::vector<std::pair<cv::Point2f, float>> circles = {
      {{0.0f, 0.0f}, footprint_radius(scene.box_length_mm, scene.box_width_mm)}};
  for (const FloorBox& other : scene.other_boxes) {
    circles.emplace_back(other.offset_mm, footprint_radius(other.length_mm, other.width_mm));
  }
  for (std::size_t i = 0; i < circles.size(); ++i) {
    for (std::size_t j = i + 1; j < circles.size(); ++j) {
      if (cv::norm(circles[i].first - circles[j].first) <
          circles[i].second + circles[j].second + kClutterGapMm) {
        return false;
      }
    }
  }
  return true;
}

SceneParameters draw_reject(std::mt19937_64& rng) {
  SceneParameters scene;
  scene.box_length_mm = uniform(rng, 100.0f, 600.0f);
  scene.box_width_mm =
      uniform(rng, std::max(80.0f, 0.4f * scene.box_length_mm), scene.box_length_mm);
  scene.box_height_mm = uniform(rng, 40.0f, 400.0f);
  scene.yaw_deg = uniform(rng, 0.0f, 90.0f);
  scene.top = draw_top(rng);
  draw_real_camera(scene, rng, 700.0f, 2300.0f, 25.0f);
  scene.camera_height_mm = std::max(scene.camera_height_mm, scene.box_height_mm + 150.0f);
  scene.with_box = chance(rng, 0.5);
  if (scene.with_box) {
    // Moved along the floor in some direction until the share of its top in
    // view has fallen to what was drawn: the share shrinks with the distance.
    const float share = uniform(rng, 0.3f, 0.8f);
    const float angle = uniform(rng, 0.0f, 6.2831853f);
    const cv::Point2f direction(std::cos(angle), std::sin(angle));
    float near = 0.0f;
    float far = 4000.0f;
    for (int step = 0; step < 30; ++step) {
      const float middle = 0.5f * (near + far);
      scene.offset_mm = direction * middle;
      (top_share_in_view(scene) > share ? near : far) = middle;
    }
    scene.offset_mm = direction * (0.5f * (near + far));
  }
  scene.seed = rng();
  return scene;
}

SceneParameters draw_scene(FamilyKind kind, std::mt19937_64& rng) {
  switch (kind) {
    case FamilyKind::kField:
      return draw_field(rng);
    case FamilyKind::kRealistic:
      return draw_realistic(rng);
    case FamilyKind::kCluttered:
      return draw_cluttered(rng);
    case FamilyKind::kReject:
      return draw_reject(rng);
    default:
      return draw_classic(kind, rng);
  }
}

bool keep_scene(FamilyKind kind, const SceneParameters& scene) {
  try {
    validate_scene(scene);
  } catch (const std::invalid_argument&) {
    return false;
  }
  switch (kind) {
    case FamilyKind::kTopDown:
    case FamilyKind::kTilted:
    case FamilyKind::kNoisy:
      return box_in_frame(scene);
    case FamilyKind::kRealistic:
      return measurable_box(scene);
    case FamilyKind::kField:
      return measurable_box(scene) &&
             (scene.other_boxes.empty() || (boxes_apart(scene) && top_in_full_view(scene)));
    case FamilyKind::kCluttered:
      return boxes_apart(scene) && measurable_box(scene) && top_in_full_view(scene);
    case FamilyKind::kReject: {
      if (!scene.with_box) return true;
      const double share = top_share_in_view(scene);
      return share >= 0.3 && share <= 0.8;
    }
  }
  return false;
}

}  // namespace

bool measurable_box(const SceneParameters& scene) {
  return box_in_frame(scene) && shortest_top_side_px(scene_ground_truth(scene)) >= kMinTopSidePx;
}

ErrorStatistics error_statistics(std::vector<double> errors) {
  if (errors.empty()) return {};
  std::sort(errors.begin(), errors.end());
  const auto at = [&](double q) {
    return errors[static_cast<std::size_t>(std::ceil(q * errors.size())) - 1];
  };
  return {at(0.5), at(0.95)};
}

std::vector<SceneFamily> accuracy_families() {
  return {{"field", FamilyKind::kField},         {"top-down", FamilyKind::kTopDown},
          {"tilted", FamilyKind::kTilted},       {"noisy", FamilyKind::kNoisy},
          {"realistic", FamilyKind::kRealistic}, {"cluttered", FamilyKind::kCluttered},
          {"reject", FamilyKind::kReject}};
}

SceneSampler::SceneSampler(SceneFamily family, int count, std::uint64_t seed)
    : family_(std::move(family)), count_(count), rng_(seed) {}

std::optional<SceneParameters> SceneSampler::next() {
  while (drawn_ < count_ && draws_ < count_ * kMaxDrawsPerScene) {
    ++draws_;
    SceneParameters scene = draw_scene(family_.kind, rng_);
    if (keep_scene(family_.kind, scene)) {
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
                               std::time_t ransac_seed, float division_mm) {
  return measure_scene(scene, render_scene(scene), engine_name, ransac_seed, division_mm);
}

namespace {

// A detection stands on a box when its centre lies on the box's top in the
// image, or within a few pixels of its outline.
int stray_detections(const SceneParameters& scene, const RenderedScene& rendered,
                     const MeasurementResult& measured) {
  constexpr double kOutlineMarginPx = 3.0;
  std::vector<const SceneGroundTruth*> boxes;
  if (scene.with_box) boxes.push_back(&rendered.truth);
  for (const SceneGroundTruth& other : rendered.other_truths) boxes.push_back(&other);
  int stray = 0;
  for (const BoxMeasurement& detection : measured.boxes) {
    bool on_a_box = false;
    for (const SceneGroundTruth* box : boxes) {
      const std::vector<cv::Point2f> top(box->top_corners_px.begin(), box->top_corners_px.end());
      on_a_box =
          on_a_box || cv::pointPolygonTest(top, detection.centre_px, true) >= -kOutlineMarginPx;
    }
    stray += on_a_box ? 0 : 1;
  }
  return stray;
}

}  // namespace

SceneMeasurement measure_scene(const SceneParameters& scene, const RenderedScene& rendered,
                               const std::string& engine_name, std::time_t ransac_seed,
                               float division_mm) {
  SceneMeasurement result;
  result.scene = scene;
  result.engine = engine_name;
  result.truth = rendered.truth;

  std::ostringstream discarded;
  EngineContext context;
  context.log = &discarded;
  context.error_log = &discarded;
  context.seed_clock = [ransac_seed] { return ransac_seed; };
  context.draw_pictures = false;
  context.division_mm = division_mm;
  const std::unique_ptr<Engine> engine = create_engine(engine_name, context);
  DepthFrame frame;
  frame.depth = rendered.depth;
  frame.intrinsics = scene.intrinsics;
  const MeasurementResult measured = engine->measure(frame);
  result.elapsed_ms = measured.elapsed_ms;
  result.stray_detections = stray_detections(scene, rendered, measured);

  // The measured box that stands for the scored one (or one whose size the
  // engine could not tell within the division).
  const cv::Point2f centre = top_centre_px(result.truth);
  const BoxMeasurement* nearest = nullptr;
  double nearest_distance = 0.0;
  for (const BoxMeasurement& box : measured.boxes) {
    if (box.status != BoxStatus::kMeasured && box.status != BoxStatus::kUncertain) continue;
    const double distance = cv::norm(box.centre_px - centre);
    if (!nearest || distance < nearest_distance) {
      nearest = &box;
      nearest_distance = distance;
    }
  }
  const bool stands_for_it =
      nearest && (!scene.with_box || scene.other_boxes.empty() ||
                  nearest_distance <= shortest_top_side_px(result.truth) / 3);
  if (stands_for_it && nearest->status == BoxStatus::kUncertain) {
    result.uncertain = true;
    result.failed_stage = box_status_name(BoxStatus::kUncertain);
    result.reason = "its size cannot be told within the division";
  } else if (stands_for_it) {
    result.ok = true;
    result.measured = nearest->dimensions;
    result.uncertainty = nearest->uncertainty;
  } else if (nearest) {
    result.failed_stage = "position";
    result.reason = "no measured box where the scored box stands";
  } else if (measured.failure) {
    result.failed_stage = measured.failure->stage;
    result.reason = measured.failure->message;
  } else {
    result.failed_stage = "detection";
    result.reason = "no box";
  }
  return result;
}

FamilyStatistics summarise(const std::vector<SceneMeasurement>& measurements) {
  FamilyStatistics stats;
  std::vector<double> length, width, height, times;
  for (const SceneMeasurement& m : measurements) {
    ++stats.scenes;
    times.push_back(m.elapsed_ms);
    if (m.stray_detections > 0) ++stats.scenes_with_stray;
    if (m.uncertain) ++stats.uncertain;
    if (!m.ok) {
      ++stats.failures[m.failed_stage + ": " + m.reason];
      continue;
    }
    ++stats.measured;
    const double dl = std::abs(m.measured.box_length - m.truth.dimensions.box_length);
    const double dw = std::abs(m.measured.box_width - m.truth.dimensions.box_width);
    const double dh = std::abs(m.measured.box_height - m.truth.dimensions.box_height);
    length.push_back(dl);
    width.push_back(dw);
    height.push_back(dh);
    if (dl <= kToleranceMm && dw <= kToleranceMm && dh <= kToleranceMm) ++stats.within_tolerance;
    if (m.uncertainty) {
      ++stats.with_uncertainty;
      stats.within_uncertainty[0] += dl <= m.uncertainty->box_length;
      stats.within_uncertainty[1] += dw <= m.uncertainty->box_width;
      stats.within_uncertainty[2] += dh <= m.uncertainty->box_height;
    }
  }
  stats.length = error_statistics(length);
  stats.width = error_statistics(width);
  stats.height = error_statistics(height);
  stats.median_ms = error_statistics(times).median_mm;
  return stats;
}

}  // namespace boxdim
