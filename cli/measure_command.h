// `boxdim-cli measure`: measures depth frame files as consecutive frames of
// one camera.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "core/camera_intrinsics.h"
#include "engine/engine_factory.h"
#include "source/depth_file.h"

namespace boxdim {

struct MeasureOptions {
  std::optional<FrameSize> size;
  // Taken for every frame as given; without them the station camera's own,
  // carried over to each frame's size.
  std::optional<CameraIntrinsics> intrinsics;
  std::optional<std::time_t> seed;  // replaces the clock of both RANSAC stages
  std::string engine = default_engine_name();
  bool json = false;
  std::string annotate_dir;  // empty: no pictures
  std::vector<std::string> files;
  // The station's division (mm): a box whose size cannot be told within it
  // is uncertain.
  float division_mm = 5.0f;
};

// Exit status: 0 every file measured, 1 some measurement failed, 2 some file
// could not be used (the other files are still measured), or an output could
// not be written (the run stops there), or a picture would overwrite an input
// or another picture (checked before anything is measured).
int run_measure(const MeasureOptions& options, std::ostream& out, std::ostream& err);

}  // namespace boxdim
