// The cameras behind the SDK contract as one source of depth frames: the SDK
// brought up, every camera it finds opened and started on depth only at high
// resolution, polled in turn (one frame set per camera and round, as the
// station program does), and everything stopped again.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "core/camera_intrinsics.h"
#include "source/frame_source.h"

namespace boxdim {

// A camera problem: an SDK call that failed (named with its status), no
// camera at all, or cameras that fell silent.
class CameraError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CameraSourceOptions {
  // Asked between rounds of polls; when it says yes, next() ends the source.
  std::function<bool()> stop_requested = [] { return false; };
  // No frame from any camera for this long is a camera problem.
  std::chrono::milliseconds silence_limit{std::chrono::seconds(10)};
  // Microseconds for a frame's timestamp; by default the system clock's.
  std::function<std::int64_t()> clock_us;
};

class CameraSource : public FrameSource {
 public:
  explicit CameraSource(CameraSourceOptions options = {});
  // Stops what is still running; failures then go unreported.
  ~CameraSource() override;
  CameraSource(const CameraSource&) = delete;
  CameraSource& operator=(const CameraSource&) = delete;

  // Brings the SDK and every camera up. Throws CameraError.
  void start();
  // The next depth frame of any camera, a view of the SDK's buffer valid
  // until the next call, with its camera's intrinsics carried over to the
  // frame's size; nothing once a stop is requested. Throws CameraError when
  // the cameras fall silent.
  std::optional<DepthFrame> next() override;
  // Stops every stream and shuts the SDK down; throws CameraError with the
  // first failure after trying all.
  void stop();

  // The device ids of the started cameras, in the SDK's order.
  std::vector<int> camera_ids() const;

 private:
  struct Camera {
    Corvane::DeviceInfo info{};
    CameraIntrinsics intrinsics;
    cv::Size intrinsics_size;  // the image size the intrinsics describe
    bool streaming = false;
  };

  void start_camera(const Corvane::DeviceInfo& device);
  // Idempotent; the first failure's message, empty when all went well.
  std::string shut_down();

  CameraSourceOptions options_;
  std::vector<Camera> cameras_;
  bool initialised_ = false;
  std::size_t next_camera_ = 0;  // where the current round of polls goes on
  bool frame_this_round_ = false;
  std::chrono::steady_clock::time_point last_frame_;
  std::int32_t last_status_ = 0;
};

}  // namespace boxdim
