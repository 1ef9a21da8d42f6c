// How far each side of a box the precise engine measured lies from the true
// side, by how the side was placed: where the engine's length and width
// errors come from, side by side.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "precise/box_fit.h"
#include "scene/depth_scene.h"

namespace boxdim {

enum class SidePlacement {
  kStanding,      // by the points of the box's side in view below it
  kInViewBand,    // a side in view, within the band across its edge
  kHidingRimRead, // a hiding edge, moved out by the rounding read off the box
  kHidingNoRim,   // a hiding edge, no rounding read
};
constexpr int kSidePlacements = 4;

// What the table of side errors calls each placement.
const char* side_placement_name(SidePlacement placement);

struct SideError {
  SidePlacement placement = SidePlacement::kStanding;
  // The fitted side less the true one, outwards from the box (mm): negative
  // reads the box short on that side.
  double error_mm = 0.0;
};

// The errors of the sides the fit placed (a side left where the first
// rectangle put it has none). The truth's top is the enclosing cuboid's; the
// fit's sides lie at its rim's height, and both are compared across the
// floor, so the heights they stand at do not count.
std::array<std::optional<SideError>, 4> side_errors(const precise::BoxFit& fit,
                                                    const SceneGroundTruth& truth);

// The scene's main box as the precise engine measures it (detected with
// `seed` and the division), its sides against the truth; none when the box
// is not measured.
std::vector<SideError> measure_sides(const SceneParameters& scene, const RenderedScene& rendered,
                                     float division_mm, std::uint64_t seed);

struct SidePlacementStatistics {
  int sides = 0;
  double mean_mm = 0.0;
  double sd_mm = 0.0;  // population standard deviation
};

std::array<SidePlacementStatistics, kSidePlacements> summarise_sides(
    const std::vector<SideError>& errors);

}  // namespace boxdim
