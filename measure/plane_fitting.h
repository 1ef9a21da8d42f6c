// The plane stage: finds the plane of the box's top face by RANSAC on the
// selected points, refines it by least squares, and alternates fitting with
// reselecting the points near the plane until two passes agree.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "measure/measurement_state.h"

namespace boxdim {

// Leaves state.plane, the top face's contour and points, and
// state.top_plane_pixels. At most `passes` refinement passes.
bool fit_top_plane(MeasurementState& state, int passes);

// One RANSAC fit of `points` into state.plane; seeds the C library generator
// from the state's clock on every call. `first` is false for a frame's later
// passes, which only accept normals within about 26 degrees of
// state.last_ransac_equation. *meanDistance is written whenever a candidate is
// accepted.
bool ransacPlaneFitting(MeasurementState& state, const std::vector<cv::Point3f>& points,
                        int maxIterations, float distanceThreshold, float* meanDistance,
                        bool first);

// Least-squares plane through `inliers`: writes the unit normal through
// normal[0..2] and the offset through *d, oriented so that d <= 0. Leaves them
// untouched (and says so on the error log) when the eigen decomposition fails.
void refine_plane(MeasurementState& state, const std::vector<cv::Point3f>& inliers, float* normal,
                  float* d);

}  // namespace boxdim
