// The operator's screen for the precise engine: a window per camera showing
// its depth frames with every followed box outlined, its track id and its
// fused dimensions (or its status until it has them).
#pragma once

#include <map>
#include <string>

#include "core/depth_frame.h"
#include "core/measurement_result.h"

namespace boxdim {

class LiveView {
 public:
  // The window of a camera: "boxdim camera <id>".
  static std::string window_name(int camera_id);

  ~LiveView();

  // Draws the frame and its result into the camera's window and lets the
  // windows handle their events.
  void show(const DepthFrame& frame, const MeasurementResult& result);
  // Whether Esc or q was pressed in a window.
  bool stop_requested() const { return stop_requested_; }

 private:
  std::map<int, bool> opened_;
  bool stop_requested_ = false;
};

}  // namespace boxdim
