// The physical sensor: edge pixels mix what their footprint sees, the
// camera's filters blank a band on both sides of a depth edge, structured
// light steps its depths, the errors a camera repeats are in every frame,
// darker board reads noisier, and the table gives under a box without the
// truth changing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <vector>

#include "scene/depth_scene.h"

namespace boxdim {
namespace {

using Depth = std::uint16_t;

// A 400 x 300 x 200 mm box straight below a camera 1.2 m up, its sides
// along the image's columns and rows, seen without noise.
SceneParameters physical_scene() {
  SceneParameters s;
  s.camera_height_mm = 1200.0f;
  s.sensor.footprint_samples = 4;
  s.sensor.min_amplitude = 0.0f;
  return s;
}

// The pixels of row `v` from column u0 to u1.
std::vector<int> row_of(const cv::Mat& depth, int v, int u0, int u1) {
  std::vector<int> values;
  for (int u = u0; u <= u1; ++u) values.push_back(depth.at<Depth>(v, u));
  return values;
}

// The box's right edge along row 240: the top's depth is 1000, the floor's
// 1200. Its column in the image, where the top's last pixel ends.
double right_edge_column(const SceneParameters& s) {
  return s.intrinsics.cx + 200.0 / 1000.0 * s.intrinsics.fx;
}

TEST(SensorFrame, AnEdgePixelReadsTheLightWeightedMixOfWhatItSees) {
  const SceneParameters s = physical_scene();
  const RenderedScene r = render_scene(s);
  const double edge = right_edge_column(s);
  const int u = static_cast<int>(std::floor(edge + 0.5));  // the pixel the edge crosses
  // The share of its footprint's samples (4 x 4) that fall on the top.
  double top_share = 0.0;
  for (int i = 0; i < 4; ++i) top_share += u - 0.5 + (i + 0.5) / 4.0 < edge ? 0.25 : 0.0;
  ASSERT_GT(top_share, 0.1);
  ASSERT_LT(top_share, 0.9);
  // Top and floor return light in proportion to reflectivity over range
  // squared; their phases mix like the ranges for a difference this small.
  const double top_light = 0.45 / (1.0 * 1.0);
  const double floor_light = 0.3 / (1.2 * 1.2);
  const double expected =
      (top_share * top_light * 1000.0 + (1 - top_share) * floor_light * 1200.0) /
      (top_share * top_light + (1 - top_share) * floor_light);
  const int v = 240;
  EXPECT_NEAR(r.depth.at<Depth>(v, u), expected, 1.0);
  EXPECT_EQ(r.depth.at<Depth>(v, u - 1), 1000);
  EXPECT_EQ(r.depth.at<Depth>(v, u + 1), 1200);
}

struct FilterCase {
  const char* name;
  FlyingPixelFilter filter;
  int min_band, max_band;  // invalid pixels across the edge
};

void PrintTo(const FilterCase& c, std::ostream* os) { *os << c.name; }

class FlyingFilter : public ::testing::TestWithParam<FilterCase> {};

TEST_P(FlyingFilter, BlanksABandOnBothSidesOfADepthEdge) {
  const FilterCase& c = GetParam();
  SceneParameters s = physical_scene();
  s.sensor.flying_filter = c.filter;
  s.noise.sigma_at_1m_mm = 1.0f;
  const RenderedScene r = render_scene(s);
  const int edge = static_cast<int>(std::round(right_edge_column(s)));
  for (int v = 200; v <= 280; v += 20) {
    SCOPED_TRACE(::testing::Message() << "row " << v);
    const std::vector<int> row = row_of(r.depth, v, edge - 6, edge + 6);
    const int band = static_cast<int>(std::count(row.begin(), row.end(), 0));
    EXPECT_GE(band, c.min_band);
    EXPECT_LE(band, c.max_band);
    if (band == 0) continue;
    // The band spans the edge: top before it, floor after it.
    const auto first = std::find(row.begin(), row.end(), 0);
    const auto last = std::find(row.rbegin(), row.rend(), 0).base() - 1;
    EXPECT_LT(*(first - 1), 1010);
    EXPECT_GT(*(last + 1), 1190);
    EXPECT_LE(first - row.begin(), 6) << "the band reaches onto the top";
    EXPECT_GE(last - row.begin(), 6) << "and onto the floor";
  }
}

INSTANTIATE_TEST_SUITE_P(Filters, FlyingFilter,
                         ::testing::Values(FilterCase{"off", FlyingPixelFilter::kOff, 0, 0},
                                           FilterCase{"weak", FlyingPixelFilter::kWeak, 2, 3},
                                           FilterCase{"strong", FlyingPixelFilter::kStrong, 2, 3}),
                         [](const auto& info) { return info.param.name; });

TEST(SensorFrame, StructuredLightStepsItsDepthsByTheDistanceSquared) {
  SceneParameters s = physical_scene();
  s.with_box = false;
  s.camera_height_mm = 1100.0f;
  s.tilt_deg = 20.0f;  // the floor's depths sweep a range
  s.sensor.sensing = DepthSensing::kStructuredLight;
  s.sensor.depth_step_at_1m_mm = 2.5f;
  const RenderedScene r = render_scene(s);
  std::set<int> near_1100;
  for (int v = 0; v < r.depth.rows; ++v) {
    for (int u = 0; u < r.depth.cols; ++u) {
      const int d = r.depth.at<Depth>(v, u);
      if (d >= 1080 && d <= 1120) near_1100.insert(d);
    }
  }
  // Steps of 2.5 * 1.1^2 = 3.0 mm: about 14 values over 40 mm.
  EXPECT_GE(near_1100.size(), 11u);
  EXPECT_LE(near_1100.size(), 16u);
}

TEST(SensorFrame, TheErrorsACameraRepeatsAreInEveryFrameAndTheNoiseIsNot) {
  SceneParameters s = physical_scene();
  s.noise.sigma_at_1m_mm = 1.0f;
  s.sensor.fixed_pattern_mm = 3.0f;
  SceneParameters ideal = s;
  ideal.sensor.fixed_pattern_mm = 0.0f;
  // Averaged over a floor patch near a corner of the image, two frames of
  // other noise agree, and differ from the ideal camera's by the pattern.
  const auto corner_mean = [](const SceneParameters& scene) {
    const RenderedScene r = render_scene(scene);
    double sum = 0.0;
    for (int v = 10; v < 40; ++v) {
      for (int u = 10; u < 40; ++u) sum += r.depth.at<Depth>(v, u);
    }
    return sum / 900.0;
  };
  SceneParameters other_frame = s;
  other_frame.seed = 99;
  const double first = corner_mean(s);
  EXPECT_NEAR(corner_mean(other_frame), first, 0.4);
  EXPECT_GT(std::abs(first - corner_mean(ideal)), 1.5);
}

TEST(SensorFrame, DarkBoardReadsNoisierThanWhite) {
  const auto top_spread = [](float reflectivity) {
    SceneParameters s = physical_scene();
    s.noise.sigma_at_1m_mm = 1.0f;
    s.top.reflectivity = reflectivity;
    const RenderedScene r = render_scene(s);
    double sum = 0.0, squares = 0.0;
    int n = 0;
    for (int v = 200; v < 280; ++v) {
      for (int u = 280; u < 360; ++u) {
        const double d = r.depth.at<Depth>(v, u);
        if (d == 0) continue;
        sum += d;
        squares += d * d;
        ++n;
      }
    }
    return std::sqrt(squares / n - (sum / n) * (sum / n));
  };
  // Noise goes with one over the root of the light: 3 times for 9 times less.
  const double ratio = top_spread(0.1f) / top_spread(0.9f);
  EXPECT_GT(ratio, 2.4);
  EXPECT_LT(ratio, 3.6);
}

TEST(SensorFrame, TheTableGivesUnderTheBoxAndTheTruthStaysTheBoxsOwn) {
  SceneParameters s = physical_scene();
  s.table.dip_mm = 3.0f;
  s.table.dip_radius_mm = 100.0f;
  const RenderedScene r = render_scene(s);
  EXPECT_FLOAT_EQ(r.truth.dimensions.box_height, 200.0f);
  // The top went down with the table, the floor beside the box too; far
  // from it the table is where it was.
  EXPECT_EQ(r.depth.at<Depth>(240, 320), 1003);
  const int beside = static_cast<int>(std::round(right_edge_column(s) * 1.0 + 12));
  EXPECT_NEAR(r.depth.at<Depth>(240, beside), 1203, 1);
  EXPECT_EQ(r.depth.at<Depth>(20, 20), 1200);
}

TEST(SensorFrame, ARenderedCartonsTruthIsItsFullOutlineAndItsLidsHighestPoint) {
  SceneParameters s = physical_scene();
  s.top.rim_radius_mm = 6.0f;
  s.top.notches = {TopNotch{0, 0.0f, 80.0f, 40.0f, 50.0f}};
  s.top.seam.present = true;
  s.top.seam.step_mm = 3.0f;
  const RenderedScene r = render_scene(s);
  EXPECT_FLOAT_EQ(r.truth.dimensions.box_length, 400.0f);
  EXPECT_FLOAT_EQ(r.truth.dimensions.box_width, 300.0f);
  EXPECT_NEAR(r.truth.dimensions.box_height, 203.0f, 0.01f);
  // The notch at the +x end reads 50 mm farther; the raised flap 3 mm nearer.
  const int notch_u =
      static_cast<int>(std::round(s.intrinsics.cx + 185.0 / 1000.0 * s.intrinsics.fx));
  const int v = static_cast<int>(std::round(s.intrinsics.cy));
  EXPECT_NEAR(r.depth.at<Depth>(v, notch_u), 1050, 1);
  EXPECT_EQ(r.depth.at<Depth>(v + 40, 320), 997);
  EXPECT_EQ(r.depth.at<Depth>(v - 40, 320), 1000);
}

}  // namespace
}  // namespace boxdim
