// Draws the measured box (wire frame and its three dimensions) onto the
// frame's picture.
#pragma once

#include "measure/measurement_state.h"

namespace boxdim {

// Draws on state.result_image whatever the state holds; call it only after a
// measurement that produced four corners.
void draw_measurement_result(MeasurementState& state);

}  // namespace boxdim
