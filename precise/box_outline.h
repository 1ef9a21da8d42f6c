// A box's outline from its top: the rectangle on the top's plane whose sides
// run along its edges. A first rectangle around the top's pixels, then each
// side placed between pixels from everything a band across it shows: the
// top's pixels and what lies beyond them, a side of the box in view.
#pragma once

#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "core/camera_intrinsics.h"
#include "core/geometry.h"
#include "precise/frame_points.h"
#include "precise/top_faces.h"

namespace boxdim::precise {

// What the stages of a fit read of the frame.
struct FrameView {
  const cv::Mat1f& heights;  // above the floor, NaN without depth
  const cv::Mat& depth;      // CV_16UC1, mm
  const cv::Mat1b& above;    // pixels above the floor
  const cv::Mat1i& regions;  // as TopFaceFinder::regions(), where above
  const cv::Mat1i& faces;    // as TopFaceFinder::faces()
  const CameraIntrinsics& intrinsics;
  const FloorPlane& floor;
};

// A plane parallel to the floor: in-plane coordinates x = p . e1, y = p . e2.
struct TopPlane {
  cv::Vec3f e1, e2, n;
  float lift = 0.0f;  // n-coordinate of the plane: height - floor offset

  cv::Point2f in_plane(const cv::Vec3f& p) const { return {p.dot(e1), p.dot(e2)}; }
  cv::Vec3f point(const cv::Point2f& q) const { return q.x * e1 + q.y * e2 + lift * n; }
};

TopPlane plane_at(const FloorPlane& floor, float height);

// A rectangle on the plane: centre, the direction of its first axis, and half
// its extent along that axis and the one across.
struct PlaneRectangle {
  cv::Point2f centre;
  float angle = 0.0f;
  float half[2] = {0.0f, 0.0f};

  cv::Point2f axis() const { return {std::cos(angle), std::sin(angle)}; }
  cv::Point2f across() const { return {-std::sin(angle), std::cos(angle)}; }
  // Side k's outward normal: +axis, +across, -axis, -across.
  cv::Point2f normal(int k) const {
    const cv::Point2f n = k % 2 == 0 ? axis() : across();
    return k < 2 ? n : -n;
  }
  cv::Point2f tangent(int k) const {
    const cv::Point2f n = normal(k);
    return {-n.y, n.x};
  }
  float offset(int k) const { return centre.dot(normal(k)) + half[k % 2]; }
  float half_length(int k) const { return half[(k + 1) % 2]; }
  cv::Point2f corner(int i) const {
    const float sa = (i == 0 || i == 3) ? -1.0f : 1.0f;
    const float sb = (i < 2) ? -1.0f : 1.0f;
    return centre + sa * half[0] * axis() + sb * half[1] * across();
  }
};

struct OutlineOptions {
  // Rounds of placing the sides and turning the rectangle (a third moves
  // no figure of any evaluate family by more than 0.1 mm at the 95th
  // percentile).
  int refinements = 2;
  // Half the band across a side that its edge is sought in, mm: at least
  // band_mm or band_pixels pixels, plus band_noise_factor noise.
  float band_mm = 8.0f;
  float band_pixels = 5.0f;
  float band_noise_factor = 2.0f;
  // Where a side of the box is in view, the top's pixels are on it. Across
  // an edge that hides what lies beyond, a pixel is on the top when above
  // the middle between the rim and what lies beyond: a pixel on the edge
  // reads a mix of the two, and the camera's filters may have left none
  // there. What stands higher than the rim by on_mm (at least) or
  // on_noise_factor noise hides the edge; what lies lower by as much is off.
  float on_mm = 3.0f;
  float on_noise_factor = 2.5f;
  // What lies beyond an edge is read from this many pixel sizes outwards on
  // (past the pixels that mix the two). Pixels that mix the two read more
  // than this share of the step from either; the threshold comes from at
  // least min_mixed of them (and one per stretch of the edge).
  float beyond_pixels = 2.0f;
  float mixed_margin = 0.1f;
  int min_mixed = 8;
  // A side is cut when more than this share of what lies just beyond it
  // stands higher than its rim, or when more than missing_share of what lies
  // past the edge's band (beyond missing_from_pixels to missing_to_pixels)
  // has no depth: the side is hidden, not blanked by the camera's filter.
  double higher_share = 0.4;
  double missing_share = 0.5;
  float missing_from_pixels = 3.0f;
  float missing_to_pixels = 5.0f;
  // Inside the outline, what stands this much above the rim is not the
  // top's (a lid bulges by less).
  float coverage_rise_mm = 30.0f;
  // A carton's rim is rounded, up to max_rim_radius_mm; its radius is read
  // from at least min_rim_points of the top's pixels near each of at least
  // two edges, their drops below the rim taken as medians in bins
  // rim_bin_pixels pixel sizes wide. Without them no rounding is assumed.
  // How large a rounding the pixels allow is judged from those from
  // rim_near_pixels inside the edge on: the camera's blur can only widen it.
  float max_rim_radius_mm = 12.0f;
  int min_rim_points = 30;
  float rim_bin_pixels = 0.5f;
  float rim_near_pixels = 0.5f;
  // Above a side in view, points within this many pixel sizes of it (the
  // pixel's own footprint, whose mean the fit models, or half a pixel more
  // than the camera blurs its edges beyond that) are left out of the
  // radius: they mix the top with the side.
  float rim_blur_pixels = 0.5f;
  // Inside a hiding edge, pixels within this many pixel sizes of it (or as
  // many as the camera blurs its edges) mix the top with what lies beyond,
  // and the camera's smoothing lowers them as a rounding would.
  float rim_hiding_pixels = 2.0f;
  // A side that finds no rounding tells a sharp rim only when its pixels
  // rule out any rounding above this (mm); else it abstains.
  float sharp_rim_mm = 3.0f;
  // When no rounding is read, the rim may still be rounded by up to this
  // much (mm; cartons are rounded or crushed by 2 to 10 mm), less where the
  // top's pixels rule a larger rounding out: each hiding edge then goes out
  // by what half that rounding hides, the middle of what it may hide.
  float max_unseen_rim_mm = 10.0f;
  // A rounding is taken when it fits by this many times the Bayesian
  // information criterion's due.
  float rim_evidence = 2.0f;
  // Each side's band stops this share of its half length short of the
  // corners; the edge's course is followed in stretches of about
  // stretch_pixels pixels, at most OutlineBuffers::kMaxBins.
  float side_reach = 0.8f;
  float stretch_pixels = 6.0f;
  // Edges are placed to this share of a pixel.
  int steps_per_pixel = 16;
  // A side in view places its edge from the points of it below the edge:
  // where the most of them stand within side_window_pixels of each other,
  // when that is at least min_side_points of them, standing
  // min_standing_contrast times as densely as the rest (the points of a
  // rounded rim or of a notch's floor spread evenly: no place stands out).
  int min_side_points = 6;
  float side_window_pixels = 1.5f;
  float min_standing_contrast = 2.0f;

  void check() const;
};

// Where an edge lies across its side: the position, the width of the gap
// it lies in (no pixel says on which side of it the edge is), and how many
// of the samples lie on the wrong side of it.
struct EdgeEstimate {
  float position = 0.0f;
  float gap = 0.0f;
  int errors = 0;
  int samples = 0;
};

// Positions across an edge, counted on and off the top in fine steps: the
// edge is where a threshold misclassifies the fewest, the middle of the
// thresholds that tie (the gap between the last pixel on the top and the
// first one off it).
class EdgeCounts {
 public:
  void reset(float low, float step, int steps) {
    low_ = low;
    step_ = step;
    per_step_ = 1.0f / step;
    steps_ = steps;
    counts_.assign(2 * steps, 0);
  }
  void add(float s, bool on) {
    const int k = static_cast<int>((s - low_) * per_step_);
    if (k < 0 || k >= steps_) return;
    counts_[2 * k + on] += 1;
  }
  std::optional<EdgeEstimate> edge() const;

 private:
  float low_ = 0.0f;
  float step_ = 1.0f;
  float per_step_ = 1.0f;
  int steps_ = 0;
  std::vector<int> counts_;  // per step: off, on
};

// Buffers an outline reuses from box to box and frame to frame.
struct OutlineBuffers {
  // Canvases of the largest region so far; a fit uses views of its own size.
  cv::Mat1b face, rim, inner, morphology;
  std::vector<cv::Point2f> sorted, hull;  // for the first rectangle
  // A pixel near the outline: its ray on the top's plane (in-plane mm), its
  // height, whether it is on the top, and where it stands on the plane when
  // it may be a point of a side.
  struct RingPixel {
    int u = 0, v = 0;  // column and row
    cv::Point2f q;
    float h = 0.0f;
    bool in_face = false;
    bool below_valid = false;
    cv::Point2f below;
    // In each round: the side it lies across (-1: none), how far out from
    // that side's line and where along it (mm).
    int side = -1;
    float s = 0.0f;
    float t = 0.0f;
  };
  std::vector<RingPixel> ring;
  static constexpr int kMaxBins = 12;
  struct Side {
    EdgeCounts across;  // the whole side
    // A side in view counted again without the pixels that have no depth:
    // the edge within the band the camera blanked.
    EdgeCounts across_valid;
    EdgeCounts along[kMaxBins];  // stretch by stretch
    std::vector<cv::Point2f> below;
    std::vector<float> beyond;  // heights of what lies beyond the edge
    std::vector<float> mixed;   // and of the pixels between
    int near = 0;
    int higher_near = 0;
    int past = 0;
    int missing_past = 0;
  };
  Side sides[4];
  std::vector<cv::Point2f> outline;
  std::vector<float> rim_scratch;  // for the rims' profiles
  std::vector<cv::Point2f> course;
  std::vector<float> values;
};

// How one side of an outline was placed.
struct SideEdge {
  bool in_view = false;   // the camera sees the box's side below it
  bool standing = false;  // placed by that side's own points
  bool found = false;     // placed at all (else where the first rectangle put it)
  // How far out (per unit down) the camera's ray runs across it.
  float grazing = 0.0f;
  // Moved out by this much for the rounded rim the camera's ray grazed, and
  // the largest rounding its own pixels allow (mm; negative: too few of
  // them to tell).
  float rim_shift_mm = 0.0f;
  float rim_upper_mm = -1.0f;
  // Where no rounding was read: how much further out or in the side may lie
  // for the rounding it may have (mm, half of what the largest may hide).
  float unseen_rim_spread_mm = 0.0f;
  // The gap it lies in (mm), and of its samples, how many and how many on
  // the wrong side of it.
  float gap_mm = 0.0f;
  int samples = 0;
  int errors = 0;
  // Its course along the side: the rms about a straight line (mm), of how
  // many stretches.
  float course_rms_mm = 0.0f;
  int stretches = 0;
};

// The outline of one top and what its fit says of the top.
struct TopOutline {
  TopPlane plane;  // at the rim's height
  PlaneRectangle rectangle;
  float rim_mm = 0.0f;    // the height the edges are found at
  float pixel_mm = 0.0f;  // a pixel's size at the top
  // The rms of the edges' course about straight lines (mm), and whether a
  // side is hidden (by something higher, or without depth beyond it).
  float edge_rms = 0.0f;
  bool hidden = false;
  // The share of the outline whose pixels can be the top's (see coverage()).
  float fill = 0.0f;
  // How many pixels wide the camera blurs a hiding edge (the pixels between
  // the top and what lies beyond, per pixel of the edge's length), the
  // rim's rounding (mm), and each side: +axis, +across, -axis, -across.
  float edge_blur_px = 0.0f;
  float rim_radius_mm = 0.0f;
  // Without a rounding read: the largest it may be (mm), whose half the
  // hiding edges were moved out by.
  float unseen_rim_mm = 0.0f;
  SideEdge sides[4];
  std::array<cv::Point3f, 4> corners_mm{};
  std::array<cv::Point2f, 4> corners_px{};

  // Where the ray of a pixel (column, row) meets the top's plane.
  bool on_plane(float u, float v, const FrameView& frame, cv::Point2f& q) const {
    cv::Vec3f p;
    if (!ray_at_height(u, v, frame.intrinsics, frame.floor, rim_mm, p)) return false;
    q = plane.in_plane(p);
    return true;
  }
};

// The outline's corners in the image when grown by `grow` mm (shrunk when
// negative) on `plane` (its own, or another parallel to the floor: the
// floor's, for the box's base); false when a corner lies behind the camera.
bool grown_corners(const TopOutline& outline, const TopPlane& plane, float grow,
                   const CameraIntrinsics& k, std::array<cv::Point2f, 4>& corners);

// The outline of `face`, whose pixels lie `depth_mm` from the camera (their
// median); nothing, with `reason` set, when it has none.
std::optional<TopOutline> fit_outline(const FrameView& frame, const TopFace& face, float depth_mm,
                                      const OutlineOptions& options, OutlineBuffers& buffers,
                                      const char*& reason);

}  // namespace boxdim::precise
