#include "core/camera_intrinsics.h"

namespace boxdim {

CameraIntrinsics scale_intrinsics(const CameraIntrinsics& k, cv::Size from, cv::Size to) {
  if (from == to) return k;
  const float sx = to.width / static_cast<float>(from.width);
  const float sy = to.height / static_cast<float>(from.height);
  CameraIntrinsics scaled;
  scaled.fx = k.fx * sx;
  scaled.fy = k.fy * sy;
  scaled.cx = (k.cx + 0.5f) * sx - 0.5f;
  scaled.cy = (k.cy + 0.5f) * sy - 0.5f;
  return scaled;
}

}  // namespace boxdim
