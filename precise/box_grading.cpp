#include "precise/box_grading.h"

#include <algorithm>
#include <cmath>
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
}

Grade grade_box(const TopFace& face, const TopOutline& outline, const TopSurface& surface,
                float width_mm, cv::Size image, const GradingOptions& options) {
  Grade grade;
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
  } else {
    grade.status = BoxStatus::kMeasured;
  }
  return grade;
}

}  // namespace boxdim::precise
