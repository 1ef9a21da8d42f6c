#include "precise/binary_morphology.h"

#include <algorithm>

namespace boxdim::precise {

namespace {

// Each pixel combined with its neighbours up to `radius` along the row, then
// along the column, by `op` (AND erodes, OR dilates), on shifted views so
// that OpenCV's vector code does the work; neighbours outside the image are
// left out, which is the neutral border.
template <typename Op>
void filter_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch, Op op) {
  const int rows = src.rows;
  const int cols = src.cols;
  cv::Mat1b across = view_of_size(scratch, src.size());
  src.copyTo(across);
  for (int d = 1; d <= radius && d < cols; ++d) {
    cv::Mat1b left = across.colRange(0, cols - d);
    cv::Mat1b right = across.colRange(d, cols);
    op(left, src.colRange(d, cols), left);
    op(right, src.colRange(0, cols - d), right);
  }
  if (dst.size() != src.size()) dst.create(src.size());
  across.copyTo(dst);
  for (int d = 1; d <= radius && d < rows; ++d) {
    cv::Mat1b upper = dst.rowRange(0, rows - d);
    cv::Mat1b lower = dst.rowRange(d, rows);
    op(upper, across.rowRange(d, rows), upper);
    op(lower, across.rowRange(0, rows - d), lower);
  }
}

void both(const cv::Mat1b& a, const cv::Mat1b& b, cv::Mat1b& out) { cv::bitwise_and(a, b, out); }
void either(const cv::Mat1b& a, const cv::Mat1b& b, cv::Mat1b& out) { cv::bitwise_or(a, b, out); }

}  // namespace

cv::Mat1b view_of_size(cv::Mat1b& canvas, cv::Size size) {
  if (canvas.rows < size.height || canvas.cols < size.width) {
    canvas.create(std::max(canvas.rows, size.height), std::max(canvas.cols, size.width));
  }
  return canvas(cv::Rect(cv::Point(0, 0), size));
}

void erode_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch) {
  filter_square(src, dst, radius, scratch, both);
}

void dilate_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch) {
  filter_square(src, dst, radius, scratch, either);
}

void close_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch) {
  dilate_square(src, dst, radius, scratch);
  erode_square(dst, dst, radius, scratch);
}

}  // namespace boxdim::precise
