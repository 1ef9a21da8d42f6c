// The window system the program shows its frames in: OpenCV's highgui in the
// program, a recording fake in tests. Everything the program does with
// windows and keys goes through one.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/highgui.hpp>
#include <string>

namespace boxdim {

class Display {
 public:
  virtual ~Display() = default;

  // Whether a window of that name exists (cvGetWindowHandle in highgui).
  virtual bool window_exists(const std::string& name) = 0;
  virtual void named_window(const std::string& name, int flags) = 0;
  virtual void destroy_window(const std::string& name) = 0;
  virtual void resize_window(const std::string& name, int width, int height) = 0;
  virtual void show(const std::string& name, const cv::Mat& image) = 0;
  virtual void set_mouse_callback(const std::string& name, cv::MouseCallback callback,
                                  void* user_data) = 0;
  // cv::waitKey: the key pressed within `delay_ms`, or -1.
  virtual int wait_key(int delay_ms) = 0;
};

// OpenCV's highgui: the program's real windows.
std::unique_ptr<Display> make_highgui_display();

}  // namespace boxdim
