#include "cli/live_view.h"

#include <cstdio>
#include <opencv2/highgui.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "engine/box_picture.h"

namespace boxdim {

namespace {

constexpr int kEscape = 27;

// Followed boxes green once they have a fused reading, amber before; boxes
// not followed grey.
cv::Scalar colour_of(const BoxMeasurement& box) {
  if (!box.track_id) return {160, 160, 160};
  return box.fused ? cv::Scalar(60, 200, 60) : cv::Scalar(0, 165, 255);
}

}  // namespace

std::string LiveView::window_name(int camera_id) {
  return "boxdim camera " + std::to_string(camera_id);
}

LiveView::~LiveView() {
  if (!opened_.empty()) cv::destroyAllWindows();
}

cv::Mat draw_live_view(const DepthFrame& frame, const MeasurementResult& result) {
  cv::Mat picture = depth_picture(frame.depth);
  const double scale = std::max(0.4, picture.cols / 1280.0);
  int followed = 0;
  for (const BoxMeasurement& box : result.boxes) {
    if (box.corners_px.size() != 4) continue;
    const cv::Scalar colour = colour_of(box);
    std::vector<cv::Point> outline;
    for (const cv::Point2f& c : box.corners_px) outline.emplace_back(cvRound(c.x), cvRound(c.y));
    cv::polylines(picture, outline, true, colour, 2, cv::LINE_AA);
    char label[96];
    if (box.track_id && box.fused) {
      const BoxDimensions& d = box.fused->dimensions;
      std::snprintf(label, sizeof label, "#%d %.0f x %.0f x %.0f", *box.track_id, d.box_length,
                    d.box_width, d.box_height);
    } else if (box.track_id) {
      std::snprintf(label, sizeof label, "#%d %s", *box.track_id, box_status_name(box.status));
    } else {
      std::snprintf(label, sizeof label, "%s", box_status_name(box.status));
    }
    followed += box.track_id.has_value();
    int baseline = 0;
    const cv::Size size = cv::getTextSize(label, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &baseline);
    put_outlined_text(picture, label,
                      cv::Point(cvRound(box.centre_px.x) - size.width / 2,
                                cvRound(box.centre_px.y) + size.height / 2),
                      scale, colour);
  }
  char header[128];
  std::snprintf(header, sizeof header, "camera %d  %s  %d boxes followed", frame.camera_id,
                frame_time_text(frame.timestamp_us).c_str(), followed);
  put_outlined_text(picture, header, cv::Point(10, cvRound(30 * scale / 0.5)), scale,
                    cv::Scalar(255, 255, 255));
  return picture;
}

void LiveView::show(const DepthFrame& frame, const MeasurementResult& result) {
  const std::string name = window_name(frame.camera_id);
  if (!opened_[frame.camera_id]) {
    cv::namedWindow(name, cv::WINDOW_AUTOSIZE);
    opened_[frame.camera_id] = true;
  }
  cv::imshow(name, draw_live_view(frame, result));
  const int key = cv::waitKey(1);
  if (key == kEscape || key == 'q') stop_requested_ = true;
}

}  // namespace boxdim
