// The image windows of each device, chosen by its stream type, and the mouse
// probe that reads the depth under the pointer.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "app/display.h"
#include "app/shell.h"

namespace boxdim {

// A window name from one of the formats "raw_%d", "depth_%d", "ir_%d",
// "RGB_%d", "RGBD_depth_%d", "RGBD_RGB_%d"; at most 15 characters.
std::string window_name(const char* format, int number);

// Creates the windows of `stream_type` (1-7; others do nothing) for the device
// at `device_index` in the enumerated list, numbered device_index + 1. With
// `replace`, first destroys the windows of the stream type before it.
// The mouse probe reports through `shell`.
void create_windows(Shell& shell, int device_index, int stream_type, bool replace);

// Shows `image` only in a window that still exists: a window the user closed stays closed.
void show_if_window_exists(Display& display, const std::string& name, cv::Mat image);

// Mouse callback of the depth windows, with the program's Shell as its user
// data: the probe follows the pointer while the left button is held and
// disappears when it is released.
void on_mouse(int event, int x, int y, int flags, void* user_data);

}  // namespace boxdim
