#include "tracking/tracked_detector.h"

namespace boxdim::tracking {

namespace {

// The detector's boxes as the tracker sees them: where each top is, its
// status, and its size when measured.
void sightings_of(const std::vector<precise::BoxFit>& fits, std::vector<Sighting>& sightings) {
  sightings.resize(fits.size());
  for (std::size_t i = 0; i < fits.size(); ++i) {
    Sighting& sighting = sightings[i];
    sighting.status = fits[i].status;
    sighting.centre_mm = fits[i].centre_mm;
    sighting.dimensions = {fits[i].length_mm, fits[i].width_mm, fits[i].height_mm};
    sighting.corners_px = fits[i].corners_px;
    sighting.top = &fits[i].top;
    sighting.height_adjustment_mm = fits[i].height_adjustment_mm;
    sighting.uncertainty = fits[i].uncertainty;
  }
}

}  // namespace

TrackedDetector::TrackedDetector(const precise::DetectorOptions& options)
    : detector_(options), tracker_(options.fit.grading.division_mm) {
  // A frame gives at most two events per track (placed and measured, or
  // removed): room for them once, so that no later frame allocates.
  events_.reserve(2 * BoxTracker::kMaxTracks);
}

void TrackedDetector::detect(const cv::Mat& depth, const CameraIntrinsics& intrinsics,
                             std::int64_t time_us, std::uint64_t seed) {
  sightings_of(detector_.detect(depth, intrinsics, seed), sightings_);
  events_.clear();
  // A frame refused for its intrinsics was not looked at: the boxes
  // followed neither moved nor went.
  if (detector_.intrinsics_unusable()) {
    assignments_.clear();
    return;
  }
  tracker_.update(time_us, sightings_, assignments_, events_);
}

}  // namespace boxdim::tracking
