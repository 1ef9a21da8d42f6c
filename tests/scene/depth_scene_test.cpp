// Checks that the ground truth agrees with the rendered depth frame, and that
// scenes that cannot be rendered are refused by name.
#include "scene/depth_scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace boxdim {
namespace {

using Depth = std::uint16_t;

cv::Point3d back_project(int u, int v, double depth, const CameraIntrinsics& k) {
  return {depth * (u - k.cx) / k.fx, depth * (v - k.cy) / k.fy, depth};
}

double signed_distance(const PlaneEquation& p, const cv::Point3d& q) {
  return p.a * q.x + p.b * q.y + p.c * q.z + p.d;
}

struct Pose {
  const char* name;
  float tilt, roll, yaw, length, width;
  cv::Point2f offset;
};

class GroundTruth : public testing::TestWithParam<Pose> {};

TEST_P(GroundTruth, DescribesTheRenderedTopFace) {
  const Pose& p = GetParam();
  SceneParameters s;
  s.tilt_deg = p.tilt;
  s.roll_deg = p.roll;
  s.yaw_deg = p.yaw;
  s.box_length_mm = p.length;
  s.box_width_mm = p.width;
  s.offset_mm = p.offset;
  const RenderedScene r = render_scene(s);
  const CameraIntrinsics& k = s.intrinsics;
  const PlaneEquation& plane = r.truth.top_plane;
  EXPECT_FLOAT_EQ(r.truth.dimensions.box_length, std::max(p.length, p.width));
  EXPECT_FLOAT_EQ(r.truth.dimensions.box_width, std::min(p.length, p.width));
  const cv::Point principal(std::lround(k.cx), std::lround(k.cy));
  EXPECT_NEAR(r.depth.at<Depth>(principal), r.truth.top_face_depth_mm, 1.5);

  // The corners lie on the plane, project to their pixels and span the box's sides.
  const auto& c = r.truth.top_corners_camera;
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(::testing::Message() << "corner " << i);
    EXPECT_NEAR(signed_distance(plane, c[i]), 0.0, 0.01);
    const cv::Point2d projected(c[i].x / c[i].z * k.fx + k.cx, c[i].y / c[i].z * k.fy + k.cy);
    EXPECT_LT(cv::norm(cv::Point2d(r.truth.top_corners_px[i]) - projected), 1e-3);
    EXPECT_NEAR(cv::norm(c[(i + 1) % 4] - c[i]), i % 2 == 0 ? p.length : p.width, 0.01);
  }
  EXPECT_NEAR(cv::norm(c[2] - c[0]), cv::norm(c[3] - c[1]), 0.01);  // right angles

  // Every pixel well inside the corners sees the plane; nothing else does.
  const std::vector<cv::Point2f> face(r.truth.top_corners_px.begin(), r.truth.top_corners_px.end());
  int inside = 0;
  for (int v = 0; v < r.depth.rows; ++v) {
    for (int u = 0; u < r.depth.cols; ++u) {
      const double margin = cv::pointPolygonTest(face, cv::Point2f(u, v), true);
      if (std::abs(margin) < 2.0) continue;
      const cv::Point3d q = back_project(u, v, r.depth.at<Depth>(v, u), k);
      const bool on_plane = std::abs(signed_distance(plane, q)) < 1.0;
      ASSERT_EQ(on_plane, margin > 0) << "pixel " << u << "," << v;
      inside += on_plane;
    }
  }
  EXPECT_GT(inside, 20000);
}

INSTANTIATE_TEST_SUITE_P(
    Poses, GroundTruth,
    testing::Values(Pose{"Level", 0, 0, 0, 400, 300, {0, 0}},
                    Pose{"TiltedTurnedAndMoved", 25, -15, 75, 250, 350, {-30, 10}}),
    [](const auto& info) { return std::string(info.param.name); });

// What the harder world does to a frame, each effect against the same scene
// rendered without it: a 400 x 300 x 200 box 1 m below a camera looking
// straight down, so that the top face's centre is at the principal point and
// the floor 20 px beside the box's edge is in view.
struct Effect {
  const char* name;
  std::function<void(SceneParameters&)> add;
  std::function<void(const RenderedScene& with, const RenderedScene& without)> check;
};

void PrintTo(const Effect& e, std::ostream* os) { *os << e.name; }

class HarderWorld : public testing::TestWithParam<Effect> {};

TEST_P(HarderWorld, ChangesWhatItShouldAndNothingElse) {
  SceneParameters plain;
  const RenderedScene without = render_scene(plain);
  SceneParameters scene = plain;
  GetParam().add(scene);
  GetParam().check(render_scene(scene), without);
}

// Depth at a pixel, as a double.
double at(const RenderedScene& r, int u, int v) { return r.depth.at<Depth>(v, u); }

// The image centre sees the top's centre; the top's right edge lies at column
// 323 + 200 * 506.4 / 800 = 449.6: column 451 sees the floor 2 px beside its
// last pixel, column 470 20 px beside it.
constexpr int kCentreU = 323, kCentreV = 231, kFloorU = 470, kNearFloorU = 451;

INSTANTIATE_TEST_SUITE_P(
    Effects, HarderWorld,
    testing::Values(
        Effect{"bulging_lid", [](SceneParameters& s) { s.top.lid_mm = 10.0f; },
               [](const RenderedScene& with, const RenderedScene& without) {
                 EXPECT_NEAR(at(without, kCentreU, kCentreV) - at(with, kCentreU, kCentreV), 10.0,
                             1.0);
                 EXPECT_NEAR(at(with, 449, kCentreV), at(without, 449, kCentreV), 1.0)
                     << "edges stay";
                 EXPECT_FLOAT_EQ(with.truth.dimensions.box_height, 210.0f) << "the bulge counts";
               }},
        Effect{"sagging_lid", [](SceneParameters& s) { s.top.lid_mm = -8.0f; },
               [](const RenderedScene& with, const RenderedScene& without) {
                 EXPECT_NEAR(at(with, kCentreU, kCentreV) - at(without, kCentreU, kCentreV), 8.0,
                             1.0);
                 EXPECT_FLOAT_EQ(with.truth.dimensions.box_height, 200.0f) << "edges still stand";
               }},
        Effect{"multipath",
               [](SceneParameters& s) { s.noise.multipath_mm = 12.0f; },
               [](const RenderedScene& with, const RenderedScene& without) {
                 const double ray = std::hypot((kNearFloorU - 323.018) / 506.426, 1.0);
                 EXPECT_NEAR(at(with, kNearFloorU, kCentreV) - at(without, kNearFloorU, kCentreV),
                             12.0 * (1.0 - 2.0 / 10.0) / ray, 1.0);
                 EXPECT_EQ(at(with, kFloorU, kCentreV), at(without, kFloorU, kCentreV));
                 EXPECT_EQ(at(with, kCentreU, kCentreV), at(without, kCentreU, kCentreV));
               }},
        Effect{"dark_top",
               [](SceneParameters& s) {
                 s.top.dark = true;
                 s.noise = {2.0f, 0.0f, 0.01f};
               },
               [](const RenderedScene& with, const RenderedScene&) {
                 // Noise and dropouts on the top against the floor's, per mm of range.
                 const auto spread = [&](cv::Rect area) {
                   cv::Mat values;
                   with.depth(area).convertTo(values, CV_64F);
                   cv::Scalar mean, deviation;
                   cv::meanStdDev(values, mean, deviation, values > 0);
                   const double missing = 1.0 - cv::countNonZero(values) / double(area.area());
                   return std::make_pair(deviation[0] / mean[0], missing);
                 };
                 const auto top = spread(cv::Rect(260, 180, 120, 100));
                 const auto floor = spread(cv::Rect(0, 0, 120, 100));
                 EXPECT_NEAR(top.first / floor.first, 2.5, 0.3);
                 EXPECT_NEAR(top.second, 0.10, 0.03);
                 EXPECT_NEAR(floor.second, 0.01, 0.01);
               }},
        Effect{"two_more_boxes",
               [](SceneParameters& s) {
                 s.other_boxes = {FloorBox{200, 150, 300, {0, -300}, 30, {}},
                                  FloorBox{150, 150, 100, {-380, 0}, 0, {}}};
               },
               [](const RenderedScene& with, const RenderedScene& without) {
                 ASSERT_EQ(with.other_truths.size(), 2u);
                 for (int b = 0; b < 2; ++b) {
                   const SceneGroundTruth& truth = with.other_truths[b];
                   cv::Point2f centre(0, 0);
                   for (const cv::Point2f& c : truth.top_corners_px) centre += c * 0.25f;
                   EXPECT_NEAR(at(with, std::lround(centre.x), std::lround(centre.y)),
                               1000.0 - truth.dimensions.box_height, 1.0)
                       << "box " << b;
                 }
                 EXPECT_FLOAT_EQ(with.other_truths[0].dimensions.box_length, 200.0f);
                 EXPECT_EQ(at(with, kCentreU, kCentreV), at(without, kCentreU, kCentreV));
               }},
        Effect{"empty_floor", [](SceneParameters& s) { s.with_box = false; },
               [](const RenderedScene& with, const RenderedScene& without) {
                 EXPECT_EQ(at(with, kCentreU, kCentreV), 1000.0);
                 EXPECT_EQ(at(with, kFloorU, kCentreV), at(without, kFloorU, kCentreV));
                 EXPECT_TRUE(with.other_truths.empty());
               }}),
    [](const auto& info) { return std::string(info.param.name); });

// An empty name marks a scene at the limits, which must be accepted. The
// command line's tests cover the plainly bad values.
TEST(DepthSceneValidation, RejectsEachBadParameterByName) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    std::string name;
    std::function<void(SceneParameters&)> change;
  };
  const std::vector<Case> cases = {
      {"box length", [&](SceneParameters& s) { s.box_length_mm = nan; }},
      {"camera height", [](SceneParameters& s) { s.camera_height_mm = 299.9f; }},
      {"", [](SceneParameters& s) { s.camera_height_mm = 300; }},
      {"tilt", [](SceneParameters& s) { s.tilt_deg = 60; }},
      {"", [](SceneParameters& s) { s.tilt_deg = 59.9f; }},
      {"", [](SceneParameters& s) { s.noise.dropout_probability = 1; }},
      {"lid", [](SceneParameters& s) { s.top.lid_mm = 200; }},
      {"other box height", [](SceneParameters& s) { s.other_boxes = {FloorBox{1, 1, 0, {}, 0, {}}}; }},
      {"every box", [](SceneParameters& s) { s.other_boxes = {FloorBox{1, 1, 950, {}, 0, {}}}; }},
      {"dark noise factor", [](SceneParameters& s) { s.noise.dark_noise_factor = 0.5f; }},
  };
  for (const Case& c : cases) {
    SceneParameters scene;
    c.change(scene);
    if (c.name.empty()) {
      EXPECT_NO_THROW(validate_scene(scene));
      continue;
    }
    try {
      render_scene(scene);
      ADD_FAILURE() << "accepted a bad " << c.name;
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(c.name), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace boxdim
