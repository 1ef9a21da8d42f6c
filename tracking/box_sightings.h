// The detector's boxes as the tracker sees them: where each top is, its
// status, and its size when measured.
#pragma once

#include <vector>

#include "precise/box_fit.h"
#include "tracking/box_tracker.h"

namespace boxdim::tracking {

// One sighting per fit, in the fits' order; `sightings` keeps its buffer.
void sightings_of(const std::vector<precise::BoxFit>& fits, std::vector<Sighting>& sightings);

}  // namespace boxdim::tracking
