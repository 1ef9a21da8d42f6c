// Renders the synthetic box scene by casting one ray per pixel against the box
// and the floor, adds the time-of-flight artefacts, and derives the ground truth.
#include "scene/depth_scene.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

namespace boxdim {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kNoHit = std::numeric_limits<double>::infinity();
constexpr double kMaxDepthMm = 65535.0;  // largest value a 16-bit depth pixel holds
constexpr double kMinClearanceMm = 100.0;
constexpr double kMaxTiltDeg = 60.0;
constexpr int kMaxImageSide = 4096;
// Neighbouring depths further apart than this lie on different surfaces.
constexpr double kDepthEdgeMm = 50.0;

double radians(double degrees) { return degrees * kPi / 180.0; }

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

// The level frame is the untilted camera's frame: x along image columns, y
// along image rows, z straight down to the floor at z = camera height, with
// the camera at the origin.

struct SceneGeometry {
  Eigen::Matrix3d camera_to_level;  // camera axes as columns, in the level frame
  Eigen::Matrix3d level_to_box;     // box axes as rows
  Eigen::Vector3d top_centre;       // level frame
  Eigen::Vector3d box_centre;       // level frame, middle of the whole box
  Eigen::Vector3d half_extent;      // along the box's length, width, height
  double camera_height = 0.0;
  double top_height = 0.0;  // level-frame z of the top face
};

// A right-handed turn about x takes z towards -y, hence the minus: positive
// tilt swings the optical axis towards +y (increasing rows). A right-handed
// turn about y takes z towards +x, so positive roll swings it towards +x
// (increasing columns).
Eigen::Matrix3d camera_orientation(double tilt_deg, double roll_deg) {
  return (Eigen::AngleAxisd(-radians(tilt_deg), Eigen::Vector3d::UnitX()) *
          Eigen::AngleAxisd(radians(roll_deg), Eigen::Vector3d::UnitY()))
      .toRotationMatrix();
}

SceneGeometry build_geometry(const SceneParameters& scene) {
  SceneGeometry g;
  g.camera_height = scene.camera_height_mm;
  g.top_height = double{scene.camera_height_mm} - scene.box_height_mm;
  g.camera_to_level = camera_orientation(scene.tilt_deg, scene.roll_deg);

  const Eigen::Vector3d optical_axis = g.camera_to_level.col(2);
  g.top_centre = optical_axis * (g.top_height / optical_axis.z()) +
                 Eigen::Vector3d(scene.offset_mm.x, scene.offset_mm.y, 0.0);
  g.box_centre = g.top_centre + Eigen::Vector3d(0.0, 0.0, 0.5 * scene.box_height_mm);

  // Positive yaw turns the length from the columns towards the rows, which
  // looks clockwise in the image because rows run downwards.
  const Eigen::Matrix3d box_to_level =
      Eigen::AngleAxisd(radians(scene.yaw_deg), Eigen::Vector3d::UnitZ()).toRotationMatrix();
  g.level_to_box = box_to_level.transpose();
  g.half_extent =
      0.5 * Eigen::Vector3d(scene.box_length_mm, scene.box_width_mm, scene.box_height_mm);
  return g;
}

// Slab test in the box's own frame: nearest t > 0 where origin + t * direction
// enters the box, or kNoHit.
double box_hit(const Eigen::Vector3d& origin, const Eigen::Vector3d& direction,
               const Eigen::Vector3d& half_extent) {
  double t_enter = -kNoHit;
  double t_exit = kNoHit;
  for (int axis = 0; axis < 3; ++axis) {
    if (direction[axis] == 0.0) {
      if (std::abs(origin[axis]) > half_extent[axis]) return kNoHit;
      continue;
    }
    const double inverse = 1.0 / direction[axis];
    double t_near = (-half_extent[axis] - origin[axis]) * inverse;
    double t_far = (half_extent[axis] - origin[axis]) * inverse;
    if (t_near > t_far) std::swap(t_near, t_far);
    t_enter = std::max(t_enter, t_near);
    t_exit = std::min(t_exit, t_far);
  }
  // The camera is always outside the box, so a real hit enters in front of it.
  return (t_enter <= t_exit && t_enter > 0.0) ? t_enter : kNoHit;
}

// Camera-frame rays have z = 1, so the ray parameter of a hit is its depth.
// 0 marks a ray that hits nothing within the 16-bit range. `surfaces` gets
// what each ray hit.
cv::Mat1d render_clean_depth(const SceneParameters& scene, const SceneGeometry& g,
                             cv::Mat1b& surfaces) {
  const CameraIntrinsics& k = scene.intrinsics;
  const Eigen::Matrix3d camera_to_box = g.level_to_box * g.camera_to_level;
  const Eigen::Vector3d camera_in_box = -(g.level_to_box * g.box_centre);

  cv::Mat1d depth(scene.image_height, scene.image_width);
  surfaces.create(scene.image_height, scene.image_width);
  for (int v = 0; v < depth.rows; ++v) {
    double* row = depth[v];
    std::uint8_t* surface = surfaces[v];
    const double y = (v - double{k.cy}) / k.fy;
    for (int u = 0; u < depth.cols; ++u) {
      const Eigen::Vector3d ray((u - double{k.cx}) / k.fx, y, 1.0);
      const double down = g.camera_to_level.row(2).dot(ray);
      const double floor_t = down > 0.0 ? g.camera_height / down : kNoHit;
      const double box_t = box_hit(camera_in_box, camera_to_box * ray, g.half_extent);
      const double t = std::min(floor_t, box_t);
      const bool hit = t <= kMaxDepthMm;
      row[u] = hit ? t : 0.0;
      surface[u] = !hit ? kNoSurface : (box_t < floor_t ? kBoxSurface : kFloorSurface);
    }
  }
  return depth;
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

void add_range_noise(cv::Mat1d& depth, double sigma_at_1m_mm, std::mt19937_64& rng) {
  std::normal_distribution<double> standard_normal(0.0, 1.0);
  for (int v = 0; v < depth.rows; ++v) {
    double* row = depth[v];
    for (int u = 0; u < depth.cols; ++u) {
      if (row[u] == 0.0) continue;
      row[u] += standard_normal(rng) * sigma_at_1m_mm * (row[u] / 1000.0);
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

void add_dropout(cv::Mat1w& depth, double probability, std::mt19937_64& rng) {
  std::bernoulli_distribution drops(probability);
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      if (drops(rng)) depth(v, u) = 0;
    }
  }
}

SceneGroundTruth ground_truth(const SceneParameters& scene, const SceneGeometry& g) {
  SceneGroundTruth truth;
  truth.dimensions.box_length = std::max(scene.box_length_mm, scene.box_width_mm);
  truth.dimensions.box_width = std::min(scene.box_length_mm, scene.box_width_mm);
  truth.dimensions.box_height = scene.box_height_mm;

  // The level frame's down direction seen from the camera. Both frames share
  // the origin, so the plane's offset survives the rotation unchanged.
  const Eigen::Vector3d normal = g.camera_to_level.row(2).transpose();
  truth.top_plane = {static_cast<float>(normal.x()), static_cast<float>(normal.y()),
                     static_cast<float>(normal.z()), static_cast<float>(-g.top_height)};
  // Taken on the face's plane, so it stays defined when an offset moves the
  // face off the optical axis.
  truth.top_face_depth_mm = static_cast<float>(g.top_height / normal.z());

  const Eigen::Matrix3d box_to_level = g.level_to_box.transpose();
  const Eigen::Vector3d length_half = box_to_level.col(0) * g.half_extent.x();
  const Eigen::Vector3d width_half = box_to_level.col(1) * g.half_extent.y();
  const double corner_signs[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
  const CameraIntrinsics& k = scene.intrinsics;
  for (int i = 0; i < 4; ++i) {
    const Eigen::Vector3d corner_level =
        g.top_centre + corner_signs[i][0] * length_half + corner_signs[i][1] * width_half;
    const Eigen::Vector3d c = g.camera_to_level.transpose() * corner_level;
    truth.top_corners_camera[i] = cv::Point3f(static_cast<float>(c.x()), static_cast<float>(c.y()),
                                              static_cast<float>(c.z()));
    truth.top_corners_px[i] = cv::Point2f(static_cast<float>(c.x() / c.z() * k.fx + k.cx),
                                          static_cast<float>(c.y() / c.z() * k.fy + k.cy));
  }
  return truth;
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
}

RenderedScene render_scene(const SceneParameters& scene) {
  validate_scene(scene);
  const SceneGeometry geometry = build_geometry(scene);
  const DepthNoise& noise = scene.noise;
  std::mt19937_64 rng(scene.seed);

  cv::Mat1b surfaces;
  cv::Mat1d depth = render_clean_depth(scene, geometry, surfaces);
  if (noise.flying_pixel_probability > 0.0f) {
    depth = add_flying_pixels(depth, noise.flying_pixel_probability, rng);
  }
  if (noise.sigma_at_1m_mm > 0.0f) add_range_noise(depth, noise.sigma_at_1m_mm, rng);
  cv::Mat1w quantised = quantise(depth);
  if (noise.dropout_probability > 0.0f) add_dropout(quantised, noise.dropout_probability, rng);

  return RenderedScene{quantised, ground_truth(scene, geometry), surfaces};
}

SceneGroundTruth scene_ground_truth(const SceneParameters& scene) {
  validate_scene(scene);
  return ground_truth(scene, build_geometry(scene));
}

}  // namespace boxdim
