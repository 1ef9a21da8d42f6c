// `boxdim-cli evaluate`: renders scene families with known dimensions,
// measures every scene and reports how often and how well it was measured.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "scene/accuracy.h"

namespace boxdim {

struct EvaluateOptions {
  int scenes = 50;  // per family
  std::uint64_t seed = 2026;
  std::vector<SceneFamily> families;
  std::string csv_path;   // empty: no table of scenes
  std::string plot_path;  // empty: no picture
};

// The table of families on `out`, a progress bar on `err`. Exit status 0, or 2
// when the CSV or the picture cannot be written (checked before the run
// starts; the rows written so far stay).
int run_evaluate(const EvaluateOptions& options, std::ostream& out, std::ostream& err);

}  // namespace boxdim
