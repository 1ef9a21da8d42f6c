// Renders the synthetic box scene: the classic sensor casts one ray per pixel
// against the boxes and the floor and adds the time-of-flight artefacts to
// it; the physical sensor is its own file. Also the ground truth.
#include "scene/depth_scene.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "scene/scene_geometry.h"
#include "scene/sensor_frame.h"

namespace boxdim {
namespace {

using scene_geometry::BoxGeometry;
using scene_geometry::build_geometry;
using scene_geometry::cast_ray;
using scene_geometry::RayHit;
using scene_geometry::SceneGeometry;

constexpr double kMaxDepthMm = 65535.0;  // largest value a 16-bit depth pixel holds
constexpr double kMinClearanceMm = 100.0;
constexpr double kMaxTiltDeg = 60.0;
constexpr int kMaxImageSide = 4096;
// Neighbouring depths further apart than this lie on different surfaces.
constexpr double kDepthEdgeMm = 50.0;
// A dark surface returns so little light that pixels without a return come
// this many times as often.
constexpr double kDarkDropoutFactor = 10.0;

void require(bool ok, const std::string& message) {
  if (!ok) throw std::invalid_argument(message);
}

std::string got(double value, const char* unit) {
  std::ostringstream text;
  text << " (got " << value << unit << ")";
  return text.str();
}

void require_finite(double value, const std::string& name, const char* unit) {
  require(std::isfinite(value), name + " must be finite" + got(value, unit));
}

void require_positive(double value, const std::string& name, const char* unit) {
  require_finite(value, name, unit);
  require(value > 0.0, name + " must be positive" + got(value, unit));
}

void require_angle_below_limit(double degrees, const std::string& name) {
  require_finite(degrees, name, " degrees");
  require(std::abs(degrees) < kMaxTiltDeg,
          name + " must stay within +-60 degrees (exclusive)" + got(degrees, " degrees"));
}

void require_image_side(int pixels, const std::string& name) {
  require(pixels >= 1 && pixels <= kMaxImageSide,
          name + " must be between 1 and 4096 pixels" + got(pixels, " px"));
}

void require_probability(double p, const std::string& name) {
  require(p >= 0.0 && p <= 1.0, name + " must lie in [0, 1]" + got(p, ""));
}

// A lid may bulge or sag by less than the box is high.
void require_lid(const BoxTop& top, double height, const std::string& name) {
  require_finite(top.lid_mm, name, " mm");
  require(std::abs(top.lid_mm) < height,
          name + " must bulge or sag by less than the box's height" + got(top.lid_mm, " mm"));
}

// What each ray of the clean frame hit.
struct CleanFrame {
  cv::Mat1d depth;     // 0 where a ray hits nothing within the 16-bit range
  cv::Mat1b surfaces;  // SurfaceKind
  cv::Mat1b dark;      // 1 where the ray hit a dark top
};

// Light bounced off a box's side reaches the floor pixels next to it by a
// longer path: they read farther along their ray, by the full amount right
// beside the box and fading to nothing over the reach.
void add_multipath(CleanFrame& frame, const SceneParameters& scene) {
  const DepthNoise& noise = scene.noise;
  const CameraIntrinsics& k = scene.intrinsics;
  cv::Mat1f pixels_to_box;
  cv::distanceTransform(frame.surfaces != kBoxSurface, pixels_to_box, cv::DIST_L2,
                        cv::DIST_MASK_PRECISE);
  for (int v = 0; v < frame.depth.rows; ++v) {
    for (int u = 0; u < frame.depth.cols; ++u) {
      if (frame.surfaces(v, u) != kFloorSurface) continue;
      const double fade = 1.0 - pixels_to_box(v, u) / noise.multipath_reach_px;
      if (fade <= 0.0) continue;
      const double x = (u - double{k.cx}) / k.fx;
      const double y = (v - double{k.cy}) / k.fy;
      // Depth is the range divided by the ray's length per unit depth.
      frame.depth(v, u) += noise.multipath_mm * fade / std::sqrt(x * x + y * y + 1.0);
    }
  }
}

// Camera-frame rays have z = 1, so the ray parameter of a hit is its depth.
CleanFrame render_clean_depth(const SceneParameters& scene, const SceneGeometry& g) {
  const CameraIntrinsics& k = scene.intrinsics;
  const DepthNoise& noise = scene.noise;
  CleanFrame frame;
  frame.depth.create(scene.image_height, scene.image_width);
  frame.surfaces.create(scene.image_height, scene.image_width);
  frame.dark = cv::Mat1b::zeros(scene.image_height, scene.image_width);
  for (int v = 0; v < frame.depth.rows; ++v) {
    double* row = frame.depth[v];
    std::uint8_t* surface = frame.surfaces[v];
    const double y = (v - double{k.cy}) / k.fy;
    for (int u = 0; u < frame.depth.cols; ++u) {
      const RayHit hit = cast_ray(g, Eigen::Vector3d((u - double{k.cx}) / k.fx, y, 1.0));
      row[u] = hit.depth;
      surface[u] = hit.kind;
      if (hit.dark) frame.dark(v, u) = 1;
    }
  }
  if (noise.multipath_mm > 0.0f) add_multipath(frame, scene);
  return frame;
}

// Edge detection and mixing both read the clean frame, so one flying pixel
// never feeds another.
cv::Mat1d add_flying_pixels(const cv::Mat1d& clean, double probability, std::mt19937_64& rng) {
  cv::Mat1d mixed = clean.clone();
  std::bernoulli_distribution flies(probability);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  const int du[] = {-1, 1, 0, 0};
  const int dv[] = {0, 0, -1, 1};
  for (int v = 0; v < clean.rows; ++v) {
    for (int u = 0; u < clean.cols; ++u) {
      const double own = clean(v, u);
      if (own == 0.0) continue;
      double neighbour = 0.0;
      double largest_step = kDepthEdgeMm;
      for (int i = 0; i < 4; ++i) {
        const int nu = u + du[i];
        const int nv = v + dv[i];
        if (nu < 0 || nv < 0 || nu >= clean.cols || nv >= clean.rows) continue;
        const double other = clean(nv, nu);
        if (other != 0.0 && std::abs(other - own) > largest_step) {
          largest_step = std::abs(other - own);
          neighbour = other;
        }
      }
      if (neighbour == 0.0 || !flies(rng)) continue;
      double w = 0.0;
      while (w == 0.0) w = uniform(rng);  // open interval: always a true mix
      mixed(v, u) = w * own + (1.0 - w) * neighbour;
    }
  }
  return mixed;
}

void add_range_noise(cv::Mat1d& depth, const cv::Mat1b& dark, const DepthNoise& noise,
                     std::mt19937_64& rng) {
  std::normal_distribution<double> standard_normal(0.0, 1.0);
  const double sigma = noise.sigma_at_1m_mm;
  const double dark_sigma = sigma * noise.dark_noise_factor;
  for (int v = 0; v < depth.rows; ++v) {
    double* row = depth[v];
    for (int u = 0; u < depth.cols; ++u) {
      if (row[u] == 0.0) continue;
      row[u] += standard_normal(rng) * (dark(v, u) ? dark_sigma : sigma) * (row[u] / 1000.0);
    }
  }
}

cv::Mat1w quantise(const cv::Mat1d& depth) {
  cv::Mat1w out(depth.rows, depth.cols);
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      out(v, u) = static_cast<std::uint16_t>(std::clamp(std::round(depth(v, u)), 0.0, kMaxDepthMm));
    }
  }
  return out;
}

void add_dropout(cv::Mat1w& depth, const cv::Mat1b& dark, double probability,
                 std::mt19937_64& rng) {
  std::bernoulli_distribution drops(probability);
  std::bernoulli_distribution dark_drops(std::min(1.0, probability * kDarkDropoutFactor));
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      if (dark(v, u) ? dark_drops(rng) : drops(rng)) depth(v, u) = 0;
    }
  }
}

SceneGroundTruth ground_truth(const SceneParameters& scene, const SceneGeometry& g,
                              const BoxGeometry& box) {
  SceneGroundTruth truth;
  truth.dimensions.box_length =
      static_cast<float>(2.0 * std::max(box.half_extent.x(), box.half_extent.y()));
  truth.dimensions.box_width =
      static_cast<float>(2.0 * std::min(box.half_extent.x(), box.half_extent.y()));
  // The lid's highest point counts where it rises above the walls; a sag,
  // a rounded rim, a crack or a notch takes nothing from the height.
  const double rise = box.shaped ? box.shape.highest() : double{box.top.lid_mm};
  truth.dimensions.box_height = static_cast<float>(2.0 * box.half_extent.z() + std::max(0.0, rise));

  // The level frame's down direction seen from the camera. Both frames share
  // the origin, so the plane's offset survives the rotation unchanged.
  const Eigen::Vector3d normal = g.camera_to_level.row(2).transpose();
  truth.top_plane = {static_cast<float>(normal.x()), static_cast<float>(normal.y()),
                     static_cast<float>(normal.z()), static_cast<float>(-box.top_height)};
  // Taken on the face's plane, so it stays defined when an offset moves the
  // face off the optical axis.
  truth.top_face_depth_mm = static_cast<float>(box.top_height / normal.z());

  const Eigen::Matrix3d box_to_level = box.level_to_box.transpose();
  const Eigen::Vector3d length_half = box_to_level.col(0) * box.half_extent.x();
  const Eigen::Vector3d width_half = box_to_level.col(1) * box.half_extent.y();
  const double corner_signs[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
  const CameraIntrinsics& k = scene.intrinsics;
  for (int i = 0; i < 4; ++i) {
    const Eigen::Vector3d corner_level =
        box.top_centre + corner_signs[i][0] * length_half + corner_signs[i][1] * width_half;
    const Eigen::Vector3d c = g.camera_to_level.transpose() * corner_level;
    truth.top_corners_camera[i] = cv::Point3f(static_cast<float>(c.x()), static_cast<float>(c.y()),
                                              static_cast<float>(c.z()));
    truth.top_corners_px[i] = cv::Point2f(static_cast<float>(c.x() / c.z() * k.fx + k.cx),
                                          static_cast<float>(c.y() / c.z() * k.fy + k.cy));
  }
  return truth;
}

RenderedScene with_truths(const SceneParameters& scene, const SceneGeometry& geometry,
                          const cv::Mat& depth, const cv::Mat& surfaces) {
  RenderedScene rendered{depth, ground_truth(scene, geometry, geometry.main_box), {}, surfaces};
  const std::size_t first_other = scene.with_box ? 1 : 0;
  for (std::size_t b = first_other; b < geometry.boxes.size(); ++b) {
    rendered.other_truths.push_back(ground_truth(scene, geometry, geometry.boxes[b]));
  }
  return rendered;
}

}  // namespace

void validate_scene(const SceneParameters& scene) {
  require_positive(scene.box_length_mm, "box length", " mm");
  require_positive(scene.box_width_mm, "box width", " mm");
  require_positive(scene.box_height_mm, "box height", " mm");
  require_finite(scene.camera_height_mm, "camera height", " mm");
  const double clearance = double{scene.camera_height_mm} - scene.box_height_mm;
  require(clearance >= kMinClearanceMm, "camera height must be at least 100 mm above the box top" +
                                            got(clearance, " mm between them"));
  require_angle_below_limit(scene.tilt_deg, "tilt");
  require_angle_below_limit(scene.roll_deg, "roll");
  require_finite(scene.yaw_deg, "yaw", " degrees");
  require_finite(scene.offset_mm.x, "offset x", " mm");
  require_finite(scene.offset_mm.y, "offset y", " mm");
  require_image_side(scene.image_width, "image width");
  require_image_side(scene.image_height, "image height");
  require_positive(scene.intrinsics.fx, "focal length fx", " px");
  require_positive(scene.intrinsics.fy, "focal length fy", " px");
  require_finite(scene.intrinsics.cx, "principal point cx", " px");
  require_finite(scene.intrinsics.cy, "principal point cy", " px");
  require_finite(scene.noise.sigma_at_1m_mm, "noise sigma", " mm");
  require(scene.noise.sigma_at_1m_mm >= 0.0f,
          "noise sigma must not be negative" + got(scene.noise.sigma_at_1m_mm, " mm"));
  require_probability(scene.noise.flying_pixel_probability, "flying pixel probability");
  require_probability(scene.noise.dropout_probability, "dropout probability");
  require_finite(scene.noise.multipath_mm, "multipath", " mm");
  require(scene.noise.multipath_mm >= 0.0f,
          "multipath must not be negative" + got(scene.noise.multipath_mm, " mm"));
  require_positive(scene.noise.multipath_reach_px, "multipath reach", " px");
  require_finite(scene.noise.dark_noise_factor, "dark noise factor", "");
  require(scene.noise.dark_noise_factor >= 1.0f,
          "dark noise factor must be at least 1" + got(scene.noise.dark_noise_factor, ""));
  require_lid(scene.top, scene.box_height_mm, "lid");
  validate_box_top(scene.top, scene.box_length_mm, scene.box_width_mm, scene.box_height_mm, "box");
  validate_sensor(scene.sensor);
  require_finite(scene.table.warp_mm, "table warp", " mm");
  require(std::abs(scene.table.warp_mm) <= 20.0f,
          "table warp must stay within +-20 mm" + got(scene.table.warp_mm, " mm"));
  require_finite(scene.table.dip_mm, "table dip", " mm");
  require(scene.table.dip_mm >= 0.0f && scene.table.dip_mm <= 20.0f,
          "table dip must lie in [0, 20] mm" + got(scene.table.dip_mm, " mm"));
  require_positive(scene.table.dip_radius_mm, "table dip radius", " mm");
  for (const FloorBox& other : scene.other_boxes) {
    require_positive(other.length_mm, "other box length", " mm");
    require_positive(other.width_mm, "other box width", " mm");
    require_positive(other.height_mm, "other box height", " mm");
    require(double{scene.camera_height_mm} - other.height_mm >= kMinClearanceMm,
            "camera height must be at least 100 mm above every box" +
                got(double{scene.camera_height_mm} - other.height_mm, " mm between them"));
    require_finite(other.offset_mm.x, "other box offset x", " mm");
    require_finite(other.offset_mm.y, "other box offset y", " mm");
    require_finite(other.yaw_deg, "other box yaw", " degrees");
    require_lid(other.top, other.height_mm, "other box lid");
    validate_box_top(other.top, other.length_mm, other.width_mm, other.height_mm, "other box");
  }
}

RenderedScene render_scene(const SceneParameters& scene) {
  validate_scene(scene);
  const SceneGeometry geometry = build_geometry(scene);
  if (scene.sensor.physical()) {
    scene_geometry::SensorFrame frame = scene_geometry::render_sensor_frame(scene, geometry);
    return with_truths(scene, geometry, frame.depth, frame.surfaces);
  }
  const DepthNoise& noise = scene.noise;
  std::mt19937_64 rng(scene.seed);

  CleanFrame clean = render_clean_depth(scene, geometry);
  cv::Mat1d depth = clean.depth;
  if (noise.flying_pixel_probability > 0.0f) {
    depth = add_flying_pixels(depth, noise.flying_pixel_probability, rng);
  }
  if (noise.sigma_at_1m_mm > 0.0f) add_range_noise(depth, clean.dark, noise, rng);
  cv::Mat1w quantised = quantise(depth);
  if (noise.dropout_probability > 0.0f) {
    add_dropout(quantised, clean.dark, noise.dropout_probability, rng);
  }

  return with_truths(scene, geometry, quantised, clean.surfaces);
}

SceneGroundTruth scene_ground_truth(const SceneParameters& scene) {
  validate_scene(scene);
  const SceneGeometry geometry = build_geometry(scene);
  return ground_truth(scene, geometry, geometry.main_box);
}

std::vector<SceneGroundTruth> other_ground_truths(const SceneParameters& scene) {
  validate_scene(scene);
  const SceneGeometry geometry = build_geometry(scene);
  std::vector<SceneGroundTruth> truths;
  for (std::size_t b = scene.with_box ? 1 : 0; b < geometry.boxes.size(); ++b) {
    truths.push_back(ground_truth(scene, geometry, geometry.boxes[b]));
  }
  return truths;
}

}  // namespace boxdim
