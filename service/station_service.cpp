#include "service/station_service.h"

#include <opencv2/imgcodecs.hpp>

#include "engine/box_picture.h"
#include "engine/camera_engines.h"
#include "service/api_json.h"
#include "source/camera_source.h"

namespace boxdim::service {
namespace {

// Frames counted for a camera's rate: about a second of them.
constexpr std::size_t kRateWindow = 31;
// A camera silent this long has stopped: its rate is 0.
constexpr std::chrono::seconds kStalled(1);
// Cameras silent this long are a camera problem.
constexpr std::chrono::seconds kSilenceLimit(10);

std::int64_t system_clock_us() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

StationService::StationService(StationOptions options, MeasurementHistory& history, EventHub& hub,
                               std::ostream& log)
    : options_(std::move(options)), history_(history), hub_(hub), log_(log) {
  recorder_ = std::thread([this] { record_loop(); });
}

StationService::~StationService() {
  {
    const std::lock_guard<std::mutex> lock(pending_mutex_);
    measuring_done_ = true;
  }
  pending_changed_.notify_all();
  if (recorder_.joinable()) recorder_.join();
}

void StationService::run(const std::function<bool()>& stop_requested) {
  // The engines' own lines (the station pipeline writes one per frame) would
  // drown the service's few; a service reports through its API.
  std::ostream quiet(nullptr);
  EngineContext context;
  context.log = &quiet;
  context.error_log = &quiet;
  context.draw_pictures = false;  // drawn when someone asks for them
  context.division_mm = options_.division_mm;
  CameraEngines engines(options_.engine, context);
  CameraSourceOptions source_options;
  source_options.stop_requested = stop_requested;
  source_options.silence_limit = kSilenceLimit;
  CameraSource cameras(source_options);
  MeasurementResult result;
  const auto wall_us = options_.clock_us ? options_.clock_us : system_clock_us;
  try {
    cameras.start();
    while (const std::optional<DepthFrame> frame = cameras.next()) {
      engines.of(frame->camera_id).measure_into(*frame, result);
      for (const TrackEvent& event : result.events) {
        Pending pending{frame->camera_id, event, cv::Mat(), wall_us()};
        if (event.kind == TrackEventKind::kMeasured) {
          pending.proof = draw_proof(frame->depth, event, frame->camera_id);
        }
        {
          const std::lock_guard<std::mutex> lock(pending_mutex_);
          pending_.push_back(std::move(pending));
        }
        pending_changed_.notify_one();
      }
      keep_latest(*frame, result);
    }
    cameras.stop();
  } catch (const std::exception& e) {
    log(std::string("cameras: ") + e.what() + ", measuring stopped");
    const std::lock_guard<std::mutex> lock(latest_mutex_);
    camera_problem_ = e.what();
  }
  // Everything measured is stored and published before run() returns.
  std::unique_lock<std::mutex> lock(pending_mutex_);
  pending_changed_.wait(lock, [&] { return pending_.empty(); });
}

void StationService::keep_latest(const DepthFrame& frame, const MeasurementResult& result) {
  const std::lock_guard<std::mutex> lock(latest_mutex_);
  Latest& latest = latest_[frame.camera_id];
  // Copied into buffers the slot keeps: the source reuses its own.
  frame.depth.copyTo(latest.depth);
  latest.frame = frame;
  latest.frame.depth = latest.depth;
  latest.result = result;
  latest.result.picture = cv::Mat();
  latest.arrivals.push_back(std::chrono::steady_clock::now());
  if (latest.arrivals.size() > kRateWindow) latest.arrivals.pop_front();
  ++latest.frames;
  ++frames_measured_;
}

ServiceStatus StationService::status() const {
  ServiceStatus status;
  status.engine = options_.engine;
  const auto now = std::chrono::steady_clock::now();
  status.uptime_s = std::chrono::duration<double>(now - started_).count();
  {
    const std::lock_guard<std::mutex> lock(latest_mutex_);
    for (const auto& [id, latest] : latest_) {
      CameraStatus camera;
      camera.device_id = id;
      camera.frames = latest.frames;
      // A camera that sent nothing for a second runs at no rate, whatever
      // its last frames did.
      if (latest.arrivals.size() >= 2 && now - latest.arrivals.back() < kStalled) {
        const double span =
            std::chrono::duration<double>(latest.arrivals.back() - latest.arrivals.front()).count();
        if (span > 0.0) camera.frames_per_second = (latest.arrivals.size() - 1) / span;
      }
      camera.boxes_in_view = static_cast<int>(latest.result.boxes.size());
      status.cameras.push_back(camera);
    }
    status.frames_measured = frames_measured_;
    status.camera_problem = camera_problem_;
  }
  const std::lock_guard<std::mutex> lock(pending_mutex_);
  status.measured_events = measured_events_;
  status.history_problem = history_problem_;
  return status;
}

std::optional<cv::Mat> StationService::camera_picture(int device_id) const {
  const std::lock_guard<std::mutex> lock(latest_mutex_);
  const auto latest = latest_.find(device_id);
  if (latest == latest_.end()) return std::nullopt;
  return draw_followed_boxes(latest->second.frame, latest->second.result);
}

void StationService::record_loop() {
  std::unique_lock<std::mutex> lock(pending_mutex_);
  for (;;) {
    pending_changed_.wait(lock, [&] { return !pending_.empty() || measuring_done_; });
    if (pending_.empty()) return;
    const Pending pending = std::move(pending_.front());
    lock.unlock();
    record(pending);
    lock.lock();
    pending_.pop_front();
    // run() waits for the queue to empty before it returns.
    pending_changed_.notify_all();
  }
}

void StationService::record(const Pending& pending) {
  const TrackEvent& event = pending.event;
  if (event.kind != TrackEventKind::kMeasured) {
    hub_.publish(track_event_name(event.kind),
                 event_json(track_event_name(event.kind), pending.device_id, event.track_id,
                            pending.wall_us, nullptr)
                     .dump());
    return;
  }
  MeasurementRecord record;
  record.time_us = pending.wall_us;
  record.device_id = pending.device_id;
  record.track_id = event.track_id;
  record.length_mm = event.reading.dimensions.box_length;
  record.width_mm = event.reading.dimensions.box_width;
  record.height_mm = event.reading.dimensions.box_height;
  record.uncertainty_mm = event.reading.uncertainty_mm;
  record.frames = event.reading.frames;
  std::vector<unsigned char> png;
  if (!pending.proof.empty()) cv::imencode(".png", pending.proof, png);
  try {
    std::string proof_problem;
    record = history_.add(record, png, &proof_problem);
    if (!proof_problem.empty())
      history_failed("proof " + proof_problem);
    else {
      const std::lock_guard<std::mutex> lock(pending_mutex_);
      history_problem_.clear();
    }
  } catch (const HistoryError& e) {
    // Measuring goes on; the event still tells its listeners, without an id.
    history_failed(e.what());
    record.id = 0;
    record.has_proof = false;
  }
  {
    const std::lock_guard<std::mutex> lock(pending_mutex_);
    ++measured_events_;
  }
  hub_.publish(
      "measured",
      event_json("measured", pending.device_id, event.track_id, pending.wall_us, &record).dump());
}

void StationService::history_failed(const std::string& problem) {
  bool is_new = false;
  {
    const std::lock_guard<std::mutex> lock(pending_mutex_);
    is_new = problem != history_problem_;
    history_problem_ = problem;
  }
  // Once per problem, not once per box while the disk stays full.
  if (is_new) log("history: " + problem);
}

void StationService::log(const std::string& line) {
  const std::lock_guard<std::mutex> lock(log_mutex_);
  log_ << "boxdim-cli serve: " << line << '\n' << std::flush;
}

}  // namespace boxdim::service
