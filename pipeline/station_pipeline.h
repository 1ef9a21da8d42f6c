// The measurement driver: runs the stages on the frame that prepare_frame has
// stored, in order, and stops at the first one that fails.
#pragma once

#include <opencv2/core.hpp>

#include "measure/measurement_state.h"

namespace boxdim {

// How often the plane stage refines its fit.
constexpr int kPlanePasses = 5;

// The 30 x 30 pixel window around the image centre where the box is looked
// for, set anew for every frame from the frame's size.
void set_center_window(MeasurementState& state);

struct MeasurementOutcome {
  bool ok = false;
  // Name of the first stage function that returned false; nullptr on success.
  const char* failed_stage = nullptr;
};

// Runs every stage; on success the dimensions are in state.dimensions and the
// result is drawn on state.result_image.
MeasurementOutcome run_measurement(MeasurementState& state);

// The frame handler's entry: on success output becomes a copy of the result
// picture; on failure it is left as it was.
MeasurementOutcome measure_frame(MeasurementState& state, cv::Mat& output);

}  // namespace boxdim
