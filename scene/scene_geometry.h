// The rendered scene as solid geometry: the camera's pose, the table (which
// may bow, and give under the boxes), the boxes with their tops' shapes, and
// what a ray from the camera meets first. The renderer's frames and ground
// truth are both drawn from it.
#pragma once

#include <Eigen/Dense>
#include <vector>

#include "scene/carton_top.h"
#include "scene/depth_scene.h"

namespace boxdim::scene_geometry {

// The level frame is the untilted camera's frame: x along image columns, y
// along image rows, z straight down to the floor, the camera at the origin.

// One box in the level frame.
struct BoxGeometry {
  Eigen::Matrix3d level_to_box;  // box axes as rows
  Eigen::Vector3d top_centre;    // level frame
  Eigen::Vector3d box_centre;    // level frame, middle of the whole box
  Eigen::Vector3d half_extent;   // along the box's length, width, height
  double top_height = 0.0;       // level-frame z of the top face's edges
  BoxTop top;
  // Drawn with its carton's shapes (otherwise a flat top, or the held lid
  // of lid_mm taken along the ray).
  bool shaped = false;
  CartonTopShape shape;
  // For the ray cast: the camera's rays and position in the box's frame.
  Eigen::Matrix3d camera_to_box;
  Eigen::Vector3d camera_in_box;
};

struct SceneGeometry {
  Eigen::Matrix3d camera_to_level;  // camera axes as columns, in the level frame
  double camera_height = 0.0;
  TableShape table;
  BoxGeometry main_box;            // also when the scene leaves it out
  std::vector<BoxGeometry> boxes;  // the boxes in the frame, the main one first
};

SceneGeometry build_geometry(const SceneParameters& scene);

// How far below the camera's height the table lies at (x, y) of the level
// frame (mm, positive: farther from the camera).
double table_drop(const SceneGeometry& g, double x, double y);

// What a ray of the camera's frame (z = 1) meets first.
struct RayHit {
  double depth = 0.0;  // camera z (mm); 0 when nothing within the 16-bit range
  SurfaceKind kind = kNoSurface;
  int box = -1;  // index into SceneGeometry::boxes
  // Share of light the surface returns there, and the cosine between the ray
  // and the surface's normal (physical sensor only; the classic cast leaves
  // them at 1).
  double reflectivity = 1.0;
  double incidence_cos = 1.0;
  bool glossy = false;
  bool dark = false;  // on a dark top
  // Whether a step of the top's surface lies near the hit, within
  // step_reach times its depth (asked of physical casts only).
  bool near_step = false;
};

// `physical`: the surface's light and slope too, and the shaped tops' steps
// within step_reach times the hit's depth (mm per mm: a pixel's reach is
// its size over the focal length).
RayHit cast_ray(const SceneGeometry& g, const Eigen::Vector3d& ray, bool physical = false,
                double step_reach = 0.0);

}  // namespace boxdim::scene_geometry
