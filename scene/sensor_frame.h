// A depth frame as the physical sensor makes it: every pixel gathers the
// light of its whole footprint, the camera adds its noise, dropouts and
// repeated errors, then its filters run, and the depths are quantised.
#pragma once

#include <opencv2/core.hpp>

#include "scene/depth_scene.h"
#include "scene/scene_geometry.h"

namespace boxdim::scene_geometry {

struct SensorFrame {
  cv::Mat1w depth;     // mm, 0: no depth
  cv::Mat1b surfaces;  // SurfaceKind at each pixel's centre
};

// The scene's SensorModel must be physical().
SensorFrame render_sensor_frame(const SceneParameters& scene, const SceneGeometry& geometry);

}  // namespace boxdim::scene_geometry
