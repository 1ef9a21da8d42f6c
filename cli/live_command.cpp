#include "cli/live_command.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
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
#include "cli/json_number.h"
#include "cli/result_text.h"

namespace boxdim {

namespace {

constexpr std::int32_t kDepthOnlyStream = 2;
constexpr std::int32_t kHighResolution = 2;
// Between two rounds of polls: frames come every 33 ms, and a busy loop would
// take the core the measurement needs.
constexpr std::chrono::milliseconds kPollPause(1);

volatile std::sig_atomic_t stop_requested = 0;

extern "C" void request_stop(int) { stop_requested = 1; }

// SIGINT and SIGTERM end the polling loop, so that the cameras are stopped
// before the process ends; the previous handlers come back afterwards.
class StopSignals {
 public:
  StopSignals() {
    stop_requested = 0;
    struct sigaction action {};
    action.sa_handler = request_stop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previous_int_);
    sigaction(SIGTERM, &action, &previous_term_);
  }
  ~StopSignals() {
    sigaction(SIGINT, &previous_int_, nullptr);
    sigaction(SIGTERM, &previous_term_, nullptr);
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  struct sigaction previous_int_ {};
  struct sigaction previous_term_ {};
};

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
std::string json_line(const LiveCamera& camera, const DepthFrameResult& result) {
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
  return line.dump();
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
    while (stop_requested == 0 && !done()) {
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
        // own camera's intrinsics.
        g_measurement_state.intrinsics = camera.intrinsics;
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
  }

  bool done() const { return options_.frames && measured_ >= *options_.frames; }

  void report(const DepthFrameResult& result) {
    // A set may carry more than one depth frame; the count is exact all the same.
    if (current_ == nullptr || done()) return;
    ++current_->frames;
    ++measured_;
    out_ << (options_.json ? json_line(*current_, result) : text_line(*current_, result)) << '\n'
         << std::flush;
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
  return 0;
}

}  // namespace boxdim
