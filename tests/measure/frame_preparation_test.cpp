#include "measure/frame_preparation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

}  // namespace
}  // namespace boxdim
