#include "app/display.h"

#include <opencv2/highgui/highgui_c.h>

namespace boxdim {

namespace {

class HighguiDisplay : public Display {
 public:
  bool window_exists(const std::string& name) override {
    return cvGetWindowHandle(name.c_str()) != nullptr;
  }
  void named_window(const std::string& name, int flags) override { cv::namedWindow(name, flags); }
  void destroy_window(const std::string& name) override { cv::destroyWindow(name); }
  void resize_window(const std::string& name, int width, int height) override {
    cv::resizeWindow(name, width, height);
  }
  void show(const std::string& name, const cv::Mat& image) override { cv::imshow(name, image); }
  void set_mouse_callback(const std::string& name, cv::MouseCallback callback,
                          void* user_data) override {
    cv::setMouseCallback(name, callback, user_data);
  }
  int wait_key(int delay_ms) override { return cv::waitKey(delay_ms); }
};

}  // namespace

std::unique_ptr<Display> make_highgui_display() { return std::make_unique<HighguiDisplay>(); }

}  // namespace boxdim
