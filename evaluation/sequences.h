// Rendered sequences with known boxes, frame after frame through the precise
// engine: whether its tracker tells each box's story right (placed, measured
// once, removed, one track all along), how much the fused reading gains over
// single frames, how soon a box at rest is measured, and how still its
// reading then stays. `boxdim-cli evaluate --sequences` prints these.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "evaluation/accuracy.h"
#include "scene/scene_motion.h"

namespace boxdim {

enum class SequenceKind {
  kPlaced,      // a box put down, left for 10 s, taken away
  kTwoBoxes,    // a box put down, a second one 1.7 s later, both taken away
  kCarried,     // a box carried across the view at 0.2 to 1 m/s
  kEmptyFloor,  // no box at all: right when nothing is measured
  kField,       // a carton of the field family put down, left for 4 s, taken away
};

struct SequenceFamily {
  std::string name;
  SequenceKind kind = SequenceKind::kPlaced;
};

// "placed", "two-boxes", "carried", "empty", "field".
std::vector<SequenceFamily> sequence_families();

// A sequence to film: the scene (its boxes and camera drawn as for the
// realistic family; two boxes as for the cluttered one; a field carton as
// for the field family, whose frames take longer to render, hence its
// shorter rest), how it moves, and for how long.
struct SequenceScript {
  SceneParameters scene;
  SceneMotion motion;
  int frames = 0;
  int frames_per_second = 30;
  // When each box (the main one, then the others) comes to rest: put down;
  // negative for a box that never rests.
  std::vector<double> rests_at_s;
};

// `count` scripts of a kind, reproducibly from `seed`.
std::vector<SequenceScript> sample_sequences(const SequenceFamily& family, int count,
                                             std::uint64_t seed);

// What the engine made of one sequence.
struct SequenceOutcome {
  int boxes = 0;
  bool events_right = false;  // see run_sequence
  std::string problem;        // the first thing wrong with them, when they are not
  // Per box measured: the fused reading's absolute error at its measured
  // event (mm), per dimension.
  std::vector<double> fused_errors[3];
  // Per box measured at rest: the error of its last reading before it was
  // taken away (mm), per dimension.
  std::vector<double> late_errors[3];
  // Per frame in which a box was measured: that frame's own error (mm).
  std::vector<double> frame_errors[3];
  // Per box at rest that was measured: seconds from rest to the event.
  std::vector<double> settle_s;
  // Per box measured while at rest: the standard deviation (mm, the largest
  // of the three dimensions) of its reading in the frames after the event.
  std::vector<double> reading_sd_mm;
  std::vector<double> frame_ms;
};

// Films the script and runs a fresh precise engine over it, the random
// sampling seeded with `ransac_seed`. The events are right when every box
// was placed, measured and removed exactly once, no other track was, every
// measured event lies on a box, and each box kept one track id in the
// frames it was detected in.
SequenceOutcome run_sequence(const SequenceScript& script, std::time_t ransac_seed);

struct SequenceStatistics {
  int sequences = 0;
  int boxes = 0;
  int events_right = 0;  // sequences
  ErrorStatistics fused[3];
  ErrorStatistics late[3];
  bool any_late = false;
  ErrorStatistics single_frame[3];
  double settle_median_s = 0.0;
  double settle_max_s = 0.0;
  double reading_sd_max_mm = 0.0;
  double median_ms = 0.0;
  bool any_settled = false;
  bool any_reading_sd = false;
  std::map<std::string, int> problems;  // -> sequences
};

SequenceStatistics summarise(const std::vector<SequenceOutcome>& outcomes);

}  // namespace boxdim
