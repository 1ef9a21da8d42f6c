// The small value types every part of boxdim shares: a plane, a box's
// dimensions, and the pinhole camera's mapping between pixels and points.
// Millimetres and pixels throughout.
#pragma once

#include <opencv2/core.hpp>

#include "core/camera_intrinsics.h"

namespace boxdim {

// a*x + b*y + c*z + d = 0 in camera coordinates (mm). Accepted planes keep a
// unit normal with c > 0, so a*x + b*y + c*z + d is the signed distance and
// grows beyond the top face, towards the floor.
struct PlaneEquation {
  float a = 0.0f;
  float b = 0.0f;
  float c = 0.0f;
  float d = 0.0f;
};

// Millimetres; box_length is the longer side of the top face.
struct BoxDimensions {
  float box_length = 0.0f;
  float box_width = 0.0f;
  float box_height = 0.0f;
};

// The point at `depth` mm along the ray of pixel (column, row):
// x = depth * (column - cx) / fx, y = depth * (row - cy) / fy, z = depth.
inline cv::Point3f pixel_to_point(float column, float row, float depth, const CameraIntrinsics& k) {
  return {depth * (column - k.cx) / k.fx, depth * (row - k.cy) / k.fy, depth};
}

// Where a point in camera coordinates appears in the image (column, row).
inline cv::Point2f point_to_pixel(const cv::Point3f& p, const CameraIntrinsics& k) {
  return {p.x / p.z * k.fx + k.cx, p.y / p.z * k.fy + k.cy};
}

}  // namespace boxdim
