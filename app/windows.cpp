#include "app/windows.h"

#include <cstdio>
#include <opencv2/highgui.hpp>
#include <vector>

#include "app/display.h"
#include "app/globals.h"
#include "app/shell.h"

namespace boxdim {

namespace {

struct WindowKind {
  const char* format;
  int flags;   // 1: sized to the image; 0: freely resizable
  bool probe;  // gets the mouse callback
};

struct StreamWindows {
  // Of the stream type before this one in the cycle, so a stepwise change
  // leaves only this stream's windows; a jump leaves the older ones open.
  std::vector<const char*> destroyed;
  std::vector<WindowKind> created;
};

const StreamWindows* windows_of(int stream_type) {
  static const StreamWindows kWindows[] = {
      {{"RGBD_depth_%d", "RGBD_RGB_%d"}, {{"raw_%d", 1, false}}},
      {{"raw_%d"}, {{"depth_%d", 0, true}}},
      {{"depth_%d"}, {{"RGB_%d", 1, false}}},
      {{"RGB_%d"}, {{"depth_%d", 1, true}, {"ir_%d", 1, false}}},
      {{"ir_%d"}, {{"depth_%d", 1, false}, {"RGB_%d", 1, false}}},
      {{}, {{"depth_%d", 1, false}, {"ir_%d", 1, false}, {"RGB_%d", 1, false}}},
      {{"depth_%d", "ir_%d", "RGB_%d"}, {{"RGBD_depth_%d", 1, false}, {"RGBD_RGB_%d", 1, false}}},
  };
  if (stream_type < 1 || stream_type > 7) return nullptr;
  return &kWindows[stream_type - 1];
}

}  // namespace

std::string window_name(const char* format, int number) {
  char name[16];
  std::snprintf(name, sizeof name, format, number);
  return name;
}

void create_windows(Shell& shell, int device_index, int stream_type, bool replace) {
  Display& display = shell.display;
  const StreamWindows* windows = windows_of(stream_type);
  if (windows == nullptr) return;
  const int number = device_index + 1;
  if (replace) {
    for (const char* format : windows->destroyed) {
      const std::string name = window_name(format, number);
      if (display.window_exists(name)) display.destroy_window(name);
    }
  }
  for (const WindowKind& window : windows->created) {
    const std::string name = window_name(window.format, number);
    display.named_window(name, window.flags);
    if (window.probe) display.set_mouse_callback(name, on_mouse, &shell);
  }
}

void show_if_window_exists(Display& display, const std::string& name, cv::Mat image) {
  if (display.window_exists(name)) display.show(name, image);
}

void on_mouse(int event, int x, int y, int flags, void* user_data) {
  const bool dragging = event == cv::EVENT_MOUSEMOVE && (flags & cv::EVENT_FLAG_LBUTTON) != 0;
  if (event == cv::EVENT_LBUTTONDOWN || dragging) {
    static_cast<Shell*>(user_data)->out << "x:" << x << " y:" << y << "\n";
    g_mouse_x = x;
    g_mouse_y = y;
  } else if (event == cv::EVENT_LBUTTONUP) {
    g_mouse_x = -1;
    g_mouse_y = -1;
  }
}

}  // namespace boxdim
