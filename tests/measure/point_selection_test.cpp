#include "measure/point_selection.h"

#include <gtest/gtest.h>

#include "support/test_frames.h"

namespace boxdim {
namespace {

using PointSelectionTest = testing::StageTest;

// Frames whose centre window (rows 225..254, cols 305..334 of a 640 x 480
// frame) holds `deep` samples deeper than 100 mm on its 8 x 8 grid; the other
// grid samples read `shallow_mm`.
cv::Mat centre_frame(int deep, std::uint16_t shallow_mm) {
  cv::Mat depth(480, 640, CV_16UC1, cv::Scalar(800));
  int placed = 0;
  for (int r = 225; r < 255; r += 4) {
    for (int c = 305; c < 335; c += 4) {
      depth.at<std::uint16_t>(r, c) = placed++ < deep ? 800 : shallow_mm;
    }
  }
  return depth;
}

struct CentreCase {
  const char* name;
  int deep;
  std::uint16_t shallow_mm;
  bool selected;
};

class CentreSelectionTest : public PointSelectionTest,
                            public ::testing::WithParamInterface<CentreCase> {};

TEST_P(CentreSelectionTest, NeedsFiftySamplesStrictlyDeeperThan100mm) {
  const CentreCase& c = GetParam();
  testing::load_cloud(state, centre_frame(c.deep, c.shallow_mm));
  EXPECT_EQ(select_points_by_center(state), c.selected);
  EXPECT_EQ(state.selected_points.size(), static_cast<std::size_t>(c.deep));
  EXPECT_EQ(log.str(), c.selected ? "" : "select_points_by_center select points less than 50;\n");
}

INSTANTIATE_TEST_SUITE_P(Counts, CentreSelectionTest,
                         ::testing::Values(CentreCase{"fifty", 50, 0, true},
                                           CentreCase{"forty_nine", 49, 0, false},
                                           // exactly 100 mm is not deeper than 100 mm
                                           CentreCase{"fiftieth_at_100mm", 49, 100, false}),
                         [](const auto& info) { return std::string(info.param.name); });

// A plane 1,000 mm in front of the camera, facing it: the distance of a
// point is |z - 1000|.
void face_the_camera(MeasurementState& state) { state.plane = {0.0f, 0.0f, 1.0f, -1000.0f}; }

// A frame at 1,000 mm with `near` of its 4 x 4 grid samples at the given depth.
cv::Mat plane_frame(int near, std::uint16_t near_mm, std::uint16_t rest_mm) {
  cv::Mat depth(480, 640, CV_16UC1, cv::Scalar(rest_mm));
  int placed = 0;
  for (int r = 0; r < 480 && placed < near; r += 4) {
    for (int c = 0; c < 640 && placed < near; c += 4, ++placed) {
      depth.at<std::uint16_t>(r, c) = near_mm;
    }
  }
  return depth;
}

struct PlaneCase {
  const char* name;
  int near;
  std::uint16_t near_mm;
  std::uint16_t rest_mm;
  int max_distance;
  std::size_t expected;
};

class PlaneSelectionTest : public PointSelectionTest,
                           public ::testing::WithParamInterface<PlaneCase> {};

TEST_P(PlaneSelectionTest, NeedsAHundredPointsStrictlyCloserThanTheLimit) {
  const PlaneCase& c = GetParam();
  testing::load_cloud(state, plane_frame(c.near, c.near_mm, c.rest_mm));
  face_the_camera(state);
  const bool ok = select_points_by_plane(state, c.max_distance);
  EXPECT_EQ(state.selected_points.size(), c.expected);
  EXPECT_EQ(ok, c.expected >= 100);
  EXPECT_EQ(log.str(), ok ? "" : "select_points_by_plane select points less than 100;\n");
}

INSTANTIATE_TEST_SUITE_P(
    Limits, PlaneSelectionTest,
    ::testing::Values(PlaneCase{"hundred", 100, 1010, 3000, 25, 100},
                      PlaneCase{"ninety_nine", 99, 1010, 3000, 25, 99},
                      PlaneCase{"at_the_limit_is_out", 200, 1025, 3000, 25, 0},
                      PlaneCase{"just_inside", 200, 1024, 3000, 25, 200},
                      // Without depth a point sits on the origin, |d| = 1000 away.
                      PlaneCase{"zero_depth_near_limit", 200, 0, 3000, 1001, 200}),
    [](const auto& info) { return std::string(info.param.name); });

// The distance is summed as ((c*z + b*y) + a*x) + d in single precision; for
// this plane and point that sum is exactly 25 and the point is out, while the
// textbook order a*x + b*y + c*z + d gives 24.99988 and would let it in.
TEST_F(PointSelectionTest, PlaneDistanceKeepsItsSummationOrder) {
  state.width = 4;
  state.height = 4;
  state.cloud.assign(16, cv::Point3f(0.0f, 0.0f, 5000.0f));
  state.cloud[0] = cv::Point3f(124.888695f, 203.969437f, 1045.15613f);
  state.plane = {0.0101595763f, -0.0858550295f, 0.996255815f, -1000.0f};
  const cv::Point3f& p = state.cloud[0];
  const PlaneEquation& q = state.plane;
  const float textbook = q.a * p.x + q.b * p.y + q.c * p.z + q.d;
  const float kept = ((q.c * p.z + q.b * p.y) + q.a * p.x) + q.d;
  ASSERT_NE(textbook, kept) << "the fixture must separate the two orders";
  ASSERT_TRUE((kept < 25.0f) != (textbook < 25.0f));
  select_points_by_plane(state, 25);
  EXPECT_TRUE(state.selected_points.empty());
}

}  // namespace
}  // namespace boxdim
