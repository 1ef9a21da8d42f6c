// The supporting plane, found over the whole frame and kept from frame to
// frame. Boxes may cover most of the view, so the largest plane is not always
// the floor: the floor is the plane with the scene above it, not behind it.
#pragma once

#include <optional>
#include <random>
#include <vector>

#include "precise/frame_points.h"

namespace boxdim::precise {

class FloorFinder {
 public:
  // The floor in this depth frame (CV_16UC1): the last one while it still
  // fits the frame; else found anew. Nothing when no plane qualifies.
  std::optional<FloorPlane> find(const cv::Mat& depth, const CameraIntrinsics& k,
                                 std::mt19937& rng);
  // Forgets the floor; the next frame finds it anew.
  void reset() { floor_.reset(); }
  const std::optional<FloorPlane>& current() const { return floor_; }

 private:
  // The plane through `inliers` by least squares, its normal towards the camera.
  static std::optional<FloorPlane> fit(const std::vector<cv::Vec3f>& inliers);
  std::optional<FloorPlane> search(std::mt19937& rng);
  std::optional<FloorPlane> refine(const FloorPlane& floor);

  std::optional<FloorPlane> floor_;
  std::vector<cv::Vec3f> sample_;   // the frame's points on a coarse grid
  std::vector<cv::Vec3f> inliers_;  // reused between frames
  std::vector<float> residuals_;    // reused between frames
};

}  // namespace boxdim::precise
