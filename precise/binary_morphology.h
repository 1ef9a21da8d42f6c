// Erosion, dilation and closing of 0/255 masks by a square, with no
// allocation once the scratch has grown. cv::erode and cv::dilate build a
// filter object on every call, and a fit calls them for every box in every
// frame; these give the same pixels as theirs with a (2 radius + 1) square
// and their default border (nothing outside the image changes a pixel).
#pragma once

#include <opencv2/core.hpp>

namespace boxdim::precise {

// dst may be src. dst is created at src's size unless it already has it (a
// view of a larger canvas stays a view); scratch grows to src's size.
void erode_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch);
void dilate_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch);
// Dilation, then erosion: closes gaps narrower than the square.
void close_square(const cv::Mat1b& src, cv::Mat1b& dst, int radius, cv::Mat1b& scratch);

// A view of `canvas` at `size`, from its top left corner; the canvas grows
// when it is smaller.
cv::Mat1b view_of_size(cv::Mat1b& canvas, cv::Size size);

}  // namespace boxdim::precise
