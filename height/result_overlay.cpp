#include "height/result_overlay.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>

namespace boxdim {

namespace {

const cv::Scalar kBottomColour(255, 0, 0);  // blue
const cv::Scalar kTopColour(0, 255, 0);     // green
const cv::Scalar kEdgeColour(0, 0, 255);    // red
const cv::Scalar kTextColour(0, 0, 255);    // red
constexpr double kTextScale = 0.6;
constexpr int kTextMargin = 25;

bool is_finite(const cv::Point2f& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

// Lines between points that are not numbers are left out: their rounding to
// pixels means nothing.
void draw_edge(cv::Mat& image, const cv::Point2f& from, const cv::Point2f& to,
               const cv::Scalar& colour) {
  if (!is_finite(from) || !is_finite(to)) return;
  cv::line(image, cv::Point(from), cv::Point(to), colour, 1, cv::LINE_8, 0);
}

// The dimension in whole millimetres, truncated towards zero so that a box is
// never shown larger than measured.
std::string whole_mm(float value) {
  if (value >= -2147483648.0f && value < 2147483648.0f) {
    return std::to_string(static_cast<int>(value));
  }
  // No int holds it (or it is not a number): show it as it is.
  std::ostringstream text;
  text << value;
  return text.str();
}

void draw_dimension(cv::Mat& image, const char* prefix, float value, int x) {
  cv::putText(image, prefix + whole_mm(value) + "mm", cv::Point(x, kTextMargin),
              cv::FONT_HERSHEY_SIMPLEX, kTextScale, kTextColour, 1, cv::LINE_8, false);
}

}  // namespace

void draw_measurement_result(MeasurementState& state) {
  if (state.corners_3d.size() < 4 || state.box_corners.size() < 4) return;
  const PlaneEquation& plane = state.plane;
  const CameraIntrinsics& k = state.intrinsics;
  const float h = state.dimensions.box_height;

  state.overlay_bottom_corners_3d.clear();
  state.overlay_bottom_corners.clear();
  state.overlay_bottom_corners_3d.resize(4);
  state.overlay_bottom_corners.resize(4);
  for (int i = 0; i < 4; ++i) {
    const cv::Point3f p = state.corners_3d[i] + cv::Point3f(plane.a, plane.b, plane.c) * h;
    state.overlay_bottom_corners_3d[i] = p;
    state.overlay_bottom_corners[i] = point_to_pixel(p, k);
  }

  cv::Mat& image = state.result_image;
  if (image.empty()) return;
  const std::vector<cv::Point2f>& bottom = state.overlay_bottom_corners;
  const std::vector<cv::Point2f>& top = state.box_corners;
  for (int i = 0; i < 4; ++i) draw_edge(image, bottom[i], bottom[(i + 1) % 4], kBottomColour);
  for (int i = 0; i < 4; ++i) draw_edge(image, top[i], top[(i + 1) % 4], kTopColour);
  for (int i = 0; i < 4; ++i) draw_edge(image, bottom[i], top[i], kEdgeColour);

  const BoxDimensions& dims = state.dimensions;
  draw_dimension(image, "L: ", dims.box_length, kTextMargin);
  draw_dimension(image, "W: ", dims.box_width, state.width / 3 + kTextMargin);
  draw_dimension(image, "H: ", dims.box_height, 2 * state.width / 3 + kTextMargin);
}

}  // namespace boxdim
