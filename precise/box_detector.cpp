#include "precise/box_detector.h"

#include <algorithm>
#include <cmath>

namespace boxdim::precise {

namespace {

// Rays through the image need focal lengths that a lens can have (0.1 to 10
// times the image's width, in pixels) and a principal point near the image
// (a camera's lies inside it).
bool usable(const CameraIntrinsics& k, cv::Size size) {
  const float width = static_cast<float>(size.width);
  const float reach = 4.0f * static_cast<float>(std::max(size.width, size.height));
  const auto lens = [width](float f) { return f >= 0.1f * width && f <= 10.0f * width; };
  return lens(k.fx) && lens(k.fy) && std::abs(k.cx) < reach && std::abs(k.cy) < reach;
}

}  // namespace

void DetectorOptions::check() const {
  floor.check();
  faces.check();
  fit.outline.check();
  fit.height.check();
  fit.grading.check();
}

namespace {

const DetectorOptions& checked(const DetectorOptions& options) {
  options.check();
  return options;
}

}  // namespace

BoxDetector::BoxDetector(const DetectorOptions& options)
    : options_(checked(options)), floor_finder_(options.floor), face_finder_(options.faces) {}

void BoxDetector::set_division(float division_mm) {
  GradingOptions grading = options_.fit.grading;
  grading.division_mm = division_mm;
  grading.check();
  options_.fit.grading = grading;
}

const std::vector<BoxFit>& BoxDetector::detect(const cv::Mat& frame,
                                               const CameraIntrinsics& intrinsics,
                                               std::uint64_t seed) {
  CV_Assert(frame.type() == CV_16UC1);
  // The stages index pixels as row * width + column.
  const cv::Mat depth = frame.isContinuous() ? frame : frame.clone();
  fits_.clear();
  problem_ = "";
  if (!usable(intrinsics, depth.size())) {
    problem_ =
        "the camera's intrinsics cannot be used: focal lengths must be positive numbers "
        "and the principal point near the image";
    intrinsics_unusable_ = true;
    return fits_;
  }
  intrinsics_unusable_ = false;
  const std::optional<FloorPlane> floor = floor_finder_.find(depth, intrinsics, seed);
  if (!floor) {
    problem_ = "no floor plane in view";
    return fits_;
  }
  compute_heights(depth, intrinsics, *floor, options_.faces.above_mm, options_.faces.above_per_mm,
                  heights_, above_);
  const std::vector<TopFace>& faces = face_finder_.find(heights_, above_, depth, kMaxDetections);
  if (faces.empty()) {
    problem_ = "nothing stands on the floor";
    return fits_;
  }
  const FrameView view{heights_,   depth, above_, face_finder_.regions(), face_finder_.faces(),
                       intrinsics, *floor};
  for (const TopFace& face : faces) fits_.push_back(fit_box(view, face, options_.fit, buffers_));
  return fits_;
}

}  // namespace boxdim::precise
