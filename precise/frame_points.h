// The frame as the precise engine sees it: every pixel's point in camera
// coordinates (mm), and once the floor is known, its height above the floor.
#pragma once

#include <opencv2/core.hpp>

#include "core/camera_intrinsics.h"

namespace boxdim::precise {

// The supporting plane: normal . p + offset is a point's height above the
// floor (mm), positive towards the camera. The normal is a unit vector.
struct FloorPlane {
  cv::Vec3f normal{0.0f, 0.0f, -1.0f};
  float offset = 0.0f;

  float height(const cv::Vec3f& p) const { return normal.dot(p) + offset; }
};

// Each pixel's point (x, y, z) on its ray at the sampled depth; (0, 0, 0)
// where the pixel has no depth. `points` keeps its buffer while the frame
// size stays.
void compute_points(const cv::Mat& depth, const CameraIntrinsics& k, cv::Mat3f& points);

// Each pixel's height above the floor; NaN where the pixel has no depth.
void compute_heights(const cv::Mat3f& points, const FloorPlane& floor, cv::Mat1f& heights);

// Where a pixel's ray (column, row, at the pixel centre or between pixels)
// meets the plane at `height` above the floor; nothing when the ray runs
// parallel to it or meets it behind the camera.
bool ray_at_height(float column, float row, const CameraIntrinsics& k, const FloorPlane& floor,
                   float height, cv::Vec3f& point);

}  // namespace boxdim::precise
