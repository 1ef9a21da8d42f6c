#include "cli/live_view.h"

#include <opencv2/highgui.hpp>

#include "engine/box_picture.h"

namespace boxdim {

namespace {

constexpr int kEscape = 27;

}  // namespace

std::string LiveView::window_name(int camera_id) {
  return "boxdim camera " + std::to_string(camera_id);
}

LiveView::~LiveView() {
  if (!opened_.empty()) cv::destroyAllWindows();
}

void LiveView::show(const DepthFrame& frame, const MeasurementResult& result) {
  const std::string name = window_name(frame.camera_id);
  if (!opened_[frame.camera_id]) {
    cv::namedWindow(name, cv::WINDOW_AUTOSIZE);
    opened_[frame.camera_id] = true;
  }
  cv::imshow(name, draw_followed_boxes(frame, result));
  const int key = cv::waitKey(1);
  if (key == kEscape || key == 'q') stop_requested_ = true;
}

}  // namespace boxdim
