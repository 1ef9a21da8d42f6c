#include "scene/scene_geometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace boxdim::scene_geometry {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kNoHit = std::numeric_limits<double>::infinity();
constexpr double kMaxDepthMm = 65535.0;  // largest value a 16-bit depth pixel holds
// A shaped top is searched along the ray in steps of this length (mm), then
// the crossing is bisected this many times.
constexpr double kMarchStepMm = 1.0;
constexpr int kBisections = 12;
// The table's bow and dip are found along the ray in this many rounds.
constexpr int kTableRounds = 3;

double radians(double degrees) { return degrees * kPi / 180.0; }

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
  b.shaped = top.shaped();
  if (b.shaped) b.shape = CartonTopShape(top, b.half_extent.x(), b.half_extent.y());
  b.camera_to_box = b.level_to_box * camera_to_level;
  b.camera_in_box = -(b.level_to_box * b.box_centre);
  return b;
}

// Distance (mm) on the floor from (x, y) to the box's footprint, 0 inside.
double footprint_distance(const BoxGeometry& box, double x, double y) {
  const Eigen::Vector3d in_box =
      box.level_to_box * Eigen::Vector3d(x - box.box_centre.x(), y - box.box_centre.y(), 0.0);
  const double dx = std::max(0.0, std::abs(in_box.x()) - box.half_extent.x());
  const double dy = std::max(0.0, std::abs(in_box.y()) - box.half_extent.y());
  return std::hypot(dx, dy);
}

// Moves a box down onto the table where it stands.
void stand_on_table(BoxGeometry& box, const SceneGeometry& g, const Eigen::Matrix3d& to_level) {
  const double drop = table_drop(g, box.box_centre.x(), box.box_centre.y());
  if (drop == 0.0) return;
  box.top_centre.z() += drop;
  box.box_centre.z() += drop;
  box.top_height = box.top_centre.z();
  box.camera_in_box = -(box.level_to_box * box.box_centre);
  box.camera_to_box = box.level_to_box * to_level;
}

// Slab test in the box's own frame against [-h, h] on x and y and [z0, z1]
// on z: where origin + t * direction enters and leaves, and the axis it
// enters by. False when it misses.
bool slab(const Eigen::Vector3d& origin, const Eigen::Vector3d& direction, const double low[3],
          const double high[3], double& t_enter, double& t_exit, int& axis) {
  t_enter = -kNoHit;
  t_exit = kNoHit;
  axis = -1;
  for (int a = 0; a < 3; ++a) {
    if (direction[a] == 0.0) {
      if (origin[a] < low[a] || origin[a] > high[a]) return false;
      continue;
    }
    const double inverse = 1.0 / direction[a];
    double t_near = (low[a] - origin[a]) * inverse;
    double t_far = (high[a] - origin[a]) * inverse;
    if (t_near > t_far) std::swap(t_near, t_far);
    if (t_near > t_enter) {
      t_enter = t_near;
      axis = a;
    }
    t_exit = std::min(t_exit, t_far);
  }
  return t_enter <= t_exit && t_exit > 0.0;
}

// Nearest t > 0 where origin + t * direction enters the flat box, or kNoHit.
// `axis` gets the axis of the face it enters by.
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

// How far a held lid rises above the top's edges at a point of the top,
// given in the box's frame: the full amount at the centre, nothing at the
// edges.
double lid_rise(const BoxGeometry& box, const Eigen::Vector3d& in_box) {
  const double x = in_box.x() / box.half_extent.x();
  const double y = in_box.y() / box.half_extent.y();
  return box.top.lid_mm * std::max(0.0, 1.0 - x * x) * std::max(0.0, 1.0 - y * y);
}

// A shaped box is solid below its top's surface, z >= -h - relief(x, y) in
// its frame (z down), within its footprint. The ray is followed in short
// steps from where it enters the room above the top until it is inside,
// then the crossing is bisected: vertical walls (the box's sides, a flap's
// edge, the crack) come out where they are.
struct ShapedHit {
  double t = kNoHit;
  Eigen::Vector3d normal = Eigen::Vector3d::Zero();  // outward, box frame
};

ShapedHit shaped_box_hit(const BoxGeometry& box, const Eigen::Vector3d& origin,
                         const Eigen::Vector3d& direction) {
  const Eigen::Vector3d& half = box.half_extent;
  const CartonTopShape& shape = box.shape;
  const double low[3] = {-half.x(), -half.y(), -half.z() - shape.highest() - 1e-6};
  const double high[3] = {half.x(), half.y(), half.z()};
  double t_enter, t_exit;
  int axis;
  ShapedHit hit;
  if (!slab(origin, direction, low, high, t_enter, t_exit, axis)) return hit;
  const auto inside = [&](double t) {
    const Eigen::Vector3d p = origin + t * direction;
    return p.z() >= -half.z() - shape.relief(p.x(), p.y());
  };
  double t = std::max(t_enter, 0.0);
  if (inside(t)) {
    if (axis < 0 || t_enter <= 0.0) return hit;  // the camera inside: nothing to see
    hit.t = t;
    hit.normal = Eigen::Vector3d::Zero();
    hit.normal[axis] = direction[axis] > 0.0 ? -1.0 : 1.0;
    return hit;
  }
  const double step = kMarchStepMm / direction.norm();
  double before = t;
  for (;;) {
    if (t >= t_exit) return hit;  // left through a side above the surface
    t = std::min(t + step, t_exit);
    if (inside(t)) break;
    before = t;
  }
  double after = t;
  for (int i = 0; i < kBisections; ++i) {
    const double middle = 0.5 * (before + after);
    (inside(middle) ? after : before) = middle;
  }
  hit.t = after;
  const Eigen::Vector3d p = origin + after * direction;
  // A crossing at a wall of the surface: the wall's normal faces the ray.
  const double e = 0.25;
  const double gx = (shape.relief(p.x() + e, p.y()) - shape.relief(p.x() - e, p.y())) / (2 * e);
  const double gy = (shape.relief(p.x(), p.y() + e) - shape.relief(p.x(), p.y() - e)) / (2 * e);
  hit.normal = Eigen::Vector3d(gx, gy, -1.0).normalized();
  return hit;
}

// Where a ray of the camera's frame meets the table; `down` is how fast it
// goes down per unit of camera z.
double table_hit(const SceneGeometry& g, const Eigen::Vector3d& ray, double down) {
  if (down <= 0.0) return kNoHit;
  double t = g.camera_height / down;
  const bool flat = g.table.warp_mm == 0.0f && g.table.dip_mm == 0.0f;
  if (flat) return t;
  const Eigen::Vector3d level_ray = g.camera_to_level * ray;
  for (int round = 0; round < kTableRounds; ++round) {
    t = (g.camera_height + table_drop(g, t * level_ray.x(), t * level_ray.y())) / down;
  }
  return t;
}

}  // namespace

double table_drop(const SceneGeometry& g, double x, double y) {
  const TableShape& table = g.table;
  double drop = 0.0;
  if (table.warp_mm != 0.0f) {
    drop += table.warp_mm * (x * x + y * y) / (g.camera_height * g.camera_height);
  }
  if (table.dip_mm != 0.0f) {
    double dip = 0.0;
    for (const BoxGeometry& box : g.boxes) {
      const double d = footprint_distance(box, x, y);
      dip = std::max(dip, std::exp(-d * d / (2.0 * table.dip_radius_mm * table.dip_radius_mm)));
    }
    drop += table.dip_mm * dip;
  }
  return drop;
}

SceneGeometry build_geometry(const SceneParameters& scene) {
  SceneGeometry g;
  g.camera_height = scene.camera_height_mm;
  g.camera_to_level = camera_orientation(scene.tilt_deg, scene.roll_deg);
  g.table = scene.table;

  const double top_height = double{scene.camera_height_mm} - scene.box_height_mm;
  const Eigen::Vector3d optical_axis = g.camera_to_level.col(2);
  const Eigen::Vector3d top_centre = optical_axis * (top_height / optical_axis.z()) +
                                     Eigen::Vector3d(scene.offset_mm.x, scene.offset_mm.y, 0.0);
  g.main_box = box_geometry(g.camera_to_level, top_centre, scene.box_length_mm, scene.box_width_mm,
                            scene.box_height_mm, scene.yaw_deg, scene.top);
  if (scene.with_box) g.boxes.push_back(g.main_box);
  for (const FloorBox& other : scene.other_boxes) {
    const Eigen::Vector3d other_top(top_centre.x() + other.offset_mm.x,
                                    top_centre.y() + other.offset_mm.y,
                                    double{scene.camera_height_mm} - other.height_mm);
    g.boxes.push_back(box_geometry(g.camera_to_level, other_top, other.length_mm, other.width_mm,
                                   other.height_mm, other.yaw_deg, other.top));
  }
  // The table's dip is found around the boxes where they stand on a flat
  // table; then each goes down with the table under it.
  if (scene.table.warp_mm != 0.0f || scene.table.dip_mm != 0.0f) {
    const SceneGeometry flat = g;
    stand_on_table(g.main_box, flat, g.camera_to_level);
    for (BoxGeometry& box : g.boxes) stand_on_table(box, flat, g.camera_to_level);
  }
  return g;
}

RayHit cast_ray(const SceneGeometry& g, const Eigen::Vector3d& ray, bool physical,
                double step_reach) {
  const double down = g.camera_to_level.row(2).dot(ray);
  const double floor_t = table_hit(g, ray, down);
  double box_t = kNoHit;
  int hit_box = -1;
  int hit_axis = -1;
  Eigen::Vector3d shaped_normal = Eigen::Vector3d::Zero();
  for (std::size_t b = 0; b < g.boxes.size(); ++b) {
    const BoxGeometry& box = g.boxes[b];
    const Eigen::Vector3d origin = box.camera_in_box;
    const Eigen::Vector3d direction = box.camera_to_box * ray;
    if (box.shaped) {
      const ShapedHit hit = shaped_box_hit(box, origin, direction);
      if (hit.t < box_t) {
        box_t = hit.t;
        hit_box = static_cast<int>(b);
        hit_axis = 2;
        shaped_normal = hit.normal;
      }
      continue;
    }
    int axis = -1;
    const double t = box_hit(origin, direction, box.half_extent, axis);
    if (t < box_t) {
      box_t = t;
      hit_box = static_cast<int>(b);
      hit_axis = axis;
    }
  }
  double t = std::min(floor_t, box_t);
  const bool on_box = box_t < floor_t;
  RayHit hit;
  if (on_box) {
    const BoxGeometry& box = g.boxes[static_cast<std::size_t>(hit_box)];
    hit.box = hit_box;
    if (hit_axis == 2 && !box.shaped) {
      if (box.top.lid_mm != 0.0f) {
        const Eigen::Vector3d in_box = box.camera_in_box + t * (box.camera_to_box * ray);
        t -= lid_rise(box, in_box) / down;
      }
      hit.dark = box.top.dark;
    }
    if (box.shaped) hit.dark = box.top.dark;
    if (physical) {
      const Eigen::Vector3d direction = box.camera_to_box * ray;
      const Eigen::Vector3d in_box = box.camera_in_box + t * direction;
      Eigen::Vector3d normal = Eigen::Vector3d::Zero();
      if (box.shaped) {
        normal = shaped_normal;
        // On the top (not a side): its light and its steps.
        if (in_box.z() < box.half_extent.z() - 1e-3 &&
            std::abs(in_box.x()) < box.half_extent.x() + 1e-6 &&
            std::abs(in_box.y()) < box.half_extent.y() + 1e-6) {
          hit.reflectivity = box.shape.reflectivity(in_box.x(), in_box.y());
          hit.glossy = box.shape.glossy(in_box.x(), in_box.y());
          hit.near_step = box.shape.step_near(in_box.x(), in_box.y(), step_reach * t);
        }
      } else {
        normal[hit_axis] = direction[hit_axis] > 0.0 ? -1.0 : 1.0;
        hit.reflectivity = box.top.reflectivity > 0.0f ? box.top.reflectivity
                           : box.top.dark              ? 0.1
                                                       : 0.45;
      }
      hit.incidence_cos = std::abs(normal.dot(direction)) / direction.norm();
    }
  } else if (physical && floor_t < kNoHit) {
    // A grey table; its slight bow leaves the light as it is.
    hit.reflectivity = 0.3;
    hit.incidence_cos = down / ray.norm();
  }
  const bool reached = t <= kMaxDepthMm;
  hit.depth = reached ? t : 0.0;
  hit.kind = !reached ? kNoSurface : (on_box ? kBoxSurface : kFloorSurface);
  if (!reached) hit.box = -1;
  return hit;
}

}  // namespace boxdim::scene_geometry
