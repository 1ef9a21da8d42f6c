// Whether a fitted box can be trusted, and why not: its uncertainty per
// dimension from what the frame shows (each edge's gap, its course, the
// rounding the camera could not see, the pixel's size, the noise, the fit of
// the lid and the floor, the camera's own range error), its status (a box
// whose uncertainty exceeds the station's division is uncertain), the
// reason, and a confidence.
#pragma once

#include "core/measurement_result.h"
#include "precise/box_outline.h"
#include "precise/top_faces.h"
#include "precise/top_height.h"
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
  // For boxes without numbers, the confidence halves (roughly) when the
  // edges stray this many pixel sizes.
  float confidence_edge_pixels = 1.5f;

  // The station's division (mm): a box is measured when each dimension's
  // uncertainty is within it, else it is uncertain.
  float division_mm = 5.0f;
  // The uncertainty covers this many standard deviations (2: about 95 %).
  float coverage_factor = 2.0f;
  // A side's standard deviation, mm: edge_pixels pixel sizes where its
  // edge was found, gap_share of the gap it lies in, the rms of its course
  // over the square root of its stretches, and where the camera's ray hid a
  // rim whose rounding was read, read_rim_share of what that rounding hides
  // at the ray's angle. A side in view placed by its own points:
  // standing_pixels pixel sizes. A rounding that was not read adds what it
  // may hide on top (see OutlineOptions::max_unseen_rim_mm): it moves both
  // sides of a dimension alike.
  float edge_pixels = 0.1f;
  float gap_share = 0.1f;
  float read_rim_share = 0.3f;
  float standing_pixels = 0.2f;
  // The camera's range error that stays after its calibration, the same in
  // every frame (mm): it scales the length and width by itself over the
  // range, and falls on the height.
  float range_error_mm = 1.5f;

  void check() const;
};

struct Grade {
  BoxStatus status = BoxStatus::kIrregular;
  const char* reason = "";
  float confidence = 0.0f;
  // Each dimension's uncertainty (mm, coverage_factor standard deviations):
  // length, width, height.
  BoxDimensions uncertainty;
};

// `image` is the frame's size: a top that touches its border is cut.
Grade grade_box(const TopFace& face, const TopOutline& outline, const TopHeight& height,
                float width_mm, cv::Size image, const GradingOptions& options);

}  // namespace boxdim::precise
