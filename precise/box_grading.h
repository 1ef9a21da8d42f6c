// Whether a fitted box can be trusted, and why not: its status, the reason,
// and a confidence from how much of the rectangle the top covers and how
// straight its edges run.
#pragma once

#include "core/measurement_result.h"
#include "precise/box_outline.h"
#include "precise/top_faces.h"
#include "precise/top_surface.h"

namespace boxdim::precise {

struct GradingOptions {
  // The smallest box measured has 50 mm sides; one that reads a little
  // under (by no more than a fit can be off) is that box, not a smaller one.
  float min_side_mm = 48.0f;
  // Below this share of its rectangle covered, a top is not one rectangle.
  float min_fill = 0.88f;
  // A top that slopes more than this against the floor does not lie on it,
  // unless it rises by no more than max_top_rise_mm across its half width
  // (one flap over the other tilts a small top's plane that much).
  float max_top_slope = 0.05f;
  float max_top_rise_mm = 6.0f;
  // Edges whose course strays more than this (mm, or pixel sizes if more)
  // from straight lines, or a top whose heights stray more than
  // surface_noise_factor noise + surface_extra_mm from its surface, are no
  // box's top. A carton's lid strays a few millimetres: flaps one over the
  // other, uneven board.
  float max_edge_rms_mm = 4.0f;
  float max_edge_rms_pixels = 1.5f;
  float surface_noise_factor = 3.0f;
  float surface_extra_mm = 8.0f;
  // The confidence halves (roughly) when the edges stray this many pixel sizes.
  float confidence_edge_pixels = 1.5f;

  void check() const;
};

struct Grade {
  BoxStatus status = BoxStatus::kIrregular;
  const char* reason = "";
  float confidence = 0.0f;
};

// `image` is the frame's size: a top that touches its border is cut.
Grade grade_box(const TopFace& face, const TopOutline& outline, const TopSurface& surface,
                float width_mm, cv::Size image, const GradingOptions& options);

}  // namespace boxdim::precise
