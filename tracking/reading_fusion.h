// A box's size from many frames: the median of length and width over its
// last frames, so that the odd bad frame (a hand over the box, a burst of
// flying pixels) moves nothing; the height fitted once to the top's heights
// of those frames together, since a fit in each frame leans the same way
// under noise and a median of such heights keeps the lean. The uncertainty
// is the medians' standard error.
#pragma once

#include <array>
#include <optional>

#include "core/geometry.h"
#include "core/track_event.h"
#include "precise/top_surface.h"

namespace boxdim::tracking {

class ReadingFusion {
 public:
  // About 8.5 s at 30 frames a second: long enough for a still box's reading
  // to stay put, bounded so that a track holds no growing list.
  static constexpr int kCapacity = 256;

  // A frame's dimensions and, when known, the sums of its top's heights (x
  // along the top's longer side) and what its height adds to their
  // surface's highest point (a raised part of the lid, the floor around the
  // box). A frame whose height is far off the others' adds no heights.
  // `uncertainty`: each dimension's in this frame.
  void add(const BoxDimensions& dimensions, const precise::TopMoments* top = nullptr,
           float height_adjustment_mm = 0.0f, const BoxDimensions& uncertainty = {});
  void clear();
  // The frames added since the last clear(), all of them, not only those held.
  int frames() const { return total_; }
  // The fused reading; dimensions 0 before the first frame.
  FusedReading reading() const;

 private:
  std::array<BoxDimensions, kCapacity> samples_{};
  std::array<float, kCapacity> adjustments_{};            // index-parallel to samples_
  std::array<BoxDimensions, kCapacity> uncertainties_{};  // likewise
  int count_ = 0;                                         // held, up to kCapacity
  int next_ = 0;                                          // where the next sample goes
  int total_ = 0;

  void add_heights(const BoxDimensions& dimensions, const precise::TopMoments& top);
  // The heights of the frames that agree, in two blocks of up to half the
  // capacity: the older block goes when the newer one is full, so that the
  // sums cover about as many frames as the medians do.
  precise::TopMoments older_top_;
  precise::TopMoments newer_top_;
  int newer_top_frames_ = 0;
  std::optional<float> summed_height_;  // fitted to the sums
};

}  // namespace boxdim::tracking
