// Where the boxes' tops are: the pixels that rise above the floor, split where
// the surface jumps, and within each such region the flat tops at their own
// heights (a region may hold a box and the side of another, or two boxes seen
// one behind the other).
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace boxdim::precise {

// The pixels of one top, at one height.
struct TopFace {
  std::vector<int> pixels;  // v * width + u
  cv::Rect bounds;          // of the pixels
  float height_mm = 0.0f;   // the height its pixels cluster at
  float noise_mm = 0.0f;    // the spread of its heights from pixel to pixel
  int region = 0;           // which above-floor region it belongs to
};

class TopFaceFinder {
 public:
  // The tops in the frame's heights (NaN without depth), largest regions
  // first, at most `max_faces`. The points' depths scale the thresholds with
  // the range noise.
  const std::vector<TopFace>& find(const cv::Mat1f& heights, const cv::Mat3f& points,
                                   int max_faces);
  // The region each pixel belongs to (-1: none; -2 - region: taken by one of
  // its tops), from the last find().
  const cv::Mat1i& regions() const { return labels_; }

 private:
  int root(int i);
  void split_region(const std::vector<int>& pixels, const cv::Mat1f& heights, int region,
                    int max_faces);

  std::vector<int> parent_;
  cv::Mat1i labels_;
  std::vector<std::vector<int>> region_pixels_;
  std::vector<int> histogram_;
  std::vector<float> differences_;
  cv::Mat1b band_;
  std::vector<int> stack_;
  std::vector<TopFace> faces_;
};

}  // namespace boxdim::precise
