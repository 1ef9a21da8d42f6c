#include "tracking/reading_fusion.h"

#include <algorithm>
#include <cmath>

namespace boxdim::tracking {
namespace {

// Frames whose heights are taken as they come, before a frame must agree
// with the others.
constexpr int kFramesBeforeHeightCheck = 3;
// A frame within this of the others' median height (mm) always agrees: a
// top's fit in one frame may take it for level where the next takes it for
// a sagging lid.
constexpr float kHeightAgreementMm = 3.0f;

// Median and median absolute deviation of values[0..n), reordering them.
std::pair<float, float> median_and_spread(float* values, int n) {
  const int middle = n / 2;
  std::nth_element(values, values + middle, values + n);
  float median = values[middle];
  if (n % 2 == 0) median = 0.5f * (median + *std::max_element(values, values + middle));
  for (int i = 0; i < n; ++i) values[i] = std::abs(values[i] - median);
  std::nth_element(values, values + middle, values + n);
  return {median, values[middle]};
}

}  // namespace

void ReadingFusion::add(const BoxDimensions& dimensions, const precise::TopMoments* top,
                        float height_adjustment_mm, const BoxDimensions& uncertainty) {
  if (top != nullptr && top->n > 0.0) add_heights(dimensions, *top);
  samples_[next_] = dimensions;
  adjustments_[next_] = height_adjustment_mm;
  uncertainties_[next_] = uncertainty;
  next_ = (next_ + 1) % kCapacity;
  count_ = std::min(count_ + 1, kCapacity);
  ++total_;
}

void ReadingFusion::add_heights(const BoxDimensions& dimensions, const precise::TopMoments& top) {
  if (count_ >= kFramesBeforeHeightCheck) {
    std::array<float, kCapacity> heights;
    for (int i = 0; i < count_; ++i) heights[i] = samples_[i].box_height;
    const auto [median, spread] = median_and_spread(heights.data(), count_);
    if (std::abs(dimensions.box_height - median) >
        std::max(kHeightAgreementMm, 4.0f * 1.4826f * spread)) {
      return;
    }
    // Sums far off the frames' median height are of a top that is no longer
    // there (pressed in, or another box's that the track went on with): the
    // height starts again from this frame, as the medians moved on.
    if (summed_height_ && std::abs(*summed_height_ - median) > kHeightAgreementMm) {
      older_top_ = newer_top_ = precise::TopMoments{};
      newer_top_frames_ = 0;
    }
  }
  if (newer_top_frames_ == kCapacity / 2) {
    older_top_ = newer_top_;
    newer_top_ = precise::TopMoments{};
    newer_top_frames_ = 0;
  }
  newer_top_ += top;
  ++newer_top_frames_;
  precise::TopMoments all = older_top_;
  all += newer_top_;
  summed_height_ =
      precise::fit_top_surface(all, 0.5f * dimensions.box_length, 0.5f * dimensions.box_width)
          .highest;
}

void ReadingFusion::clear() {
  count_ = 0;
  next_ = 0;
  total_ = 0;
  older_top_ = newer_top_ = precise::TopMoments{};
  newer_top_frames_ = 0;
  summed_height_.reset();
}

FusedReading ReadingFusion::reading() const {
  FusedReading fused;
  fused.frames = total_;
  if (count_ == 0) return fused;
  std::array<float, kCapacity> values;
  float* const dimension[3] = {&fused.dimensions.box_length, &fused.dimensions.box_width,
                               &fused.dimensions.box_height};
  for (int d = 0; d < 3; ++d) {
    for (int i = 0; i < count_; ++i) {
      const BoxDimensions& s = samples_[i];
      values[i] = d == 0 ? s.box_length : d == 1 ? s.box_width : s.box_height;
    }
    const auto [median, spread] = median_and_spread(values.data(), count_);
    *dimension[d] = median;
    // The median's standard error: 1.4826 MAD estimates the spread of one
    // frame, and a median of n is 1.2533 times as spread as a mean of n.
    // A single frame says nothing of its own spread: its error is taken as
    // the station's legal division. Frames that all agree (clean depth
    // steps of 1 mm) still leave the tenth of a millimetre the reading is
    // given in.
    const float error =
        count_ < 2
            ? 5.0f
            : std::max(0.1f, 1.2533f * 1.4826f * spread / std::sqrt(static_cast<float>(count_)));
    fused.standard_error_mm = std::max(fused.standard_error_mm, error);
    // What every frame shares (an edge's gap, the rim the camera could not
    // see, the camera's own range error) stays however many frames there
    // are: the frames' typical uncertainty, or the median's wander when
    // that is larger.
    for (int i = 0; i < count_; ++i) {
      const BoxDimensions& u = uncertainties_[i];
      values[i] = d == 0 ? u.box_length : d == 1 ? u.box_width : u.box_height;
    }
    const float typical = median_and_spread(values.data(), count_).first;
    const float uncertainty = std::max(typical, 2.0f * error);
    (d == 0   ? fused.uncertainty.box_length
     : d == 1 ? fused.uncertainty.box_width
              : fused.uncertainty.box_height) = uncertainty;
    fused.uncertainty_mm = std::max(fused.uncertainty_mm, uncertainty);
  }
  // The summed surface's highest point, adjusted as the frames are.
  if (summed_height_) {
    std::copy(adjustments_.begin(), adjustments_.begin() + count_, values.begin());
    fused.dimensions.box_height = *summed_height_ + median_and_spread(values.data(), count_).first;
  }
  return fused;
}

}  // namespace boxdim::tracking
