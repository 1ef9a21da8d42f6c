// `boxdim-cli evaluate`: renders scene families with known dimensions,
// measures every scene and reports how often and how well it was measured.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "evaluation/accuracy.h"

namespace boxdim {

struct EvaluateOptions {
  int scenes = 50;  // per family
  std::uint64_t seed = 2026;
  std::vector<SceneFamily> families;
  std::vector<std::string> engines;  // measured side by side, each on every scene
  std::string csv_path;              // empty: no table of scenes
  std::string plot_path;             // empty: no picture
  int sequences = 0;  // more than 0: that many rendered sequences per kind instead of scenes
  // Also each side of the boxes the precise engine measures against the true
  // side, by how the side was placed.
  bool sides = false;
  // The station's division (mm): a box whose size cannot be told within it
  // is uncertain.
  float division_mm = 5.0f;
};

// Renders and measures scene by scene, each scene with every engine: a
// progress bar on `err`, a CSV row per scene and engine as it is measured,
// the table of families and engines on `out` at the end.
// SIGINT, SIGTERM or SIGHUP end the run after the current scene with the
// report and plot of what was measured and status 128 + the signal. Otherwise
// exit status 0, or 2 when an output cannot be written (the CSV and the
// picture are tried before the run starts; the rows written so far stay).
int run_evaluate(const EvaluateOptions& options, std::ostream& out, std::ostream& err);

}  // namespace boxdim
