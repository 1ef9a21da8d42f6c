// A box's height from its top: the sums of the heights of the pixels well
// inside its outline, in the box's own axes, and the highest point of the
// surface fitted to them above the floor.
#pragma once

#include "precise/box_outline.h"
#include "precise/top_faces.h"
#include "precise/top_surface.h"

namespace boxdim::precise {

struct HeightOptions {
  // At most about this many of the top's pixels are summed.
  int max_samples = 1500;
  // Only pixels this many pixel sizes inside the outline: the rim's mixed
  // and dropping pixels stay out.
  float inset_pixels = 2.0f;
  // Sums of fewer pixels give no height.
  int min_pixels = 10;

  void check() const;
};

struct TopHeight {
  // The sums, x along the top's longer side pointing the way the plane's
  // first axis does, so that the sums of frames of one box add up.
  TopMoments top;
  TopSurface surface;
};

// Nothing when too few pixels lie inside the outline.
std::optional<TopHeight> fit_top_height(const FrameView& frame, const TopFace& face,
                                        const TopOutline& outline, const HeightOptions& options);

}  // namespace boxdim::precise
