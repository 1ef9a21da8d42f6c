#include "cli/live_command.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "app/display.h"
#include "app/frame_handler.h"
#include "app/globals.h"
#include "app/headless_display.h"
#include "cli/json_line.h"
#include "cli/json_number.h"
#include "cli/output.h"
#include "cli/result_text.h"
#include "runtime/stop_signals.h"

namespace boxdim {

namespace {

constexpr std::int32_t kDepthOnlyStream = 2;
constexpr std::int32_t kHighResolution = 2;
// Between two rounds of polls: frames come every 33 ms, and a busy loop would
// take the core the measurement needs.
constexpr std::chrono::milliseconds kPollPause(1);

// A failed SDK call, named with its status.
class SdkError : public std::runtime_error {
 public:
  SdkError(const std::string& call, std::int32_t status)
      : std::runtime_error(call + " failed with status " + std::to_string(status)) {}
  explicit SdkError(const std::string& message) : std::runtime_error(message) {}
};

void check(std::int32_t status, const std::string& call) {
  if (status != 0) throw SdkError(call, status);
}

struct LiveCamera {
  Corvane::DeviceInfo info{};
  CameraIntrinsics intrinsics;
  cv::Size intrinsics_size;  // the image size the camera's intrinsics describe
  bool streaming = false;
  long long frames = 0;  // depth frames measured so far
};

std::string text_line(const LiveCamera& camera, const DepthFrameResult& result) {
  std::ostringstream line;
  line << "camera " << camera.info.id << " frame " << camera.frames << ": ";
  line << result_text(result.outcome, result.dimensions);
  return line.str();
}

// The keys of `boxdim-cli measure --json`, with the camera in place of the file.
std::string result_json(const LiveCamera& camera, const DepthFrameResult& result) {
  const bool ok = result.outcome.ok;
  const auto dimension = [ok](float value) {
    return ok ? nlohmann::json(json_number(value)) : nlohmann::json(nullptr);
  };
  const nlohmann::json line = {
      {"device_id", camera.info.id},
      {"frame", camera.frames},
      {"ok", ok},
      {"length_mm", dimension(result.dimensions.box_length)},
      {"width_mm", dimension(result.dimensions.box_width)},
      {"height_mm", dimension(result.dimensions.box_height)},
      {"failed_stage", ok ? nlohmann::json(nullptr) : nlohmann::json(result.outcome.failed_stage)},
  };
  return json_line(line);
}

// The size of the set's first depth frame, if it has one.
std::optional<cv::Size> depth_frame_size(const Corvane::FrameData& frame_data) {
  for (std::int32_t i = 0; i < frame_data.frame_count; ++i) {
    const Corvane::FrameInfo& info = frame_data.frame_info[i];
    if (info.kind == Corvane::kFrameDepth) return cv::Size(info.width, info.height);
  }
  return std::nullopt;
}

// The process-wide objects the frame handler works on, set up for a headless
// run and put back as they were when it ends.
class HeadlessFramePath {
 public:
  explicit HeadlessFramePath(std::ostream& log) {
    set_display(&display_);
    // A fresh state: nothing carries over from an earlier run in this process.
    g_measurement_state = MeasurementState{};
    g_measurement_state.seams.log = &log;
    g_measurement_state.seams.error_log = &log;
  }
  ~HeadlessFramePath() {
    set_measurement_listener(nullptr);
    set_display(nullptr);
    g_measurement_state.seams = MeasurementSeams();
  }
  HeadlessFramePath(const HeadlessFramePath&) = delete;
  HeadlessFramePath& operator=(const HeadlessFramePath&) = delete;

 private:
  HeadlessDisplay display_;
};

class LiveRun {
 public:
  LiveRun(const LiveOptions& options, std::ostream& out, std::ostream& err)
      : options_(options), out_(out), frame_path_(err) {
    set_measurement_listener([this](const DepthFrameResult& result) { report(result); });
  }
  ~LiveRun() { shut_down(); }
  LiveRun(const LiveRun&) = delete;
  LiveRun& operator=(const LiveRun&) = delete;

  // Initialises the SDK and starts every camera it lists on depth only.
  void start() {
    check(Corvane::InitSDK(), "InitSDK");
    initialised_ = true;
    std::int32_t count = 0;
    check(Corvane::FindDevice(count, nullptr), "FindDevice");
    if (count <= 0) throw SdkError("no camera found");
    std::vector<Corvane::DeviceInfo> devices(static_cast<std::size_t>(count));
    check(Corvane::FindDevice(count, devices.data()), "FindDevice");
    // The list may have shrunk between the two calls.
    if (count < static_cast<std::int32_t>(devices.size())) {
      devices.resize(static_cast<std::size_t>(std::max<std::int32_t>(count, 0)));
    }
    if (devices.empty()) throw SdkError("no camera found");
    for (const Corvane::DeviceInfo& device : devices) start_camera(device);
  }

  // Until the frames are done, a stop signal, or a silence of the cameras.
  void poll() {
    using Clock = std::chrono::steady_clock;
    auto last_frame = Clock::now();
    std::int32_t last_status = 0;
    while (StopSignals::requested() == 0 && !done() && output_failure_.empty()) {
      bool any_frame = false;
      for (LiveCamera& camera : cameras_) {
        if (done()) break;
        Corvane::FrameData* frame_data = nullptr;
        // The contract gives no code for "nothing new": every non-zero status
        // is taken as such, as the program's own loop does.
        last_status = Corvane::GetLastFrameData(camera.info.id, frame_data);
        if (last_status != 0 || frame_data == nullptr) continue;
        any_frame = true;
        // One state serves every camera, so each frame is measured with its
        // own camera's intrinsics, carried over to the frame's size: a camera
        // (or a replayed capture) may deliver another size than the one its
        // intrinsics were read for.
        const std::optional<cv::Size> size = depth_frame_size(*frame_data);
        g_measurement_state.intrinsics =
            size && camera.intrinsics_size.area() > 0
                ? scale_intrinsics(camera.intrinsics, camera.intrinsics_size, *size)
                : camera.intrinsics;
        current_ = &camera;
        handle_frame(camera.info.id, frame_data);
        current_ = nullptr;
      }
      if (any_frame) {
        last_frame = Clock::now();
      } else if (Clock::now() - last_frame > std::chrono::seconds(kLiveFrameTimeoutSeconds)) {
        throw SdkError("no frame from any camera for " + std::to_string(kLiveFrameTimeoutSeconds) +
                       " s (GetLastFrameData status " + std::to_string(last_status) + ")");
      }
      std::this_thread::sleep_for(kPollPause);
    }
  }

  // Stops the streams and the SDK; the first failure is thrown after all
  // were tried.
  void stop() {
    const std::string failure = shut_down();
    if (!failure.empty()) throw SdkError(failure);
  }

  // Why a line could not be written, or empty.
  const std::string& output_failure() const { return output_failure_; }
  long long measured() const { return measured_; }

 private:
  void start_camera(const Corvane::DeviceInfo& device) {
    LiveCamera camera;
    camera.info = device;
    const std::string id = " (camera " + std::to_string(device.id) + ")";
    check(Corvane::OpenDevice(device), "OpenDevice" + id);
    check(Corvane::SetFrameResolution(device.id, Corvane::kFrameDepth, kHighResolution),
          "SetFrameResolution" + id);
    check(Corvane::StartStreaming(device.id, kDepthOnlyStream), "StartStreaming" + id);
    camera.streaming = true;
    cameras_.push_back(camera);
    g_stream_types[device.id] = {device.id, kDepthOnlyStream};
    Corvane::Intrinsics intrinsics{};
    check(Corvane::GetIntric(device.id, Corvane::kFrameDepth, intrinsics), "GetIntric" + id);
    cameras_.back().intrinsics = {intrinsics.fx, intrinsics.fy, intrinsics.cx, intrinsics.cy};
    cameras_.back().intrinsics_size = cv::Size(intrinsics.width, intrinsics.height);
  }

  bool done() const { return options_.frames && measured_ >= *options_.frames; }

  void report(const DepthFrameResult& result) {
    // A set may carry more than one depth frame; the count is exact all the same.
    if (current_ == nullptr || done() || !output_failure_.empty()) return;
    ++current_->frames;
    ++measured_;
    // Thrown only once the frame handler is out of the way: the loop ends on it.
    try {
      write_line(out_,
                 options_.json ? result_json(*current_, result) : text_line(*current_, result),
                 kStandardOutput);
    } catch (const OutputError& e) {
      output_failure_ = e.what();
    }
  }

  // Idempotent; returns the first failure's message, empty when all went well.
  std::string shut_down() {
    std::string failure;
    const auto note = [&failure](std::int32_t status, const std::string& call) {
      if (status != 0 && failure.empty())
        failure = call + " failed with status " + std::to_string(status);
    };
    for (LiveCamera& camera : cameras_) {
      if (camera.streaming) {
        note(Corvane::StopStreaming(camera.info.id),
             "StopStreaming (camera " + std::to_string(camera.info.id) + ")");
        camera.streaming = false;
      }
      g_stream_types.erase(camera.info.id);
    }
    if (initialised_) {
      note(Corvane::UnInitSDK(), "UnInitSDK");
      initialised_ = false;
    }
    return failure;
  }

  const LiveOptions options_;
  std::ostream& out_;
  HeadlessFramePath frame_path_;
  StopSignals signals_;
  std::vector<LiveCamera> cameras_;
  LiveCamera* current_ = nullptr;
  long long measured_ = 0;
  std::string output_failure_;
  bool initialised_ = false;
};

}  // namespace

int run_live(const LiveOptions& options, std::ostream& out, std::ostream& err) {
  LiveRun run(options, out, err);
  try {
    run.start();
    run.poll();
    run.stop();
  } catch (const std::exception& e) {
    err << "boxdim-cli live: " << e.what() << '\n';
    return kExitCameraProblem;
  }
  if (!run.output_failure().empty()) {
    err << "boxdim-cli live: " << run.output_failure() << '\n';
    return kExitOutputFailed;
  }
  err << "boxdim-cli live: " << run.measured() << " frames measured";
  if (const int signal = StopSignals::requested())
    err << ", stopped by " << StopSignals::name(signal);
  err << '\n';
  return 0;
}

}  // namespace boxdim
