// The height stage: walks down the visible side face to a temporary height,
// then takes the height from the floor points in a ring around the box.
#pragma once

#include <vector>

#include "measure/measurement_state.h"

namespace boxdim {

// Writes state.dimensions.box_height.
bool estimate_box_height(MeasurementState& state);

// Indices of the two box corners lowest in the image (largest y).
bool find_lowest_corner_pair(MeasurementState& state, int& first, int& second);

// Walks the edge between the two corners down the side face. Writes the
// height: 0 when the side faces are not visible, else the temporary height.
bool estimate_temp_height(MeasurementState& state, int first, int second);

// method 1: side faces not visible; method 2: a side face is visible.
bool compute_box_height(MeasurementState& state, int method);

// The ring scan: fills state.dists and state.dist_pixels.
bool cal_dists2org_again(MeasurementState& state, int method);

// The height from a dense run of the sorted distances.
bool select_qualifying_height(MeasurementState& state, const std::vector<float>& dists,
                              float& height);

}  // namespace boxdim
