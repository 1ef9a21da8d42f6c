// `boxdim-cli live`: streams depth from every camera the SDK finds and
// measures each frame with an engine of the camera's own, headless.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "engine/engine_factory.h"

namespace boxdim {

struct LiveOptions {
  std::optional<long long> frames;  // stop after this many measured frames; none: until a signal
  bool json = false;
  std::string engine = default_engine_name();
  // The tracker's events instead of a line per frame (the precise engine).
  bool events = false;
  // A PNG proof picture for every measured event, into this folder.
  std::string proof_dir;
  // Every frame delivered, recorded into this folder for the virtual
  // camera to replay.
  std::string capture_dir;
  // A window per camera showing the boxes followed (needs a display).
  bool view = false;
  // The station's division (mm): a box whose size cannot be told within it
  // is uncertain.
  float division_mm = 5.0f;
};

// Exit status of a camera problem: no camera found, an SDK call failed, or
// no frame arrived for kLiveFrameTimeoutSeconds.
constexpr int kExitCameraProblem = 3;
constexpr int kLiveFrameTimeoutSeconds = 10;

// One line (text or JSON) per measured depth frame on `out`, or with
// `events` one per event of a camera's tracker (placed, measured, removed,
// each naming the camera, the track and the time); the measurement
// stages' own lines and every message go to `err`, which closes with the
// number of frames measured. Exit status 0 once the frames are done or
// SIGINT, SIGTERM or SIGHUP arrived (or Esc was pressed in a view window); kExitOutputFailed (2)
// when `out` cannot be written; else kExitCameraProblem. The cameras are stopped and the SDK shut
// down in every case.
int run_live(const LiveOptions& options, std::ostream& out, std::ostream& err);

}  // namespace boxdim
