#include "measure/frame_preparation.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace boxdim {

namespace {

// Value of the sample just before the first and just after the last one.
constexpr std::uint16_t kOutsideSample = 0;
constexpr int kSpikeThresholdMm = 300;

// Samples index-1, index, index+1 of the grid in memory order.
std::uint32_t triple_sum(const std::uint16_t* grid, int index) {
  const std::uint32_t before = index > 0 ? grid[index - 1] : kOutsideSample;
  const std::uint32_t after = index + 1 < kSpikeGridSamples ? grid[index + 1] : kOutsideSample;
  return before + grid[index] + after;
}

void compute_edge_image(MeasurementState& state, const std::uint16_t* depth_samples) {
  const cv::Mat depth(state.height, state.width, CV_16UC1,
                      const_cast<std::uint16_t*>(depth_samples));
  cv::Mat gx;
  cv::Mat gy;
  cv::Sobel(depth, gx, CV_16S, 1, 0, 5, 1.0, 0.0, cv::BORDER_REFLECT_101);
  cv::Sobel(depth, gy, CV_16S, 0, 1, 5, 1.0, 0.0, cv::BORDER_REFLECT_101);
  cv::absdiff(gx, cv::Scalar::all(0), gx);
  cv::absdiff(gy, cv::Scalar::all(0), gy);
  cv::add(gx, gy, state.edge_image);
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
  for (int r = 0; r < kSpikeGridRows; ++r) {
    const bool has_above = r > 0;
    const bool has_below = r + 1 < kSpikeGridRows;
    const unsigned count = 3u * (1u + has_above + has_below);
    for (int c = 0; c < kSpikeGridCols; ++c) {
      const int i = r * kSpikeGridCols + c;
      std::uint32_t sum = triple_sum(grid, i);
      if (has_above) sum += triple_sum(grid, i - kSpikeGridCols);
      if (has_below) sum += triple_sum(grid, i + kSpikeGridCols);
      // Wrapping the wide sum once equals wrapping a 16-bit sum at every add.
      const std::uint16_t sum16 = static_cast<std::uint16_t>(sum);
      const std::uint16_t mean = static_cast<std::uint16_t>(sum16 / count);
      const std::uint16_t sample = grid[i];
      filtered[i] = (int{sample} > int{mean} + kSpikeThresholdMm) ? 0 : sample;
    }
  }
}

void prepare_frame(MeasurementState& state, const std::uint16_t* depth_samples, cv::Mat& display) {
  const std::size_t pixels = static_cast<std::size_t>(state.width) * state.height;
  state.depth.clear();
  state.edge_image.release();
  state.result_image.release();

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
  cv::Mat stretched;
  cv::normalize(filtered, stretched, 0, 255, cv::NORM_MINMAX);
  cv::Mat grey;
  cv::convertScaleAbs(stretched, grey, 1.0, 0.0);
  cv::cvtColor(grey, state.result_image, cv::COLOR_GRAY2BGR);

  draw_centre_marker(state.result_image, state.width, state.height);
  display = state.result_image.clone();
}

}  // namespace boxdim
