// A box's size from many frames: the median of each dimension over its last
// frames, so that the odd bad frame (a hand over the box, a burst of flying
// pixels) moves nothing, and the median's standard error as its uncertainty.
#pragma once

#include <array>

#include "core/geometry.h"
#include "core/track_event.h"

namespace boxdim::tracking {

class ReadingFusion {
 public:
  // About 8.5 s at 30 frames a second: long enough for a still box's reading
  // to stay put, bounded so that a track holds no growing list.
  static constexpr int kCapacity = 256;

  void add(const BoxDimensions& dimensions);
  void clear() {
    count_ = 0;
    next_ = 0;
    total_ = 0;
  }
  // The frames added since the last clear(), all of them, not only those held.
  int frames() const { return total_; }
  // The fused reading; dimensions 0 before the first frame.
  FusedReading reading() const;

 private:
  std::array<BoxDimensions, kCapacity> samples_{};
  int count_ = 0;  // held, up to kCapacity
  int next_ = 0;   // where the next sample goes
  int total_ = 0;
};

}  // namespace boxdim::tracking
