#include "source/camera_source.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace boxdim {

namespace {

constexpr std::int32_t kDepthOnlyStream = 2;
constexpr std::int32_t kHighResolution = 2;
// Between two rounds of polls: frames come every 33 ms, and a busy loop would
// take the core the measurement needs.
constexpr std::chrono::milliseconds kPollPause(1);

void check(std::int32_t status, const std::string& call) {
  if (status != 0) throw CameraError(call + " failed with status " + std::to_string(status));
}

std::int64_t system_clock_us() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The set's first depth frame: its size and where its samples start. Every
// kind is two bytes a pixel (colour is YUYV).
std::optional<std::pair<cv::Size, const unsigned char*>> depth_frame_of(
    const Corvane::FrameData& set) {
  std::size_t offset = 0;
  for (std::int32_t i = 0; i < set.frame_count; ++i) {
    const Corvane::FrameInfo& info = set.frame_info[i];
    if (info.width <= 0 || info.height <= 0) return std::nullopt;
    if (info.kind == Corvane::kFrameDepth) {
      return std::make_pair(cv::Size(info.width, info.height), set.data + offset);
    }
    offset += static_cast<std::size_t>(info.width) * info.height * 2;
  }
  return std::nullopt;
}

}  // namespace

CameraSource::CameraSource(CameraSourceOptions options) : options_(std::move(options)) {
  if (!options_.clock_us) options_.clock_us = system_clock_us;
}

CameraSource::~CameraSource() { shut_down(); }

void CameraSource::start() {
  check(Corvane::InitSDK(), "InitSDK");
  initialised_ = true;
  std::int32_t count = 0;
  check(Corvane::FindDevice(count, nullptr), "FindDevice");
  if (count <= 0) throw CameraError("no camera found");
  std::vector<Corvane::DeviceInfo> devices(static_cast<std::size_t>(count));
  check(Corvane::FindDevice(count, devices.data()), "FindDevice");
  // The list may have shrunk between the two calls.
  devices.resize(static_cast<std::size_t>(std::clamp<std::int32_t>(count, 0, devices.size())));
  if (devices.empty()) throw CameraError("no camera found");
  for (const Corvane::DeviceInfo& device : devices) start_camera(device);
  last_frame_ = std::chrono::steady_clock::now();
}

void CameraSource::start_camera(const Corvane::DeviceInfo& device) {
  const std::string id = " (camera " + std::to_string(device.id) + ")";
  check(Corvane::OpenDevice(device), "OpenDevice" + id);
  check(Corvane::SetFrameResolution(device.id, Corvane::kFrameDepth, kHighResolution),
        "SetFrameResolution" + id);
  check(Corvane::StartStreaming(device.id, kDepthOnlyStream), "StartStreaming" + id);
  Camera camera;
  camera.info = device;
  camera.streaming = true;
  cameras_.push_back(camera);
  Corvane::Intrinsics intrinsics{};
  check(Corvane::GetIntric(device.id, Corvane::kFrameDepth, intrinsics), "GetIntric" + id);
  cameras_.back().intrinsics = {intrinsics.fx, intrinsics.fy, intrinsics.cx, intrinsics.cy};
  cameras_.back().intrinsics_size = cv::Size(intrinsics.width, intrinsics.height);
}

std::optional<DepthFrame> CameraSource::next() {
  using Clock = std::chrono::steady_clock;
  while (!options_.stop_requested()) {
    while (next_camera_ < cameras_.size()) {
      const Camera& camera = cameras_[next_camera_++];
      Corvane::FrameData* set = nullptr;
      // The contract gives no code for "nothing new": every non-zero status
      // is taken as such, as the station program's own loop does.
      last_status_ = Corvane::GetLastFrameData(camera.info.id, set);
      if (last_status_ != 0 || set == nullptr) continue;
      const auto depth = depth_frame_of(*set);
      if (!depth) continue;
      frame_this_round_ = true;
      DepthFrame frame;
      const auto [size, samples] = *depth;
      frame.depth = cv::Mat(size, CV_16UC1, const_cast<unsigned char*>(samples));
      // A camera (or a replayed capture) may deliver another size than the
      // one its intrinsics were read for.
      frame.intrinsics = camera.intrinsics_size.area() > 0
                             ? scale_intrinsics(camera.intrinsics, camera.intrinsics_size, size)
                             : camera.intrinsics;
      frame.camera_id = camera.info.id;
      frame.timestamp_us = options_.clock_us();
      return frame;
    }
    next_camera_ = 0;
    if (frame_this_round_) {
      last_frame_ = Clock::now();
    } else if (Clock::now() - last_frame_ > options_.silence_limit) {
      throw CameraError(
          "no frame from any camera for " +
          std::to_string(
              std::chrono::duration_cast<std::chrono::seconds>(options_.silence_limit).count()) +
          " s (GetLastFrameData status " + std::to_string(last_status_) + ")");
    }
    frame_this_round_ = false;
    std::this_thread::sleep_for(kPollPause);
  }
  return std::nullopt;
}

void CameraSource::stop() {
  const std::string failure = shut_down();
  if (!failure.empty()) throw CameraError(failure);
}

std::vector<int> CameraSource::camera_ids() const {
  std::vector<int> ids;
  for (const Camera& camera : cameras_) ids.push_back(camera.info.id);
  return ids;
}

std::string CameraSource::shut_down() {
  std::string failure;
  const auto note = [&failure](std::int32_t status, const std::string& call) {
    if (status != 0 && failure.empty()) {
      failure = call + " failed with status " + std::to_string(status);
    }
  };
  for (Camera& camera : cameras_) {
    if (!camera.streaming) continue;
    note(Corvane::StopStreaming(camera.info.id),
         "StopStreaming (camera " + std::to_string(camera.info.id) + ")");
    camera.streaming = false;
  }
  if (initialised_) {
    note(Corvane::UnInitSDK(), "UnInitSDK");
    initialised_ = false;
  }
  return failure;
}

}  // namespace boxdim
