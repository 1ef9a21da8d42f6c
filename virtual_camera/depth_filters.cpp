#include "virtual_camera/depth_filters.h"

#include <cstdint>
#include <cstdlib>
#include <opencv2/imgproc.hpp>

namespace boxdim::virtual_camera {

cv::Mat median_filter(const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  cv::Mat filtered;
  cv::medianBlur(depth, filtered, 3);
  return filtered;
}

cv::Mat trail_filter(const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  cv::Mat filtered = depth.clone();
  const auto jumps = [&depth](int v, int u, int nv, int nu) {
    if (nv < 0 || nu < 0 || nv >= depth.rows || nu >= depth.cols) return false;
    const int other = depth.at<std::uint16_t>(nv, nu);
    return other != 0 && std::abs(other - depth.at<std::uint16_t>(v, u)) > kTrailJumpMm;
  };
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      if (depth.at<std::uint16_t>(v, u) == 0) continue;
      if (jumps(v, u, v - 1, u) || jumps(v, u, v + 1, u) || jumps(v, u, v, u - 1) ||
          jumps(v, u, v, u + 1)) {
        filtered.at<std::uint16_t>(v, u) = 0;
      }
    }
  }
  return filtered;
}

}  // namespace boxdim::virtual_camera
