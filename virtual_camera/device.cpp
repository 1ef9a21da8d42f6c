#include "virtual_camera/device.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "virtual_camera/depth_filters.h"
#include "virtual_camera/frame_formats.h"
#include "virtual_camera/frame_pictures.h"
#include "virtual_camera/virtual_clock.h"

namespace boxdim::virtual_camera {
namespace {

using FramePeriods = std::chrono::duration<std::int64_t, std::ratio<1, kFramesPerSecond>>;

// cv::flip's code for the settings, or nothing to do.
std::optional<int> flip_code(const DeviceSettings& settings) {
  if (settings.mirror && settings.flip) return -1;
  if (settings.mirror) return 1;
  if (settings.flip) return 0;
  return std::nullopt;
}

}  // namespace

const cv::Mat& FramePictures::of(int kind) const {
  switch (kind) {
    case Corvane::kFrameRaw:
      return raw;
    case Corvane::kFrameDepth:
      return depth;
    case Corvane::kFrameIr:
      return ir;
    default:
      return colour;
  }
}

Device::Device(int id, int type) : id_(id), type_(type), capabilities_(capabilities_of(type)) {
  // A camera starts in its high resolutions.
  resolutions_ = {{Corvane::kFrameRaw, 2}, {Corvane::kFrameDepth, 2}, {Corvane::kFrameColor, 4}};
}

Corvane::DeviceInfo Device::info() const {
  Corvane::DeviceInfo info{};
  info.id = id_;
  info.type = type_;
  info.port = id_;
  std::strncpy(info.name, device_name(), sizeof(info.name) - 1);
  return info;
}

Status Device::open() {
  if (open_) return kDeviceAlreadyOpen;
  const Status status = open_source();
  if (status == kOk) open_ = true;
  return status;
}

cv::Size Device::selected_size(int kind) const {
  return *resolution_size(kind, resolutions_.at(sensor_kind(kind)));
}

Status Device::set_resolution(int frame_type, int resolution) {
  if (!capabilities_.has_frame_type(frame_type)) return kUnsupportedFrameType;
  if (!capabilities_.has_resolution(frame_type, resolution)) return kUnsupportedResolution;
  int& selected = resolutions_[sensor_kind(frame_type)];
  if (selected != resolution) {
    selected = resolution;
    frames_changed();
  }
  return kOk;
}

Status Device::start(int stream_type) {
  if (streaming_) return kAlreadyStreaming;
  if (!capabilities_.has_stream_type(stream_type)) return kUnsupportedStreamType;
  const Status status = switch_stream_type(stream_type);
  if (status != kOk) return status;
  streaming_ = true;
  // Frames start once the stream is ready, not while it was being prepared.
  stream_start_ = clock_now();
  last_tick_ = 0;
  return kOk;
}

Status Device::change(int stream_type) {
  if (!streaming_) return kNotStreaming;
  if (!capabilities_.has_stream_type(stream_type)) return kUnsupportedStreamType;
  // The frame clock runs on: a change costs no frame period.
  return switch_stream_type(stream_type);
}

Status Device::switch_stream_type(int stream_type) {
  const int previous = stream_type_;
  stream_type_ = stream_type;
  frames_changed();
  const Status status = prepare_stream();
  if (status != kOk) {
    stream_type_ = previous;
    frames_changed();
  }
  return status;
}

Status Device::stop() {
  if (!streaming_) return kNotStreaming;
  streaming_ = false;
  return kOk;
}

Status Device::poll(Corvane::FrameData*& frame) {
  if (!streaming_) return kNotStreaming;
  const std::int64_t tick =
      std::chrono::duration_cast<FramePeriods>(clock_now() - stream_start_).count();
  if (tick <= last_tick_) return kNoNewFrame;
  // Built aside, so a failure leaves the delivered set as it was. A set that
  // cannot be made is lost like a dropped frame: not tried again on every
  // poll of its period.
  const Status status = produce_set(tick - 1, spare_);
  last_tick_ = tick;
  if (status != kOk) return status;
  std::swap(delivered_, spare_);
  record_.frame_count = static_cast<std::int32_t>(delivered_.infos.size());
  record_.frame_info = delivered_.infos.data();
  record_.data = delivered_.samples.data();
  frame = &record_;
  return kOk;
}

Status Device::aligned_pair(Corvane::RGBDFrame& frame) const {
  if (!streaming_) return kNotStreaming;
  if (stream_type_ != kAlignedStream) return kNotAlignedStream;
  if (delivered_.aligned_depth.empty()) return kNoFrameYet;
  frame.width = delivered_.aligned_depth.cols;
  frame.height = delivered_.aligned_depth.rows;
  frame.depth = delivered_.aligned_depth.ptr<std::uint16_t>();
  frame.color = delivered_.aligned_colour.ptr<unsigned char>();
  return kOk;
}

Status Device::intrinsics(int frame_type, Corvane::Intrinsics& intrinsics) const {
  if (!capabilities_.has_frame_type(frame_type)) return kUnsupportedFrameType;
  const cv::Size size = frame_size(sensor_kind(frame_type));
  CameraIntrinsics k = scaled_intrinsics(size);
  // A mirrored or flipped frame is a pinhole image whose principal point
  // moved with the pixels.
  if (settings_.mirror) k.cx = size.width - 1 - k.cx;
  if (settings_.flip) k.cy = size.height - 1 - k.cy;
  intrinsics = Corvane::Intrinsics{};
  intrinsics.width = size.width;
  intrinsics.height = size.height;
  intrinsics.fx = k.fx;
  intrinsics.fy = k.fy;
  intrinsics.cx = k.cx;
  intrinsics.cy = k.cy;
  return kOk;
}

void Device::change_setting(bool& setting, bool enabled) {
  if (setting == enabled) return;
  setting = enabled;
  frames_changed();
}

void Device::set_median_filter(bool enabled) { change_setting(settings_.median_filter, enabled); }
void Device::set_mirror(bool enabled) { change_setting(settings_.mirror, enabled); }
void Device::set_flip(bool enabled) { change_setting(settings_.flip, enabled); }
void Device::set_trail_filter(bool enabled) { change_setting(settings_.trail_filter, enabled); }

Status Device::add_filter(int filter_type) {
  if (filter_type < 1 || filter_type > 4) return kUnsupportedFilter;
  // The maker's filter types are not documented to us: they are accepted and
  // remembered, and leave the frames as they are.
  std::vector<int>& added = settings_.added_filters;
  if (std::find(added.begin(), added.end(), filter_type) == added.end()) {
    added.push_back(filter_type);
  }
  return kOk;
}

Status Device::integration_time_range(int frame_type, int& min, int& max) const {
  // Only the depth sensor integrates light; raw and colour have no setting.
  if (frame_type != Corvane::kFrameDepth && frame_type != Corvane::kFrameIr) {
    return kUnsupportedFrameType;
  }
  min = kMinIntegrationTimeUs;
  max = kMaxIntegrationTimeUs;
  return kOk;
}

Status Device::set_integration_time(int value_us) {
  if (value_us < kMinIntegrationTimeUs || value_us > kMaxIntegrationTimeUs ||
      (value_us - kMinIntegrationTimeUs) % kIntegrationTimeStepUs != 0) {
    return kBadIntegrationTime;
  }
  if (settings_.integration_time_us != value_us) {
    settings_.integration_time_us = value_us;
    frames_changed();
  }
  return kOk;
}

FrameSet Device::assemble(FramePictures pictures) const {
  if (!pictures.depth.empty()) {
    if (settings_.trail_filter) pictures.depth = trail_filter(pictures.depth);
    if (settings_.median_filter) pictures.depth = median_filter(pictures.depth);
  }
  if (const std::optional<int> code = flip_code(settings_)) {
    for (cv::Mat* picture : {&pictures.raw, &pictures.depth, &pictures.ir, &pictures.colour,
                             &pictures.aligned_colour}) {
      if (picture->empty()) continue;
      // Into a new image: the pictures may be a renderer's cached frames.
      cv::Mat turned;
      cv::flip(*picture, turned, *code);
      *picture = turned;
    }
  }

  FrameSet set;
  std::size_t total = 0;
  for (const int kind : stream_kinds(stream_type_)) {
    const cv::Mat& picture = pictures.of(kind);
    if (picture.empty()) continue;
    set.infos.push_back(Corvane::FrameInfo{kind, picture.rows, picture.cols});
    total += frame_bytes(picture.size());
  }
  set.samples.resize(total);
  unsigned char* out = set.samples.data();
  for (const Corvane::FrameInfo& info : set.infos) {
    const cv::Mat& picture = pictures.of(info.kind);
    if (info.kind == Corvane::kFrameColor) {
      pack_yuyv(picture, out);
    } else {
      const cv::Mat samples = picture.isContinuous() ? picture : picture.clone();
      std::memcpy(out, samples.data, frame_bytes(samples.size()));
    }
    out += frame_bytes(picture.size());
  }
  if (stream_type_ == kAlignedStream) {
    set.aligned_depth = pictures.depth;
    set.aligned_colour = pictures.aligned_colour;
  }
  return set;
}

}  // namespace boxdim::virtual_camera
