#include "evaluation/side_errors.h"

#include <cmath>

#include "evaluation/accuracy.h"
#include "precise/box_detector.h"

namespace boxdim {

const char* side_placement_name(SidePlacement placement) {
  switch (placement) {
    case SidePlacement::kStanding:
      return "its face in view";
    case SidePlacement::kInViewBand:
      return "the band, face barely seen";
    case SidePlacement::kHidingRimRead:
      return "hiding, rounding read";
    case SidePlacement::kHidingNoRim:
      return "hiding, no rounding read";
  }
  return "";
}

std::array<std::optional<SideError>, 4> side_errors(const precise::BoxFit& fit,
                                                    const SceneGroundTruth& truth) {
  std::array<std::optional<SideError>, 4> errors;
  cv::Point3f centre(0.0f, 0.0f, 0.0f);
  for (const cv::Point3f& c : fit.corners_mm) centre += 0.25f * c;
  for (int k = 0; k < 4; ++k) {
    const precise::SideEdge& side = fit.sides[k];
    if (!side.found && !side.standing) continue;
    const cv::Point3f a = fit.corners_mm[(k + 1) % 4];
    const cv::Point3f b = fit.corners_mm[(k + 2) % 4];
    // Outwards across the side, within the top's plane (parallel to the
    // floor, so the truth's corners at another height compare alike).
    const cv::Point3f along = b - a;
    const cv::Point3f middle = 0.5f * (a + b);
    cv::Point3f out = middle - centre;
    out -= along * (out.dot(along) / along.dot(along));
    const float norm = std::sqrt(out.dot(out));
    if (norm <= 0.0f) continue;
    out *= 1.0f / norm;
    double true_reach = -1e9;
    for (const cv::Point3f& p : truth.top_corners_camera) {
      true_reach = std::max(true_reach, double((p - middle).dot(out)));
    }
    SideError error;
    error.error_mm = -true_reach;
    error.placement = side.standing  ? SidePlacement::kStanding
                      : side.in_view ? SidePlacement::kInViewBand
                      : fit.rim_radius_mm > 0.0f ? SidePlacement::kHidingRimRead
                                                 : SidePlacement::kHidingNoRim;
    errors[k] = error;
  }
  return errors;
}

std::vector<SideError> measure_sides(const SceneParameters& scene, const RenderedScene& rendered,
                                     float division_mm, std::uint64_t seed) {
  precise::BoxDetector detector;
  detector.set_division(division_mm);
  const std::vector<precise::BoxFit>& fits =
      detector.detect(rendered.depth, scene.intrinsics, seed);
  const cv::Point2f centre = top_centre_px(rendered.truth);
  const precise::BoxFit* nearest = nullptr;
  double nearest_distance = 0.0;
  for (const precise::BoxFit& fit : fits) {
    const double distance = cv::norm(fit.centre_px - centre);
    if (!nearest || distance < nearest_distance) {
      nearest = &fit;
      nearest_distance = distance;
    }
  }
  std::vector<SideError> errors;
  if (!nearest || nearest->status != BoxStatus::kMeasured ||
      nearest_distance > shortest_top_side_px(rendered.truth) / 3) {
    return errors;
  }
  for (const std::optional<SideError>& error : side_errors(*nearest, rendered.truth)) {
    if (error) errors.push_back(*error);
  }
  return errors;
}

std::array<SidePlacementStatistics, kSidePlacements> summarise_sides(
    const std::vector<SideError>& errors) {
  std::array<SidePlacementStatistics, kSidePlacements> stats{};
  std::array<double, kSidePlacements> squares{};
  for (const SideError& e : errors) {
    SidePlacementStatistics& s = stats[static_cast<int>(e.placement)];
    ++s.sides;
    s.mean_mm += e.error_mm;
    squares[static_cast<int>(e.placement)] += e.error_mm * e.error_mm;
  }
  for (int p = 0; p < kSidePlacements; ++p) {
    SidePlacementStatistics& s = stats[p];
    if (s.sides == 0) continue;
    s.mean_mm /= s.sides;
    s.sd_mm = std::sqrt(std::max(0.0, squares[p] / s.sides - s.mean_mm * s.mean_mm));
  }
  return stats;
}

}  // namespace boxdim
