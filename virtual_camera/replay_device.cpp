#include "virtual_camera/replay_device.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <utility>

#include "virtual_camera/frame_formats.h"

namespace boxdim::virtual_camera {
namespace {

void report(const std::filesystem::path& folder, const char* reason) {
  std::cerr << "corvane_sdk: replay: " << shown_path(folder) << ": " << reason << '\n';
}

// Where a capture keeps the frames of a kind; nullptr for colour, which
// the program never captures.
const std::optional<CapturedFrame>* captured_frame(const CapturedSet& set, int kind) {
  switch (kind) {
    case Corvane::kFrameRaw:
      return &set.raw;
    case Corvane::kFrameDepth:
      return &set.depth;
    case Corvane::kFrameIr:
      return &set.ir;
    default:
      return nullptr;
  }
}

const char* kind_word(int kind) {
  switch (kind) {
    case Corvane::kFrameRaw:
      return "raw";
    case Corvane::kFrameDepth:
      return "depth";
    case Corvane::kFrameIr:
      return "infrared";
    default:
      return "colour";
  }
}

// The stream types that play a capture of raw frames only, or of depth only.
constexpr int kRawOnlyStream = 1;
constexpr int kDepthOnlyStream = 2;

}  // namespace

ReplayDevice::ReplayDevice(int id, std::filesystem::path folder, std::vector<CapturedSet> sets)
    : Device(id, kReplayDeviceType), folder_(std::move(folder)), sets_(std::move(sets)) {}

std::string ReplayDevice::serial_number() const {
  char serial[16];
  std::snprintf(serial, sizeof(serial), "VREPLAY-%04d", id());
  return serial;
}

std::string ReplayDevice::hardware_version() const { return "virtual-1.0 replay"; }

Status ReplayDevice::open_source() {
  std::error_code error;
  if (!std::filesystem::is_directory(folder_, error)) {
    report(folder_, "no such folder");
    return kDeviceUnavailable;
  }
  if (sets_.empty()) {
    report(folder_, "no usable depth or raw frame files in depth/ or raw/");
    return kDeviceUnavailable;
  }
  return kOk;
}

Status ReplayDevice::prepare_stream() {
  // A set plays when it has the stream's leading frame; infrared, which
  // follows depth, may be missing.
  const int leading_kind = stream_kinds(stream_type()).front();
  std::vector<std::size_t> playlist;
  for (std::size_t i = 0; i < sets_.size(); ++i) {
    const std::optional<CapturedFrame>* frame = captured_frame(sets_[i], leading_kind);
    if (frame && *frame) playlist.push_back(i);
  }
  if (playlist.empty()) {
    const auto has = [this](std::optional<CapturedFrame> CapturedSet::*kind) {
      return std::any_of(sets_.begin(), sets_.end(),
                         [kind](const CapturedSet& set) { return (set.*kind).has_value(); });
    };
    const bool raw = has(&CapturedSet::raw);
    std::cerr << "corvane_sdk: replay: " << shown_path(folder_) << ": stream type " << stream_type()
              << " needs " << kind_word(leading_kind) << " frames, and camera " << sets_.front().id
              << " of the capture has " << (raw ? "raw" : "depth") << " frames only (stream type "
              << (raw ? kRawOnlyStream : kDepthOnlyStream) << " plays them)\n";
    return kNoFramesForStream;
  }
  playlist_ = std::move(playlist);
  return kOk;
}

Status ReplayDevice::produce_set(std::int64_t set_index, FrameSet& set) {
  const CapturedSet& captured =
      sets_[playlist_[static_cast<std::size_t>(set_index) % playlist_.size()]];
  // Read only now: a capture may hold more frames than fit in memory.
  FramePictures pictures;
  for (const int kind : stream_kinds(stream_type())) {
    const std::optional<CapturedFrame>* frame = captured_frame(captured, kind);
    if (!frame || !*frame) continue;
    pictures.of(kind) = read_captured_frame(**frame);
    if (pictures.of(kind).empty()) {
      report_unreadable((*frame)->path);
      return kReadFailed;
    }
  }
  set = assemble(std::move(pictures));
  return kOk;
}

void ReplayDevice::report_unreadable(const std::filesystem::path& file) {
  if (reported_folder_empty_) return;
  bool any_frame_left = false;
  for (const char* kind : {"depth", "raw", "ir"}) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder_ / kind, error), end;
         !error && entry != end; entry.increment(error)) {
      if (entry->is_regular_file(error)) {
        any_frame_left = true;
        break;
      }
    }
  }
  if (!any_frame_left) {
    report(folder_, "the capture has gone: no frame files left, nothing to play");
    reported_folder_empty_ = true;
  } else if (reported_files_.insert(file).second) {
    std::cerr << "corvane_sdk: replay: cannot read " << shown_path(file)
              << " (gone, cut short or unreadable); its sets are skipped\n";
  }
}

cv::Size ReplayDevice::frame_size(int kind) const {
  const auto first = [this](std::optional<CapturedFrame> CapturedSet::*member) {
    for (const CapturedSet& set : sets_) {
      if (set.*member) return std::optional<cv::Size>((set.*member)->size);
    }
    return std::optional<cv::Size>();
  };
  const std::optional<cv::Size> raw = first(&CapturedSet::raw);
  const std::optional<cv::Size> depth = first(&CapturedSet::depth);
  if (kind == Corvane::kFrameRaw) return raw ? *raw : *depth;
  return depth ? *depth : *raw;
}

}  // namespace boxdim::virtual_camera
