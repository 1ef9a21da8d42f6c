// One box from its top, stage after stage: its outline (the smallest
// enclosing cuboid's length and width), its height (the top's highest
// point above the floor), and its grade (status and confidence).
#pragma once

#include <array>
#include <opencv2/core.hpp>

#include "core/measurement_result.h"
#include "precise/box_grading.h"
#include "precise/box_outline.h"
#include "precise/top_faces.h"
#include "precise/top_height.h"
#include "precise/top_surface.h"

namespace boxdim::precise {

struct BoxFit {
  BoxStatus status = BoxStatus::kIrregular;
  float length_mm = 0.0f;
  float width_mm = 0.0f;
  float height_mm = 0.0f;
  // The top's corners in order around it, at the height of its rim.
  std::array<cv::Point3f, 4> corners_mm{};
  std::array<cv::Point2f, 4> corners_px{};
  cv::Point2f centre_px;
  // The top's centre in the camera's frame (mm): of its visible part until a
  // rectangle is fitted.
  cv::Point3f centre_mm;
  // For a measured or uncertain box, the chance as the uncertainty tells it
  // that every dimension is within the division; for the others, 0 to 1 from
  // how much of the rectangle the top covers and how straight its edges run.
  float confidence = 0.0f;
  // Each dimension's uncertainty (mm, about 95 % of errors within it).
  BoxDimensions uncertainty;
  // How the outline placed each side once a rectangle was fitted: side k
  // (+axis, +across, -axis, -across) runs from corner k + 1 to corner k + 2;
  // and the rim's rounding read (mm; 0 when none was read).
  std::array<SideEdge, 4> sides{};
  float rim_radius_mm = 0.0f;
  // The sums the height was fitted from, x along the top's longer side, and
  // what the height adds to their surface's highest point (see TopHeight).
  TopMoments top;
  float height_adjustment_mm = 0.0f;
  const char* reason = "";  // why it is not measured
};

// What a fit reuses from box to box and frame to frame.
struct FitBuffers {
  OutlineBuffers outline;
  HeightBuffers height;
};

// The stages' options a fit runs with.
struct FitOptions {
  OutlineOptions outline;
  HeightOptions height;
  GradingOptions grading;
};

BoxFit fit_box(const FrameView& frame, const TopFace& face, const FitOptions& options,
               FitBuffers& buffers);

}  // namespace boxdim::precise
