// A picture of how the measurement errors of evaluated scenes depend on the
// camera: the absolute length, width and height error of every measured scene
// against the camera's tilt and against its distance from the box, one colour
// per series (an engine). Drawn with OpenCV alone.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace boxdim {

struct ErrorPoint {
  int series = 0;                        // index into the series names
  double tilt_deg = 0.0;                 // angle of the optical axis from straight down
  double distance_mm = 0.0;              // camera to the top face, along the optical axis
  std::array<double, 3> abs_error_mm{};  // length, width, height
};

// An 8-bit BGR picture: a legend of the series, then two rows of three panels
// (error against tilt, error against distance; length, width, height), each
// with ticked and labelled axes. Errors are on a logarithmic axis.
cv::Mat draw_error_plot(const std::vector<std::string>& series,
                        const std::vector<ErrorPoint>& points);

}  // namespace boxdim
