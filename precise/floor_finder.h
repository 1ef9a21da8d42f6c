// The supporting plane, found over the whole frame and kept from frame to
// frame. Boxes may cover most of the view, so the largest plane is not always
// the floor: the floor is the plane with the scene above it, not behind it.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "precise/frame_points.h"

namespace boxdim::precise {

struct FloorOptions {
  // About this many points of the frame take part; a 640 x 480 frame gives
  // every eighth pixel of every eighth row.
  int sample_points = 4800;
  // Planes tried, each scored on this many of the points.
  int hypotheses = 150;
  int scoring_points = 1200;
  // The camera looks down: the floor's normal lies within this angle's
  // cosine of the camera's backward axis (53 degrees: a tilt of 30 degrees
  // and the field of view).
  float max_angle_cos = 0.6f;
  // A plane needs this share of the points on it to be the floor; a kept
  // floor is found anew when fewer lie on it or more than max_behind_share
  // lie behind it.
  double min_share = 0.12;
  double max_behind_share = 0.01;
  // How far (mm) a point may lie off the floor and still count as on it,
  // growing with its depth z as the range noise does: on_mm + on_per_mm z.
  // Behind it: beyond behind_factor times that.
  float on_mm = 6.0f;
  float on_per_mm = 0.008f;
  float behind_factor = 2.0f;
  // A plane's score: points on it less this many per point behind it.
  long behind_weight = 4;
  // The refinement keeps the points within this many robust deviations of
  // the noise (mm at 1 m, at least min_sigma_at_1m_mm), plus 1 mm.
  float refine_deviations = 3.0f;
  float min_sigma_at_1m_mm = 0.3f;

  void check() const;
};

class FloorFinder {
 public:
  explicit FloorFinder(const FloorOptions& options = {}) : options_(options) {}

  // The floor in this depth frame (CV_16UC1): the last one while it still
  // fits the frame; else found anew, its random search seeded with `seed`.
  // Nothing when no plane qualifies.
  std::optional<FloorPlane> find(const cv::Mat& depth, const CameraIntrinsics& k,
                                 std::uint64_t seed);
  // Forgets the floor; the next frame finds it anew.
  void reset() { floor_.reset(); }
  const std::optional<FloorPlane>& current() const { return floor_; }

 private:
  struct Score {
    int on = 0;
    int behind = 0;
  };
  Score score(const FloorPlane& plane, std::size_t count) const;
  float on_plane_tolerance(float z) const { return options_.on_mm + options_.on_per_mm * z; }
  // The plane through `inliers` by least squares, its normal towards the camera.
  std::optional<FloorPlane> fit(const std::vector<cv::Vec3f>& inliers) const;
  std::optional<FloorPlane> search(std::mt19937& rng);
  std::optional<FloorPlane> refine(const FloorPlane& floor);

  FloorOptions options_;
  std::optional<FloorPlane> floor_;
  std::vector<cv::Vec3f> sample_;   // the frame's points on a coarse grid
  std::vector<cv::Vec3f> inliers_;  // reused between frames
  std::vector<float> residuals_;    // reused between frames
};

}  // namespace boxdim::precise
