#include "engine/precise_engine.h"

#include <chrono>
#include <cmath>

#include "engine/box_picture.h"

namespace boxdim {

PreciseEngine::PreciseEngine(const EngineContext& context)
    : seed_clock_(context.seed_clock), draw_pictures_(context.draw_pictures) {
  if (!seed_clock_) seed_clock_ = [] { return std::time(nullptr); };
  boxes_.set_division(context.division_mm);
}

MeasurementResult PreciseEngine::measure(const DepthFrame& frame) {
  MeasurementResult result;
  measure_into(frame, result);
  return result;
}

void PreciseEngine::measure_into(const DepthFrame& frame, MeasurementResult& result) {
  CV_Assert(frame.depth.type() == CV_16UC1);
  const auto start = std::chrono::steady_clock::now();
  result.camera_id = frame.camera_id;
  result.timestamp_us = frame.timestamp_us;
  result.primary.reset();

  boxes_.detect(frame.depth, frame.intrinsics, frame.timestamp_us,
                static_cast<std::uint64_t>(seed_clock_()));
  const std::vector<precise::BoxFit>& fits = boxes_.fits();
  const std::vector<tracking::Assignment>& assignments = boxes_.assignments();
  // Room for a frame's events once, so that no later frame allocates.
  result.events.reserve(boxes_.events().capacity());
  result.events.assign(boxes_.events().begin(), boxes_.events().end());
  const cv::Point2f image_centre(0.5f * (frame.depth.cols - 1), 0.5f * (frame.depth.rows - 1));
  std::optional<std::size_t> nearest_any;
  double nearest_any_distance = 0.0;
  double primary_distance = 0.0;
  // Each box written over the one the result held at its place, keeping its
  // corner lists.
  result.boxes.resize(fits.size());
  for (std::size_t index = 0; index < fits.size(); ++index) {
    const precise::BoxFit& fit = fits[index];
    BoxMeasurement& box = result.boxes[index];
    box.status = fit.status;
    box.dimensions = fit.status == BoxStatus::kMeasured
                         ? BoxDimensions{fit.length_mm, fit.width_mm, fit.height_mm}
                         : BoxDimensions{};
    box.corners_px.assign(fit.corners_px.begin(), fit.corners_px.end());
    box.corners_mm.assign(fit.corners_mm.begin(), fit.corners_mm.end());
    box.centre_px = fit.centre_px;
    box.track_id.reset();
    if (assignments[index].track_id >= 0) box.track_id = assignments[index].track_id;
    box.fused = assignments[index].reading;
    box.confidence = fit.confidence;
    box.uncertainty.reset();
    if (fit.status == BoxStatus::kMeasured || fit.status == BoxStatus::kUncertain) {
      box.uncertainty = fit.uncertainty;
    }
    const double distance = cv::norm(fit.centre_px - image_centre);
    if (fit.status == BoxStatus::kMeasured && (!result.primary || distance < primary_distance)) {
      result.primary = index;
      primary_distance = distance;
    }
    if (!nearest_any || distance < nearest_any_distance) {
      nearest_any = index;
      nearest_any_distance = distance;
    }
  }
  if (result.primary) {
    result.failure.reset();
  } else {
    if (!result.failure) result.failure.emplace();
    if (nearest_any) {
      const precise::BoxFit& fit = fits[*nearest_any];
      result.failure->stage = box_status_name(fit.status);
      result.failure->message = fit.reason;
    } else {
      const precise::BoxDetector& detector = boxes_.detector();
      result.failure->stage = detector.intrinsics_unusable() ? "intrinsics"
                              : detector.floor()             ? "detection"
                                                             : "floor";
      result.failure->message = detector.problem();
    }
  }
  if (draw_pictures_) {
    result.picture = draw_boxes(frame.depth, result);
  } else {
    result.picture.release();
  }
  result.elapsed_ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace boxdim
