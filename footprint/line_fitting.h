// Straight lines for the four sides of the top face: RANSAC over integer image
// points, and the refinement of each side on the frame's edge image.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "measure/measurement_state.h"

namespace boxdim {

// Fits `line` (vx, vy, x0, y0) to the points by RANSAC then least squares;
// `line` is written only on success. Seeds from the state's clock.
bool ransac_fitline(MeasurementState& state, const std::vector<cv::Point>& points, cv::Vec4f& line);

// Appends one line per side of state.coarse_corners, side i running from
// corner i to corner (i + 1) mod 4, each fitted to the strongest edge pixels
// across the side.
bool refine_edge_lines(MeasurementState& state, std::vector<cv::Vec4f>& lines);

}  // namespace boxdim
