// The smooth surface of a box's top above the floor, from its heights: a
// level top, a lid held level by the walls that sags or bulges between them,
// a plane, or such a lid on a plane, fitted by least squares, whichever the
// heights support best, and its highest point. The fit needs only sums over
// the heights, which frames of one box can add up before fitting once.
#pragma once

namespace boxdim::precise {

// Sums over a top's heights h at (x, y) in the box's own coordinates: x
// along the rectangle's first axis, y across it, both from -1 to 1.
struct TopMoments {
  double xy[5][5] = {};  // x^a y^b, a + b <= 8
  double h[3][3] = {};   // h x^a y^b
  double hh = 0.0;       // h^2
  double n = 0.0;

  void add(float x, float y, float height);
  TopMoments& operator+=(const TopMoments& other);
  // The same heights with x and y exchanged (the rectangle's axes taken the
  // other way round), or with x, y turned to -x, -y.
  TopMoments swapped() const;
  TopMoments flipped(bool flip_x, bool flip_y) const;
};

struct TopSurface {
  float highest = 0.0f;  // mm above the floor
  float slope = 0.0f;    // of the plane through the heights, per mm of the top
  float rms = 0.0f;      // of the heights about the surface, mm
  // Of 1, x, y, x^2, xy, y^2, x^2 y, x y^2, x^2 y^2.
  double coefficients[9] = {};

  // The surface's height at (x, y) of the top (-1 to 1 each).
  double at(float x, float y) const;
};

// Fits the surface that the sums support best (by the Bayesian information
// criterion) and finds its highest point over the whole rectangle (a sag
// leaves the rim where it was); `half_x` and `half_y` (mm) scale its slope.
// Nothing fits without three heights.
TopSurface fit_top_surface(const TopMoments& moments, float half_x, float half_y);

}  // namespace boxdim::precise
