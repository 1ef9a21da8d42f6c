#include "measure/frame_preparation.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/test_frames.h"

namespace boxdim {
namespace {

using Grid = std::vector<std::uint16_t>;

Grid grid_of(std::uint16_t value) { return Grid(kSpikeGridSamples, value); }

std::uint16_t& at(Grid& grid, int row, int col) { return grid[row * kSpikeGridCols + col]; }

Grid filtered(const Grid& grid) {
  Grid out(kSpikeGridSamples, 0xFFFF);
  spike_filter(grid.data(), out.data());
  return out;
}

struct SpikeCase {
  const char* name;
  int row, col;
  std::uint16_t background;
  std::uint16_t sample;
  bool removed;
};

class SpikeFilterTest : public ::testing::TestWithParam<SpikeCase> {};

// The mean includes the sample itself and is an integer division: with eight
// zero neighbours a sample of 338 has mean 37, so it lies 301 above it; 337 lies
// exactly 300 above and stays.
TEST_P(SpikeFilterTest, RemovesSamplesMoreThan300AboveTheirNeighbourhoodMean) {
  const SpikeCase& c = GetParam();
  Grid grid = grid_of(c.background);
  at(grid, c.row, c.col) = c.sample;
  const Grid out = filtered(grid);
  EXPECT_EQ(out[c.row * kSpikeGridCols + c.col], c.removed ? 0 : c.sample);
}

INSTANTIATE_TEST_SUITE_P(
    Thresholds, SpikeFilterTest,
    ::testing::Values(SpikeCase{"interior_301_above", 100, 100, 0, 338, true},
                      SpikeCase{"interior_300_above", 100, 100, 0, 337, false},
                      // A top-left corner averages six positions (two rows of three, one of
                      // them before the frame): 361 / 6 = 60, 301 above.
                      SpikeCase{"corner_301_above", 0, 0, 0, 361, true},
                      SpikeCase{"corner_300_above", 0, 0, 0, 360, false},
                      SpikeCase{"bottom_right_301_above", 479, 639, 0, 361, true},
                      // Six samples of 8,000 (top row) sum to 48,000 and do not wrap.
                      SpikeCase{"far_top_row_no_wrap", 0, 300, 8000, 8000, false},
                      // Nine samples of 7,282 mm sum to 65,538, which wraps to 2: the mean
                      // is 0 and the sample is dropped although it equals the rest.
                      SpikeCase{"just_below_wrap", 200, 300, 7281, 7281, false},
                      SpikeCase{"just_above_wrap", 200, 300, 7282, 7282, true}),
    [](const auto& info) { return std::string(info.param.name); });

// At the first and last columns the outer neighbours are the samples beside
// them in memory, in the rows above and below: a bright one there raises the
// mean enough to keep a sample that would otherwise be a spike.
TEST(SpikeFilter, EdgeColumnsAverageTheirNeighboursInMemory) {
  Grid grid = grid_of(0);
  at(grid, 10, 0) = 1000;
  at(grid, 20, 639) = 1000;
  const Grid alone = filtered(grid);
  EXPECT_EQ(alone[10 * kSpikeGridCols], 0) << "1000 > 1000/9 + 300";
  EXPECT_EQ(alone[20 * kSpikeGridCols + 639], 0);
  at(grid, 9, 639) = 6000;  // memory neighbour of (10, 0): index 10*640 - 1
  at(grid, 21, 0) = 6000;   // memory neighbour of (20, 639)
  const Grid kept = filtered(grid);
  EXPECT_EQ(kept[10 * kSpikeGridCols], 1000) << "mean (6000 + 1000) / 9 = 777";
  EXPECT_EQ(kept[20 * kSpikeGridCols + 639], 1000);
}

cv::Mat frame_with_step(int width, int height, std::uint16_t near_mm, std::uint16_t far_mm,
                        int step_col) {
  cv::Mat depth(height, width, CV_16UC1, cv::Scalar(far_mm));
  depth.colRange(step_col, width).setTo(near_mm);
  return depth;
}

TEST(PrepareFrame, StoresUnfilteredDepthAndFiltersOnlyThePicture) {
  MeasurementState state;
  cv::Mat depth(480, 640, CV_16UC1, cv::Scalar(1000));
  depth.at<std::uint16_t>(100, 100) = 5000;  // a spike
  testing::load_frame(state, depth);

  ASSERT_EQ(state.depth.size(), 640u * 480u);
  EXPECT_EQ(state.depth[100 * 640 + 100], 5000);
  EXPECT_EQ(state.spike_filtered[100 * 640 + 100], 0);
  // Min-max stretch: the spike (now 0) is black, the rest white.
  EXPECT_EQ(state.result_image.at<cv::Vec3b>(100, 100), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(state.result_image.at<cv::Vec3b>(50, 50), cv::Vec3b(255, 255, 255));
}

TEST(PrepareFrame, EdgeImageIsTheSumOfAbsoluteFiveTapSobelResponses) {
  MeasurementState state;
  // Far floor left, near surface right: the x derivative is positive on one
  // side of the step, and a 5-tap Sobel of a 100 mm step gives 3 * 16 * 100.
  const cv::Mat depth = frame_with_step(640, 480, 900, 1000, 320);
  testing::load_frame(state, depth);
  ASSERT_EQ(state.edge_image.type(), CV_16SC1);
  EXPECT_EQ(state.edge_image.at<std::int16_t>(240, 319), 4800);
  EXPECT_EQ(state.edge_image.at<std::int16_t>(240, 320), 4800);
  EXPECT_EQ(state.edge_image.at<std::int16_t>(240, 100), 0);

  // Steps of more than 682 mm saturate the 16-bit signed sum.
  testing::load_frame(state, frame_with_step(640, 480, 200, 1000, 320));
  EXPECT_EQ(state.edge_image.at<std::int16_t>(240, 320), 32767);
}

TEST(PrepareFrame, DrawsTheGreenCentreMarkerOnACopyForDisplay) {
  MeasurementState state;
  cv::Mat display = testing::load_frame(state, cv::Mat(480, 640, CV_16UC1, cv::Scalar(0)));
  const cv::Vec3b green(0, 255, 0);
  for (const cv::Point p :
       {cv::Point(320 - 12, 240), cv::Point(320 + 12, 240), cv::Point(320, 240 - 12),
        cv::Point(320, 240 + 12), cv::Point(320 + 15, 240), cv::Point(320, 240 - 15)}) {
    EXPECT_EQ(display.at<cv::Vec3b>(p), green) << p;
  }
  EXPECT_EQ(display.at<cv::Vec3b>(240, 320 + 13), cv::Vec3b(0, 0, 0));
  display.setTo(cv::Scalar(1, 2, 3));
  EXPECT_EQ(state.result_image.at<cv::Vec3b>(240, 320 + 12), green) << "display must be a copy";
}

// Frames of other sizes: the filter reads the samples as a 640-stride grid
// padded with zeros, and the picture reads the filtered grid back at the
// frame's own size; a larger frame keeps its samples beyond the grid.
TEST(PrepareFrame, OtherFrameSizesAreFilteredOnTheFixedGrid) {
  MeasurementState state;
  cv::Mat depth(240, 320, CV_16UC1, cv::Scalar(1000));
  testing::load_frame(state, depth);
  ASSERT_EQ(state.result_image.size(), cv::Size(320, 240));
  ASSERT_EQ(state.edge_image.size(), cv::Size(320, 240));
  Grid grid = grid_of(0);
  std::copy(depth.begin<std::uint16_t>(), depth.end<std::uint16_t>(), grid.begin());
  const Grid expected = filtered(grid);
  EXPECT_TRUE(
      std::equal(expected.begin(), expected.begin() + 320 * 240, state.spike_filtered.begin()));

  testing::load_frame(state, cv::Mat(500, 700, CV_16UC1, cv::Scalar(1234)));
  ASSERT_EQ(state.result_image.size(), cv::Size(700, 500));
  EXPECT_EQ(state.spike_filtered.back(), 1234);
}

}  // namespace
}  // namespace boxdim
