// The detector and the tracker as the precise engine and the Interface both
// run them: each frame's boxes found, then followed, with each box's track
// and reading and the frame's events. Nothing is allocated per frame once
// the buffers have grown.
#pragma once

#include <cstdint>
#include <vector>

#include "core/track_event.h"
#include "precise/box_detector.h"
#include "tracking/box_tracker.h"

namespace boxdim::tracking {

class TrackedDetector {
 public:
  // Throws std::invalid_argument when an option is out of its range.
  explicit TrackedDetector(const precise::DetectorOptions& options = {});

  // The frame's boxes (see BoxDetector::detect), each followed; the frame
  // taken at `time_us`. A frame whose intrinsics are refused moves no track.
  void detect(const cv::Mat& depth, const CameraIntrinsics& intrinsics, std::int64_t time_us,
              std::uint64_t seed);

  // Of the last frame: its boxes, index-parallel their tracks and readings,
  // and its events.
  const std::vector<precise::BoxFit>& fits() const { return detector_.fits(); }
  const std::vector<Assignment>& assignments() const { return assignments_; }
  const std::vector<TrackEvent>& events() const { return events_; }

  const precise::BoxDetector& detector() const { return detector_; }
  void reset_floor() { detector_.reset_floor(); }
  void reset_tracks() { tracker_.reset(); }
  // The station's division (mm): boxes whose uncertainty exceeds it are
  // uncertain, and no reading is measured until within it. Throws
  // std::invalid_argument out of range.
  void set_division(float division_mm) {
    detector_.set_division(division_mm);
    tracker_.set_division(division_mm);
  }

 private:
  precise::BoxDetector detector_;
  BoxTracker tracker_;
  std::vector<Sighting> sightings_;
  std::vector<Assignment> assignments_;
  std::vector<TrackEvent> events_;
};

}  // namespace boxdim::tracking
