// Finds the four corners of the box's top face among the points of its
// contour: the farthest pair, then the farthest points from it, with a second
// search when that first pair turns out to lie on one side.
#pragma once

#include <vector>

#include "measure/measurement_state.h"

namespace boxdim {

// Fills `indices` (empty on entry) with the four corner indices into
// state.top_rect_contour_points, ascending, and state.top_rect_corner_points
// with the corners in the order found. False when the contour is empty or
// degenerate: all its points coincide, or no point lies between the farthest
// pair on one of its two arcs.
bool find_top_rect_corners(MeasurementState& state, std::vector<int>& indices);

// Second search, for when corners 0 and 1 share a side: overwrites third_idx
// and fourth_idx.
bool find_remaining_corners(MeasurementState& state, int& first_idx, int& second_idx,
                            int& third_idx, int& fourth_idx);

}  // namespace boxdim
