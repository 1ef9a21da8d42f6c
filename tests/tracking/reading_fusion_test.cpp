// A fused reading is the median of a box's frames: a minority of bad frames
// moves it by less than the frames' own noise, its uncertainty falls as
// frames add up, and it follows the last frames it holds. Its height, fitted
// to the heights of all frames together, finds what no single frame can.
#include "tracking/reading_fusion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "precise/top_surface.h"

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

TEST(ReadingFusion, StandardErrorFallsWithTheSquareRootOfTheFrames) {
  std::mt19937 rng(5);
  std::normal_distribution<float> noise(0.0f, 2.0f);
  ReadingFusion fusion;
  fusion.add({400, 300, 200});
  EXPECT_EQ(fusion.reading().standard_error_mm, 5.0f);  // one frame: no spread known
  float at_16 = 0.0f;
  for (int i = 1; i < 200; ++i) {
    fusion.add({400.0f + noise(rng), 300.0f + noise(rng), 200.0f + noise(rng)});
    if (fusion.frames() == 16) at_16 = fusion.reading().standard_error_mm;
  }
  const float at_200 = fusion.reading().standard_error_mm;
  // The median's standard error for a spread of 2 mm: 2.5 / sqrt(n) mm.
  EXPECT_NEAR(at_16, 2.5f / 4.0f, 0.35f);
  EXPECT_NEAR(at_200, 2.5f / std::sqrt(200.0f), 0.06f);
  // Frames that all agree: the tenth of a millimetre the reading is given in.
  ReadingFusion same;
  for (int i = 0; i < 10; ++i) same.add({400, 300, 200});
  EXPECT_FLOAT_EQ(same.reading().standard_error_mm, 0.1f);
}

// What every frame of a box shares (the rim the camera cannot see, an
// edge's gap) does not average away: the fused uncertainty stays the
// frames' typical one, dimension by dimension, unless the frames' own
// spread says more.
TEST(ReadingFusion, UncertaintyKeepsWhatEveryFrameShares) {
  ReadingFusion fusion;
  for (int i = 0; i < 100; ++i) {
    fusion.add({400.0f + 0.01f * (i % 3), 300, 200}, nullptr, 0.0f,
               {i % 2 == 0 ? 2.0f : 2.4f, 1.5f, 3.0f});
  }
  const FusedReading r = fusion.reading();
  EXPECT_NEAR(r.uncertainty.box_length, 2.2f, 0.21f);
  EXPECT_FLOAT_EQ(r.uncertainty.box_width, 1.5f);
  EXPECT_FLOAT_EQ(r.uncertainty.box_height, 3.0f);
  EXPECT_FLOAT_EQ(r.uncertainty_mm, 3.0f);
  EXPECT_LT(r.standard_error_mm, 0.2f);
  // Frames that wander more than their uncertainty says: twice the median's
  // standard error.
  ReadingFusion wandering;
  std::mt19937 rng(3);
  std::normal_distribution<float> noise(0.0f, 20.0f);
  for (int i = 0; i < 16; ++i)
    wandering.add({400.0f + noise(rng), 300, 200}, nullptr, 0.0f, {1, 1, 1});
  EXPECT_GT(wandering.reading().uncertainty.box_length, 5.0f);
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

// A frame of a 300 x 200 mm top whose rim stands at `rim` mm and whose lid
// sags or bulges by `lid` mm between its walls, as ~400 heights with noise;
// its dimensions carry the frame's own fitted height, as the detector's do.
struct Frame {
  BoxDimensions dimensions;
  precise::TopMoments top;
};

Frame frame_of_top(float rim, float lid, float noise, std::mt19937& rng) {
  std::normal_distribution<float> error(0.0f, noise);
  Frame f;
  for (int i = 0; i < 25; ++i) {
    for (int j = 0; j < 16; ++j) {
      const float x = -0.96f + 1.92f * i / 24.0f;
      const float y = -0.94f + 1.88f * j / 15.0f;
      f.top.add(x, y, rim + lid * (1 - x * x) * (1 - y * y) + error(rng));
    }
  }
  f.dimensions = {300.0f, 200.0f, precise::fit_top_surface(f.top, 150.0f, 100.0f).highest};
  return f;
}

// Far from the camera a frame's heights are too noisy to tell a shallow sag
// from a level top, and a level fit reads the mean, below the rim, in every
// frame alike: the median of such frames keeps the error, the heights of
// all of them fitted together do not.
TEST(ReadingFusion, HeightsOfAllFramesTogetherFindTheRimUnderAShallowSag) {
  std::mt19937 rng(11);
  ReadingFusion fusion;
  std::vector<float> frame_heights;
  for (int i = 0; i < 30; ++i) {
    const Frame f = frame_of_top(250.0f, -1.5f, 4.0f, rng);
    frame_heights.push_back(f.dimensions.box_height);
    fusion.add(f.dimensions, &f.top);
  }
  std::nth_element(frame_heights.begin(), frame_heights.begin() + 15, frame_heights.end());
  EXPECT_LT(frame_heights[15], 249.7f) << "single frames should lean low here";
  EXPECT_NEAR(fusion.reading().dimensions.box_height, 250.0f, 0.25f);
}

// A hand over the box now and then: its frames' heights stay out of the fit.
TEST(ReadingFusion, AFrameFarOffTheOthersHeightAddsNoHeights) {
  std::mt19937 rng(13);
  ReadingFusion fusion;
  for (int i = 0; i < 40; ++i) {
    const Frame f =
        i % 8 == 7 ? frame_of_top(330.0f, 0.0f, 1.0f, rng) : frame_of_top(250.0f, -4.0f, 1.0f, rng);
    fusion.add(f.dimensions, &f.top);
  }
  EXPECT_NEAR(fusion.reading().dimensions.box_height, 250.0f, 0.2f);
}

// The top changes under the track (a lid pressed in): once the frames' median
// has moved, the height follows instead of mixing the old top with the new.
TEST(ReadingFusion, TheHeightFollowsATopThatChangedOnceTheMedianHas) {
  std::mt19937 rng(17);
  ReadingFusion fusion;
  for (int i = 0; i < ReadingFusion::kCapacity; ++i) {
    const Frame f = frame_of_top(250.0f, 0.0f, 0.5f, rng);
    fusion.add(f.dimensions, &f.top);
  }
  for (int i = 0; i < ReadingFusion::kCapacity / 2 + 5; ++i) {
    const Frame f = frame_of_top(244.0f, 0.0f, 0.5f, rng);
    fusion.add(f.dimensions, &f.top);
  }
  EXPECT_NEAR(fusion.reading().dimensions.box_height, 244.0f, 0.05f);
  fusion.clear();
  const Frame f = frame_of_top(100.0f, 0.0f, 0.5f, rng);
  fusion.add(f.dimensions, &f.top);
  EXPECT_NEAR(fusion.reading().dimensions.box_height, 100.0f, 0.1f);
}

}  // namespace
}  // namespace boxdim::tracking
