#include "cli/live_command.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

#include "cli/frame_recorder.h"
#include "cli/json_line.h"
#include "cli/json_number.h"
#include "cli/live_view.h"
#include "cli/output.h"
#include "cli/result_writer.h"
#include "engine/box_picture.h"
#include "engine/camera_engines.h"
#include "engine/engine_factory.h"
#include "runtime/display_check.h"
#include "runtime/stop_signals.h"
#include "source/camera_source.h"

namespace boxdim {

namespace {

std::string text_line(int camera, long long frame, const MeasurementResult& result) {
  std::ostringstream line;
  line << "camera " << camera << " frame " << frame << ": " << result_text(result);
  return line.str();
}

// The keys of `boxdim-cli measure --json`, with the camera in place of the file.
std::string json_text(int camera, long long frame, const MeasurementResult& result,
                      const std::string& engine) {
  nlohmann::json line = result_json(result, engine);
  line["device_id"] = camera;
  line["frame"] = frame;
  return json_line(line);
}

double seconds_of(std::int64_t time_us) { return static_cast<double>(time_us) * 1e-6; }

// Where a measured event's proof picture goes: the camera, track and time
// in its name, so that no two events share one.
std::string proof_path(const std::string& dir, int camera, const TrackEvent& event) {
  char name[96];
  std::snprintf(name, sizeof name, "camera-%d-box-%d-%.3fs.png", camera, event.track_id,
                seconds_of(event.time_us));
  return (std::filesystem::path(dir) / name).string();
}

std::string event_text(int camera, const TrackEvent& event, const std::string& proof) {
  char line[256];
  const int n =
      std::snprintf(line, sizeof line, "camera %d box %d %s at %s", camera, event.track_id,
                    track_event_name(event.kind), frame_time_text(event.time_us).c_str());
  std::string text(line, static_cast<std::size_t>(std::max(0, n)));
  if (event.kind == TrackEventKind::kMeasured) {
    const BoxDimensions& d = event.reading.dimensions;
    std::snprintf(line, sizeof line, ": %.1f x %.1f x %.1f mm, uncertainty %.1f mm, %d frames",
                  d.box_length, d.box_width, d.box_height, event.reading.uncertainty_mm,
                  event.reading.frames);
    text += line;
    if (!proof.empty()) text += ", proof " + proof;
  }
  return text;
}

std::string event_json(int camera, const TrackEvent& event, const std::string& proof) {
  nlohmann::json line;
  line["event"] = track_event_name(event.kind);
  line["device_id"] = camera;
  line["track_id"] = event.track_id;
  line["time"] = seconds_of(event.time_us);
  if (event.kind == TrackEventKind::kMeasured) {
    const BoxDimensions& d = event.reading.dimensions;
    line["length_mm"] = json_number(d.box_length);
    line["width_mm"] = json_number(d.box_width);
    line["height_mm"] = json_number(d.box_height);
    line["uncertainty_mm"] = json_number(event.reading.uncertainty_mm);
    line["frames"] = event.reading.frames;
    if (!proof.empty()) line["proof"] = proof;
  }
  return json_line(line);
}

}  // namespace

int run_live(const LiveOptions& options, std::ostream& out, std::ostream& err) {
  // Without a display the window toolkit would abort the process.
  if (options.view) {
    if (const std::string problem = display_problem(); !problem.empty()) {
      err << "boxdim-cli live: --view: " << problem << '\n';
      return kExitOutputFailed;
    }
  }
  const StopSignals stop_signals;
  EngineContext context;
  context.log = &err;
  context.error_log = &err;
  context.draw_pictures = false;  // nothing is shown
  context.division_mm = options.division_mm;
  CameraEngines engines(options.engine, context);
  CameraSourceOptions source_options;
  source_options.stop_requested = [] { return StopSignals::requested() != 0; };
  source_options.silence_limit = std::chrono::seconds(kLiveFrameTimeoutSeconds);
  CameraSource cameras(source_options);

  long long measured = 0;
  std::map<int, long long> frames_of_camera;
  MeasurementResult result;  // its buffers reused from frame to frame
  const std::vector<TrackEvent> no_events;
  bool stopped_in_view = false;
  try {
    if (!options.proof_dir.empty()) create_output_folder(options.proof_dir, "proof folder");
    std::optional<FrameRecorder> recorder;
    if (!options.capture_dir.empty()) recorder.emplace(options.capture_dir);
    std::optional<LiveView> view;
    if (options.view) view.emplace();
    cameras.start();
    while (!options.frames || measured < *options.frames) {
      const std::optional<DepthFrame> frame = cameras.next();
      if (!frame) break;
      if (recorder) recorder->record(*frame);
      engines.of(frame->camera_id).measure_into(*frame, result);
      const long long number = ++frames_of_camera[frame->camera_id];
      ++measured;
      if (!options.events) {
        write_line(out,
                   options.json ? json_text(frame->camera_id, number, result, options.engine)
                                : text_line(frame->camera_id, number, result),
                   kStandardOutput);
      }
      for (const TrackEvent& event : options.events ? result.events : no_events) {
        std::string proof;
        if (event.kind == TrackEventKind::kMeasured && !options.proof_dir.empty()) {
          proof = proof_path(options.proof_dir, frame->camera_id, event);
          write_png(proof, draw_proof(frame->depth, event, frame->camera_id));
        }
        write_line(out,
                   options.json ? event_json(frame->camera_id, event, proof)
                                : event_text(frame->camera_id, event, proof),
                   kStandardOutput);
      }
      if (view) {
        view->show(*frame, result);
        stopped_in_view = view->stop_requested();
        if (stopped_in_view) break;
      }
    }
    cameras.stop();
  } catch (const OutputError& e) {
    err << "boxdim-cli live: " << e.what() << '\n';
    return kExitOutputFailed;
  } catch (const std::exception& e) {
    err << "boxdim-cli live: " << e.what() << '\n';
    return kExitCameraProblem;
  }
  err << "boxdim-cli live: " << measured << " frames measured";
  if (const int signal = StopSignals::requested()) {
    err << ", stopped by " << StopSignals::name(signal);
  } else if (stopped_in_view) {
    err << ", stopped in the view window";
  }
  err << '\n';
  return 0;
}

}  // namespace boxdim
