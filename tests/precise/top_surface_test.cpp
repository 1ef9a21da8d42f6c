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
      const float x = -0.95f + 1.9f * i / 39.0f;
      const float y = -0.95f + 1.9f * j / 39.0f;
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
                    200.0f}),
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

}  // namespace
}  // namespace boxdim::precise
