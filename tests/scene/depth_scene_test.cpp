// Checks that rendered depth frames show the scene the parameters describe and
// that the ground truth agrees with what the frame shows.
#include "scene/depth_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// Depth at which the ray through pixel (u, v) meets the plane.
double plane_depth(const PlaneEquation& p, int u, int v, const CameraIntrinsics& k) {
  const cv::Point3d ray = back_project(u, v, 1.0, k);
  return -p.d / (p.a * ray.x + p.b * ray.y + p.c);
}

cv::Point2d project(const cv::Point3d& q, const CameraIntrinsics& k) {
  return {q.x / q.z * k.fx + k.cx, q.y / q.z * k.fy + k.cy};
}

TEST(DepthScene, PlacementFollowsOffsetAndYaw) {
  // slope: +1 when the length runs from top left to bottom right, -1 from
  // bottom left to top right, 0 along rows or columns.
  struct Case {
    cv::Point2f offset;
    float yaw;
    double col_shift, row_shift, cols, rows;
    int slope;
  };
  const CameraIntrinsics k;
  const double sx = k.fx / 800.0, sy = k.fy / 800.0;  // px per mm on the top face
  const double diagonal = 700.0 / std::sqrt(2.0);     // footprint of 400 x 300 turned 45 degrees
  const std::vector<Case> cases = {
      {{150, 0}, 0, 150 * sx, 0, 400 * sx, 300 * sy, 0},
      {{0, 0}, 90, 0, 0, 300 * sx, 400 * sy, 0},
      {{0, 0}, 45, 0, 0, diagonal * sx, diagonal * sy, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "yaw " << c.yaw << ", offset " << c.offset);
    SceneParameters scene;
    scene.offset_mm = c.offset;
    scene.yaw_deg = c.yaw;
    const cv::Mat top = render_scene(scene).depth == 800;
    const cv::Moments m = cv::moments(top, true);
    const cv::Rect bounds = cv::boundingRect(top);
    EXPECT_NEAR(m.m10 / m.m00, k.cx + c.col_shift, 1.0);
    EXPECT_NEAR(m.m01 / m.m00, k.cy + c.row_shift, 1.0);
    EXPECT_NEAR(bounds.width, c.cols, 2.0);
    EXPECT_NEAR(bounds.height, c.rows, 2.0);
    EXPECT_NEAR(m.m00, 400 * 300 * sx * sy, 0.02 * 400 * 300 * sx * sy);
    const double covariance = m.mu11 / m.m00;  // about +-1170 px^2 at 45 degrees
    EXPECT_EQ(std::abs(covariance) < 50 ? 0 : (covariance > 0 ? 1 : -1), c.slope) << covariance;
  }
}

// Turning the optical axis towards one side of the image makes the rays on that
// side more grazing, so the floor reads deeper there than on the opposite side.
TEST(DepthScene, PositiveTiltLooksTowardsRowsAndPositiveRollTowardsColumns) {
  struct Case {
    float tilt, roll;
    cv::Point nearer, deeper;
  };
  const cv::Point top_left(5, 5), bottom_left(5, 474), top_right(634, 5);
  const std::vector<Case> cases = {
      {20, 0, top_left, bottom_left},
      {0, 20, top_left, top_right},
  };
  for (const Case& c : cases) {
    SceneParameters scene;
    scene.tilt_deg = c.tilt;
    scene.roll_deg = c.roll;
    const cv::Mat depth = render_scene(scene).depth;
    EXPECT_GT(depth.at<Depth>(c.deeper), depth.at<Depth>(c.nearer) + 100)
        << "tilt " << c.tilt << ", roll " << c.roll;
  }
}

struct Pose {
  float tilt, roll, yaw, length, width;
  cv::Point2f offset;
};

SceneParameters posed(const Pose& p) {
  SceneParameters s;
  s.tilt_deg = p.tilt;
  s.roll_deg = p.roll;
  s.yaw_deg = p.yaw;
  s.box_length_mm = p.length;
  s.box_width_mm = p.width;
  s.offset_mm = p.offset;
  return s;
}

class GroundTruth : public testing::TestWithParam<Pose> {};

TEST_P(GroundTruth, DescribesTheBoxTopAsARectangleOnTheTopPlane) {
  const SceneParameters s = posed(GetParam());
  const SceneGroundTruth t = render_scene(s).truth;
  EXPECT_NEAR(std::hypot(t.top_plane.a, t.top_plane.b, t.top_plane.c), 1.0, 1e-6);
  EXPECT_GT(t.top_plane.c, 0.0f);
  EXPECT_FLOAT_EQ(t.dimensions.box_length, std::max(s.box_length_mm, s.box_width_mm));
  EXPECT_FLOAT_EQ(t.dimensions.box_width, std::min(s.box_length_mm, s.box_width_mm));
  EXPECT_FLOAT_EQ(t.dimensions.box_height, s.box_height_mm);

  const auto& c = t.top_corners_camera;
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(signed_distance(t.top_plane, c[i]), 0.0, 0.01) << "corner " << i;
    EXPECT_LT(cv::norm(cv::Point2d(t.top_corners_px[i]) - project(c[i], s.intrinsics)), 1e-3);
  }
  EXPECT_NEAR(cv::norm(c[1] - c[0]), s.box_length_mm, 0.01);
  EXPECT_NEAR(cv::norm(c[2] - c[3]), s.box_length_mm, 0.01);
  EXPECT_NEAR(cv::norm(c[2] - c[1]), s.box_width_mm, 0.01);
  EXPECT_NEAR(cv::norm(c[3] - c[0]), s.box_width_mm, 0.01);
  EXPECT_NEAR(cv::norm(c[2] - c[0]), cv::norm(c[3] - c[1]), 0.01);  // right angles
}

TEST_P(GroundTruth, AgreesWithTheDepthFrame) {
  const SceneParameters s = posed(GetParam());
  const RenderedScene r = render_scene(s);
  const CameraIntrinsics& k = s.intrinsics;
  const PlaneEquation& plane = r.truth.top_plane;

  const cv::Point principal(std::lround(k.cx), std::lround(k.cy));
  EXPECT_NEAR(r.depth.at<Depth>(principal), r.truth.top_face_depth_mm, 1.5);
  const auto& c = r.truth.top_corners_camera;
  const cv::Point centre = project((c[0] + c[2]) * 0.5f, k);
  EXPECT_NEAR(r.depth.at<Depth>(centre), plane_depth(plane, centre.x, centre.y, k), 1.0);

  const std::vector<cv::Point2f> face(r.truth.top_corners_px.begin(), r.truth.top_corners_px.end());
  int inside = 0;
  for (int v = 0; v < r.depth.rows; ++v) {
    for (int u = 0; u < r.depth.cols; ++u) {
      if (cv::pointPolygonTest(face, cv::Point2f(u, v), true) < 2.0) continue;
      ++inside;
      const cv::Point3d q = back_project(u, v, r.depth.at<Depth>(v, u), k);
      ASSERT_NEAR(signed_distance(plane, q), 0.0, 1.0) << "pixel " << u << "," << v;
    }
  }
  EXPECT_GT(inside, 20000);
  // The image corners see the floor, one box height beyond the top face.
  for (const cv::Point p :
       {cv::Point(3, 3), cv::Point(636, 3), cv::Point(3, 476), cv::Point(636, 476)}) {
    const cv::Point3d q = back_project(p.x, p.y, r.depth.at<Depth>(p), k);
    EXPECT_NEAR(signed_distance(plane, q), s.box_height_mm, 1.0) << p;
  }
}

INSTANTIATE_TEST_SUITE_P(Poses, GroundTruth,
                         testing::Values(Pose{0, 0, 0, 400, 300, {0, 0}},
                                         Pose{-10, 20, -40, 400, 300, {0, 30}},
                                         Pose{25, -15, 75, 250, 350, {-30, 10}}));

SceneParameters noisy(float sigma, float flying, float dropout, std::uint64_t seed = 1) {
  SceneParameters s;
  s.noise = {sigma, flying, dropout};
  s.seed = seed;
  return s;
}

bool same_frame(const cv::Mat& a, const cv::Mat& b) { return cv::countNonZero(a != b) == 0; }

TEST(DepthSceneNoise, SeedMakesFramesReproducible) {
  const cv::Mat clean = render_scene(SceneParameters{}).depth;
  EXPECT_TRUE(same_frame(render_scene(noisy(0, 0, 0, 7)).depth, clean));
  const cv::Mat first = render_scene(noisy(5, 0.5f, 0.1f, 7)).depth;
  EXPECT_TRUE(same_frame(render_scene(noisy(5, 0.5f, 0.1f, 7)).depth, first));
  EXPECT_FALSE(same_frame(render_scene(noisy(5, 0.5f, 0.1f, 8)).depth, first));
}

TEST(DepthSceneNoise, RangeNoiseGrowsWithDistance) {
  const cv::Mat clean = render_scene(SceneParameters{}).depth;
  cv::Mat error;
  cv::subtract(render_scene(noisy(5, 0, 0)).depth, clean, error, cv::noArray(), CV_64F);
  for (const int surface : {800, 1000}) {
    cv::Scalar mean, sigma;
    cv::meanStdDev(error, mean, sigma, clean == surface);
    EXPECT_NEAR(mean[0], 0.0, 0.1) << surface;
    EXPECT_NEAR(sigma[0], 5.0 * surface / 1000.0, 0.1 * 5.0 * surface / 1000.0) << surface;
  }
}

TEST(DepthSceneNoise, DropoutBlanksTheRequestedFraction) {
  for (const float p : {0.05f, 0.3f}) {
    const cv::Mat frame = render_scene(noisy(0, 0, p)).depth;
    EXPECT_NEAR(cv::countNonZero(frame == 0) / double(frame.total()), p, 0.01) << p;
  }
}

// A flying pixel mixes its own depth with a 4-neighbour's, so it stays within
// the span of its clean cross-shaped neighbourhood.
TEST(DepthSceneNoise, FlyingPixelsMixSurfacesOnlyAtDepthEdges) {
  // Tilted, so the floor and the box sides show small steps that are no edges.
  SceneParameters scene;
  scene.tilt_deg = 20;
  scene.yaw_deg = 30;
  const cv::Mat clean = render_scene(scene).depth;
  const cv::Mat cross = cv::getStructuringElement(cv::MORPH_CROSS, {3, 3});
  cv::Mat lowest, highest;
  cv::erode(clean, lowest, cross);
  cv::dilate(clean, highest, cross);
  const cv::Mat edges = highest - lowest > 50;
  ASSERT_GT(cv::countNonZero(edges), 1000);
  for (const float p : {0.3f, 1.0f}) {
    scene.noise.flying_pixel_probability = p;
    const cv::Mat frame = render_scene(scene).depth;
    const cv::Mat flying = frame != clean;
    EXPECT_EQ(cv::countNonZero(flying & ~edges), 0) << p;
    EXPECT_EQ(cv::countNonZero(flying & ((frame < lowest) | (frame > highest))), 0) << p;
    EXPECT_NEAR(cv::countNonZero(flying) / double(cv::countNonZero(edges)), p, 0.05) << p;
  }
}

// An empty name marks a scene at the limits, which must be accepted.
TEST(DepthSceneValidation, RejectsEachBadParameterByName) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  struct Case {
    std::string name;
    std::function<void(SceneParameters&)> change;
  };
  const std::vector<Case> cases = {
      {"box length", [&](SceneParameters& s) { s.box_length_mm = nan; }},
      {"box height", [](SceneParameters& s) { s.box_height_mm = -3; }},
      {"camera height", [](SceneParameters& s) { s.camera_height_mm = 299.9f; }},
      {"", [](SceneParameters& s) { s.camera_height_mm = 300; }},
      {"tilt", [](SceneParameters& s) { s.tilt_deg = 60; }},
      {"", [](SceneParameters& s) { s.tilt_deg = 59.9f; }},
      {"roll", [&](SceneParameters& s) { s.roll_deg = -inf; }},
      {"offset", [&](SceneParameters& s) { s.offset_mm.y = inf; }},
      {"image height", [](SceneParameters& s) { s.image_height = 4097; }},
      {"fx", [](SceneParameters& s) { s.intrinsics.fx = 0; }},
      {"sigma", [](SceneParameters& s) { s.noise.sigma_at_1m_mm = -1; }},
      {"flying pixel", [](SceneParameters& s) { s.noise.flying_pixel_probability = 1.5f; }},
      {"dropout", [&](SceneParameters& s) { s.noise.dropout_probability = nan; }},
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
