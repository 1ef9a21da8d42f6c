// Renders the synthetic box scene by casting one ray per pixel against the box
// and the floor, adds the time-of-flight artefacts, and derives the ground truth.
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
// A dark surface returns so little light that pixels without a return come
// this many times as often.
constexpr double kDarkDropoutFactor = 10.0;

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

// A lid may bulge or sag by less than the box is high.
void require_lid(const BoxTop& top, double height, const std::string& name) {
  require_finite(top.lid_mm, name, " mm");
  require(std::abs(top.lid_mm) < height,
          name + " must bulge or sag by less than the box's height" + got(top.lid_mm, " mm"));
}

// The level frame is the untilted camera's frame: x along image columns, y
// along image rows, z straight down to the floor at z = camera height, with
// the camera at the origin.

// One box in the level frame.
struct BoxGeometry {
  Eigen::Matrix3d level_to_box;  // box axes as rows
  Eigen::Vector3d top_centre;    // level frame
  Eigen::Vector3d box_centre;    // level frame, middle of the whole box
  Eigen::Vector3d half_extent;   // along the box's length, width, height
  double top_height = 0.0;       // level-frame z of the top face's edges
  BoxTop top;
  // For the ray cast: the camera's rays and position in the box's frame.
  Eigen::Matrix3d camera_to_box;
  Eigen::Vector3d camera_in_box;
};

struct SceneGeometry {
  Eigen::Matrix3d camera_to_level;  // camera axes as columns, in the level frame
  double camera_height = 0.0;
  BoxGeometry main_box;             // also when the scene leaves it out
  std::vector<BoxGeometry> boxes;   // the boxes in the frame, the main one first
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

// Positive yaw turns the length from the columns towards the rows, which
// looks clockwise in the image because rows run downwards.
BoxGeometry box_geometry(const Eigen::Matrix3d& camera_to_level, const Eigen::Vector3d& top_centre,
                         double length, double width, double height, double yaw_deg,
                         const BoxTop& top) {
  BoxGeometry b;
  b.top_centre = top_centre;
  b.top_height = top_centre.z();
  b.box_centre = top_centre + Eigen::Vector3d(0.0, 0.0, 0.5 * height);
  const Eigen::Matrix3d box_to_level =
      Eigen::AngleAxisd(radians(yaw_deg), Eigen::Vector3d::UnitZ()).toRotationMatrix();
  b.level_to_box = box_to_level.transpose();
  b.half_extent = 0.5 * Eigen::Vector3d(length, width, height);
  b.top = top;
  b.camera_to_box = b.level_to_box * camera_to_level;
  b.camera_in_box = -(b.level_to_box * b.box_centre);
  return b;
}

SceneGeometry build_geometry(const SceneParameters& scene) {
  SceneGeometry g;
  g.camera_height = scene.camera_height_mm;
  g.camera_to_level = camera_orientation(scene.tilt_deg, scene.roll_deg);

  const double top_height = double{scene.camera_height_mm} - scene.box_height_mm;
  const Eigen::Vector3d optical_axis = g.camera_to_level.col(2);
  const Eigen::Vector3d top_centre = optical_axis * (top_height / optical_axis.z()) +
                                     Eigen::Vector3d(scene.offset_mm.x, scene.offset_mm.y, 0.0);
  g.main_box = box_geometry(g.camera_to_level, top_centre, scene.box_length_mm,
                            scene.box_width_mm, scene.box_height_mm, scene.yaw_deg, scene.top);
  if (scene.with_box) g.boxes.push_back(g.main_box);
  for (const FloorBox& other : scene.other_boxes) {
    const Eigen::Vector3d other_top(top_centre.x() + other.offset_mm.x,
                                    top_centre.y() + other.offset_mm.y,
                                    double{scene.camera_height_mm} - other.height_mm);
    g.boxes.push_back(box_geometry(g.camera_to_level, other_top, other.length_mm, other.width_mm,
                                   other.height_mm, other.yaw_deg, other.top));
  }
  return g;
}

// Slab test in the box's own frame: nearest t > 0 where origin + t * direction
// enters the box, or kNoHit. `axis` gets the axis of the face it enters by.
double box_hit(const Eigen::Vector3d& origin, const Eigen::Vector3d& direction,
               const Eigen::Vector3d& half_extent, int& axis) {
  double t_enter = -kNoHit;
  double t_exit = kNoHit;
  axis = -1;
  for (int a = 0; a < 3; ++a) {
    if (direction[a] == 0.0) {
      if (std::abs(origin[a]) > half_extent[a]) return kNoHit;
      continue;
    }
    const double inverse = 1.0 / direction[a];
    double t_near = (-half_extent[a] - origin[a]) * inverse;
    double t_far = (half_extent[a] - origin[a]) * inverse;
    if (t_near > t_far) std::swap(t_near, t_far);
    if (t_near > t_enter) {
      t_enter = t_near;
      axis = a;
    }
    t_exit = std::min(t_exit, t_far);
  }
  // The camera is always outside the box, so a real hit enters in front of it.
  return (t_enter <= t_exit && t_enter > 0.0) ? t_enter : kNoHit;
}

// How far a lid rises above the top's edges at a point of the top, given in
// the box's frame: the full amount at the centre, nothing at the edges.
double lid_rise(const BoxGeometry& box, const Eigen::Vector3d& in_box) {
  const double x = in_box.x() / box.half_extent.x();
  const double y = in_box.y() / box.half_extent.y();
  return box.top.lid_mm * std::max(0.0, 1.0 - x * x) * std::max(0.0, 1.0 - y * y);
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
      const Eigen::Vector3d ray((u - double{k.cx}) / k.fx, y, 1.0);
      const double down = g.camera_to_level.row(2).dot(ray);
      const double floor_t = down > 0.0 ? g.camera_height / down : kNoHit;
      double box_t = kNoHit;
      int hit_box = -1;
      int hit_axis = -1;
      for (std::size_t b = 0; b < g.boxes.size(); ++b) {
        int axis = -1;
        const double t =
            box_hit(g.boxes[b].camera_in_box, g.boxes[b].camera_to_box * ray, g.boxes[b].half_extent,
                    axis);
        if (t < box_t) {
          box_t = t;
          hit_box = static_cast<int>(b);
          hit_axis = axis;
        }
      }
      double t = std::min(floor_t, box_t);
      const bool on_box = box_t < floor_t;
      if (on_box && hit_axis == 2) {
        const BoxGeometry& box = g.boxes[static_cast<std::size_t>(hit_box)];
        if (box.top.lid_mm != 0.0f) {
          const Eigen::Vector3d in_box = box.camera_in_box + t * (box.camera_to_box * ray);
          t -= lid_rise(box, in_box) / down;
        }
        if (box.top.dark) frame.dark(v, u) = 1;
      }
      const bool hit = t <= kMaxDepthMm;
      row[u] = hit ? t : 0.0;
      surface[u] = !hit ? kNoSurface : (on_box ? kBoxSurface : kFloorSurface);
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
  truth.dimensions.box_height =
      static_cast<float>(2.0 * box.half_extent.z() + std::max(0.0f, box.top.lid_mm));

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
  }
}

RenderedScene render_scene(const SceneParameters& scene) {
  validate_scene(scene);
  const SceneGeometry geometry = build_geometry(scene);
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

  RenderedScene rendered{quantised, ground_truth(scene, geometry, geometry.main_box), {},
                         clean.surfaces};
  const std::size_t first_other = scene.with_box ? 1 : 0;
  for (std::size_t b = first_other; b < geometry.boxes.size(); ++b) {
    rendered.other_truths.push_back(ground_truth(scene, geometry, geometry.boxes[b]));
  }
  return rendered;
}

SceneGroundTruth scene_ground_truth(const SceneParameters& scene) {
  validate_scene(scene);
  const SceneGeometry geometry = build_geometry(scene);
  return ground_truth(scene, geometry, geometry.main_box);
}

}  // namespace boxdim
