#include "height/box_height.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <ostream>

#include "measure/point_in_polygon.h"

namespace boxdim {

namespace {

// The walk down the side face.
constexpr int kWalkStepMm = 50;
constexpr int kWalkLimitMm = 10000;
// A 50 mm step that moves an end less than this far down the image means the
// camera sees no side face below that edge.
constexpr float kMinDownwardMotionPx = 0.5f;
// On the first step both ends must move alike; a lopsided pair whose larger
// motion is still tiny is only noise and does not stop the walk.
constexpr double kMaxEndMotionRatio = 5.0;
constexpr double kMinEndMotionRatio = 0.2;
constexpr double kNegligibleEndMotionPx = 2.0;
constexpr int kLineSamples = 8;
// Samples 0.1 to 0.7 of the edge: the eighth is left out of the average.
constexpr int kTempHeightSamples = 7;
// Below this, line B lies no deeper than line A: both are on the floor.
constexpr float kSideFaceDifferenceMm = 10.0f;
// The fourth smallest of the eight differences: half the edge must agree.
constexpr int kDecidingSample = 3;

// The 5 cm lower limit of a box's height.
constexpr float kMinHeightMm = 50.0f;

// The ring scan.
constexpr float kRingExpansion = 0.3f;
constexpr std::size_t kMinRingPoints = 50;
constexpr float kBandNearMm = 50.0f;
constexpr float kBandFarMethod1Mm = 1100.0f;
constexpr float kBandFarMethod2Mm = 1000.0f;
constexpr int kSparseColumnStep = 6;
constexpr int kDenseColumnStep = 2;
constexpr int kRowStep = 2;
// Corners farther out than this cannot belong to a box in the frame; they
// would also overflow the integer arithmetic of the polygon tests.
constexpr float kMaxCornerCoordinatePx = 1.0e6f;

// The dense-run rule.
constexpr double kRunTopQuantile = 0.98;
constexpr double kRunBottomQuantile = 0.85;
constexpr double kRunSpanMm = 20.0;

bool is_finite(const cv::Point2f& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

// Whether truncating `v` to an int is defined.
bool truncates_to_int(float v) { return v >= -2147483648.0f && v < 2147483648.0f; }

bool depth_frame_loaded(const MeasurementState& state) {
  return state.width > 0 && state.height > 0 &&
         state.depth.size() == static_cast<std::size_t>(state.width) * state.height;
}

bool cloud_loaded(const MeasurementState& state) {
  return state.width > 0 && state.height > 0 &&
         state.cloud.size() == static_cast<std::size_t>(state.width) * state.height;
}

float plane_value(const PlaneEquation& plane, const cv::Point3f& p) {
  return plane.a * p.x + plane.b * p.y + plane.c * p.z;
}

cv::Point3f plane_normal(const PlaneEquation& plane) { return {plane.a, plane.b, plane.c}; }

// Back-projects an image position with the depth found under it. Line A is
// bounds-checked before it is sampled but line B is not, so a position outside
// the frame (or not a number) reads as a pixel without depth: the origin.
cv::Point3f back_project(const MeasurementState& state, const cv::Point2f& px, float inv_fx,
                         float inv_fy) {
  // The depth is read at the truncated position, so anything above -1 still
  // lands on row or column 0.
  const bool inside = px.x > -1.0f && px.x < static_cast<float>(state.width) && px.y > -1.0f &&
                      px.y < static_cast<float>(state.height);
  if (!inside) return {0.0f, 0.0f, 0.0f};
  const int col = static_cast<int>(px.x);
  const int row = static_cast<int>(px.y);
  const float d =
      static_cast<float>(state.depth[static_cast<std::size_t>(row) * state.width + col]);
  const CameraIntrinsics& k = state.intrinsics;
  return {d * (px.x - k.cx) * inv_fx, d * (px.y - k.cy) * inv_fy, d};
}

bool outside_frame(const MeasurementState& state, const cv::Point2f& p) {
  return p.x <= 0.0f || p.x >= static_cast<float>(state.width) || p.y <= 0.0f ||
         p.y >= static_cast<float>(state.height);
}

// The temporary height: the mean distance below the top face of the first
// samples of line A where the walk stopped.
bool finish_temp_height(MeasurementState& state, const std::vector<cv::Point3f>& line_a_points) {
  if (line_a_points.size() < static_cast<std::size_t>(kTempHeightSamples)) return false;
  std::ostream& log = stage_log(state);
  log << " temp_height:    ";
  float sum = 0.0f;
  for (int j = 0; j < kTempHeightSamples; ++j) {
    const float t = plane_value(state.plane, line_a_points[j]) + state.plane.d;
    log << t << "  ";
    sum += t;
  }
  log << '\n';
  state.dimensions.box_height = static_cast<float>(sum / double{kTempHeightSamples});
  log << " box_height: " << state.dimensions.box_height << '\n';
  return state.dimensions.box_height > kMinHeightMm;
}

// True when the first step's ends move so unequally that the walk cannot tell
// a side face from noise.
bool lopsided_first_step(const cv::Point2f& a1, const cv::Point2f& a2, const cv::Point2f& b1,
                         const cv::Point2f& b2) {
  const double l1 = std::hypot(static_cast<double>(b1.x - a1.x), static_cast<double>(b1.y - a1.y));
  const double l2 = std::hypot(static_cast<double>(b2.x - a2.x), static_cast<double>(b2.y - a2.y));
  const double ratio = l1 / l2;
  if (!(ratio > kMaxEndMotionRatio || ratio < kMinEndMotionRatio)) return false;
  const double larger = l2 > l1 ? l2 : l1;
  return larger > kNegligibleEndMotionPx;
}

bool corners_usable(const std::vector<cv::Point2f>& corners) {
  if (corners.size() < 4) return false;
  for (const cv::Point2f& c : corners) {
    if (!is_finite(c) || std::fabs(c.x) > kMaxCornerCoordinatePx ||
        std::fabs(c.y) > kMaxCornerCoordinatePx) {
      return false;
    }
  }
  return true;
}

cv::Point truncated(const cv::Point2f& p) { return {static_cast<int>(p.x), static_cast<int>(p.y)}; }

// Pushes both corner pairs of the quadrilateral `c` apart along their
// diagonals, so that the hull of the moved points encloses a ring of floor.
void add_expanded_corners(const std::vector<cv::Point2f>& c, std::vector<cv::Point>& out) {
  const cv::Point2f e = (c[0] - c[2]) * kRingExpansion;
  const cv::Point2f g = (c[1] - c[3]) * kRingExpansion;
  out.push_back(cv::Point(c[2] - e));
  out.push_back(cv::Point(c[0] + e));
  out.push_back(cv::Point(c[3] - g));
  out.push_back(cv::Point(c[1] + g));
}

struct ScanArea {
  int xmin, xmax, ymin, ymax;
};

ScanArea scan_area(const std::vector<cv::Point>& hull, int width, int height) {
  ScanArea area{hull[0].x, hull[0].x, hull[0].y, hull[0].y};
  for (const cv::Point& p : hull) {
    area.xmin = std::min(area.xmin, p.x);
    area.xmax = std::max(area.xmax, p.x);
    area.ymin = std::min(area.ymin, p.y);
    area.ymax = std::max(area.ymax, p.y);
  }
  if (area.xmin < 1) area.xmin = 0;
  if (area.ymin < 1) area.ymin = 0;
  if (area.xmax >= width) area.xmax = width;
  if (area.ymax >= height) area.ymax = height;
  return area;
}

void scan_ring(MeasurementState& state, const std::vector<cv::Point>& inner,
               const std::vector<cv::Point>& outer, float band_far_mm) {
  const ScanArea area = scan_area(outer, state.width, state.height);
  // Large boxes fill much of the frame; a coarser grid keeps the scan cheap.
  const int row_step = area.ymax - area.ymin > state.height / 2 ? 2 * kRowStep : kRowStep;
  const int factor = area.xmax - area.xmin > state.width / 2 ? 2 : 1;
  const float band_low = kBandNearMm - state.plane.d;
  const float band_high = band_far_mm - state.plane.d;

  // The step is not reset at the start of a row: it carries over from the last
  // pixel of the previous one.
  int column_step = kSparseColumnStep;
  for (int y = area.ymin; y < area.ymax; y += row_step) {
    for (int x = area.xmin; x < area.xmax; x += column_step) {
      const cv::Point pixel(x, y);
      if (polygon_side(outer, pixel) <= 0) {
        column_step = kSparseColumnStep * factor;
        continue;
      }
      column_step = kDenseColumnStep * factor;
      if (polygon_side(inner, pixel) >= 0) {
        column_step = kSparseColumnStep * factor;
        continue;
      }
      const cv::Point3f& p = state.cloud[static_cast<std::size_t>(y) * state.width + x];
      const float s = plane_value(state.plane, p);
      if (s > band_low && s < band_high) {
        state.dists.push_back(s);
        state.dist_pixels.emplace_back(y, x);
      }
    }
  }
}

}  // namespace

bool estimate_box_height(MeasurementState& state) {
  int first = -1;
  int second = -1;
  find_lowest_corner_pair(state, first, second);
  // Fewer than two corners below the image's top row: there is no front edge
  // to walk down from.
  if (first < 0 || second < 0) return false;
  if (!estimate_temp_height(state, first, second)) return false;
  const int method = state.dimensions.box_height == 0.0f ? 1 : 2;
  return compute_box_height(state, method);
}

bool find_lowest_corner_pair(MeasurementState& state, int& first, int& second) {
  int best = 0;
  int best_index = -1;
  int runner_up = 0;
  int runner_up_index = -1;
  const int count = static_cast<int>(std::min<std::size_t>(state.box_corners.size(), 4));
  for (int k = 0; k < count; ++k) {
    const float fy = state.box_corners[k].y;
    // A row that is not a number, or beyond any int, is never the lowest.
    if (!truncates_to_int(fy)) continue;
    const int y = static_cast<int>(fy);
    if (y > best) {
      runner_up = best;
      runner_up_index = best_index;
      best = y;
      best_index = k;
    } else if (y > runner_up) {
      runner_up = y;
      runner_up_index = k;
    }
  }
  first = best_index;
  second = runner_up_index;
  return true;
}

bool estimate_temp_height(MeasurementState& state, int first, int second) {
  const int corner_count = static_cast<int>(state.corners_3d.size());
  if (first < 0 || second < 0 || first >= corner_count || second >= corner_count) return false;
  if (!depth_frame_loaded(state)) return false;

  std::ostream& log = stage_log(state);
  const CameraIntrinsics& k = state.intrinsics;
  const cv::Point3f n = plane_normal(state.plane);
  const cv::Point3f p1 = state.corners_3d[first];
  const cv::Point3f p2 = state.corners_3d[second];
  const float inv_fx = 1.0f / k.fx;
  const float inv_fy = 1.0f / k.fy;

  std::vector<float> differences;
  std::vector<cv::Point3f> line_a_points;
  int step_count = 0;
  bool first_step = true;
  for (int s = 0; s < kWalkLimitMm; s += kWalkStepMm) {
    ++step_count;
    const cv::Point2f a1 = point_to_pixel(p1 + n * static_cast<float>(s), k);
    const cv::Point2f a2 = point_to_pixel(p2 + n * static_cast<float>(s), k);
    const cv::Point2f b1 = point_to_pixel(p1 + n * static_cast<float>(s + kWalkStepMm), k);
    const cv::Point2f b2 = point_to_pixel(p2 + n * static_cast<float>(s + kWalkStepMm), k);
    // A degenerate plane or a corner at the camera gives no image positions.
    if (!is_finite(a1) || !is_finite(a2) || !is_finite(b1) || !is_finite(b2)) return false;

    if (b1.y - kMinDownwardMotionPx <= a1.y || b2.y - kMinDownwardMotionPx <= a2.y) {
      log << "Box approximately vertical_1;" << '\n';
      state.dimensions.box_height = 0.0f;
      return true;
    }
    if (first_step) {
      first_step = false;
      if (lopsided_first_step(a1, a2, b1, b2)) {
        log << "There are no conditions for calculating height_1;" << '\n';
        return false;
      }
    }
    if (outside_frame(state, a1) || outside_frame(state, a2)) {
      log << "There are no conditions for calculating height_2;" << '\n';
      continue;
    }

    differences.clear();
    line_a_points.clear();
    for (int j = 0; j < kLineSamples; ++j) {
      const float f = static_cast<float>(j + 1) / 10.0f;
      const cv::Point3f qa = back_project(state, a1 + (a2 - a1) * f, inv_fx, inv_fy);
      const cv::Point3f qb = back_project(state, b1 + (b2 - b1) * f, inv_fx, inv_fy);
      differences.push_back(plane_value(state.plane, qb - qa));
      line_a_points.push_back(qa);
    }
    std::sort(differences.begin(), differences.end());
    if (differences[kDecidingSample] < kSideFaceDifferenceMm) {
      if (step_count == 1) {
        log << "Box approximately vertical_2;" << '\n';
        state.dimensions.box_height = 0.0f;
        return true;
      }
      break;
    }
  }
  return finish_temp_height(state, line_a_points);
}

bool compute_box_height(MeasurementState& state, int method) {
  if (!cal_dists2org_again(state, method)) return false;
  if (!select_qualifying_height(state, state.dists, state.dimensions.box_height)) return false;
  std::ostream& log = stage_log(state);
  log << "box_height: " << state.dimensions.box_height << '\n';
  if (state.dimensions.box_height < kMinHeightMm) {
    log << "box_height less than 5 cm;" << '\n';
    return false;
  }
  return true;
}

bool cal_dists2org_again(MeasurementState& state, int method) {
  state.dists.clear();
  state.dist_pixels.clear();
  if (method != 1 && method != 2) return false;
  if (!cloud_loaded(state) || !corners_usable(state.box_corners)) return false;

  std::vector<cv::Point> inner_points;
  std::vector<cv::Point> outer_points;
  for (int i = 0; i < 4; ++i) inner_points.push_back(truncated(state.box_corners[i]));
  add_expanded_corners(state.box_corners, outer_points);

  if (method == 2) {
    if (state.corners_3d.size() < 4) return false;
    const cv::Point3f n = plane_normal(state.plane);
    const float h = state.dimensions.box_height;
    state.bottom_corners.clear();
    for (int i = 0; i < 4; ++i) {
      state.bottom_corners.push_back(point_to_pixel(state.corners_3d[i] + n * h, state.intrinsics));
    }
    if (!corners_usable(state.bottom_corners)) return false;
    for (const cv::Point2f& b : state.bottom_corners) inner_points.push_back(truncated(b));
    add_expanded_corners(state.bottom_corners, outer_points);
  }

  std::vector<cv::Point> inner_hull;
  std::vector<cv::Point> outer_hull;
  cv::convexHull(inner_points, inner_hull);
  cv::convexHull(outer_points, outer_hull);
  scan_ring(state, inner_hull, outer_hull, method == 1 ? kBandFarMethod1Mm : kBandFarMethod2Mm);

  std::sort(state.dists.begin(), state.dists.end());
  if (state.dists.size() < kMinRingPoints) {
    stage_log(state) << "cal_dists2org_again points less than 50;" << '\n';
    return false;
  }
  return true;
}

bool select_qualifying_height(MeasurementState& state, const std::vector<float>& dists,
                              float& height) {
  const int n = static_cast<int>(dists.size());
  const int lo = static_cast<int>(n * kRunBottomQuantile);
  const int hi = static_cast<int>(n * kRunTopQuantile);
  for (int i = hi; i > lo; --i) {
    const float v = dists[i];
    for (int j = i; j > n / 2; --j) {
      if (v - dists[j] < kRunSpanMm) {
        if (i - j > n / 10) {
          height = dists[(i + j) / 2] + state.plane.d;
          return true;
        }
        continue;
      }
      // A gap: tolerated while it is close to the candidate, else the
      // candidate has no run beneath it.
      if (i - j <= n / 4) continue;
      stage_log(state) << " this is no qualifying height ;" << '\n';
      break;
    }
  }
  return false;
}

}  // namespace boxdim
