#include "footprint/corner_search.h"

#include <algorithm>
#include <cstdint>
#include <ostream>

#include "footprint/geometry.h"

namespace boxdim {

namespace {

using Contour = std::vector<cv::Point>;

// The first pair is a diagonal when both arcs reach well beyond the pair's
// own length, or when the pair splits the outline into halves of about the
// same number of points.
constexpr double kDiagonalArcRatio = 1.1;
constexpr double kMinDiagonalCountRatio = 0.9;
constexpr double kMaxDiagonalCountRatio = 1.1;

constexpr int kNoCorner = -1;

// Best score so far and the contour index it belongs to.
struct Farthest {
  float score = 0.0f;
  int index = kNoCorner;
};

// Scores the points P[k mod n] for k in [begin, end); a point replaces the
// best only with a strictly greater score, so ties keep the earliest.
template <typename Score>
void keep_farthest(const Contour& contour, int begin, int end, Score score, Farthest& best) {
  const int n = static_cast<int>(contour.size());
  for (int k = begin; k < end; ++k) {
    const int m = k % n;
    const float s = score(contour[m]);
    if (s > best.score) best = {s, m};
  }
}

// |p - c0| + |p - c1|, summed in double and kept as float.
float distance_sum(const cv::Point& p, const cv::Point& c0, const cv::Point& c1) {
  return static_cast<float>(point_norm(p - c0) + point_norm(p - c1));
}

struct FarthestPair {
  float distance = 0.0f;
  int first = kNoCorner;
  int second = kNoCorner;
};

// The distance is rounded to float before it is compared, so pairs at the
// same distance compare equal and the first one met keeps its place.
FarthestPair farthest_pair(const Contour& contour) {
  FarthestPair best;
  const std::size_t n = contour.size();
  for (std::size_t i = 0; i + 1 < n; ++i) {
    for (std::size_t j = i + 1; j < n; ++j) {
      const float d = static_cast<float>(point_norm(contour[i] - contour[j]));
      if (d > best.distance) best = {d, static_cast<int>(i), static_cast<int>(j)};
    }
  }
  return best;
}

bool is_diagonal(float ratio1, float ratio2, float num_ratio) {
  const bool both_arcs_far = ratio1 > kDiagonalArcRatio && ratio2 > kDiagonalArcRatio;
  const bool halves_balanced =
      kMinDiagonalCountRatio < num_ratio && num_ratio < kMaxDiagonalCountRatio;
  return both_arcs_far || halves_balanced;
}

void log_indices(std::ostream& log, int first, int second, int third, int fourth) {
  log << "first :" << first << "  second:" << second << "  third: " << third
      << "   fourth:" << fourth << '\n';
}

// Without a farthest pair (all points coincide) or without a point on one of
// the arcs between that pair (second == first + 1, or the pair spans the whole
// contour), there is no corner to name; the search fails as for an empty
// contour instead of inventing an index.
bool report_degenerate(MeasurementState& state) {
  state.top_rect_corner_points.clear();
  stage_log(state) << "top_rect_contour_points is degenerate;" << '\n';
  return false;
}

bool valid_index(int index, int n) { return 0 <= index && index < n; }

}  // namespace

bool find_top_rect_corners(MeasurementState& state, std::vector<int>& indices) {
  state.top_rect_corner_points.clear();
  const Contour& contour = state.top_rect_contour_points;
  std::ostream& log = stage_log(state);
  if (contour.empty()) {
    log << "top_rect_contour_points is empty! " << '\n';
    return false;
  }

  const std::uint64_t allnum = contour.size();
  const int n = static_cast<int>(allnum);
  const FarthestPair pair = farthest_pair(contour);
  if (pair.first == kNoCorner) return report_degenerate(state);
  int first = pair.first;
  int second = pair.second;
  const cv::Point c0 = contour[first];
  const cv::Point c1 = contour[second];
  const auto sum_to_pair = [&](const cv::Point& p) { return distance_sum(p, c0, c1); };
  Farthest inner;
  keep_farthest(contour, first + 1, second, sum_to_pair, inner);
  Farthest outer;
  keep_farthest(contour, second + 1, n + first, sum_to_pair, outer);
  if (inner.index == kNoCorner || outer.index == kNoCorner) return report_degenerate(state);
  int third = inner.index;
  int fourth = outer.index;
  state.top_rect_corner_points = {c0, c1, contour[third], contour[fourth]};

  const float maxdistance = pair.distance;
  const float max_distance1 = inner.score;
  const float max_distance2 = outer.score;
  const float ratio1 = max_distance1 / maxdistance;
  const float ratio2 = max_distance2 / maxdistance;
  const int num1 = second - first;
  const std::uint64_t num2 = allnum - second + first;
  const float num_ratio = static_cast<float>(num1) / static_cast<float>(num2);
  log << "maxdistance : " << maxdistance << "     max_distance1:  " << max_distance1
      << "     max_distance2 : " << max_distance2 << '\n';
  log << "ratio1: " << ratio1 << "   ratio2:  " << ratio2 << '\n';
  log << "allnum: " << allnum << "  num1:  " << num1 << "  num2: " << num2 << '\n';
  log << "num ratio: " << num_ratio << '\n';

  const bool diagonal = is_diagonal(ratio1, ratio2, num_ratio);
  if (diagonal) {
    log << "The first two points are diagonal ;" << '\n';
  } else {
    state.top_rect_corner_points.resize(2);
    log << "The first two points are the edges; " << '\n';
  }
  log_indices(log, first, second, third, fourth);
  if (!diagonal) {
    if (!find_remaining_corners(state, first, second, third, fourth)) return false;
    state.top_rect_corner_points.push_back(contour[third]);
    state.top_rect_corner_points.push_back(contour[fourth]);
  }
  log_indices(log, first, second, third, fourth);

  indices.insert(indices.end(), {first, second, third, fourth});
  std::sort(indices.begin(), indices.end());
  return true;
}

bool find_remaining_corners(MeasurementState& state, int& first_idx, int& second_idx,
                            int& third_idx, int& fourth_idx) {
  const Contour& contour = state.top_rect_contour_points;
  const int n = static_cast<int>(contour.size());
  // Only a caller that skipped the first search can get here without the
  // first two corners and their indices.
  if (state.top_rect_corner_points.size() < 2 || !valid_index(first_idx, n) ||
      !valid_index(second_idx, n)) {
    return false;
  }

  // The new third corner is the point farthest from both known corners and
  // from the side they share.
  const cv::Point c0 = state.top_rect_corner_points[0];
  const cv::Point c1 = state.top_rect_corner_points[1];
  const cv::Point2f n01 = line_unit_normal(c0, c1);
  Farthest third{0.0f, third_idx};
  keep_farthest(
      contour, 0, n,
      [&](const cv::Point& p) {
        return static_cast<float>(point_norm(p - c0) + point_norm(p - c1) +
                                  point_line_distance(c0, n01, p));
      },
      third);
  if (!valid_index(third.index, n)) return false;
  third_idx = third.index;

  const cv::Point& p_first = contour[first_idx];
  const cv::Point& p_second = contour[second_idx];
  const cv::Point2f n13 = line_unit_normal(p_first, contour[third_idx]);
  const cv::Point2f n23 = line_unit_normal(p_second, contour[third_idx]);
  const auto from_line13 = [&](const cv::Point& p) { return point_line_distance(p_first, n13, p); };
  const auto from_line23 = [&](const cv::Point& p) {
    return point_line_distance(p_second, n23, p);
  };

  // The fourth corner lies on one of the two stretches joining the third
  // corner to the first and to the second; on each, the candidate is the point
  // farthest from the chord across that stretch.
  Farthest temp1{0.0f, 0};
  Farthest temp2{0.0f, 0};
  std::ostream& log = stage_log(state);
  if (first_idx < third_idx && third_idx < second_idx) {
    log << " first_idx < third_idx < second_idx" << '\n';
    keep_farthest(contour, first_idx + 1, third_idx, from_line13, temp1);
    keep_farthest(contour, third_idx + 1, second_idx, from_line23, temp2);
  } else if (third_idx < first_idx) {
    log << " 0 < third_idx < first_idx " << '\n';
    keep_farthest(contour, third_idx + 1, first_idx, from_line13, temp1);
    keep_farthest(contour, second_idx + 1, n + third_idx, from_line23, temp2);
  } else {
    log << " second_idx < third_idx < top_rect_contour_points.size " << '\n';
    keep_farthest(contour, third_idx + 1, first_idx + n, from_line13, temp1);
    keep_farthest(contour, second_idx + 1, third_idx, from_line23, temp2);
  }
  log << "temp_dis1 : " << temp1.score << "  temp_dis2:   " << temp2.score
      << "  temp_idx1: " << temp1.index << " temp_idx2: " << temp2.index << '\n';

  fourth_idx = temp1.score <= temp2.score ? temp2.index : temp1.index;
  return true;
}

}  // namespace boxdim
