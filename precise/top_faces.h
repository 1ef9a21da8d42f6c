// Where the boxes' tops are: the pixels that rise above the floor, split where
// the surface jumps, and within each such region the flat tops at their own
// heights (a region may hold a box and the side of another, or two boxes seen
// one behind the other).
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace boxdim::precise {

// The pixels of one top, at one height.
struct TopFace {
  // v * width + u, ascending; held by the finder until its next find().
  const int* pixels = nullptr;
  std::size_t pixel_count = 0;
  cv::Rect bounds;         // of the pixels
  float height_mm = 0.0f;  // the height its pixels cluster at
  float noise_mm = 0.0f;   // the spread of its heights from pixel to pixel
  int region = 0;          // which above-floor region it belongs to
  int id = 0;              // its value in TopFaceFinder::faces(), unique over frames
};

struct TopFaceOptions {
  // A pixel stands on the floor when it rises above it by more than the
  // range noise explains at its depth z: above_mm + above_per_mm z.
  float above_mm = 12.0f;
  float above_per_mm = 0.005f;
  // Neighbours whose heights differ by more than jump_mm + jump_per_mm z
  // lie on different surfaces.
  float jump_mm = 25.0f;
  float jump_per_mm = 0.012f;
  int min_region_pixels = 30;
  int min_face_pixels = 30;
  // The histogram of a region's heights: bin width, and bins on either
  // side it is smoothed over. A peak counts from a tenth (1 / this) of the
  // highest.
  float histogram_bin_mm = 3.0f;
  int histogram_smoothing = 2;
  int peak_divisor = 10;
  // A top's pixels lie within lid_allowance_mm + band_noise_factor noise +
  // band_extra_mm of its height: a lid may bulge or sag by about the
  // allowance and still be one top.
  float lid_allowance_mm = 12.0f;
  float band_noise_factor = 3.0f;
  float band_extra_mm = 3.0f;
  // A top is flat: the interquartile range of its heights stays under
  // max_spread_mm + 2 noise (a bulging lid spreads them by half its bulge),
  // and its median step from pixel to pixel under step_noise_factor noise +
  // step_extra_mm (a strip of a steep side does not).
  float max_spread_mm = 10.0f;
  float step_noise_factor = 3.0f;
  float step_extra_mm = 2.0f;
  // A top split by a line up to bridge_pixels wide is still one top: the
  // crack between two flaps, a seam the camera's filter blanked. The line's
  // pixels have no depth, or lie lower than the top but above
  // bridge_share of its height (the carton's inside, not the floor).
  int bridge_pixels = 3;
  float bridge_share = 0.5f;

  void check() const;
};

class TopFaceFinder {
 public:
  explicit TopFaceFinder(const TopFaceOptions& options = {}) : options_(options) {}

  // The tops in the frame's heights (NaN without depth) where `above` marks
  // the pixels above the floor, largest regions first, at most `max_faces`.
  // The depths (CV_16UC1, continuous) scale the thresholds with the range noise.
  const std::vector<TopFace>& find(const cv::Mat1f& heights, const cv::Mat1b& above,
                                   const cv::Mat& depth, int max_faces);
  // The region each pixel above the floor belongs to (-2 - region: taken by
  // one of its tops), from the last find(); undefined elsewhere.
  const cv::Mat1i& regions() const { return labels_; }
  // The top each pixel belongs to (its id), from the last find(); any other
  // value where it belongs to none of this frame's tops.
  const cv::Mat1i& faces() const { return face_ids_; }

 private:
  int root(int i);
  void split_region(int region, const cv::Mat1f& heights, int max_faces);
  // The 8-connected pieces of the band whose runs are in runs_, each run's
  // label set, pieces across a thin line (see bridge_pixels) joined;
  // returns their number plus one (no run has label 0). `mode` and
  // `half_band` say which heights the band holds.
  int label_pieces(const cv::Mat1f& heights, float mode, float half_band);
  // Joins, in the union-find over pixels, pixel i to a pixel up to
  // bridge_pixels + 1 steps of `step` away across pixels that a top may be
  // split by.
  void bridge(int i, int step, int steps_left, const float* h, const std::uint16_t* z,
              const std::uint8_t* up, int n);

  // Pixel lists live back to back in one buffer each, so that nothing is
  // allocated once the buffers have grown: a list is a start and a count.
  struct Span {
    int start = 0;
    int count = 0;
  };
  struct Extent {
    int u0, v0, u1, v1;
  };
  // Band pixels u0..u1 of row v; parent and label while labelling pieces.
  struct Run {
    int v, u0, u1, parent;
    int label = 0;
  };

  // Neighbours whose heights differ by more than this lie on different surfaces.
  float surface_jump(float z) const { return options_.jump_mm + options_.jump_per_mm * z; }

  TopFaceOptions options_;
  std::vector<int> parent_;
  std::vector<int> above_;  // the pixels above the floor, in order
  cv::Mat1i labels_;
  std::vector<Span> regions_;
  std::vector<Extent> region_extent_;
  std::vector<int> region_buffer_;
  std::vector<int> cursor_;
  std::vector<int> histogram_;
  std::vector<int> smoothed_;
  std::vector<float> modes_;
  std::vector<float> differences_;
  std::vector<int> order_;
  cv::Mat1i face_ids_;
  std::vector<Run> runs_;
  std::vector<int> row_first_run_;
  std::vector<Span> pieces_span_;
  std::vector<int> piece_buffer_;
  std::vector<int> piece_face_;
  std::vector<Span> face_spans_;
  std::vector<int> face_buffer_;
  std::vector<TopFace> faces_;
  const cv::Mat1b* above_mask_ = nullptr;
  static constexpr int kMaxIdBase = 1 << 30;
  int id_base_ = 0;
  int next_id_ = 0;
};

}  // namespace boxdim::precise
