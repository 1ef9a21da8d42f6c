// The frame as the precise engine sees it: a pixel's point in camera
// coordinates (mm), and once the floor is known, every pixel's height above it.
#pragma once

#include <cstdint>
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

// Whether a sample holds a distance: 0 is none, and 65535, the largest a
// sample can hold, is what cameras write where they saw nothing in range.
inline bool has_depth(std::uint16_t z) { return z != 0 && z != 65535; }

// A pixel's point on its ray at the sampled depth (mm); z = 0 without depth.
inline cv::Vec3f pixel_point(const cv::Mat& depth, const CameraIntrinsics& k, int v, int u) {
  const float z = depth.at<std::uint16_t>(v, u);
  return {(u - k.cx) / k.fx * z, (v - k.cy) / k.fy * z, z};
}

// Each pixel's height above the floor (NaN where the pixel has no depth),
// and whether it rises above the floor by more than the range noise can
// explain at its depth z: above_mm + above_per_mm z. The buffers are kept
// while the frame size stays.
void compute_heights(const cv::Mat& depth, const CameraIntrinsics& k, const FloorPlane& floor,
                     float above_mm, float above_per_mm, cv::Mat1f& heights, cv::Mat1b& above);

// Where a pixel's ray (column, row, at the pixel centre or between pixels)
// meets the plane at `height` above the floor; nothing when the ray runs
// parallel to it or meets it behind the camera.
bool ray_at_height(float column, float row, const CameraIntrinsics& k, const FloorPlane& floor,
                   float height, cv::Vec3f& point);

}  // namespace boxdim::precise
