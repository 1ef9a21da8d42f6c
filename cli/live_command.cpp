#include "cli/live_command.h"

#include <map>
#include <memory>
#include <sstream>

#include "cli/json_line.h"
#include "cli/output.h"
#include "cli/result_writer.h"
#include "engine/engine_factory.h"
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

// One engine per camera, so that a camera's plane and intrinsics never leak
// into another's measurement.
class CameraEngines {
 public:
  CameraEngines(std::string name, const EngineContext& context)
      : name_(std::move(name)), context_(context) {}

  Engine& of(int camera) {
    std::unique_ptr<Engine>& engine = engines_[camera];
    if (!engine) engine = create_engine(name_, context_);
    return *engine;
  }

 private:
  const std::string name_;
  const EngineContext context_;
  std::map<int, std::unique_ptr<Engine>> engines_;
};

}  // namespace

int run_live(const LiveOptions& options, std::ostream& out, std::ostream& err) {
  const StopSignals stop_signals;
  EngineContext context;
  context.log = &err;
  context.error_log = &err;
  context.draw_pictures = false;  // nothing is shown
  CameraEngines engines(options.engine, context);
  CameraSourceOptions source_options;
  source_options.stop_requested = [] { return StopSignals::requested() != 0; };
  source_options.silence_limit = std::chrono::seconds(kLiveFrameTimeoutSeconds);
  CameraSource cameras(source_options);

  long long measured = 0;
  std::map<int, long long> frames_of_camera;
  MeasurementResult result;  // its buffers reused from frame to frame
  try {
    cameras.start();
    while (!options.frames || measured < *options.frames) {
      const std::optional<DepthFrame> frame = cameras.next();
      if (!frame) break;
      engines.of(frame->camera_id).measure_into(*frame, result);
      const long long number = ++frames_of_camera[frame->camera_id];
      ++measured;
      write_line(out,
                 options.json ? json_text(frame->camera_id, number, result, options.engine)
                              : text_line(frame->camera_id, number, result),
                 kStandardOutput);
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
  if (const int signal = StopSignals::requested())
    err << ", stopped by " << StopSignals::name(signal);
  err << '\n';
  return 0;
}

}  // namespace boxdim
