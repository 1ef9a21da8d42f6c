// A window system that records what the program does with its windows and
// answers the key waits from a script.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "app/display.h"

namespace boxdim::testing {

class FakeDisplay : public Display {
 public:
  std::map<std::string, int> windows;  // open windows and their flags
  std::vector<std::string> destroyed;
  std::vector<std::pair<std::string, cv::Mat>> shown;
  std::vector<std::string> resized;  // "name WxH"
  std::vector<std::string> probed;   // windows given the mouse callback
  void* probe_user_data = nullptr;   // what the callback was given last
  std::vector<int> waits;            // the delay of every wait_key
  // Answers to the 30 ms key waits of the main loop and the final wait; Esc
  // once used up, so that a program under test always ends.
  std::deque<int> keys;

  bool window_exists(const std::string& name) override { return windows.count(name) > 0; }
  void named_window(const std::string& name, int flags) override { windows[name] = flags; }
  void destroy_window(const std::string& name) override {
    windows.erase(name);
    destroyed.push_back(name);
  }
  void resize_window(const std::string& name, int width, int height) override {
    resized.push_back(name + " " + std::to_string(width) + "x" + std::to_string(height));
  }
  void show(const std::string& name, const cv::Mat& image) override {
    shown.emplace_back(name, image.clone());
  }
  void set_mouse_callback(const std::string& name, cv::MouseCallback, void* user_data) override {
    probed.push_back(name);
    probe_user_data = user_data;
  }
  // Other delays only let windows repaint and never read the script.
  int wait_key(int delay_ms) override {
    waits.push_back(delay_ms);
    if (delay_ms != 30) return -1;
    if (keys.empty()) return 27;
    const int key = keys.front();
    keys.pop_front();
    return key;
  }

  // The open windows' names in order, joined by single spaces.
  std::string window_list() const {
    std::string list;
    for (const auto& [name, flags] : windows) list += (list.empty() ? "" : " ") + name;
    return list;
  }

  // The images shown in `name`, in order.
  std::vector<cv::Mat> shown_in(const std::string& name) const {
    std::vector<cv::Mat> images;
    for (const auto& [window, image] : shown) {
      if (window == name) images.push_back(image);
    }
    return images;
  }
};

}  // namespace boxdim::testing
