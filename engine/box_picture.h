// A depth frame as a picture with every box an engine found drawn on it: its
// top's outline in the colour of its status, and its dimensions (or its
// status) at its centre; the primary box drawn thicker.
#pragma once

#include <opencv2/core.hpp>

#include "core/measurement_result.h"

namespace boxdim {

// 8-bit BGR, the frame's size: near surfaces dark, far ones bright, pixels
// without depth black.
cv::Mat draw_boxes(const cv::Mat& depth, const MeasurementResult& result);

}  // namespace boxdim
