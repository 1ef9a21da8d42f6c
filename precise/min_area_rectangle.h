// The smallest rectangle around points on a plane, by rotating calipers on
// their convex hull: what cv::minAreaRect finds, with its axis as an angle in
// radians and no allocation once the caller's buffers have grown.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <vector>

namespace boxdim::precise {

struct AreaRectangle {
  cv::Point2f centre;
  float angle = 0.0f;            // of the first axis, radians
  float half[2] = {0.0f, 0.0f};  // along the first axis and across it
};

// Counter-clockwise (x right, y up), without collinear points; `sorted` is a
// buffer for the points in order.
void convex_hull(const std::vector<cv::Point2f>& points, std::vector<cv::Point2f>& sorted,
                 std::vector<cv::Point2f>& hull);

// Nothing when the points span no area (fewer than three not on one line).
std::optional<AreaRectangle> min_area_rectangle(const std::vector<cv::Point2f>& points,
                                                std::vector<cv::Point2f>& sorted,
                                                std::vector<cv::Point2f>& hull);

}  // namespace boxdim::precise
