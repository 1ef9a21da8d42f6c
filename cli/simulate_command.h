// `boxdim-cli simulate`: renders a synthetic box scene to a depth file and
// prints its ground truth.
#pragma once

#include <ostream>
#include <string>

#include "scene/depth_scene.h"

namespace boxdim {

struct SimulateOptions {
  SceneParameters scene;
  std::string out_path;
  std::string png_path;  // empty: no preview
};

// Exit status 0, or 2 when the scene is invalid or a file cannot be written.
int run_simulate(const SimulateOptions& options, std::ostream& out, std::ostream& err);

}  // namespace boxdim
