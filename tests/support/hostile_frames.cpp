#include "support/hostile_frames.h"

#include <limits>

#include "scene/depth_scene.h"
#include "support/test_frames.h"

namespace boxdim::testing {

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
const CameraIntrinsics kDefaultIntrinsics;

cv::Mat filled(cv::Size size, std::uint16_t value) { return cv::Mat(size, CV_16UC1, value); }

cv::Mat one_valid_pixel(cv::Size size) {
  cv::Mat depth = filled(size, 0);
  depth.at<std::uint16_t>(size.height / 2, size.width / 2) = 1000;
  return depth;
}

// A camera of this size: principal point in the middle, focal length scaled
// with the width.
CameraIntrinsics scaled_intrinsics(cv::Size size) {
  const float scale = static_cast<float>(size.width) / 640.0f;
  return {506.426f * scale, 506.605f * scale, size.width / 2.0f, size.height / 2.0f};
}

// The standard box as that camera sees it; moved by `offset_mm` on the floor.
cv::Mat box_frame(cv::Size size, cv::Point2f offset_mm = {0.0f, 0.0f}) {
  SceneParameters scene = standard_scene();
  scene.offset_mm = offset_mm;
  scene.image_width = size.width;
  scene.image_height = size.height;
  scene.intrinsics = scaled_intrinsics(size);
  return render_scene(scene).depth;
}

}  // namespace

const std::vector<HostileCase>& hostile_cases() {
  using O = HostileOutcome;
  const cv::Size vga(640, 480);
  const auto box = [](cv::Size size) { return box_frame(size); };
  // The box over the image's first pixel, which begins every scan.
  const auto box_in_the_corner = [](cv::Size size) { return box_frame(size, {-450.0f, -330.0f}); };
  // A box across the whole view: its rows' runs meet from one row's end to
  // the next row's start.
  const auto box_across_the_view = [](cv::Size size) {
    SceneParameters scene = standard_scene();
    scene.box_length_mm = 3000.0f;
    scene.image_width = size.width;
    scene.image_height = size.height;
    return render_scene(scene).depth;
  };
  const auto zeros = [](cv::Size size) { return filled(size, 0); };
  const auto saturated = [](cv::Size size) { return filled(size, 65535); };
  static const std::vector<HostileCase> cases = {
      {"all_zeros", vga, zeros, kDefaultIntrinsics, O::kFails},
      {"all_65535", vga, saturated, kDefaultIntrinsics, O::kFails},
      {"one_valid_pixel", vga, one_valid_pixel, kDefaultIntrinsics, O::kFails},
      {"nan_intrinsics", vga, box, {kNaN, kNaN, kNaN, kNaN}, O::kFails},
      {"zero_intrinsics", vga, box, {0.0f, 0.0f, 0.0f, 0.0f}, O::kFails},
      {"infinite_focal_length", vga, box, {kInf, kInf, 323.0f, 231.0f}, O::kFails},
      {"negative_focal_length", vga, box, {-506.0f, -506.0f, 323.0f, 231.0f}, O::kEither},
      {"principal_point_far_away", vga, box, {506.0f, 506.0f, 1e30f, -1e30f}, O::kFails},
      {"focal_lengths_no_lens_has", vga, box, {4e-6f, 2.5e8f, 0.0f, 0.0f}, O::kFails},
      {"one_pixel", {1, 1}, saturated, kDefaultIntrinsics, O::kFails},
      {"one_row", {1024, 1}, one_valid_pixel, kDefaultIntrinsics, O::kFails},
      {"one_column", {1, 1024}, saturated, kDefaultIntrinsics, O::kFails},
      {"box_639x479", {639, 479}, box, scaled_intrinsics({639, 479}), O::kEither},
      {"box_641x481", {641, 481}, box, scaled_intrinsics({641, 481}), O::kEither},
      {"box_1280x960", {1280, 960}, box, scaled_intrinsics({1280, 960}), O::kMeasuresTheBox},
      {"box_in_the_corner", vga, box_in_the_corner, kDefaultIntrinsics, O::kEither},
      {"box_across_the_view", vga, box_across_the_view, kDefaultIntrinsics, O::kEither},
      {"box_64x48", {64, 48}, box, scaled_intrinsics({64, 48}), O::kEither},
  };
  return cases;
}

}  // namespace boxdim::testing
