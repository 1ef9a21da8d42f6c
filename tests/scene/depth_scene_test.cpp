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
