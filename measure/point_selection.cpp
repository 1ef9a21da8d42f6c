#include "measure/point_selection.h"

#include <cmath>
#include <ostream>

namespace boxdim {

namespace {

constexpr int kSampleStep = 4;
constexpr float kMinSeedDepthMm = 100.0f;
constexpr std::size_t kMinCenterPoints = 50;
constexpr std::size_t kMinPlanePoints = 100;

void clear_selection(MeasurementState& state) {
  state.selected_points.clear();
  state.selected_pixels.clear();
}

}  // namespace

bool select_points_by_center(MeasurementState& state) {
  clear_selection(state);
  for (int r = state.center_row_begin; r < state.center_row_end; r += kSampleStep) {
    for (int c = state.center_col_begin; c < state.center_col_end; c += kSampleStep) {
      // A frame smaller than the window has no samples there, as if no depth.
      if (r < 0 || r >= state.height || c < 0 || c >= state.width) continue;
      const cv::Point3f& p = state.cloud[static_cast<std::size_t>(r) * state.width + c];
      if (p.z > kMinSeedDepthMm) {
        state.selected_pixels.emplace_back(r, c);
        state.selected_points.push_back(p);
      }
    }
  }
  if (state.selected_points.size() >= kMinCenterPoints) return true;
  stage_log(state) << "select_points_by_center select points less than 50;" << '\n';
  return false;
}

bool select_points_by_plane(MeasurementState& state, int maxDistance) {
  clear_selection(state);
  const PlaneEquation& plane = state.plane;
  const float limit = static_cast<float>(maxDistance);
  for (int r = 0; r < state.height; r += kSampleStep) {
    for (int c = 0; c < state.width; c += kSampleStep) {
      const cv::Point3f& p = state.cloud[static_cast<std::size_t>(r) * state.width + c];
      // This summation order is part of the result: the last bit decides
      // points right at the threshold.
      const float s = ((plane.c * p.z + plane.b * p.y) + plane.a * p.x) + plane.d;
      const float dist = static_cast<float>(std::fabs(static_cast<double>(s)));
      if (dist < limit) {
        state.selected_pixels.emplace_back(r, c);
        state.selected_points.push_back(p);
      }
    }
  }
  if (state.selected_points.size() >= kMinPlanePoints) return true;
  stage_log(state) << "select_points_by_plane select points less than 100;" << '\n';
  return false;
}

}  // namespace boxdim
