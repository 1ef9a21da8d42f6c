// The depth filters a user can switch on in the camera: a 3 x 3 median, and
// the trail filter that removes flying pixels on depth edges.
#pragma once

#include <opencv2/core.hpp>

namespace boxdim::virtual_camera {

// Depth steps larger than this between 4-neighbours are edges, not slopes.
constexpr int kTrailJumpMm = 50;

// depth CV_16UC1 (mm, 0 = no return); returns the filtered frame.
cv::Mat median_filter(const cv::Mat& depth);

// Zeroes every pixel that differs by more than kTrailJumpMm from one of its
// returning 4-neighbours. Both sides of an edge go, and with them any pixel
// that mixes the two surfaces.
cv::Mat trail_filter(const cv::Mat& depth);

}  // namespace boxdim::virtual_camera
