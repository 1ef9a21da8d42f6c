#include "pipeline/station_pipeline.h"

#include "footprint/length_width.h"
#include "height/box_height.h"
#include "height/result_overlay.h"
#include "measure/plane_fitting.h"
#include "measure/point_cloud.h"
#include "measure/point_selection.h"

namespace boxdim {

namespace {

constexpr int kCenterHalfSize = 15;

MeasurementOutcome failed_at(const char* stage) { return {false, stage}; }

}  // namespace

void set_center_window(MeasurementState& state) {
  state.center_row_begin = state.height / 2 - kCenterHalfSize;
  state.center_row_end = state.height / 2 + kCenterHalfSize;
  state.center_col_begin = state.width / 2 - kCenterHalfSize;
  state.center_col_end = state.width / 2 + kCenterHalfSize;
}

MeasurementOutcome run_measurement(MeasurementState& state) {
  build_point_cloud(state);
  set_center_window(state);
  if (!select_points_by_center(state)) return failed_at("select_points_by_center");
  if (!fit_top_plane(state, kPlanePasses)) return failed_at("fit_top_plane");
  if (!compute_length_width(state)) return failed_at("compute_length_width");
  if (!estimate_box_height(state)) return failed_at("estimate_box_height");
  draw_measurement_result(state);
  return {true, nullptr};
}

MeasurementOutcome measure_frame(MeasurementState& state, cv::Mat& output) {
  const MeasurementOutcome outcome = run_measurement(state);
  if (outcome.ok) output = state.result_image.clone();
  return outcome;
}

}  // namespace boxdim
