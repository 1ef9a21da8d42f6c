// The precise engine's detector: every box standing on the floor of a depth
// frame, each measured from its top as the smallest enclosing cuboid. Its
// stages, in order: the floor (kept from frame to frame), every pixel's
// height above it, the tops standing out, and for each top its fit
// (outline, height, grade). Buffers grow once and are reused.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "core/camera_intrinsics.h"
#include "precise/box_fit.h"
#include "precise/floor_finder.h"
#include "precise/frame_points.h"
#include "precise/top_faces.h"

namespace boxdim::precise {

// Every stage's options; checked once, when a detector is made.
struct DetectorOptions {
  FloorOptions floor;
  TopFaceOptions faces;
  FitOptions fit;

  // Throws std::invalid_argument naming the first option out of its range.
  void check() const;
};

class BoxDetector {
 public:
  static constexpr int kMaxDetections = 99;

  // Throws std::invalid_argument when an option is out of its range.
  explicit BoxDetector(const DetectorOptions& options = {});

  // The boxes of a CV_16UC1 depth frame (mm), at most kMaxDetections, largest
  // tops first; `seed` seeds the floor's random search when there is one.
  const std::vector<BoxFit>& detect(const cv::Mat& depth, const CameraIntrinsics& intrinsics,
                                    std::uint64_t seed);

  // The last frame's boxes, as detect() returned them.
  const std::vector<BoxFit>& fits() const { return fits_; }
  // Why the last frame gave no box: "" when it gave some.
  const char* problem() const { return problem_; }
  // Whether the last frame's intrinsics were refused, before any floor search.
  bool intrinsics_unusable() const { return intrinsics_unusable_; }
  const std::optional<FloorPlane>& floor() const { return floor_finder_.current(); }
  void reset_floor() { floor_finder_.reset(); }
  // The station's division (mm); throws std::invalid_argument out of range.
  void set_division(float division_mm);
  float division() const { return options_.fit.grading.division_mm; }

 private:
  DetectorOptions options_;
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
