// Chooses the cloud points the plane stage fits: a seed window at the image
// centre, or every point near the current plane. Both sample every fourth row
// and column and fill state.selected_pixels (x = row, y = column) and
// state.selected_points.
#pragma once

#include "measure/measurement_state.h"

namespace boxdim {

// Points of the centre window deeper than 100 mm; true when at least 50.
bool select_points_by_center(MeasurementState& state);

// Points whose distance to state.plane is below maxDistance (mm); true when at
// least 100.
bool select_points_by_plane(MeasurementState& state, int maxDistance);

}  // namespace boxdim
