#include "footprint/length_width.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <ostream>

#include "footprint/corner_search.h"
#include "footprint/geometry.h"
#include "footprint/line_fitting.h"

namespace boxdim {

namespace {

using Contour = std::vector<cv::Point>;

// The contour is traced on the image reduced by 4 in each direction.
constexpr float kContourScale = 4.0f;
// A sixth of each side is dropped at both ends, where the traced outline
// rounds the corners off.
constexpr int kSideTrimDivisor = 6;
constexpr double kMinOppositeSideRatio = 0.7;
constexpr double kMaxOppositeSideRatio = 1.3;
constexpr float kMinSideMm = 50.0f;

// The contour points P[k] for k in [begin, end), less a sixth of that span at
// either end.
Contour side_segment(const Contour& contour, int begin, int end) {
  const int trim = (end - begin) / kSideTrimDivisor;
  return Contour(contour.begin() + begin + trim, contour.begin() + end - trim);
}

// The side from the last corner round past the end of the contour to the
// first. It starts at the last corner itself and is trimmed by a count taken
// in floating point, unlike the other three sides.
Contour wrapped_side_segment(const Contour& contour, int last, int first) {
  const int n = static_cast<int>(contour.size());
  Contour points;
  for (int k = last; k < first + n; ++k) points.push_back(contour[k % n]);
  const auto trim = static_cast<std::ptrdiff_t>(points.size() * (1.0 / kSideTrimDivisor));
  return Contour(points.begin() + trim, points.end() - trim);
}

// Four ascending positions in the contour, as the corner search leaves them.
bool valid_corner_indices(const std::vector<int>& indices, std::size_t contour_size) {
  return indices.size() == 4 && indices.front() >= 0 &&
         static_cast<std::size_t>(indices.back()) < contour_size &&
         std::is_sorted(indices.begin(), indices.end());
}

// A x + B y + C = 0 of the line (vx, vy, x0, y0).
struct LineCoefficients {
  float a;
  float b;
  float c;
};

LineCoefficients coefficients(const cv::Vec4f& line) {
  return {line[1], -line[0], line[0] * line[3] - line[1] * line[2]};
}

// x is solved with the line whose A is larger in magnitude, the better
// conditioned of the two; equal magnitudes take the second line.
cv::Point2f intersect(const cv::Vec4f& first, const cv::Vec4f& second) {
  const LineCoefficients l1 = coefficients(first);
  const LineCoefficients l2 = coefficients(second);
  const float y = (l1.a * l2.c - l2.a * l1.c) / (l2.a * l1.b - l1.a * l2.b);
  const float x =
      std::fabs(l1.a) > std::fabs(l2.a) ? (-l1.c - l1.b * y) / l1.a : (-l2.c - l2.b * y) / l2.a;
  return {x, y};
}

// Opposite sides compared as a ratio in double, both bounds included.
bool ratio_in_range(float side, float opposite_side) {
  const double ratio = static_cast<double>(side) / opposite_side;
  return kMinOppositeSideRatio <= ratio && ratio <= kMaxOppositeSideRatio;
}

}  // namespace

bool compute_length_width(MeasurementState& state) {
  state.box_corners.clear();
  state.corners_3d.clear();
  state.side_lengths.clear();

  std::vector<int> indices;
  if (!find_top_rect_corners(state, indices)) return false;
  if (!fit_contour_edge_lines(state, indices)) return false;
  std::vector<cv::Vec4f> lines;
  if (!refine_edge_lines(state, lines)) return false;
  if (!cal_four_lines_intersection(state, lines, state.box_corners)) return false;
  if (!check_length_width_ratio(state, state.box_corners, state.corners_3d, state.side_lengths)) {
    return false;
  }

  const std::vector<float>& sides = state.side_lengths;
  const double p = (sides[0] + sides[2]) / 2.0;
  const double q = (sides[1] + sides[3]) / 2.0;
  BoxDimensions& dimensions = state.dimensions;
  dimensions.box_length = static_cast<float>(p > q ? p : q);
  dimensions.box_width = static_cast<float>(p > q ? q : p);

  std::ostream& log = stage_log(state);
  log << "box_length:   " << dimensions.box_length << "     box_width:  " << dimensions.box_width
      << '\n';
  // Phrased so that a length or width that is not a number passes.
  if (kMinSideMm > dimensions.box_length || kMinSideMm > dimensions.box_width) {
    log << "box_length or box_width less than 5 cm" << '\n';
    return false;
  }
  return true;
}

bool fit_contour_edge_lines(MeasurementState& state, const std::vector<int>& indices) {
  state.coarse_corners.clear();
  const Contour& contour = state.top_rect_contour_points;
  // Anything else comes only from a caller that skipped the corner search.
  if (!valid_corner_indices(indices, contour.size())) return false;

  const Contour segments[4] = {
      side_segment(contour, indices[0], indices[1]),
      side_segment(contour, indices[1], indices[2]),
      side_segment(contour, indices[2], indices[3]),
      wrapped_side_segment(contour, indices[3], indices[0]),
  };
  std::vector<cv::Vec4f> lines;
  for (const Contour& segment : segments) {
    cv::Vec4f line(0.0f, 0.0f, 0.0f, 0.0f);
    if (!ransac_fitline(state, segment, line)) return false;
    lines.push_back(line);
  }
  if (!cal_four_lines_intersection(state, lines, state.coarse_corners)) return false;
  for (cv::Point2f& corner : state.coarse_corners) {
    corner.x *= kContourScale;
    corner.y *= kContourScale;
  }
  return true;
}

bool cal_four_lines_intersection(MeasurementState& state, const std::vector<cv::Vec4f>& lines,
                                 std::vector<cv::Point2f>& corners) {
  if (lines.size() >= 4) {
    for (int i = 0; i < 4; ++i) corners.push_back(intersect(lines[i], lines[(i + 1) % 4]));
  }
  if (corners.size() != 4) {
    stage_log(state) << "cal_four_lines_intersection not equal to 4; " << '\n';
    return false;
  }
  return true;
}

bool check_length_width_ratio(MeasurementState& state, const std::vector<cv::Point2f>& box_corners,
                              std::vector<cv::Point3f>& corners_3d,
                              std::vector<float>& side_lengths) {
  if (box_corners.size() >= 4) {
    const CameraIntrinsics& intrinsics = state.intrinsics;
    const PlaneEquation& plane = state.plane;
    const float ifx = static_cast<float>(1.0 / intrinsics.fx);
    const float ify = static_cast<float>(1.0 / intrinsics.fy);
    // Each corner's viewing ray meets the top-face plane at depth t.
    for (int i = 0; i < 4; ++i) {
      const float x = (box_corners[i].x - intrinsics.cx) * ifx;
      const float y = (box_corners[i].y - intrinsics.cy) * ify;
      const float t = -plane.d / (plane.a * x + plane.b * y + plane.c);
      corners_3d.emplace_back(x * t, y * t, t);
    }
    for (int i = 0; i < 4; ++i) {
      side_lengths.push_back(
          static_cast<float>(point_norm(corners_3d[(i + 1) % 4] - corners_3d[i])));
    }
    if (ratio_in_range(side_lengths[0], side_lengths[2]) &&
        ratio_in_range(side_lengths[1], side_lengths[3])) {
      return true;
    }
  }
  stage_log(state) << "length and width ratio error;" << '\n';
  return false;
}

}  // namespace boxdim
