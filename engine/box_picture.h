// A depth frame as a picture with every box an engine found drawn on it: its
// top's outline in the colour of its status, and its dimensions (or its
// status) at its centre; the primary box drawn thicker. And the proof of a
// measurement: one box's outline, its fused reading, track, camera and time.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

#include "core/depth_frame.h"
#include "core/measurement_result.h"

namespace boxdim {

// 8-bit BGR, the frame's size: near surfaces dark, far ones bright, pixels
// without depth black.
cv::Mat draw_boxes(const cv::Mat& depth, const MeasurementResult& result);

// A frame's time for people: the UTC date and clock time to the millisecond
// when it counts from 1970 (as camera clocks do), else seconds ("12.345 s").
std::string frame_time_text(std::int64_t time_us);

// `text` at `at` in `colour` with a dark rim, readable on any grey.
void put_outlined_text(cv::Mat& picture, const std::string& text, cv::Point at, double scale,
                       const cv::Scalar& colour);

// The depth frame alone, drawn as above.
cv::Mat depth_picture(const cv::Mat& depth);

// What an operator watches: the frame with every box outlined, each followed
// box with its track id and fused dimensions (green once it has them, amber
// before, grey when not followed), and the camera, time and number followed.
cv::Mat draw_followed_boxes(const DepthFrame& frame, const MeasurementResult& result);

// A measured event's frame with its box outlined and its reading, track id,
// camera and time written on it.
cv::Mat draw_proof(const cv::Mat& depth, const TrackEvent& event, int camera_id);

}  // namespace boxdim
