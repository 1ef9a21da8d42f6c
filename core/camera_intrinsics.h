// Pinhole intrinsics of the depth camera, and how they carry over to the same
// sensor read out at another image size.
#pragma once

#include <opencv2/core.hpp>

namespace boxdim {

// Pixels. The defaults belong to the station camera's 640 x 480 depth mode.
struct CameraIntrinsics {
  float fx = 506.426f;
  float fy = 506.605f;
  float cx = 323.018f;
  float cy = 231.166f;
};

// The image size the default intrinsics describe.
inline const cv::Size kDefaultIntrinsicsSize(640, 480);

// `k`, which describes images of size `from`, for the same sensor delivering
// images of size `to` (binned or scaled, e.g. 320 x 240 as 2 x 2 bins of the
// 640 x 480 mode): a pixel keeps seeing the same ray. Focal lengths scale
// with the size; the principal point scales as a pixel centre, not a corner.
CameraIntrinsics scale_intrinsics(const CameraIntrinsics& k, cv::Size from, cv::Size to);

}  // namespace boxdim
