// What a box's top looks like to a depth camera: a flat face, or a carton's
// lid with the shapes real cartons have (flaps meeting along a seam, one
// flap over the other, a crack between them, tape, uneven board, a bulge
// off centre, rounded rims, a notch, a handle recess), and how much light
// each part of it returns. The renderer casts its rays against this shape;
// the ground truth takes the lid's highest point from it.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace boxdim {

// Where the two outer flaps meet: a seam along the top's longer axis.
struct CartonSeam {
  bool present = false;
  // Across the long axis, from the top's centre line (mm).
  float offset_mm = 0.0f;
  // A ridge (positive) or valley (negative) along the seam, of this Gaussian
  // width (its standard deviation across the seam, mm).
  float ridge_mm = 0.0f;
  float ridge_width_mm = 20.0f;
  // One flap over the other: the flap on the seam's positive side stands
  // this much higher than the other.
  float step_mm = 0.0f;
  // A gap between the flaps, seen into the carton (0: none), reading this
  // much below the lid and returning little light.
  float crack_width_mm = 0.0f;
  float crack_depth_mm = 40.0f;
  // A strip of packing tape along the seam (it covers the crack).
  bool taped = false;
  float tape_width_mm = 48.0f;
};

// A smooth rise (positive) or dent (negative) of the board: uneven lids are
// a few of these. Centre in the top's own frame (mm, x along the box's
// length, y along its width).
struct TopBump {
  cv::Point2f centre_mm{0.0f, 0.0f};
  float height_mm = 0.0f;
  float radius_mm = 50.0f;  // the Gaussian's standard deviation
};

// A cut into the top at one of its edges: the top is this much lower over a
// rectangle reaching in from the edge. Side 0: +x, 1: +y, 2: -x, 3: -y.
struct TopNotch {
  int side = 0;
  float position_mm = 0.0f;  // of the notch's middle along the edge, from the edge's middle
  float width_mm = 60.0f;    // along the edge
  float reach_mm = 30.0f;    // in from the edge
  float drop_mm = 40.0f;     // below the lid
};

// A hand hole near one end of the top along its long axis: a slot this
// much below the lid, dark inside.
struct HandleRecess {
  bool present = false;
  bool at_positive_end = true;
  float from_end_mm = 50.0f;  // the slot's middle from the end's edge
  float length_mm = 90.0f;    // across the long axis
  float width_mm = 30.0f;
  float depth_mm = 30.0f;
};

// A paper label: brighter than the board.
struct TopLabel {
  cv::Point2f centre_mm{0.0f, 0.0f};
  cv::Size2f size_mm{100.0f, 150.0f};
  float reflectivity = 0.85f;
};

// A box's top as a camera sees it. The defaults are a flat, sharp-edged top.
struct BoxTop {
  // A lid held level by the four walls that bulges up (positive) or sags
  // (negative) at its centre, fading to flat at the edges.
  float lid_mm = 0.0f;
  // A dark surface that returns less light.
  bool dark = false;

  // The carton's shapes; none of them by default.
  // The rim rounded (or crushed) to this radius: the outer part of the top
  // drops by up to it at the edge.
  float rim_radius_mm = 0.0f;
  CartonSeam seam;
  std::vector<TopBump> bumps;
  // A lid that bulges this much with its highest point off centre, at
  // (x, y) in -1..1 of the top's half sides; held by the walls like lid_mm.
  float offset_bulge_mm = 0.0f;
  cv::Point2f offset_bulge_at{0.0f, 0.0f};
  std::vector<TopNotch> notches;
  HandleRecess handle;
  std::vector<TopLabel> labels;
  // The board's share of light returned (white paper about 0.9); 0 takes
  // 0.45 for a carton, 0.1 for a dark one.
  float reflectivity = 0.0f;

  // Whether any of the carton's shapes is there (the renderer then casts its
  // rays against the lid's surface rather than the flat face).
  bool shaped() const;
};

// Throws std::invalid_argument naming the offending item when the top cannot
// be drawn on a box of this size.
void validate_box_top(const BoxTop& top, float length_mm, float width_mm, float height_mm,
                      const char* which);

// A box's top evaluated at points of its own frame: x along the box's length
// from -half_length to half_length, y along its width, in mm from the top's
// centre.
class CartonTopShape {
 public:
  CartonTopShape() = default;
  CartonTopShape(const BoxTop& top, double half_length, double half_width);

  // How far the surface stands above the flat top at (x, y) (negative:
  // below), mm; only meaningful on the top's footprint.
  double relief(double x, double y) const;
  // Share of light returned there, and whether it is glossy tape.
  double reflectivity(double x, double y) const;
  bool glossy(double x, double y) const;
  // Whether a step in the surface (a flap's edge, the crack, a notch, the
  // hand hole) lies within `radius` mm of (x, y): a pixel there may see two
  // depths.
  bool step_near(double x, double y, double radius) const;
  // Bounds of the relief over the whole footprint (mm).
  double highest() const { return highest_; }
  double upper_bound() const { return upper_bound_; }
  double lower_bound() const { return lower_bound_; }

 private:
  double held_profile(double s, double power) const;
  bool in_crack(double across) const;
  bool in_handle(double x, double y) const;
  const TopNotch* notch_at(double x, double y) const;

  BoxTop top_;
  double half_[2] = {0.0, 0.0};
  int long_axis_ = 0;  // 0: x, 1: y
  double bulge_power_[2] = {1.0, 1.0};
  double highest_ = 0.0;
  double upper_bound_ = 0.0;
  double lower_bound_ = 0.0;
  double base_reflectivity_ = 0.45;
};

}  // namespace boxdim
