// What every virtual device shares: open and stream state, a camera's settings, frame pacing,
// and turning one moment's pictures into the frame set the SDK hands out.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "virtual_camera/device_capabilities.h"
#include "virtual_camera/status_codes.h"

namespace boxdim::virtual_camera {

constexpr int kFramesPerSecond = 30;
constexpr int kMinIntegrationTimeUs = 100;
constexpr int kMaxIntegrationTimeUs = 2000;
constexpr int kIntegrationTimeStepUs = 50;
constexpr int kDefaultIntegrationTimeUs = 650;

// One moment's pictures before the settings apply. A kind the stream does not
// carry, or a replay lacks, stays empty.
struct FramePictures {
  cv::Mat raw;             // CV_16UC1
  cv::Mat depth;           // CV_16UC1, mm
  cv::Mat ir;              // CV_16UC1
  cv::Mat colour;          // CV_8UC3 BGR, at the colour resolution
  cv::Mat aligned_colour;  // CV_8UC3 BGR, at the depth resolution

  // The picture of a frame kind.
  const cv::Mat& of(int kind) const;
  cv::Mat& of(int kind) { return const_cast<cv::Mat&>(std::as_const(*this).of(kind)); }
};

// A frame set as the SDK hands it out, with the aligned pair of the aligned
// stream. The pictures are never written after assembly, so sets may share them.
struct FrameSet {
  std::vector<Corvane::FrameInfo> infos;
  std::vector<unsigned char> samples;
  cv::Mat aligned_depth;   // CV_16UC1
  cv::Mat aligned_colour;  // CV_8UC3 BGR
};

struct DeviceSettings {
  bool median_filter = false;
  bool mirror = false;
  bool flip = false;
  bool trail_filter = false;
  int integration_time_us = kDefaultIntegrationTimeUs;
  std::vector<int> added_filters;
};

class Device {
 public:
  Device(int id, int type);
  virtual ~Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  int id() const { return id_; }
  int type() const { return type_; }
  const Capabilities& capabilities() const { return capabilities_; }
  Corvane::DeviceInfo info() const;
  virtual std::string serial_number() const = 0;
  virtual std::string hardware_version() const = 0;

  Status open();
  bool is_open() const { return open_; }

  Status set_resolution(int frame_type, int resolution);
  Status start(int stream_type);
  Status change(int stream_type);
  Status stop();
  // kNoNewFrame until a frame period has passed since the last delivered set;
  // sets missed in between are skipped, as on a real camera. Time is the
  // virtual clock's.
  Status poll(Corvane::FrameData*& frame);
  Status aligned_pair(Corvane::RGBDFrame& frame) const;
  Status intrinsics(int frame_type, Corvane::Intrinsics& intrinsics) const;

  const DeviceSettings& settings() const { return settings_; }
  void set_median_filter(bool enabled);
  void set_mirror(bool enabled);
  void set_flip(bool enabled);
  void set_trail_filter(bool enabled);
  Status add_filter(int filter_type);
  Status integration_time_range(int frame_type, int& min, int& max) const;
  Status set_integration_time(int value_us);

 protected:
  virtual const char* device_name() const = 0;
  // Switches to `stream_type` and prepares its frames; on failure the
  // previous stream type stays.
  Status switch_stream_type(int stream_type);
  // Readies the device's frame source; kOk when there is nothing to ready.
  virtual Status open_source() { return kOk; }
  // Called with stream_type() already switched; a failure undoes the switch.
  virtual Status prepare_stream() { return kOk; }
  // The frame sets from now on differ from the earlier ones.
  virtual void frames_changed() {}
  // The set_index-th set since the stream started (from 0), into `set`.
  virtual Status produce_set(std::int64_t set_index, FrameSet& set) = 0;
  // Pixel size of the frames of a kind as the device currently delivers them.
  virtual cv::Size frame_size(int kind) const = 0;

  int stream_type() const { return stream_type_; }
  // The size the kind's resolution code selects.
  cv::Size selected_size(int kind) const;
  // Applies the settings to the pictures and lays them out for the stream.
  FrameSet assemble(FramePictures pictures) const;

 private:
  void change_setting(bool& setting, bool enabled);

  const int id_;
  const int type_;
  const Capabilities capabilities_;
  bool open_ = false;
  bool streaming_ = false;
  int stream_type_ = 0;
  std::map<int, int> resolutions_;  // frame kind -> resolution code
  DeviceSettings settings_;

  std::chrono::steady_clock::time_point stream_start_;
  std::int64_t last_tick_ = 0;  // frame periods since stream_start_ of the last set
  FrameSet delivered_;
  FrameSet spare_;  // the set before, kept to reuse its buffers
  Corvane::FrameData record_{};
};

}  // namespace boxdim::virtual_camera
