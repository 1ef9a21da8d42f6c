#include "measure/point_in_polygon.h"

#include <algorithm>
#include <cstdint>

namespace boxdim {

namespace {

enum class EdgeVerdict { kOnOutline, kCrossesRay, kNoCrossing };

// One edge against the pixel's ray to the right, with OpenCV's rules for
// vertices and horizontal edges, so that the parity of the crossings and the
// on-outline verdicts match its test exactly.
EdgeVerdict test_edge(cv::Point from, cv::Point to, cv::Point p) {
  if ((from.y <= p.y && to.y <= p.y) || (from.y > p.y && to.y > p.y) ||
      (from.x < p.x && to.x < p.x)) {
    if (p.y == to.y && (p.x == to.x || (p.y == from.y && ((from.x <= p.x && p.x <= to.x) ||
                                                          (to.x <= p.x && p.x <= from.x))))) {
      return EdgeVerdict::kOnOutline;
    }
    return EdgeVerdict::kNoCrossing;
  }
  // Widened before subtracting: outlines built from far-off corners reach
  // coordinates whose differences overflow int.
  using Wide = std::int64_t;
  Wide cross =
      (Wide{p.y} - from.y) * (Wide{to.x} - from.x) - (Wide{p.x} - from.x) * (Wide{to.y} - from.y);
  if (cross == 0) return EdgeVerdict::kOnOutline;
  if (to.y < from.y) cross = -cross;
  return cross > 0 ? EdgeVerdict::kCrossesRay : EdgeVerdict::kNoCrossing;
}

}  // namespace

int polygon_side(const std::vector<cv::Point>& polygon, cv::Point pixel) {
  if (polygon.empty()) return -1;
  int crossings = 0;
  cv::Point from = polygon.back();
  for (const cv::Point& to : polygon) {
    const EdgeVerdict verdict = test_edge(from, to, pixel);
    if (verdict == EdgeVerdict::kOnOutline) return 0;
    crossings += verdict == EdgeVerdict::kCrossesRay;
    from = to;
  }
  return crossings % 2 == 0 ? -1 : 1;
}

PolygonRowIndex::PolygonRowIndex(const std::vector<cv::Point>& polygon, int row_begin, int row_end)
    : polygon_(polygon), row_begin_(row_begin), row_end_(std::max(row_begin, row_end)) {
  // An edge matters to a pixel only if the pixel's row lies within the edge's
  // rows: every other edge is passed over without a verdict.
  const int rows = row_end_ - row_begin_;
  row_start_.assign(rows + 1, 0);
  auto for_each_row = [&](auto&& visit) {
    if (polygon.empty()) return;
    cv::Point from = polygon.back();
    for (const cv::Point& to : polygon) {
      const int first = std::max(std::min(from.y, to.y), row_begin_);
      const int last = std::min(std::max(from.y, to.y), row_end_ - 1);
      for (int y = first; y <= last; ++y) visit(y - row_begin_, Edge{from, to});
      from = to;
    }
  };
  for_each_row([&](int row, const Edge&) { ++row_start_[row + 1]; });
  for (int row = 0; row < rows; ++row) row_start_[row + 1] += row_start_[row];
  edges_.resize(row_start_[rows]);
  std::vector<int> filled(row_start_.begin(), row_start_.end() - 1);
  for_each_row([&](int row, const Edge& edge) { edges_[filled[row]++] = edge; });
}

int PolygonRowIndex::side(cv::Point pixel) const {
  if (pixel.y < row_begin_ || pixel.y >= row_end_) return polygon_side(polygon_, pixel);
  if (polygon_.empty()) return -1;
  const int row = pixel.y - row_begin_;
  int crossings = 0;
  for (int e = row_start_[row]; e < row_start_[row + 1]; ++e) {
    const EdgeVerdict verdict = test_edge(edges_[e].from, edges_[e].to, pixel);
    if (verdict == EdgeVerdict::kOnOutline) return 0;
    crossings += verdict == EdgeVerdict::kCrossesRay;
  }
  return crossings % 2 == 0 ? -1 : 1;
}

}  // namespace boxdim
