// The precise engine's detector: every box standing on the floor of a depth
// frame, each measured from its top as the smallest enclosing cuboid. The
// floor carries over from frame to frame; buffers grow once and are reused.
#pragma once

#include <ctime>
#include <functional>
#include <optional>
#include <random>
#include <vector>

#include "core/camera_intrinsics.h"
#include "precise/box_fit.h"
#include "precise/floor_finder.h"
#include "precise/frame_points.h"
#include "precise/top_faces.h"

namespace boxdim::precise {

class BoxDetector {
 public:
  static constexpr int kMaxDetections = 99;

  // `seed_clock` seeds the floor search for each frame; the current time in
  // seconds when empty.
  explicit BoxDetector(std::function<std::time_t()> seed_clock = {});

  // The boxes of a CV_16UC1 depth frame (mm), at most kMaxDetections, largest
  // tops first.
  const std::vector<BoxFit>& detect(const cv::Mat& depth, const CameraIntrinsics& intrinsics);

  // Why the last frame gave no box: "" when it gave some.
  const char* problem() const { return problem_; }
  // Whether the last frame's intrinsics were refused, before any floor search.
  bool intrinsics_unusable() const { return intrinsics_unusable_; }
  const std::optional<FloorPlane>& floor() const { return floor_finder_.current(); }
  void reset_floor() { floor_finder_.reset(); }

 private:
  std::function<std::time_t()> seed_clock_;
  std::mt19937 rng_;
  FloorFinder floor_finder_;
  TopFaceFinder face_finder_;
  cv::Mat1f heights_;
  cv::Mat1b above_;
  FitBuffers buffers_;
  std::vector<BoxFit> fits_;
  const char* problem_ = "";
  bool intrinsics_unusable_ = false;
};

}  // namespace boxdim::precise
