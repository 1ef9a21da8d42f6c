#include "support/test_frames.h"

#include "measure/frame_preparation.h"
#include "measure/point_cloud.h"
#include "pipeline/station_pipeline.h"

namespace boxdim::testing {

void capture_state(MeasurementState& state, std::ostringstream& log, std::ostringstream& error_log,
                   std::time_t seed) {
  state.seams.log = &log;
  state.seams.error_log = &error_log;
  state.seams.seed_clock = [seed] { return seed; };
}

cv::Mat load_frame(MeasurementState& state, const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1 && depth.isContinuous());
  set_frame_size(state, depth.cols, depth.rows);
  cv::Mat display;
  prepare_frame(state, depth.ptr<std::uint16_t>(), display);
  return display;
}

void load_cloud(MeasurementState& state, const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1 && depth.isContinuous());
  set_frame_size(state, depth.cols, depth.rows);
  state.depth.assign(depth.ptr<std::uint16_t>(), depth.ptr<std::uint16_t>() + depth.total());
  build_point_cloud(state);
  set_center_window(state);
}

SceneParameters standard_scene() {
  SceneParameters scene;
  scene.box_length_mm = 400.0f;
  scene.box_width_mm = 300.0f;
  scene.box_height_mm = 200.0f;
  scene.camera_height_mm = 1000.0f;
  return scene;
}

SceneParameters scene_at_size(cv::Size size) {
  SceneParameters scene = standard_scene();
  scene.camera_height_mm = 800.0f;
  scene.yaw_deg = 10.0f;
  scene.image_width = size.width;
  scene.image_height = size.height;
  scene.intrinsics = scale_intrinsics(CameraIntrinsics{}, kDefaultIntrinsicsSize, size);
  return scene;
}

}  // namespace boxdim::testing
