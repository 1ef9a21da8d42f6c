// A display for running the frame path without a window system: no window
// ever exists, nothing is shown, and a key wait answers "no key" at once.
#pragma once

#include "app/display.h"

namespace boxdim {

class HeadlessDisplay : public Display {
 public:
  bool window_exists(const std::string&) override { return false; }
  void named_window(const std::string&, int) override {}
  void destroy_window(const std::string&) override {}
  void resize_window(const std::string&, int, int) override {}
  void show(const std::string&, const cv::Mat&) override {}
  void set_mouse_callback(const std::string&, cv::MouseCallback, void*) override {}
  // No sleeping either: the waits only let windows repaint.
  int wait_key(int) override { return -1; }
};

}  // namespace boxdim
