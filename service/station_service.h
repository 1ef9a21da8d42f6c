// The station as a service: the cameras measured frame after frame by an
// engine per camera, each measured box stored in the history with its proof
// picture, every event handed to the event hub in the order it happened, and
// what the web page and the API show (the latest picture per camera, frame
// rates, counts) kept at hand. Measuring runs on its own thread and never
// waits for storing or for anyone reading.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <opencv2/core.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "core/depth_frame.h"
#include "core/measurement_result.h"
#include "service/event_hub.h"
#include "service/measurement_history.h"

namespace boxdim::service {

struct CameraStatus {
  int device_id = 0;
  long long frames = 0;
  double frames_per_second = 0.0;  // over the last second or so
  int boxes_in_view = 0;
};

struct ServiceStatus {
  std::string engine;
  double uptime_s = 0.0;
  std::vector<CameraStatus> cameras;
  long long frames_measured = 0;
  long long measured_events = 0;  // since the start, stored or not
  std::string camera_problem;     // why measuring stopped, when it did
  std::string history_problem;    // the last failure to store, when storing fails now
};

struct StationOptions {
  std::string engine;
  float division_mm = 5.0f;  // the station's (see EngineContext)
  // Wall-clock microseconds since 1970 for a measurement's time.
  std::function<std::int64_t()> clock_us;
};

class StationService {
 public:
  StationService(StationOptions options, MeasurementHistory& history, EventHub& hub,
                 std::ostream& log);
  ~StationService();
  StationService(const StationService&) = delete;
  StationService& operator=(const StationService&) = delete;

  // Measures the cameras until `stop_requested` says so or the cameras fail
  // (reported in the status and the log); returns when done, with every
  // event stored and published.
  void run(const std::function<bool()>& stop_requested);

  ServiceStatus status() const;
  // The latest frame of a camera with its boxes drawn; nothing for a camera
  // that has sent none.
  std::optional<cv::Mat> camera_picture(int device_id) const;

 private:
  struct Latest {
    cv::Mat depth;
    DepthFrame frame;  // its depth the Mat above
    MeasurementResult result;
    std::deque<std::chrono::steady_clock::time_point> arrivals;
    long long frames = 0;
  };
  struct Pending {
    int device_id = 0;
    TrackEvent event;
    cv::Mat proof;  // for a measured event
    std::int64_t wall_us = 0;
  };

  void keep_latest(const DepthFrame& frame, const MeasurementResult& result);
  void record_loop();
  void record(const Pending& pending);
  void history_failed(const std::string& problem);
  void log(const std::string& line);

  const StationOptions options_;
  MeasurementHistory& history_;
  EventHub& hub_;
  std::ostream& log_;
  std::mutex log_mutex_;
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();

  mutable std::mutex latest_mutex_;
  std::map<int, Latest> latest_;
  long long frames_measured_ = 0;
  std::string camera_problem_;

  mutable std::mutex pending_mutex_;
  std::condition_variable pending_changed_;
  std::deque<Pending> pending_;
  bool measuring_done_ = false;
  long long measured_events_ = 0;
  std::string history_problem_;
  std::thread recorder_;
};

}  // namespace boxdim::service
