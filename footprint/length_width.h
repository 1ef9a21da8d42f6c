// The footprint stage: corners, side lines, their intersections, the corners
// on the top plane in 3-D, and the box's length and width.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "measure/measurement_state.h"

namespace boxdim {

// Writes state.box_corners, corners_3d, side_lengths and the length and width
// of state.dimensions.
bool compute_length_width(MeasurementState& state);

// Lines fitted to the four contour segments between the corner `indices`
// (ascending), intersected into state.coarse_corners at full resolution.
bool fit_contour_edge_lines(MeasurementState& state, const std::vector<int>& indices);

// Corner i is where line i meets line (i + 1) mod 4; appends four points.
bool cal_four_lines_intersection(MeasurementState& state, const std::vector<cv::Vec4f>& lines,
                                 std::vector<cv::Point2f>& corners);

// Lifts the image corners onto the top plane and checks that opposite sides
// agree within 30 %.
bool check_length_width_ratio(MeasurementState& state, const std::vector<cv::Point2f>& box_corners,
                              std::vector<cv::Point3f>& corners_3d,
                              std::vector<float>& side_lengths);

}  // namespace boxdim
