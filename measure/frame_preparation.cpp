#include "measure/frame_preparation.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <opencv2/imgproc.hpp>

namespace boxdim {

namespace {

// Value of the sample just before the first and just after the last one.
constexpr std::uint16_t kOutsideSample = 0;
constexpr int kSpikeThresholdMm = 300;

// Sums of the samples index-1, index, index+1 in memory order for every index
// of grid row `row`; the grid's first and last samples have a 0 outside.
void row_triples(const std::uint16_t* grid, int row, std::uint32_t* triples) {
  const int first = row * kSpikeGridCols;
  const int last = first + kSpikeGridCols - 1;
  const std::uint32_t before_first = first > 0 ? grid[first - 1] : kOutsideSample;
  const std::uint32_t after_last = last + 1 < kSpikeGridSamples ? grid[last + 1] : kOutsideSample;
  const std::uint16_t* samples = grid + first;
  triples[0] = before_first + samples[0] + samples[1];
  for (int c = 1; c + 1 < kSpikeGridCols; ++c) {
    triples[c] = std::uint32_t{samples[c - 1]} + samples[c] + samples[c + 1];
  }
  triples[kSpikeGridCols - 1] =
      std::uint32_t{samples[kSpikeGridCols - 2]} + samples[kSpikeGridCols - 1] + after_last;
}

// One grid row, given its neighbourhood sums; kCount samples make the mean
// (9 inside the grid, 6 on its first and last rows), a constant so the
// division vectorises.
template <unsigned kCount>
void filter_row(const std::uint16_t* samples, const std::uint32_t* sums, std::uint16_t* filtered) {
  for (int c = 0; c < kSpikeGridCols; ++c) {
    // Wrapping the wide sum once equals wrapping a 16-bit sum at every add.
    const std::uint16_t mean =
        static_cast<std::uint16_t>(static_cast<std::uint16_t>(sums[c]) / kCount);
    const std::uint16_t sample = samples[c];
    filtered[c] = (int{sample} > int{mean} + kSpikeThresholdMm) ? 0 : sample;
  }
}

// The 5-tap Sobel factors are 1 4 6 4 1 across the derivative and -1 -2 0 2 1 along it.
constexpr int kTapRadius = 2;
constexpr int kEdgeMax = 32767;

// |d depth/dx| + |d depth/dy| with 5 x 5 Sobel kernels and mirrored borders
// (the pixel at the border itself not repeated), saturated to 16 bits: the
// same image cv::Sobel (CV_16S), cv::absdiff and cv::add give, in one pass.
// Every sum is an exact integer, so the order of the additions is free; and
// clamping each gradient to 16 bits first could not change the clamped sum.
void compute_edge_image(MeasurementState& state, const std::uint16_t* depth_samples) {
  const int width = state.width;
  const int height = state.height;
  state.edge_image.create(height, width, CV_16SC1);
  // Columns reflected at both ends, so the horizontal pass needs no tests.
  std::vector<int>& smoothed = state.edge_smoothed_row;
  std::vector<int>& derived = state.edge_derived_row;
  smoothed.resize(width + 2 * kTapRadius);
  derived.resize(width + 2 * kTapRadius);
  std::array<int, 2 * kTapRadius> border_columns{};
  for (int k = 0; k < kTapRadius; ++k) {
    border_columns[k] = cv::borderInterpolate(k - kTapRadius, width, cv::BORDER_REFLECT_101);
    border_columns[kTapRadius + k] =
        cv::borderInterpolate(width + k, width, cv::BORDER_REFLECT_101);
  }
  for (int y = 0; y < height; ++y) {
    std::array<const std::uint16_t*, 5> rows{};
    for (int k = 0; k < 5; ++k) {
      const int row = cv::borderInterpolate(y + k - kTapRadius, height, cv::BORDER_REFLECT_101);
      rows[k] = depth_samples + static_cast<std::size_t>(row) * width;
    }
    int* smooth = smoothed.data() + kTapRadius;
    int* derive = derived.data() + kTapRadius;
    // The taps written out: the loops then vectorise.
    const std::uint16_t *r0 = rows[0], *r1 = rows[1], *r2 = rows[2], *r3 = rows[3], *r4 = rows[4];
    for (int x = 0; x < width; ++x) {
      smooth[x] = int{r0[x]} + 4 * r1[x] + 6 * r2[x] + 4 * r3[x] + r4[x];
      derive[x] = -int{r0[x]} - 2 * r1[x] + 2 * r3[x] + r4[x];
    }
    for (int k = 0; k < kTapRadius; ++k) {
      smooth[k - kTapRadius] = smooth[border_columns[k]];
      derive[k - kTapRadius] = derive[border_columns[k]];
      smooth[width + k] = smooth[border_columns[kTapRadius + k]];
      derive[width + k] = derive[border_columns[kTapRadius + k]];
    }
    auto* edges = state.edge_image.ptr<std::int16_t>(y);
    for (int x = 0; x < width; ++x) {
      const int gx = -smooth[x - 2] - 2 * smooth[x - 1] + 2 * smooth[x + 1] + smooth[x + 2];
      const int gy =
          derive[x - 2] + 4 * derive[x - 1] + 6 * derive[x] + 4 * derive[x + 1] + derive[x + 2];
      edges[x] = static_cast<std::int16_t>(std::min(std::abs(gx) + std::abs(gy), kEdgeMax));
    }
  }
}

// The spike filter always reads a full grid; frames of other sizes go through
// the state's zero-padded copy.
const std::uint16_t* spike_grid(MeasurementState& state, const std::uint16_t* depth_samples) {
  const std::size_t pixels = state.depth.size();
  if (pixels >= static_cast<std::size_t>(kSpikeGridSamples)) return depth_samples;
  state.spike_input.assign(kSpikeGridSamples, 0);
  std::copy_n(depth_samples, pixels, state.spike_input.begin());
  return state.spike_input.data();
}

void draw_centre_marker(cv::Mat& image, int width, int height) {
  const cv::Scalar green(0, 255, 0);
  const cv::Point centre(width / 2, height / 2);
  cv::circle(image, centre, 15, green, 1, cv::LINE_8, 0);
  cv::line(image, {centre.x - 12, centre.y}, {centre.x + 12, centre.y}, green, 1, cv::LINE_8, 0);
  cv::line(image, {centre.x, centre.y - 12}, {centre.x, centre.y + 12}, green, 1, cv::LINE_8, 0);
}

}  // namespace

void spike_filter(const std::uint16_t* grid, std::uint16_t* filtered) {
  // Triple sums of the rows above, at and below the current one, rolled down the grid.
  std::array<std::uint32_t, kSpikeGridCols> above{}, at{}, below{}, sums{};
  row_triples(grid, 0, at.data());
  for (int r = 0; r < kSpikeGridRows; ++r) {
    const bool has_above = r > 0;
    const bool has_below = r + 1 < kSpikeGridRows;
    if (has_below) row_triples(grid, r + 1, below.data());
    for (int c = 0; c < kSpikeGridCols; ++c) {
      sums[c] = at[c] + (has_above ? above[c] : 0u) + (has_below ? below[c] : 0u);
    }
    const std::size_t offset = static_cast<std::size_t>(r) * kSpikeGridCols;
    if (has_above && has_below) {
      filter_row<9>(grid + offset, sums.data(), filtered + offset);
    } else {
      filter_row<6>(grid + offset, sums.data(), filtered + offset);
    }
    std::swap(above, at);
    std::swap(at, below);
  }
}

void prepare_frame(MeasurementState& state, const std::uint16_t* depth_samples, cv::Mat& display) {
  const std::size_t pixels = static_cast<std::size_t>(state.width) * state.height;
  state.depth.clear();

  state.depth.assign(depth_samples, depth_samples + pixels);
  compute_edge_image(state, depth_samples);

  // The picture is the filtered grid read back as a width x height image; a
  // frame larger than the grid keeps its samples beyond the grid unfiltered.
  state.spike_filtered.resize(std::max<std::size_t>(pixels, kSpikeGridSamples));
  spike_filter(spike_grid(state, depth_samples), state.spike_filtered.data());
  if (pixels > static_cast<std::size_t>(kSpikeGridSamples)) {
    std::copy(depth_samples + kSpikeGridSamples, depth_samples + pixels,
              state.spike_filtered.begin() + kSpikeGridSamples);
  }
  const cv::Mat filtered(state.height, state.width, CV_16UC1, state.spike_filtered.data());
  // Stretched to 0-255 straight into 8 bits: the same bytes as stretching in
  // 16 bits and taking the absolute value, as every stretched value is in range.
  cv::normalize(filtered, state.picture_grey, 0, 255, cv::NORM_MINMAX, CV_8U);
  cv::cvtColor(state.picture_grey, state.result_image, cv::COLOR_GRAY2BGR);

  draw_centre_marker(state.result_image, state.width, state.height);
  display = state.result_image.clone();
}

}  // namespace boxdim
