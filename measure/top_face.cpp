#include "measure/top_face.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "measure/point_in_polygon.h"

namespace boxdim {

namespace {

constexpr std::uint8_t kFaceCell = 255;

// One cell per sample of the 4-pixel grid. The cell index is
// (row * width) / 16 + column / 4, which is (row / 4, column / 4) for widths
// that are multiples of 4 and drifts across rows for other widths; that drift
// is how the mask has always been built. Cells that would fall past the buffer
// (heights that are not multiples of 4) are dropped.
cv::Mat paint_selection_mask(const MeasurementState& state) {
  const std::size_t cells = static_cast<std::size_t>(state.width) * state.height / 16;
  std::vector<std::uint8_t> buffer(cells, 0);
  for (const cv::Point& p : state.selected_pixels) {
    const std::size_t index =
        static_cast<std::size_t>(p.x) * state.width / 16 + static_cast<std::size_t>(p.y) / 4;
    if (index < cells) buffer[index] = kFaceCell;
  }
  cv::Mat mask = cv::Mat::zeros(state.height / 4, state.width / 4, CV_8UC1);
  std::copy_n(buffer.begin(), mask.total(), mask.data);
  return mask;
}

}  // namespace

void extract_top_face(MeasurementState& state) {
  state.top_rect_contour_points.clear();
  const cv::Mat mask = paint_selection_mask(state);

  std::vector<cv::Point> saved_pixels;
  std::vector<cv::Point3f> saved_points;
  saved_points.swap(state.selected_points);
  saved_pixels.swap(state.selected_pixels);
  if (mask.empty()) return;  // a frame under 4 pixels on a side has no cells

  const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, {3, 3}, {-1, -1});
  const cv::Scalar border = cv::morphologyDefaultBorderValue();
  cv::Mat opened;
  cv::Mat closed;
  cv::morphologyEx(mask, opened, cv::MORPH_OPEN, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT, border);
  cv::morphologyEx(opened, closed, cv::MORPH_CLOSE, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT,
                   border);
  // A dilation of the raw mask that nothing reads. It has always been part of
  // this stage's cost, and benchmarks compare like with like, so it stays.
  cv::Mat unused_dilation;
  cv::dilate(mask, unused_dilation, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT, border);

  std::vector<std::vector<cv::Point>> contours;
  std::vector<cv::Vec4i> hierarchy;
  cv::findContours(closed, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE, {0, 0});

  // The box is assumed under the image centre; a centre on the outline itself
  // does not count.
  const cv::Point2f centre(static_cast<float>(state.width / 8),
                           static_cast<float>(state.height / 8));
  const auto face = std::find_if(contours.begin(), contours.end(), [&](const auto& contour) {
    return cv::pointPolygonTest(contour, centre, false) > 0;
  });
  if (face == contours.end()) return;

  state.top_rect_contour_points = *face;
  const PolygonRowIndex face_rows(*face, 0, mask.rows);
  for (std::size_t i = 0; i < saved_pixels.size(); ++i) {
    const cv::Point& p = saved_pixels[i];
    if (face_rows.side(cv::Point(p.y / 4, p.x / 4)) > 0) {
      state.selected_points.push_back(saved_points[i]);
      state.selected_pixels.push_back(p);
    }
  }
}

}  // namespace boxdim
