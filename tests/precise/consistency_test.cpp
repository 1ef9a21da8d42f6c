// Checks that need no ground truth: the same carton seen by a camera turned
// about its own centre (the depth frame reprojected, no parallax invented),
// or from farther away, measures the same. A fit that leans on the pixel
// grid's direction or on the pixel's size fails here.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "precise/box_detector.h"
#include "scene/depth_scene.h"

namespace boxdim::precise {
namespace {

// A carton under a camera with a physical sensor: pixels that mix what they
// see, a weak flying-pixel filter, a rounded rim, noise.
SceneParameters carton(float camera_height_mm) {
  SceneParameters s;
  s.box_length_mm = 420.0f;
  s.box_width_mm = 310.0f;
  s.box_height_mm = 220.0f;
  s.camera_height_mm = camera_height_mm;
  s.yaw_deg = 17.0f;
  s.sensor.footprint_samples = 4;
  s.sensor.flying_filter = FlyingPixelFilter::kWeak;
  s.noise.sigma_at_1m_mm = 0.8f;
  s.top.rim_radius_mm = 4.0f;
  s.seed = 11;
  return s;
}

BoxFit measure(const cv::Mat& depth, const CameraIntrinsics& k) {
  BoxDetector detector;
  const std::vector<BoxFit>& fits = detector.detect(depth, k, 1);
  EXPECT_EQ(fits.size(), 1u) << detector.problem();
  return fits.empty() ? BoxFit{} : fits[0];
}

double radians(double degrees) { return degrees * 3.14159265358979323846 / 180.0; }

// The frame a camera turned by `turn` about its own centre takes of the same
// scene: each new pixel takes the depth of the old pixel its ray falls on
// (nearest, so that no depth between two surfaces is made up), the point of
// that old pixel expressed in the turned camera's frame.
cv::Mat turned(const cv::Mat& depth, const CameraIntrinsics& k, const Eigen::Matrix3d& turn) {
  cv::Mat out(depth.size(), CV_16UC1, cv::Scalar(0));
  const Eigen::Matrix3d back = turn.transpose();
  for (int v = 0; v < out.rows; ++v) {
    for (int u = 0; u < out.cols; ++u) {
      const Eigen::Vector3d ray = back * Eigen::Vector3d((u - k.cx) / k.fx, (v - k.cy) / k.fy, 1.0);
      if (ray.z() <= 0.0) continue;
      const int uo = static_cast<int>(std::lround(ray.x() / ray.z() * k.fx + k.cx));
      const int vo = static_cast<int>(std::lround(ray.y() / ray.z() * k.fy + k.cy));
      if (uo < 0 || vo < 0 || uo >= depth.cols || vo >= depth.rows) continue;
      const double z = depth.at<std::uint16_t>(vo, uo);
      if (z == 0.0) continue;
      const Eigen::Vector3d point((uo - k.cx) / k.fx * z, (vo - k.cy) / k.fy * z, z);
      const double turned_z = (turn * point).z();
      if (turned_z > 0.0 && turned_z < 65535.0) {
        out.at<std::uint16_t>(v, u) = static_cast<std::uint16_t>(std::lround(turned_z));
      }
    }
  }
  return out;
}

struct TurnCase {
  std::string name;
  double roll, pan, tilt;  // degrees: about the optical axis, the rows, the columns
};

void PrintTo(const TurnCase& c, std::ostream* os) { *os << c.name; }

class TurnedCameraTest : public ::testing::TestWithParam<TurnCase> {};

TEST_P(TurnedCameraTest, MeasuresTheSameCartonTheSame) {
  const TurnCase& c = GetParam();
  const SceneParameters scene = carton(1300.0f);
  const RenderedScene rendered = render_scene(scene);
  const BoxFit straight = measure(rendered.depth, scene.intrinsics);
  ASSERT_EQ(straight.status, BoxStatus::kMeasured) << straight.reason;
  const Eigen::Matrix3d turn = (Eigen::AngleAxisd(radians(c.roll), Eigen::Vector3d::UnitZ()) *
                                Eigen::AngleAxisd(radians(c.pan), Eigen::Vector3d::UnitY()) *
                                Eigen::AngleAxisd(radians(c.tilt), Eigen::Vector3d::UnitX()))
                                   .toRotationMatrix();
  const BoxFit seen = measure(turned(rendered.depth, scene.intrinsics, turn), scene.intrinsics);
  ASSERT_EQ(seen.status, BoxStatus::kMeasured) << seen.reason;
  EXPECT_NEAR(seen.length_mm, straight.length_mm, 1.0);
  EXPECT_NEAR(seen.width_mm, straight.width_mm, 1.0);
  EXPECT_NEAR(seen.height_mm, straight.height_mm, 1.0);
}

INSTANTIATE_TEST_SUITE_P(Turns, TurnedCameraTest,
                         ::testing::Values(TurnCase{"rolled_30_degrees", 30.0, 0.0, 0.0},
                                           TurnCase{"rolled_65_degrees", 65.0, 0.0, 0.0},
                                           TurnCase{"panned_4_degrees", 0.0, 4.0, 0.0},
                                           TurnCase{"tilted_3_degrees", 0.0, 0.0, -3.0}),
                         [](const auto& info) { return info.param.name; });

// The same carton at 0.9, 1.4 and 2.0 m: each pixel covers more of it the
// farther it is, and the dimensions stay.
TEST(Consistency, TheSameCartonFartherAwayMeasuresTheSame) {
  std::vector<BoxFit> fits;
  for (const float camera_height : {1120.0f, 1620.0f, 2220.0f}) {
    const SceneParameters scene = carton(camera_height);
    fits.push_back(measure(render_scene(scene).depth, scene.intrinsics));
    ASSERT_EQ(fits.back().status, BoxStatus::kMeasured) << camera_height << fits.back().reason;
  }
  for (std::size_t i = 1; i < fits.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_NEAR(fits[i].length_mm, fits[0].length_mm, 1.0);
    EXPECT_NEAR(fits[i].width_mm, fits[0].width_mm, 1.0);
    EXPECT_NEAR(fits[i].height_mm, fits[0].height_mm, 1.0);
  }
}

}  // namespace
}  // namespace boxdim::precise
