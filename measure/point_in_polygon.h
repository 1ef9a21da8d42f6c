// Point-in-polygon tests on integer pixels, answering exactly as OpenCV's
// pointPolygonTest without distance, minus its per-call array wrapping; the
// row index answers many pixels against one long contour cheaply.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace boxdim {

// +1 strictly inside, 0 on the outline, -1 outside (-1 for an empty polygon);
// the same value cv::pointPolygonTest(polygon, cv::Point2f(pixel), false) gives.
int polygon_side(const std::vector<cv::Point>& polygon, cv::Point pixel);

// The polygon's edges grouped by the rows they touch within [row_begin,
// row_end), so that a pixel is tested against a handful of edges instead of
// all of them. side() equals polygon_side() for every pixel.
class PolygonRowIndex {
 public:
  PolygonRowIndex(const std::vector<cv::Point>& polygon, int row_begin, int row_end);

  int side(cv::Point pixel) const;

 private:
  struct Edge {
    cv::Point from, to;
  };

  const std::vector<cv::Point>& polygon_;
  int row_begin_;
  int row_end_;
  // Edges of row y are edges_[row_start_[y - row_begin_] .. row_start_[y - row_begin_ + 1]).
  std::vector<int> row_start_;
  std::vector<Edge> edges_;
};

}  // namespace boxdim
