// Depth pixels to 3-D points in the camera frame (mm).
#pragma once

#include "measure/measurement_state.h"

namespace boxdim {

// Rebuilds state.cloud from state.depth and state.intrinsics: one point per
// pixel, row-major. Pixels without depth land on the origin; later stages drop
// them by their tests on z.
void build_point_cloud(MeasurementState& state);

}  // namespace boxdim
