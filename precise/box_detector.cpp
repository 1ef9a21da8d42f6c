#include "precise/box_detector.h"

#include <utility>

namespace boxdim::precise {

BoxDetector::BoxDetector(std::function<std::time_t()> seed_clock)
    : seed_clock_(std::move(seed_clock)) {
  if (!seed_clock_) seed_clock_ = [] { return std::time(nullptr); };
}

const std::vector<BoxFit>& BoxDetector::detect(const cv::Mat& frame,
                                               const CameraIntrinsics& intrinsics) {
  CV_Assert(frame.type() == CV_16UC1);
  // The stages index pixels as row * width + column.
  const cv::Mat depth = frame.isContinuous() ? frame : frame.clone();
  fits_.clear();
  problem_ = "";
  rng_.seed(static_cast<std::mt19937::result_type>(seed_clock_()));
  const std::optional<FloorPlane> floor = floor_finder_.find(depth, intrinsics, rng_);
  if (!floor) {
    problem_ = "no floor plane in view";
    return fits_;
  }
  compute_heights(depth, intrinsics, *floor, heights_, above_);
  const std::vector<TopFace>& faces = face_finder_.find(heights_, above_, depth, kMaxDetections);
  if (faces.empty()) {
    problem_ = "nothing stands on the floor";
    return fits_;
  }
  const FrameView view{heights_,   depth, above_, face_finder_.regions(), face_finder_.faces(),
                       intrinsics, *floor};
  for (const TopFace& face : faces) fits_.push_back(fit_box(view, face, buffers_));
  return fits_;
}

}  // namespace boxdim::precise
