#include "height/box_height.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "support/test_frames.h"

namespace boxdim {
namespace {

constexpr float kUnset = 123.0f;  // a height no case writes
const std::string kOutOfFrame = "There are no conditions for calculating height_2;\n";
const std::string kNoRun = " this is no qualifying height ;\n";
const std::string kVertical1 = "Box approximately vertical_1;\n";
const std::string kVertical2 = "Box approximately vertical_2;\n";
const std::string kLopsided = "There are no conditions for calculating height_1;\n";

std::string times(const std::string& line, int n) {
  std::string all;
  while (n-- > 0) all += line;
  return all;
}

class HeightTest : public testing::StageTest {
 protected:
  void SetUp() override {
    state.box_corners = {{250, 190}, {390, 190}, {390, 290}, {250, 290}};
    state.plane = {0, 0, 1, -800};
  }
  void reset(const PlaneEquation& plane) {
    log.str("");
    state.dimensions.box_height = kUnset;
    state.plane = plane;
  }
  // Rows above 50 read `near_mm`, the others `far_mm`.
  void load_rows(std::uint16_t near_mm, std::uint16_t far_mm) {
    cv::Mat depth(480, 640, CV_16UC1, cv::Scalar(far_mm));
    depth.rowRange(0, 50).setTo(near_mm);
    testing::load_cloud(state, depth);
  }
  // A flat cloud for the ring scan: every point (0, 0, z).
  void fill(float z) { state.cloud.assign(640 * 480, cv::Point3f(0, 0, z)); }
};

TEST_F(HeightTest, LowestCornerPair) {
  struct {
    float ys[4];
    int first, second;
  } cases[] = {{{10, 300, 200, 300}, 1, 3},    // among equal rows the earlier corner wins
               {{300, 300.9f, 10, 20}, 0, 1},  // rows compare truncated
               {{NAN, 50, 40, -1}, 1, 2},
               {{-5, 0, 0.9f, 100}, 3, -1}};  // rows truncating to 0 or less never win
  for (const auto& c : cases) {
    state.box_corners.clear();
    for (float y : c.ys) state.box_corners.emplace_back(100.0f, y);
    int first = 7, second = 7;
    EXPECT_TRUE(find_lowest_corner_pair(state, first, second));
    EXPECT_EQ(first, c.first);
    EXPECT_EQ(second, c.second);
  }
  reset(state.plane);
  state.corners_3d.assign(4, {0, 0, 800});
  EXPECT_FALSE(estimate_box_height(state)) << "no front edge to walk down";
  EXPECT_EQ(state.dimensions.box_height, kUnset);
}

TEST_F(HeightTest, BadGeometryFailsWithoutReadingOutsideTheFrame) {
  const float nan = NAN, inf = INFINITY;
  struct {
    std::vector<cv::Point2f> px;
    std::vector<cv::Point3f> camera;
    PlaneEquation plane;
  } cases[] = {
      {{{1, nan}, {2, nan}, {3, 4}, {5, 6}}, {4, {0, 0, 800}}, {0, 0, 1, -800}},
      {{{300, 300}, {400, 300}, {400, 200}, {300, 200}}, {4, {nan, 0, 800}}, {0, 0, 1, -800}},
      {{{300, 300}, {400, 300}, {400, 200}, {300, 200}}, {4, {0, 0, 0}}, {0, 0, 1, -800}},
      {{{300, 300}, {400, 300}, {400, 200}, {inf, 2e9f}}, {4, {0, 0, 800}}, {0, 0.6f, 0.8f, 800}},
      {{{300, 300}, {400, 300}}, {}, {nan, nan, nan, nan}}};
  load_rows(1000, 1000);
  for (const auto& c : cases) {
    reset(c.plane);
    state.box_corners = c.px;
    state.corners_3d = c.camera;
    EXPECT_FALSE(estimate_box_height(state));
    cal_dists2org_again(state, 2);  // the ring alone must not crash either
  }
}

TEST_F(HeightTest, WalkDownTheSideFace) {
  // Drifting down and left a few pixels a step all the way to s = 10000.
  const PlaneEquation drift{-0.7f, 0.7f, std::sqrt(0.02f), -800};
  struct {
    const char* name;
    PlaneEquation plane;
    cv::Point3f p1, p2;
    std::uint16_t near_mm, far_mm;
    std::string log;
    bool ok;
    float height;
  } cases[] = {
      // clang-format off
      // Below the image centre, a step away from the camera moves the edge up.
      {"vertical_1", {0, 0, 1, -800}, {-100, 100, 800}, {100, 100, 800}, 0, 0, kVertical1, true, 0},
      {"vertical_2", {0, 0.6f, 0.8f, -800}, {-100, 0, 800}, {100, 0, 800}, 0, 0,
       kVertical2, true, 0},
      // One end moves 14 px down the image, the other about 1 px.
      {"lopsided", {0, 0.1f, std::sqrt(0.99f), -800}, {0, -300, 800}, {0, 50, 800}, 0, 0,
       kLopsided, false, kUnset},
      {"never_inside", drift, {-2500, -200, 1000}, {-2000, -200, 1000}, 1000, 1000,
       times(kOutOfFrame, 200), false, kUnset},
      // Line A starts at row 41; line B and all later lines read 1100 mm, so
      // the walk leaves on its second step.
      {"temp_50_fails", {0, 0, 1, -1050}, {-100, -300, 800}, {100, -300, 800}, 1000, 1100,
       " temp_height:    50  50  50  50  50  50  50  \n box_height: 50\n", false, 50},
      {"temp_51_passes", {0, 0, 1, -1049}, {-100, -300, 800}, {100, -300, 800}, 1000, 1100,
       " temp_height:    51  51  51  51  51  51  51  \n box_height: 51\n", true, 51}};
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    load_rows(c.near_mm, c.far_mm);
    reset(c.plane);
    state.corners_3d = {c.p1, c.p2};
    EXPECT_EQ(estimate_temp_height(state, 0, 1), c.ok);
    EXPECT_EQ(log.str(), c.log);
    EXPECT_EQ(state.dimensions.box_height, c.height);
  }

  // Leaving the frame sideways, the walk keeps the samples of its last step
  // inside and still reports a temporary height after step 200.
  reset(drift);
  state.corners_3d = {{-300, -200, 1000}, {300, -200, 1000}};
  estimate_temp_height(state, 0, 1);
  const std::string out = log.str();
  const std::size_t temp = out.find(" temp_height:    ");
  ASSERT_GT(temp, 150 * kOutOfFrame.size());
  EXPECT_EQ(out.substr(0, temp), times(kOutOfFrame, temp / kOutOfFrame.size()));
  EXPECT_EQ(std::count(out.begin() + temp, out.end(), '\n'), 2);
}

// 100 mm apart, except `top` values of 10000 at the end.
std::vector<float> spread(int n, int top) {
  std::vector<float> d;
  for (int k = 0; k < n - top; ++k) d.push_back(100.0f * k);
  d.insert(d.end(), top, 10000.0f);
  return d;
}

// 100 values, 0.5 mm apart up to `dense`, then 100 mm apart.
std::vector<float> dense(int count) {
  std::vector<float> d;
  for (int k = 0; k < 100; ++k) d.push_back(k < count ? 0.5f * k : 1000.0f + 100.0f * k);
  return d;
}

TEST_F(HeightTest, DenseRunRule) {
  struct {
    const char* name;
    std::vector<float> dists;
    bool ok;
    float height;  // before adding d = -800
    int rejected;
  } cases[] = {// N = 50 needs the candidate and six more values within 20 mm.
               {"n50_seven", spread(50, 7), true, 10000.0f, 0},
               {"n50_six", spread(50, 6), false, kUnset + 800, 7},
               // i = 98, j = 87: the height is entry 92.
               {"n100_all_dense", dense(100), true, 46.0f, 0},
               // Candidates 98..92 stand alone; 91 reaches down to 80.
               {"n100_lower_candidate", dense(92), true, 42.5f, 7},
               {"empty", {}, false, kUnset + 800, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    reset({0, 0, 1, -800});
    float height = kUnset;
    EXPECT_EQ(select_qualifying_height(state, c.dists, height), c.ok);
    EXPECT_EQ(height, c.height - 800);
    EXPECT_EQ(log.str(), times(kNoRun, c.rejected));
  }
}

TEST_F(HeightTest, RingBandExcludesItsLimits) {
  // Method 2 with the bottom on the top face scans the same ring as method 1;
  // only the far limit differs between them.
  for (const cv::Point2f& p : state.box_corners) {
    const CameraIntrinsics& k = state.intrinsics;
    state.corners_3d.emplace_back((p.x - k.cx) / k.fx * 800, (p.y - k.cy) / k.fy * 800, 800);
  }
  struct {
    float z;
    int method;
    bool accepted;
  } cases[] = {{850, 1, false},  {851, 1, true},  {1899, 1, true},
               {1900, 1, false}, {1799, 2, true}, {1800, 2, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.z);
    fill(c.z);
    state.dimensions.box_height = 0.001f;
    EXPECT_EQ(cal_dists2org_again(state, c.method), c.accepted);
    EXPECT_EQ(state.dists.empty(), !c.accepted);
  }
}

TEST_F(HeightTest, RingNeedsFiftyPoints) {
  fill(1000);
  ASSERT_TRUE(cal_dists2org_again(state, 1));
  const std::vector<cv::Point> visited = state.dist_pixels;
  for (int keep : {50, 49}) {
    fill(0);
    // dist_pixels holds (row, column).
    for (int i = 0; i < keep; ++i) state.cloud[visited[i].x * 640 + visited[i].y].z = 1000;
    reset(state.plane);
    EXPECT_EQ(cal_dists2org_again(state, 1), keep == 50);
    EXPECT_EQ(state.dists.size(), static_cast<std::size_t>(keep));
    EXPECT_EQ(log.str(), keep == 50 ? "" : "cal_dists2org_again points less than 50;\n");
  }
}

TEST_F(HeightTest, FinalHeightOfExactly50Passes) {
  // The band starts strictly above 50 - d; for this d the first float above
  // it gives exactly 50 once d is added back.
  state.plane.d = -2.17f;
  fill(std::nextafter(50.0f - state.plane.d, 1e9f));
  ASSERT_EQ(state.cloud[0].z + state.plane.d, 50.0f);
  EXPECT_TRUE(compute_box_height(state, 1));
  EXPECT_EQ(log.str(), "box_height: 50\n");
}

}  // namespace
}  // namespace boxdim
