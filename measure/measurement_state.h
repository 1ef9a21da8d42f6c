// The one long-lived object that every measurement stage reads and writes.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <opencv2/core.hpp>
#include <vector>

#include "core/geometry.h"

namespace boxdim {

// Where the stages' console lines go, and the clock the RANSAC stages seed
// their generators from. The defaults are the station's behaviour (standard
// output, standard error, current time in seconds); tests and the command-line
// tool replace them.
struct MeasurementSeams {
  std::ostream* log;
  std::ostream* error_log;
  std::function<std::time_t()> seed_clock;

  MeasurementSeams();
};

struct MeasurementState {
  // Size of the depth frame in pixels.
  int width = 640;
  int height = 480;

  // Centre window, half-open ranges, set anew by the driver for every frame;
  // constructed empty.
  int center_row_begin = 1000;
  int center_row_end = 0;
  int center_col_begin = 1000;
  int center_col_end = 0;

  // |d depth/dx| + |d depth/dy| of the frame, 16-bit signed.
  cv::Mat edge_image;
  // The edge image's reusable rows: one row smoothed and differentiated down the columns.
  std::vector<int> edge_smoothed_row, edge_derived_row;

  std::vector<std::uint16_t> depth;         // row-major, width * height samples
  std::vector<cv::Point3f> cloud;           // one point per pixel, row-major
  std::vector<float> cloud_column_offsets;  // column - cx, the cloud's reusable table

  // Selected sample pixels, stored transposed: x = row, y = column.
  std::vector<cv::Point> selected_pixels;
  std::vector<cv::Point3f> selected_points;  // index-parallel to selected_pixels

  // Outer contour of the top face in the quarter-resolution mask
  // (x = column / 4, y = row / 4), in the contour tracer's order.
  std::vector<cv::Point> top_rect_contour_points;

  // Footprint stage.
  // Corners of the top face on the contour, in the order they were found.
  std::vector<cv::Point> top_rect_corner_points;
  // Corners from the lines fitted to the contour's sides, full resolution.
  std::vector<cv::Point2f> coarse_corners;
  // Final image corners of the top face, in order around the face.
  std::vector<cv::Point2f> box_corners;
  // The same corners on the top-face plane, camera coordinates (mm).
  std::vector<cv::Point3f> corners_3d;
  // 3-D length of side i, from corner i to corner (i + 1) mod 4 (mm).
  std::vector<float> side_lengths;

  BoxDimensions dimensions;

  // Height stage.
  // a*x + b*y + c*z (without d) of each accepted floor point around the box,
  // sorted ascending after the scan.
  std::vector<float> dists;
  // Pixel of each accepted floor point, stored transposed: x = row, y = column.
  std::vector<cv::Point> dist_pixels;
  // Image corners of the box's bottom as estimated from the temporary height.
  std::vector<cv::Point2f> bottom_corners;

  // Result overlay: the bottom corners from the final height.
  std::vector<cv::Point3f> overlay_bottom_corners_3d;
  std::vector<cv::Point2f> overlay_bottom_corners;

  PlaneEquation plane;
  PlaneEquation last_ransac_equation;
  // Mean absolute inlier distance (mm) of the last accepted RANSAC candidate.
  // Carries over between frames and scales the plane stage's thresholds.
  float plane_mean_distance = 0.0f;

  CameraIntrinsics intrinsics;

  // The frame's picture (8-bit BGR) on which the result is drawn, and its
  // grey original; both buffers are reused while the frame size stays.
  cv::Mat result_image;
  cv::Mat picture_grey;

  // selected_pixels as they were when the plane stage succeeded (x = row).
  std::vector<cv::Point> top_plane_pixels;

  // Frame preparation's reusable buffers (see frame_preparation.h).
  std::vector<std::uint16_t> spike_input;
  std::vector<std::uint16_t> spike_filtered;

  MeasurementSeams seams;
};

// Where a stage writes its console lines.
inline std::ostream& stage_log(const MeasurementState& state) { return *state.seams.log; }

// Sets the size of the frames that follow. The plane and its statistics carry
// over regardless: a camera that switches resolution still looks at the same
// box. Throws std::invalid_argument unless both sides are positive.
void set_frame_size(MeasurementState& state, int width, int height);

}  // namespace boxdim
