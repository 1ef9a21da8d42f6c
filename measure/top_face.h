// Turns the points near the plane into the box's top face: a quarter-resolution
// mask, cleaned, whose outer contour around the image centre is the face's
// outline.
#pragma once

#include "measure/measurement_state.h"

namespace boxdim {

// Writes state.top_rect_contour_points (mask coordinates: x = column / 4,
// y = row / 4) and keeps in state.selected_pixels / selected_points only the
// points strictly inside it. Without a contour around the centre all three
// are left empty.
void extract_top_face(MeasurementState& state);

}  // namespace boxdim
