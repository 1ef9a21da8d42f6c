// A fused reading is the median of a box's frames: a minority of bad frames
// moves it by less than the frames' own noise, its uncertainty falls as frames add up, and it
// follows the last frames it holds.
#include "tracking/reading_fusion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace boxdim::tracking {
namespace {

TEST(ReadingFusion, AMinorityOfBadFramesMovesTheReadingByLessThanTheNoise) {
  ReadingFusion fusion;
  std::mt19937 rng(3);
  std::normal_distribution<float> noise(0.0f, 0.5f);
  for (int i = 0; i < 60; ++i) {
    BoxDimensions d{400.0f + noise(rng), 300.0f + noise(rng), 200.0f + noise(rng)};
    // One frame in five wildly off, as with a hand over the box.
    if (i % 5 == 0) d = {520.0f, 90.0f, 380.0f};
    fusion.add(d);
  }
  const FusedReading r = fusion.reading();
  EXPECT_NEAR(r.dimensions.box_length, 400.0f, 0.5f);
  EXPECT_NEAR(r.dimensions.box_width, 300.0f, 0.5f);
  EXPECT_NEAR(r.dimensions.box_height, 200.0f, 0.5f);
  EXPECT_EQ(r.frames, 60);
}

TEST(ReadingFusion, UncertaintyFallsWithTheSquareRootOfTheFrames) {
  std::mt19937 rng(5);
  std::normal_distribution<float> noise(0.0f, 2.0f);
  ReadingFusion fusion;
  fusion.add({400, 300, 200});
  EXPECT_EQ(fusion.reading().uncertainty_mm, 5.0f);  // one frame: no spread known
  float at_16 = 0.0f;
  for (int i = 1; i < 200; ++i) {
    fusion.add({400.0f + noise(rng), 300.0f + noise(rng), 200.0f + noise(rng)});
    if (fusion.frames() == 16) at_16 = fusion.reading().uncertainty_mm;
  }
  const float at_200 = fusion.reading().uncertainty_mm;
  // The median's standard error for a spread of 2 mm: 2.5 / sqrt(n) mm.
  EXPECT_NEAR(at_16, 2.5f / 4.0f, 0.35f);
  EXPECT_NEAR(at_200, 2.5f / std::sqrt(200.0f), 0.06f);
  // Frames that all agree: the tenth of a millimetre the reading is given in.
  ReadingFusion same;
  for (int i = 0; i < 10; ++i) same.add({400, 300, 200});
  EXPECT_FLOAT_EQ(same.reading().uncertainty_mm, 0.1f);
}

TEST(ReadingFusion, HoldsTheLastFramesOnly) {
  ReadingFusion fusion;
  for (int i = 0; i < ReadingFusion::kCapacity; ++i) fusion.add({400, 300, 200});
  for (int i = 0; i < ReadingFusion::kCapacity / 2 + 1; ++i) fusion.add({410, 300, 200});
  EXPECT_EQ(fusion.reading().dimensions.box_length, 410.0f);
  EXPECT_EQ(fusion.frames(), ReadingFusion::kCapacity * 3 / 2 + 1);
  fusion.clear();
  EXPECT_EQ(fusion.reading().frames, 0);
  EXPECT_EQ(fusion.reading().dimensions.box_length, 0.0f);
}

}  // namespace
}  // namespace boxdim::tracking
