#include "engine/station_engine.h"

#include <chrono>
#include <iostream>

#include "measure/frame_preparation.h"
#include "pipeline/station_pipeline.h"

namespace boxdim {

namespace {

cv::Point2f mean_of(const std::vector<cv::Point2f>& points) {
  cv::Point2f sum(0.0f, 0.0f);
  for (const cv::Point2f& p : points) sum += p;
  return points.empty() ? sum : sum * (1.0f / static_cast<float>(points.size()));
}

}  // namespace

StationEngine::StationEngine(const EngineContext& context)
    : log_(context.log ? *context.log : std::cout,
           context.error_log ? *context.error_log : std::cerr) {
  state_.seams.log = &log_.log();
  state_.seams.error_log = &log_.error_log();
  if (context.seed_clock) state_.seams.seed_clock = context.seed_clock;
}

MeasurementResult StationEngine::measure(const DepthFrame& frame) {
  CV_Assert(frame.depth.type() == CV_16UC1);
  MeasurementResult result;
  result.camera_id = frame.camera_id;
  result.timestamp_us = frame.timestamp_us;
  log_.clear();
  const auto start = std::chrono::steady_clock::now();

  const cv::Mat depth = frame.depth.isContinuous() ? frame.depth : frame.depth.clone();
  set_frame_size(state_, depth.cols, depth.rows);
  state_.intrinsics = frame.intrinsics;
  prepare_frame(state_, depth.ptr<std::uint16_t>(), result.picture);
  const MeasurementOutcome outcome = measure_frame(state_, result.picture);

  if (outcome.ok) {
    BoxMeasurement box;
    box.dimensions = state_.dimensions;
    box.corners_px = state_.box_corners;
    box.corners_mm = state_.corners_3d;
    box.centre_px = mean_of(state_.box_corners);
    result.boxes.push_back(box);
    result.primary = 0;
  } else {
    result.failure = StageFailure{outcome.failed_stage, log_.last_line()};
  }
  result.elapsed_ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  return result;
}

}  // namespace boxdim
