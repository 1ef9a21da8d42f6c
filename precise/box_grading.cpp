#include "precise/box_grading.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "precise/option_checks.h"

namespace boxdim::precise {

void GradingOptions::check() const {
  check_option("grading.min_side_mm", min_side_mm, 0.0f, 100000.0f);
  check_option("grading.min_fill", min_fill, 0.0f, 1.0f);
  check_option("grading.max_top_slope", max_top_slope, 0.0f, 10.0f);
  check_option("grading.max_top_rise_mm", max_top_rise_mm, 0.0f, 1000.0f);
  check_option("grading.max_edge_rms_mm", max_edge_rms_mm, 0.0f, 1000.0f);
  check_option("grading.max_edge_rms_pixels", max_edge_rms_pixels, 0.0f, 100.0f);
  check_option("grading.surface_noise_factor", surface_noise_factor, 0.0f, 100.0f);
  check_option("grading.surface_extra_mm", surface_extra_mm, 0.0f, 1000.0f);
  check_option("grading.confidence_edge_pixels", confidence_edge_pixels, 0.01f, 100.0f);
  check_option("grading.division_mm", division_mm, 0.1f, 1000.0f);
  check_option("grading.coverage_factor", coverage_factor, 0.5f, 10.0f);
  check_option("grading.edge_pixels", edge_pixels, 0.0f, 10.0f);
  check_option("grading.gap_share", gap_share, 0.0f, 10.0f);
  check_option("grading.read_rim_share", read_rim_share, 0.0f, 10.0f);
  check_option("grading.standing_pixels", standing_pixels, 0.0f, 10.0f);
  check_option("grading.range_error_mm", range_error_mm, 0.0f, 100.0f);
}

namespace {

// A side's standard deviation (mm); infinite when its edge was not found.
float side_deviation(const SideEdge& side, const TopOutline& outline,
                     const GradingOptions& options) {
  const float pixel_mm = outline.pixel_mm;
  if (side.standing) return options.standing_pixels * pixel_mm;
  if (!side.found) return std::numeric_limits<float>::infinity();
  float variance = std::pow(options.edge_pixels * pixel_mm, 2.0f) +
                   std::pow(options.gap_share * side.gap_mm, 2.0f);
  if (side.stretches > 0) variance += side.course_rms_mm * side.course_rms_mm / side.stretches;
  if (!side.in_view && outline.rim_radius_mm > 0.0f) {
    // What a rounding of radius r hides from a ray of this slant, per mm of
    // r: the rounding read may be off by a share of itself.
    const float g = std::max(0.0f, side.grazing);
    const float hides = 1.0f + g - std::sqrt(1.0f + g * g);
    variance += std::pow(options.read_rim_share * outline.rim_radius_mm * hides, 2.0f);
  }
  return std::sqrt(variance);
}

// The height's standard deviation (mm).
float height_deviation(const TopFace& face, const TopHeight& height,
                       const GradingOptions& options) {
  const TopSurface& surface = height.surface;
  const double n = std::max(1.0, height.top.n);
  double variance = surface.rms * surface.rms / n;
  if (height.floor_pixels > 0) {
    variance += height.floor_spread_mm * height.floor_spread_mm / height.floor_pixels;
  }
  variance += height.lid_deviation_mm * height.lid_deviation_mm;
  variance += height.depth_step_mm * height.depth_step_mm / 12.0;
  variance += face.noise_mm * face.noise_mm / n;
  variance += options.range_error_mm * options.range_error_mm;
  return static_cast<float>(std::sqrt(variance));
}

}  // namespace

Grade grade_box(const TopFace& face, const TopOutline& outline, const TopHeight& height,
                float width_mm, cv::Size image, const GradingOptions& options) {
  Grade grade;
  const TopSurface& surface = height.surface;
  // Each dimension's uncertainty: its two sides' deviations and the
  // camera's range error scaling it, to the coverage factor, and what a
  // rounding no pixel showed may hide.
  const PlaneRectangle& rect = outline.rectangle;
  const float range = std::abs(outline.plane.lift);
  float spread[2];
  for (int axis = 0; axis < 2; ++axis) {
    const float a = side_deviation(outline.sides[axis], outline, options);
    const float b = side_deviation(outline.sides[axis + 2], outline, options);
    const float scale = 2.0f * rect.half[axis] * options.range_error_mm / std::max(1.0f, range);
    // A rounding no pixel showed moves both sides alike: its spreads add.
    const float unseen =
        outline.sides[axis].unseen_rim_spread_mm + outline.sides[axis + 2].unseen_rim_spread_mm;
    spread[axis] = options.coverage_factor * std::sqrt(a * a + b * b + scale * scale) + unseen;
  }
  const int longer = rect.half[0] >= rect.half[1] ? 0 : 1;
  grade.uncertainty.box_length = spread[longer];
  grade.uncertainty.box_width = spread[1 - longer];
  grade.uncertainty.box_height = options.coverage_factor * height_deviation(face, height, options);
  const float pixel_mm = outline.pixel_mm;
  const float fill = outline.fill;
  grade.confidence =
      fill *
      std::exp(-0.5f *
               std::pow(outline.edge_rms / (options.confidence_edge_pixels * pixel_mm), 2.0f));
  const bool at_border = face.bounds.x <= 0 || face.bounds.y <= 0 ||
                         face.bounds.br().x >= image.width || face.bounds.br().y >= image.height;
  const float max_edge_rms =
      std::max(options.max_edge_rms_mm, options.max_edge_rms_pixels * pixel_mm);
  const float max_slope =
      std::max(options.max_top_slope, options.max_top_rise_mm / std::max(1.0f, 0.5f * width_mm));
  if (at_border) {
    grade.status = BoxStatus::kPartial;
    grade.reason = "cut by the frame's border";
  } else if (outline.hidden) {
    grade.status = BoxStatus::kPartial;
    grade.reason = "cut by missing data or by something in front";
  } else if (fill < options.min_fill || surface.slope > max_slope ||
             outline.edge_rms > max_edge_rms ||
             surface.rms >
                 options.surface_noise_factor * face.noise_mm + options.surface_extra_mm) {
    grade.status = BoxStatus::kIrregular;
    grade.reason = "the top is not a flat rectangle";
  } else if (width_mm < options.min_side_mm) {
    grade.status = BoxStatus::kTooSmall;
    grade.reason = "a side under 50 mm";
  } else if (std::max({grade.uncertainty.box_length, grade.uncertainty.box_width,
                       grade.uncertainty.box_height}) > options.division_mm) {
    grade.status = BoxStatus::kUncertain;
    grade.reason = "its size cannot be told within the division";
  } else {
    grade.status = BoxStatus::kMeasured;
  }
  if (grade.status == BoxStatus::kMeasured || grade.status == BoxStatus::kUncertain) {
    // The chance, as far as the uncertainty tells, that every dimension is
    // within the division.
    const float sigmas[3] = {grade.uncertainty.box_length, grade.uncertainty.box_width,
                             grade.uncertainty.box_height};
    grade.confidence = 1.0f;
    for (const float u : sigmas) {
      const float sigma = std::max(1e-3f, u / options.coverage_factor);
      grade.confidence *= std::erf(options.division_mm / (sigma * std::sqrt(2.0f)));
    }
  }
  return grade;
}

}  // namespace boxdim::precise
