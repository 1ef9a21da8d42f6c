// First step for every depth frame: store the samples, build the edge image the
// footprint stage fits lines on, and prepare the picture the result is drawn on.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

#include "measure/measurement_state.h"

namespace boxdim {

// The picture's spike filter works on the camera's full depth mode, a fixed
// grid of this many rows and columns, whatever the frame's own size.
constexpr int kSpikeGridRows = 480;
constexpr int kSpikeGridCols = 640;
constexpr int kSpikeGridSamples = kSpikeGridRows * kSpikeGridCols;

// depth_samples holds state.height rows of state.width samples (mm). Stores
// them in state.depth, writes state.edge_image and state.result_image, and
// leaves a copy of the picture in display.
//
// The spike filter reads the samples as a 640 x 480 grid, row stride 640. A
// smaller frame is copied into a zero-filled grid first, so the filter never
// reads past the caller's buffer; it then sees the frame's samples followed by
// zeros, exactly as if the frame sat at the start of a 640 x 480 buffer.
void prepare_frame(MeasurementState& state, const std::uint16_t* depth_samples, cv::Mat& display);

// The spike filter alone, over the 640 x 480 grid: grid holds
// kSpikeGridSamples samples, filtered receives as many.
//
// Each sample is compared with the mean of its 3 x 3 neighbourhood, itself
// included, and set to 0 when it lies more than 300 mm above it. Two quirks are
// the picture's established look and are kept: the neighbourhood's columns are
// not range-checked, so at the first and last column the neighbours come from
// the adjacent row in memory (0 before the first and after the last sample);
// and the sum is 16 bits wide, so nine samples above 7,281 mm wrap around and
// far surfaces turn black.
void spike_filter(const std::uint16_t* grid, std::uint16_t* filtered);

}  // namespace boxdim
