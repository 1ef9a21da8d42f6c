// A box's height from its top: the highest point of its lid above the floor
// around the box. A smooth surface fitted to the heights of the pixels well
// inside the outline (from sums a tracker can add up over frames), read
// from the heights themselves where the lid strays from it by more than the
// noise explains (one flap over the other, a bump), less how much lower
// than the whole floor the floor around the box lies (a table that gives
// under it).
#pragma once

#include <vector>

#include "precise/box_outline.h"
#include "precise/top_faces.h"
#include "precise/top_surface.h"

namespace boxdim::precise {

struct HeightOptions {
  // At most about this many of the top's pixels take part.
  int max_samples = 3000;
  // Only pixels this many pixel sizes inside the outline: the rim's mixed
  // and dropping pixels stay out.
  float inset_pixels = 2.0f;
  // Fewer pixels give no height.
  int min_pixels = 10;
  // The top is cut into this many cells a side (cells of fewer than
  // min_cell_pixels count for nothing). When their means stray from the
  // smooth surface by more than noise does (their squared strays, in
  // deviations, exceed their number by stray_deviations times its
  // expected spread) and one by at least stray_steps of the steps the
  // camera's depths come in, the lid's highest part is the middle of the
  // cells within plateau_deviations of the highest cell.
  int cells = 12;
  int min_cell_pixels = 8;
  float stray_deviations = 4.0f;
  float stray_steps = 1.0f;
  float plateau_deviations = 2.5f;
  // The floor around the box: between floor_from_pixels and floor_to_pixels
  // outside the outline (past the light the box's sides throw on the
  // floor), pixels within floor_band_mm of the whole floor's plane, at
  // least min_floor_pixels of them.
  float floor_from_pixels = 12.0f;
  float floor_to_pixels = 30.0f;
  float floor_band_mm = 10.0f;
  int min_floor_pixels = 50;
  // The floor's level: the mean of its heights within this many standard
  // deviations (and half a millimetre) of their median.
  float floor_deviations = 2.5f;

  void check() const;
};

struct TopHeight {
  // The sums, x along the top's longer side pointing the way the plane's
  // first axis does, so that the sums of frames of one box add up.
  TopMoments top;
  TopSurface surface;
  // What the height adds to the surface's highest point: the lid's own
  // highest part where the surface misses it, less the floor around the
  // box lying lower than the whole floor.
  float adjustment_mm = 0.0f;
  float height_mm = 0.0f;  // surface.highest + adjustment_mm
  // The floor around the box, above the whole floor's plane (mm), and the
  // spread of its heights.
  float floor_offset_mm = 0.0f;
  float floor_spread_mm = 0.0f;
  int floor_pixels = 0;  // 0: the whole floor's plane stands
  // The step the top's depths come in (mm), and the standard deviation of
  // the lid's highest part when read from its cells (0: the surface stood).
  float depth_step_mm = 1.0f;
  float lid_deviation_mm = 0.0f;
};

// Reused from top to top, so that no frame allocates.
struct HeightBuffers {
  std::vector<cv::Point3f> samples;  // x, y (-1 to 1), height
  std::vector<double> strays;        // each sample's height above the surface
  std::vector<double> cell_sum;
  std::vector<int> cell_count;
  std::vector<float> values;
};

// Nothing when too few pixels lie inside the outline.
std::optional<TopHeight> fit_top_height(const FrameView& frame, const TopFace& face,
                                        const TopOutline& outline, const HeightOptions& options,
                                        HeightBuffers& buffers);

}  // namespace boxdim::precise
