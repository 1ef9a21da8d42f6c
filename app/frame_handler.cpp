#include "app/frame_handler.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "app/frame_capture.h"
#include "app/globals.h"
#include "app/windows.h"
#include "measure/frame_preparation.h"
#include "pipeline/station_pipeline.h"

namespace boxdim {

namespace {

constexpr int kAlignedStream = 7;
constexpr int kDepthWindowWidth = 640;
constexpr int kDepthWindowHeight = 480;
// Lets the depth window repaint while the measurement keeps the main thread busy.
constexpr int kDepthRepaintMs = 10;

const cv::Scalar kProbeColour(255, 255, 255);
const cv::Scalar kFpsColour(0, 255, 0);

bool saving(int device_id) {
  const auto entry = g_save_enabled.find(device_id);
  return entry != g_save_enabled.end() && entry->second;
}

// The samples stay the SDK's; cv::Mat has no read-only view, and nothing writes through it.
cv::Mat view(int height, int width, int type, const unsigned char* samples) {
  return cv::Mat(height, width, type, const_cast<unsigned char*>(samples));
}

void draw_fps(cv::Mat& image, int device_id, int width, int height) {
  const std::string text = std::to_string(width) + "x" + std::to_string(height) +
                           " fps:" + std::to_string(g_fps[device_id].count);
  cv::putText(image, text, cv::Point(10, 25), cv::FONT_HERSHEY_SIMPLEX, 0.7, kFpsColour, 2);
}

void show_raw(Shell& shell, int device_id, const unsigned char* samples, int width, int height) {
  cv::Mat stretched;
  cv::normalize(view(height, width, CV_16UC1, samples), stretched, 0, 255.0, cv::NORM_MINMAX);
  cv::Mat grey;
  cv::convertScaleAbs(stretched, grey, 1.0);
  cv::Mat picture;
  cv::cvtColor(grey, picture, cv::COLOR_GRAY2BGR);
  ++g_frame_counts[device_id].count;
  draw_fps(picture, device_id, width, height);
  show_if_window_exists(shell.display, window_name("raw_%d", device_id), picture);
}

// The measurement works on its own copy, as the SDK may reuse its buffer.
cv::Mat measured_picture(Shell& shell, int device_id, const unsigned char* samples, int width,
                         int height) {
  std::vector<std::uint16_t> depth(static_cast<std::size_t>(width) * height);
  std::memcpy(depth.data(), samples, depth.size() * sizeof(std::uint16_t));
  set_frame_size(g_measurement_state, width, height);
  cv::Mat picture;
  prepare_frame(g_measurement_state, depth.data(), picture);
  const MeasurementOutcome outcome = measure_frame(g_measurement_state, picture);
  if (shell.on_measured) shell.on_measured({device_id, outcome, g_measurement_state.dimensions});
  return picture;
}

void draw_probe(cv::Mat& picture, const unsigned char* samples, int width, int height) {
  const int x = g_mouse_x;
  const int y = g_mouse_y;
  // The top row and left column are out too: 0 is where a released probe could never be.
  if (x <= 0 || y <= 0 || x >= width || y >= height) return;
  std::uint16_t depth = 0;
  std::memcpy(&depth, samples + (static_cast<std::size_t>(y) * width + x) * sizeof depth,
              sizeof depth);
  char text[64];
  std::snprintf(text, sizeof text, " (x:%d,y:%d,d:%d)", x, y, static_cast<int>(depth));
  // Limited by the frame's height, not its width: the probe's established look,
  // kept on purpose.
  const int text_x = std::min(x, height - 10);
  cv::putText(picture, text, cv::Point(text_x, y), cv::FONT_HERSHEY_PLAIN, 1.0, kProbeColour, 1);
  cv::circle(picture, cv::Point(x, y), 3, kProbeColour);
}

// `buffer` is the whole frame set, `offset` where this frame starts. The
// measurement's copy starts at twice the offset while the probe and the saving
// read at the offset; the two agree when depth is the first frame of the set.
// This is the station's established behaviour and is kept on purpose.
void show_depth(Shell& shell, int device_id, const unsigned char* buffer, int offset, int width,
                int height) {
  ++g_frame_counts[device_id].count;
  cv::Mat picture = measured_picture(shell, device_id, buffer + 2 * offset, width, height);
  draw_probe(picture, buffer + offset, width, height);
  const std::string name = window_name("depth_%d", device_id);
  shell.display.resize_window(name, kDepthWindowWidth, kDepthWindowHeight);
  show_if_window_exists(shell.display, name, picture);
  shell.display.wait_key(kDepthRepaintMs);
}

void show_ir(Shell& shell, int device_id, const unsigned char* samples, int width, int height) {
  cv::Mat picture(height, width, CV_8UC1);
  for (int row = 0; row < height; ++row) {
    for (int col = 0; col < width; ++col) {
      std::uint16_t sample = 0;
      std::memcpy(&sample, samples + (static_cast<std::size_t>(row) * width + col) * 2, 2);
      picture.at<std::uint8_t>(row, col) = static_cast<std::uint8_t>(std::min(sample / 2, 255));
    }
  }
  show_if_window_exists(shell.display, window_name("ir_%d", device_id), picture);
}

void show_colour(Shell& shell, int device_id, const unsigned char* samples, int width, int height) {
  cv::Mat bgr;
  cv::cvtColor(view(height, width, CV_8UC2, samples), bgr, cv::COLOR_YUV2BGR_YUYV);
  cv::Mat rgb;
  cv::cvtColor(bgr, rgb, cv::COLOR_BGR2RGB);
  show_if_window_exists(shell.display, window_name("RGB_%d", device_id), rgb);
}

// The aligned pair counts as the device's depth frame for the fps text.
void show_aligned(Shell& shell, int device_id) {
  Corvane::RGBDFrame pair{};
  if (Corvane::GetRGBD(device_id, pair) != 0) return;
  if (pair.width <= 0 || pair.height <= 0 || pair.depth == nullptr || pair.color == nullptr) {
    return;
  }
  ++g_frame_counts[device_id].count;
  cv::Mat coloured_depth(pair.height, pair.width, CV_8UC3);
  if (Corvane::GetDepthColor(pair.depth, pair.width, pair.height, coloured_depth.data) == 0) {
    draw_fps(coloured_depth, device_id, pair.width, pair.height);
    show_if_window_exists(shell.display, window_name("RGBD_depth_%d", device_id), coloured_depth);
  }
  show_if_window_exists(shell.display, window_name("RGBD_RGB_%d", device_id),
                        view(pair.height, pair.width, CV_8UC3, pair.color).clone());
}

}  // namespace

void handle_frame(Shell& shell, int device_id, const Corvane::FrameData* frame_data) {
  const auto stream = g_stream_types.find(device_id);
  if (stream == g_stream_types.end() || frame_data == nullptr) return;
  if (stream->second.second == kAlignedStream) {
    show_aligned(shell, device_id);
    return;
  }
  const unsigned char* buffer = frame_data->data;
  int offset = 0;
  for (int j = 0; j < frame_data->frame_count; ++j) {
    const Corvane::FrameInfo& info = frame_data->frame_info[j];
    const int width = info.width;
    const int height = info.height;
    if (width <= 0 || height <= 0) continue;
    const unsigned char* samples = buffer + offset;
    switch (info.kind) {
      case Corvane::kFrameRaw:
        show_raw(shell, device_id, samples, width, height);
        if (saving(device_id)) save_frame(device_id, samples, info.kind, width, height);
        offset += width * height * 2;
        break;
      case Corvane::kFrameDepth:
        show_depth(shell, device_id, buffer, offset, width, height);
        if (saving(device_id)) save_frame(device_id, samples, info.kind, width, height);
        offset += width * height * 2;
        break;
      case Corvane::kFrameIr:
        show_ir(shell, device_id, samples, width, height);
        if (saving(device_id)) save_frame(device_id, samples, info.kind, width, height);
        offset += width * height * 2;
        break;
      case Corvane::kFrameColor:
        show_colour(shell, device_id, samples, width, height);
        // 1.5 bytes a pixel although the picture reads 2: the station's
        // established step to the next frame of the set, kept on purpose.
        offset += width * height * 3 / 2;
        break;
      default:
        break;
    }
  }
}

}  // namespace boxdim
