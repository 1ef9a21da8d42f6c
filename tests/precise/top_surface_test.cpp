// The highest point of a top from sums over its heights: exact on the
// surfaces a top takes, the same whichever way round the box's axes are
// taken, and the same from two halves of the heights added as from all.
#include "precise/top_surface.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

namespace boxdim::precise {
namespace {

struct SurfaceCase {
  std::string name;
  std::function<float(float x, float y)> height;  // x, y in [-1, 1]
  float highest;
};

void PrintTo(const SurfaceCase& c, std::ostream* os) { *os << c.name; }

TopMoments sampled(const SurfaceCase& c, int from, int to, float noise, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<float> error(0.0f, noise);
  TopMoments m;
  for (int i = from; i < to; ++i) {
    for (int j = 0; j < 40; ++j) {
      // Heights up to the top's edges: the general surface is trusted as far
      // as its heights reach.
      const float x = -1.0f + 2.0f * i / 39.0f;
      const float y = -1.0f + 2.0f * j / 39.0f;
      m.add(x, y, c.height(x, y) + (noise > 0.0f ? error(rng) : 0.0f));
    }
  }
  return m;
}

class TopSurfaceTest : public ::testing::TestWithParam<SurfaceCase> {};

TEST_P(TopSurfaceTest, FindsTheHighestPointWhicheverWayTheAxesRun) {
  const SurfaceCase& c = GetParam();
  const TopMoments all = sampled(c, 0, 40, 0.0f, 1);
  EXPECT_NEAR(fit_top_surface(all, 200.0f, 150.0f).highest, c.highest, 0.01f);
  // The axes taken the other way round, or pointing the other way: the
  // same top.
  EXPECT_NEAR(fit_top_surface(all.swapped(), 150.0f, 200.0f).highest, c.highest, 0.01f);
  for (const bool fx : {false, true}) {
    for (const bool fy : {false, true}) {
      EXPECT_NEAR(fit_top_surface(all.flipped(fx, fy), 200.0f, 150.0f).highest, c.highest, 0.01f)
          << fx << fy;
    }
  }
  // Two halves of the heights, added, fit as all of them do.
  TopMoments halves = sampled(c, 0, 17, 0.0f, 1);
  halves += sampled(c, 17, 40, 0.0f, 1);
  EXPECT_NEAR(fit_top_surface(halves, 200.0f, 150.0f).highest, c.highest, 0.01f);
  EXPECT_EQ(halves.n, all.n);
}

INSTANTIATE_TEST_SUITE_P(
    Tops, TopSurfaceTest,
    ::testing::Values(
        SurfaceCase{"flat", [](float, float) { return 200.0f; }, 200.0f},
        // Not quite level: its highest corner.
        SurfaceCase{"tilted", [](float x, float y) { return 200.0f + 2.0f * x + 1.0f * y; },
                    203.0f},
        // A lid held at its four edges, bulging 8 mm at its centre.
        SurfaceCase{"bulging_lid",
                    [](float x, float y) { return 200.0f + 8.0f * (1 - x * x) * (1 - y * y); },
                    208.0f},
        // Sagging 6 mm: its rim is highest.
        SurfaceCase{"sagging_lid",
                    [](float x, float y) { return 200.0f - 6.0f * (1 - x * x) * (1 - y * y); },
                    200.0f},
        // The same on a top not quite level: the rim's highest corner.
        SurfaceCase{"sagging_lid_on_a_slope",
                    [](float x, float y) {
                      return 200.0f + 2.0f * x + 1.0f * y - 6.0f * (1 - x * x) * (1 - y * y);
                    },
                    203.0f}),
    [](const auto& info) { return info.param.name; });

// Under noise a small bulge is not worth a curved surface: the fit settles
// for a flat top at the heights' mean, below the bulge's peak.
TEST(TopSurface, UnderNoiseASmallBulgeFitsAsAFlatTop) {
  const SurfaceCase bulge{
      "small_bulge", [](float x, float y) { return 200.0f + 1.0f * (1 - x * x) * (1 - y * y); },
      201.0f};
  const TopSurface fit = fit_top_surface(sampled(bulge, 0, 40, 10.0f, 3), 200.0f, 150.0f);
  EXPECT_LT(fit.highest, 201.0f);
  EXPECT_NEAR(fit.rms, 10.0f, 0.5f);
}

// Far from the camera: 400 heights with 4 mm of noise on a lid sagging 3 mm.
// Fitted as a level top it would read the heights' mean, 1.3 mm below the
// rim; as a general surface, the highest of its noisy corners, above it.
TEST(TopSurface, UnderNoiseASaggingLidReadsItsRim) {
  const SurfaceCase sag{
      "sag", [](float x, float y) { return 200.0f - 3.0f * (1 - x * x) * (1 - y * y); }, 200.0f};
  double sum = 0.0;
  int near = 0;
  constexpr int kSeeds = 20;
  for (int seed = 1; seed <= kSeeds; ++seed) {
    TopMoments m;
    std::mt19937 rng(seed);
    std::normal_distribution<float> error(0.0f, 4.0f);
    for (int i = 0; i < 20; ++i) {
      for (int j = 0; j < 20; ++j) {
        const float x = -0.95f + 1.9f * i / 19.0f;
        const float y = -0.95f + 1.9f * j / 19.0f;
        m.add(x, y, sag.height(x, y) + error(rng));
      }
    }
    const double off = fit_top_surface(m, 200.0f, 150.0f).highest - sag.highest;
    sum += off;
    // Twice the rim's standard error from 400 heights with 4 mm of noise.
    near += std::abs(off) < 0.75;
  }
  EXPECT_NEAR(sum / kSeeds, 0.0, 0.3);
  EXPECT_GE(near, kSeeds * 9 / 10);
}

}  // namespace
}  // namespace boxdim::precise
