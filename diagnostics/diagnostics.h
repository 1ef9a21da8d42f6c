// Development aids for studying the height stage's distance list; the
// measurement flow does not call them. All expect `dists` sorted ascending.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "measure/measurement_state.h"

namespace boxdim {

// Shows a 10-bin histogram of the distances in the window "Histogram".
// `dists` must not be empty.
void show_depth_histogram(MeasurementState& state, const std::vector<float>& dists);

// The picture show_depth_histogram shows: a 400 x 512 polyline over the bin
// heights. Empty for an empty list.
cv::Mat depth_histogram_image(const std::vector<float>& dists);

// Writes each distance plus the plane's d to "dists12.txt" in the working
// directory. Always true.
bool save_dists(MeasurementState& state, const std::vector<float>& dists);

// Keeps only the first (int)(N * 0.01) entries of a list of more than 100
// (see the source for why that is the routine's behaviour). Always true.
bool trim_dists(MeasurementState& state, std::vector<float>& dists);

}  // namespace boxdim
