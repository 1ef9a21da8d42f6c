#include "precise/box_fit.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace boxdim::precise {

namespace {

// A median needs no more values than this to be as good as all of them.
constexpr std::size_t kMaxMedianSamples = 1000;

// The median depth of the top's pixels (mm).
float median_depth(const FrameView& frame, const TopFace& face, std::vector<float>& values) {
  const int width = frame.heights.cols;
  values.clear();
  const std::size_t every = face.pixel_count / kMaxMedianSamples + 1;
  for (std::size_t n = 0; n < face.pixel_count; n += every) {
    const int i = face.pixels[n];
    values.push_back(frame.depth.at<std::uint16_t>(i / width, i % width));
  }
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

}  // namespace

BoxFit fit_box(const FrameView& frame, const TopFace& face, const FitOptions& options,
               FitBuffers& buffers) {
  BoxFit fit;
  // Until a rectangle is fitted, the top's bounds say where it is.
  const cv::Rect& b = face.bounds;
  fit.corners_px = {cv::Point2f(b.x, b.y), cv::Point2f(b.x + b.width, b.y),
                    cv::Point2f(b.x + b.width, b.y + b.height), cv::Point2f(b.x, b.y + b.height)};
  fit.centre_px = cv::Point2f(b.x + 0.5f * b.width, b.y + 0.5f * b.height);
  const float depth = median_depth(frame, face, buffers.outline.values);
  fit.centre_mm = pixel_to_point(fit.centre_px.x, fit.centre_px.y, depth, frame.intrinsics);

  const std::optional<TopOutline> outline =
      fit_outline(frame, face, depth, options.outline, buffers.outline, fit.reason);
  if (!outline) return fit;
  fit.corners_mm = outline->corners_mm;
  fit.corners_px = outline->corners_px;
  std::copy(std::begin(outline->sides), std::end(outline->sides), fit.sides.begin());
  fit.rim_radius_mm = outline->rim_radius_mm;
  fit.centre_px =
      0.25f * (fit.corners_px[0] + fit.corners_px[1] + fit.corners_px[2] + fit.corners_px[3]);
  fit.centre_mm =
      0.25f * (fit.corners_mm[0] + fit.corners_mm[1] + fit.corners_mm[2] + fit.corners_mm[3]);
  const PlaneRectangle& rect = outline->rectangle;
  fit.length_mm = 2.0f * std::max(rect.half[0], rect.half[1]);
  fit.width_mm = 2.0f * std::min(rect.half[0], rect.half[1]);

  const std::optional<TopHeight> height =
      fit_top_height(frame, face, *outline, options.height, buffers.height);
  if (!height) {
    fit.reason = "too few pixels inside the top";
    return fit;
  }
  fit.top = height->top;
  fit.height_mm = height->height_mm;
  fit.height_adjustment_mm = height->adjustment_mm;

  const Grade grade =
      grade_box(face, *outline, *height, fit.width_mm, frame.heights.size(), options.grading);
  fit.status = grade.status;
  fit.reason = grade.reason;
  fit.confidence = grade.confidence;
  fit.uncertainty = grade.uncertainty;
  return fit;
}

}  // namespace boxdim::precise
