#include "precise/box_detector.h"

#include <utility>

namespace boxdim::precise {

BoxDetector::BoxDetector(std::function<std::time_t()> seed_clock)
    : seed_clock_(std::move(seed_clock)) {
  if (!seed_clock_) seed_clock_ = [] { return std::time(nullptr); };
}

const std::vector<BoxFit>& BoxDetector::detect(const cv::Mat& depth,
                                               const CameraIntrinsics& intrinsics) {
  fits_.clear();
  problem_ = "";
  rng_.seed(static_cast<std::mt19937::result_type>(seed_clock_()));
  compute_points(depth, intrinsics, points_);
  const std::optional<FloorPlane> floor = floor_finder_.find(points_, rng_);
  if (!floor) {
    problem_ = "no floor plane in view";
    return fits_;
  }
  compute_heights(points_, *floor, heights_);
  const std::vector<TopFace>& faces = face_finder_.find(heights_, points_, kMaxDetections);
  if (faces.empty()) {
    problem_ = "nothing stands on the floor";
    return fits_;
  }
  const FrameView view{heights_, points_, face_finder_.regions(), intrinsics, *floor};
  for (const TopFace& face : faces) fits_.push_back(fit_box(view, face, buffers_));
  return fits_;
}

}  // namespace boxdim::precise
