#include "precise/box_outline.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "precise/binary_morphology.h"
#include "precise/convex_polygon.h"
#include "precise/min_area_rectangle.h"
#include "precise/option_checks.h"

namespace boxdim::precise {

namespace {

// A median needs no more values than this to be as good as all of them.
constexpr std::size_t kMaxMedianSamples = 1000;

// Calls visit(u, v) for each set pixel of a mask, row by row: cv::findNonZero
// without its list, passing runs of clear pixels eight at a time.
template <typename Visit>
void for_each_set_pixel(const cv::Mat1b& mask, Visit visit) {
  for (int v = 0; v < mask.rows; ++v) {
    const std::uint8_t* row = mask[v];
    for (int u = 0; u < mask.cols; ++u) {
      std::uint64_t eight = 0;
      while (u + 8 <= mask.cols && (std::memcpy(&eight, row + u, 8), eight == 0)) u += 8;
      if (u < mask.cols && row[u]) visit(u, v);
    }
  }
}

struct Line {
  float a = 0.0f, b = 0.0f;  // y = a + b x
  float rms = 0.0f;
  int n = 0;
};

// Least squares, then again without the points beyond 2.5 rms.
std::optional<Line> fit_line(const std::vector<cv::Point2f>& xy) {
  const auto solve = [](const std::vector<cv::Point2f>& points, const Line* trim) {
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    int n = 0;
    for (const cv::Point2f& p : points) {
      if (trim && std::abs(p.y - trim->a - trim->b * p.x) > 2.5f * trim->rms + 1e-3f) continue;
      sx += p.x;
      sy += p.y;
      sxx += double(p.x) * p.x;
      sxy += double(p.x) * p.y;
      ++n;
    }
    std::optional<Line> line;
    const double det = n * sxx - sx * sx;
    if (n < 2 || std::abs(det) < 1e-9) return line;
    Line l;
    l.b = static_cast<float>((n * sxy - sx * sy) / det);
    l.a = static_cast<float>((sy - l.b * sx) / n);
    l.n = n;
    double rss = 0.0;
    for (const cv::Point2f& p : points) {
      if (trim && std::abs(p.y - trim->a - trim->b * p.x) > 2.5f * trim->rms + 1e-3f) continue;
      rss += std::pow(p.y - l.a - l.b * p.x, 2);
    }
    l.rms = static_cast<float>(std::sqrt(rss / n));
    line = l;
    return line;
  };
  const std::optional<Line> first = solve(xy, nullptr);
  if (!first) return first;
  const std::optional<Line> second = solve(xy, &*first);
  return second ? second : first;
}

// Where the most of the values lie within `window` of each other: the
// median of those, and how many they are. An upright side's points all
// stand where the side is; others (the floor of a notch, the inside seen
// through a crack, a mixed pixel) spread.
float densest_middle(std::vector<float>& values, float window, std::size_t& count) {
  std::sort(values.begin(), values.end());
  std::size_t best_first = 0;
  std::size_t best_count = 0;
  std::size_t last = 0;
  for (std::size_t first = 0; first < values.size(); ++first) {
    last = std::max(last, first);
    while (last + 1 < values.size() && values[last + 1] - values[first] <= window) ++last;
    if (last - first + 1 > best_count) {
      best_count = last - first + 1;
      best_first = first;
    }
  }
  count = best_count;
  return values[best_first + best_count / 2];
}

// The share of the pixels inside the outline (every other row and column)
// that can be the box's top: all but those that read the floor or something
// well below the top (under half its height), or something standing
// `higher` above the rim. Pixels without depth, a crack's inside, a notch's
// floor, a lid's bulge may be the box's.
float coverage(const FrameView& frame, const std::array<cv::Point2f, 4>& corners, float rim,
               float higher) {
  const cv::Mat1f& heights = frame.heights;
  int inside = 0;
  int other = 0;
  for (int v = 0; v < heights.rows; v += 2) {
    float x0, x1;
    if (!convex_span(corners, static_cast<float>(v), x0, x1)) continue;
    const int u0 = std::max(0, static_cast<int>(std::ceil(x0)));
    const int u1 = std::min(heights.cols - 1, static_cast<int>(std::floor(x1)));
    const float* row = heights[v];
    for (int u = u0 + (u0 % 2); u <= u1; u += 2) {
      ++inside;
      const float h = row[u];
      other += !std::isnan(h) && (h < 0.5f * rim || h > rim + higher);
    }
  }
  return inside == 0 ? 0.0f : 1.0f - static_cast<float>(other) / static_cast<float>(inside);
}

// How far out (per unit down) the camera's ray at the middle of a side
// runs across it: the tangent of its angle from the vertical, outwards.
float grazing_tangent(const PlaneRectangle& rect, const TopPlane& plane, int side) {
  const cv::Point2f normal = rect.normal(side);
  const cv::Vec3f middle = plane.point(rect.centre + normal * rect.half[side % 2]);
  const cv::Vec3f outward = normal.x * plane.e1 + normal.y * plane.e2;
  // The floor's normal points up, towards the camera.
  const float down = -middle.dot(plane.n);
  return down > 0.0f ? middle.dot(outward) / down : 0.0f;
}

// The drop below the rim of a rounding of `radius` where a ray of this
// slant (tangent of its angle from the vertical, outwards) meets the rim's
// plane `at` inside the silhouette of a hiding edge: the ray grazes the
// rounding at its silhouette and meets it lower the further in it runs.
// Across the edge, x outwards from the side and z up from the rim: the
// rounding is the circle about (-r, -r), and the ray through (a, 0) runs
// along (sin, -cos).
float hidden_drop(float radius, float slant_tan, float at) {
  if (radius <= 0.0f) return 0.0f;
  const float c = 1.0f / std::sqrt(1.0f + slant_tan * slant_tan);
  const float s = slant_tan * c;
  const float silhouette = radius * (c / (1.0f + s) - 1.0f);
  const float u = silhouette - at + radius;  // from the circle's centre, across
  if (u <= 0.0f) return 0.0f;
  const float b = u * s - radius * c;
  const float disc = b * b - u * u;
  if (disc < 0.0f) return 0.0f;
  return (-b - std::sqrt(disc)) * c;
}

// Above a side in view, the drop where a ray of this slant (inwards) meets
// the rim's plane `at` inside the side: it met the rounding further in, at
// d with d - slant drop(d) = at. With e = r - d across from the circle's
// centre that is slant sqrt(r^2 - e^2) = a + e, a = at - r + slant r: a
// quadratic in e whose larger root is the one on the rounding.
float in_view_drop(float radius, float slant_tan, float at) {
  if (at >= radius) return 0.0f;
  at = std::max(0.0f, at);
  const float a = at - radius + slant_tan * radius;
  const float ss = 1.0f + slant_tan * slant_tan;
  const float disc = std::max(0.0f, ss * radius * radius - a * a);
  const float e = std::clamp((slant_tan * std::sqrt(disc) - a) / ss, 0.0f, radius);
  return radius - std::sqrt(std::max(0.0f, radius * radius - e * e));
}

// The radius of a rim's rounding, and the largest the pixels allow.
struct RimRadius {
  float radius = 0.0f;
  float upper = 0.0f;
};

// How the pixels near one side drop below the rim, across it: where their
// rays meet the rim's plane inside the edge (mm), in bins a fraction of a
// pixel wide, each bin's median drop (flying pixels and specks of the lid
// leave medians alone) and how many pixels it holds.
struct RimProfile {
  static constexpr int kMaxBins = 48;
  int bins = 0;
  int pixels = 0;
  float inside[kMaxBins];
  float drop[kMaxBins];
  float count[kMaxBins];
  // One pixel's spread about its bin's median (mm).
  float noise = 1.0f;
};

// The profile of (inside, drop) pairs with inside from `near` on, in bins of
// `width`; `values` is scratch. Bins without pixels are left out.
void build_rim_profile(const float* pairs, std::size_t points, float near, float width,
                       std::vector<float>& values, RimProfile& profile) {
  int first[RimProfile::kMaxBins + 1] = {};
  double inside_sum[RimProfile::kMaxBins] = {};
  const auto bin_of = [&](float inside) {
    return std::clamp(static_cast<int>((inside - near) / width), 0, RimProfile::kMaxBins - 1);
  };
  for (std::size_t i = 0; i < points; ++i) {
    const int b = bin_of(pairs[2 * i]);
    ++first[b + 1];
    inside_sum[b] += pairs[2 * i];
  }
  for (int b = 0; b < RimProfile::kMaxBins; ++b) first[b + 1] += first[b];
  values.resize(2 * points);
  int next[RimProfile::kMaxBins];
  std::copy(first, first + RimProfile::kMaxBins, next);
  for (std::size_t i = 0; i < points; ++i) values[next[bin_of(pairs[2 * i])]++] = pairs[2 * i + 1];
  profile.bins = 0;
  profile.pixels = static_cast<int>(points);
  for (int b = 0; b < RimProfile::kMaxBins; ++b) {
    const int n = first[b + 1] - first[b];
    if (n == 0) continue;
    float* begin = values.data() + first[b];
    std::nth_element(begin, begin + n / 2, begin + n);
    const int k = profile.bins++;
    profile.inside[k] = static_cast<float>(inside_sum[b] / n);
    profile.drop[k] = begin[n / 2];
    profile.count[k] = static_cast<float>(n);
  }
  // The pixels' spread about their bins' medians, pooled: the median of
  // their absolute deviations.
  float* deviations = values.data() + points;
  for (int b = 0, k = 0; b < RimProfile::kMaxBins; ++b) {
    if (first[b + 1] == first[b]) continue;
    for (int i = first[b]; i < first[b + 1]; ++i) {
      deviations[i] = std::abs(values[i] - profile.drop[k]);
    }
    ++k;
  }
  std::nth_element(deviations, deviations + points / 2, deviations + points);
  profile.noise = std::max(0.1f, 1.4826f * deviations[points / 2]);
}

// How well a rounding of each radius (0, 0.5, 1 ... mm) explains the bins of
// a profile from `from` mm inside on: chi-square of the medians about the
// rounding's drop, each radius with an offset and a slope of its own (the
// lid near the edge may stand off the rim's height or slope: a bump, a
// bulge, a flap). Returns how many radii were tried; nothing when fewer
// than four bins take part.
int rim_chi_squares(const RimProfile& profile, float from, bool in_view, float slant,
                    float footprint, const OutlineOptions& options, double* chi, int max_radii,
                    int& bins_used) {
  // A median's variance is pi / 2 times the mean's.
  const double per_pixel = 1.0 / (1.5708 * double(profile.noise) * profile.noise);
  double sw = 0.0, sx = 0.0, sxx = 0.0;
  bins_used = 0;
  for (int k = 0; k < profile.bins; ++k) {
    if (profile.inside[k] < from) continue;
    const double w = profile.count[k] * per_pixel;
    sw += w;
    sx += w * profile.inside[k];
    sxx += w * profile.inside[k] * profile.inside[k];
    ++bins_used;
  }
  if (bins_used < 4) return 0;
  const double spread = sw * sxx - sx * sx;
  int tried = 0;
  for (float radius = 0.0f; radius <= options.max_rim_radius_mm && tried < max_radii;
       radius += 0.5f) {
    double sm = 0.0, sxm = 0.0, smm = 0.0;
    for (int k = 0; k < profile.bins; ++k) {
      const float inside = profile.inside[k];
      if (inside < from) continue;
      const double w = profile.count[k] * per_pixel;
      // A pixel reads the mean of what its footprint covers, a pixel wide.
      float drop = 0.0f;
      for (const float at : {-0.375f, -0.125f, 0.125f, 0.375f}) {
        const float x = inside + at * footprint;
        drop += 0.25f * (in_view ? in_view_drop(radius, slant, x) : hidden_drop(radius, slant, x));
      }
      const double m = profile.drop[k] - drop;
      sm += w * m;
      sxm += w * inside * m;
      smm += w * m * m;
    }
    // The weighted residual sum of squares after the best offset and slope.
    double rss = smm - sm * sm / sw;
    if (spread > 1e-12) {
      const double cov = sxm - sx * sm / sw;
      rss -= cov * cov / (sxx - sx * sx / sw);
    }
    chi[tried++] = std::max(0.0, rss);
  }
  return tried;
}

// The radius of the rim's rounding that one side's profile supports, from
// the bins past what the camera blurs (`from`), and the largest rounding
// all its bins allow (a blur only lowers the pixels near the edge, so it
// can only widen what they allow). A rounding must fit better by several
// times what the Bayesian information criterion asks (neighbouring pixels'
// noise is not independent: the depths' steps, the camera's smoothing);
// where the bins stray from every rounding more than their noise explains,
// chance is judged on that stray.
std::optional<RimRadius> side_rim_radius(const RimProfile& profile, float from, bool in_view,
                                         float slant, float footprint,
                                         const OutlineOptions& options) {
  constexpr int kRadii = 64;
  double chi[kRadii];
  int bins = 0;
  const int tried =
      rim_chi_squares(profile, from, in_view, slant, footprint, options, chi, kRadii, bins);
  if (tried == 0) return std::nullopt;
  const double best_chi = *std::min_element(chi, chi + tried);
  const double stray = std::max(1.0, best_chi / std::max(1, bins - 3));
  const double penalty = options.rim_evidence * std::log(double(profile.pixels)) * stray;
  RimRadius result;
  double best_criterion = chi[0];
  for (int i = 1; i < tried; ++i) {
    if (chi[i] + penalty < best_criterion) {
      best_criterion = chi[i] + penalty;
      result.radius = 0.5f * i;
    }
  }
  // The largest radius within what chance allows of the best fit (a
  // likelihood ratio at 95 %), over every bin: the rounding these pixels
  // cannot rule out.
  // They are at least as many as those past the blur.
  double all[kRadii];
  int all_bins = 0;
  const int count =
      rim_chi_squares(profile, -1e9f, in_view, slant, footprint, options, all, kRadii, all_bins);
  const double all_best = *std::min_element(all, all + count);
  const double all_stray = std::max(1.0, all_best / std::max(1, all_bins - 3));
  result.upper = result.radius;
  for (int i = 0; i < count; ++i) {
    if (all[i] <= all_best + 3.84 * all_stray) result.upper = std::max(result.upper, 0.5f * i);
  }
  return result;
}

// The radius of the rim's rounding, from the top's pixels near its edges.
// Above a side in view placed by its own points, a ray that meets the
// rounding meets the rim's plane nearer the side; inside a hiding edge the
// rays graze the rounding at the edge found and meet it lower further in.
// Pixels that mix the top with what lies beyond or that the camera blurs
// are left out of the radius: within `in_view_blur` of a side in view,
// `hiding_blur` of a hiding edge; the largest rounding allowed is judged
// from `near` on. Each side with enough pixels gives its own radius (or
// abstains when it can neither find one nor rule one out). The sides in
// view that give one decide; else a carton is rounded all round, so the
// middle of the hiding edges' radii stands (a bump or a flap at one edge
// passes for a rounding there alone), none without two such edges. `upper`
// takes the largest rounding each side's pixels allow, abstaining or not
// (-1: too few of them).
float estimate_rim_radius(const std::vector<OutlineBuffers::RingPixel>& ring,
                          const PlaneRectangle& rect, const TopPlane& plane, const bool standing[4],
                          const bool in_view[4], const float middle[4], float rim, float near,
                          float bin_width, float footprint, float in_view_blur, float hiding_blur,
                          const OutlineOptions& options, std::vector<float>& values,
                          std::vector<float>& scratch, float upper[4]) {
  for (int side = 0; side < 4; ++side) upper[side] = -1.0f;
  float radii[4];
  int sides = 0;
  float standing_radii[4];
  int standing_sides = 0;
  RimProfile profile;
  for (int side = 0; side < 4; ++side) {
    const bool hiding = !in_view[side];
    if (!hiding && !standing[side]) continue;
    const float blur = hiding ? hiding_blur : in_view_blur;
    const float reach = options.max_rim_radius_mm + blur;
    const float floor = hiding ? middle[side] : rim - reach;
    const cv::Point2f normal = rect.normal(side);
    const float offset = rect.offset(side);
    values.clear();
    for (const OutlineBuffers::RingPixel& r : ring) {
      if (r.side != side || std::isnan(r.h) || r.h < floor) continue;
      const float inside = offset - r.q.dot(normal);
      if (inside < near || inside > reach) continue;
      values.push_back(inside);
      values.push_back(rim - r.h);
    }
    const std::size_t points = values.size() / 2;
    if (points < static_cast<std::size_t>(options.min_rim_points)) continue;
    const float width = std::max(bin_width, (reach - near) / RimProfile::kMaxBins);
    build_rim_profile(values.data(), points, near, width, scratch, profile);
    const float slant = std::abs(grazing_tangent(rect, plane, side));
    const std::optional<RimRadius> fit =
        side_rim_radius(profile, blur, !hiding, slant, footprint, options);
    if (!fit) continue;
    upper[side] = fit->upper;
    // A side that finds none but cannot rule one out says nothing.
    if (fit->radius == 0.0f && fit->upper > options.sharp_rim_mm) continue;
    (hiding ? radii[sides++] : standing_radii[standing_sides++]) = fit->radius;
  }
  // A side in view shows its rounding across several pixels, undisturbed
  // by what lies beyond: its word stands.
  if (standing_sides > 0) {
    std::copy(standing_radii, standing_radii + standing_sides, radii);
    sides = standing_sides;
  } else if (sides < 2) {
    return 0.0f;
  }
  for (int i = 1; i < sides; ++i) {
    for (int j = i; j > 0 && radii[j] < radii[j - 1]; --j) std::swap(radii[j], radii[j - 1]);
  }
  // The middle; of an even count, the lower of the two.
  return radii[(sides - 1) / 2];
}

}  // namespace

void OutlineOptions::check() const {
  check_option("outline.refinements", refinements, 1, 100);
  check_option("outline.band_mm", band_mm, 0.1f, 1000.0f);
  check_option("outline.band_pixels", band_pixels, 0.5f, 100.0f);
  check_option("outline.band_noise_factor", band_noise_factor, 0.0f, 100.0f);
  check_option("outline.on_mm", on_mm, 0.0f, 1000.0f);
  check_option("outline.on_noise_factor", on_noise_factor, 0.0f, 100.0f);
  check_option("outline.side_reach", side_reach, 0.1f, 1.0f);
  check_option("outline.stretch_pixels", stretch_pixels, 1.0f, 1000.0f);
  check_option("outline.steps_per_pixel", steps_per_pixel, 1, 1024);
  check_option("outline.min_side_points", min_side_points, 1, 1 << 20);
  check_option("outline.side_window_pixels", side_window_pixels, 0.1f, 100.0f);
  check_option("outline.min_standing_contrast", min_standing_contrast, 0.0f, 1000.0f);
  check_option("outline.beyond_pixels", beyond_pixels, 0.0f, 100.0f);
  check_option("outline.mixed_margin", mixed_margin, 0.0f, 0.5f);
  check_option("outline.min_mixed", min_mixed, 1, 1 << 20);
  check_option("outline.coverage_rise_mm", coverage_rise_mm, 0.0f, 10000.0f);
  check_option("outline.max_rim_radius_mm", max_rim_radius_mm, 0.0f, 100.0f);
  check_option("outline.min_rim_points", min_rim_points, 1, 1 << 20);
  check_option("outline.rim_blur_pixels", rim_blur_pixels, 0.0f, 100.0f);
  check_option("outline.rim_evidence", rim_evidence, 1.0f, 1000.0f);
  check_option("outline.rim_hiding_pixels", rim_hiding_pixels, 0.0f, 100.0f);
  check_option("outline.sharp_rim_mm", sharp_rim_mm, 0.0f, 100.0f);
  check_option("outline.max_unseen_rim_mm", max_unseen_rim_mm, 0.0f, 100.0f);
  check_option("outline.rim_near_pixels", rim_near_pixels, 0.0f, 100.0f);
  check_option("outline.rim_bin_pixels", rim_bin_pixels, 0.05f, 100.0f);
  check_option("outline.higher_share", higher_share, 0.0, 1.0);
  check_option("outline.missing_share", missing_share, 0.0, 1.0);
  check_option("outline.missing_from_pixels", missing_from_pixels, 0.0f, 100.0f);
  check_option("outline.missing_to_pixels", missing_to_pixels, missing_from_pixels, 100.0f);
}

std::optional<EdgeEstimate> EdgeCounts::edge() const {
  int on_total = 0;
  int off_total = 0;
  for (int k = 0; k < steps_; ++k) {
    off_total += counts_[2 * k];
    on_total += counts_[2 * k + 1];
  }
  if (on_total < 2 || off_total < 1) return std::nullopt;
  // Threshold before step k: on samples from k on and off ones before k err.
  int cost = on_total;
  int best = cost;
  double sum = 0.0;
  int count = 1;
  double first = 0.0;
  double last = 0.0;
  for (int k = 0; k < steps_; ++k) {
    cost += counts_[2 * k] - counts_[2 * k + 1];
    const double position = k + 1.0;
    if (cost < best) {
      best = cost;
      sum = position;
      count = 1;
      first = last = position;
    } else if (cost == best) {
      sum += position;
      ++count;
      last = position;
    }
  }
  EdgeEstimate estimate;
  estimate.position = static_cast<float>(low_ + step_ * (sum / count));
  estimate.gap = static_cast<float>(step_ * (last - first));
  estimate.errors = best;
  estimate.samples = on_total + off_total;
  return estimate;
}

bool grown_corners(const TopOutline& outline, const TopPlane& plane, float grow,
                   const CameraIntrinsics& k, std::array<cv::Point2f, 4>& corners) {
  PlaneRectangle grown = outline.rectangle;
  grown.half[0] = std::max(0.0f, grown.half[0] + grow);
  grown.half[1] = std::max(0.0f, grown.half[1] + grow);
  for (int i = 0; i < 4; ++i) {
    const cv::Vec3f p = plane.point(grown.corner(i));
    if (!(p[2] > 1.0f)) return false;
    corners[i] = point_to_pixel(cv::Point3f(p[0], p[1], p[2]), k);
  }
  return true;
}

TopPlane plane_at(const FloorPlane& floor, float height) {
  TopPlane b;
  b.n = floor.normal;
  cv::Vec3f x(1.0f, 0.0f, 0.0f);
  b.e1 = cv::normalize(x - x.dot(b.n) * b.n);
  b.e2 = b.n.cross(b.e1);
  b.lift = height - floor.offset;
  return b;
}

std::optional<TopOutline> fit_outline(const FrameView& frame, const TopFace& face, float depth,
                                      const OutlineOptions& options, OutlineBuffers& buffers,
                                      const char*& reason) {
  const cv::Mat1f& heights = frame.heights;
  const int width = heights.cols;
  const CameraIntrinsics& k = frame.intrinsics;
  const float pixel_mm = depth / k.fx;
  const float noise = face.noise_mm;
  const float on_tolerance = std::max(options.on_mm, options.on_noise_factor * noise);
  const float least_band = std::max(options.band_mm, options.band_pixels * pixel_mm);
  const float band_mm = least_band + options.band_noise_factor * noise;

  // The region around the top, the top's pixels in it, holes closed.
  const int margin = static_cast<int>(std::ceil(band_mm / pixel_mm)) + 3;
  const cv::Rect roi =
      (face.bounds + cv::Size(2 * margin, 2 * margin) - cv::Point(margin, margin)) &
      cv::Rect(0, 0, width, heights.rows);
  cv::Mat1b face_mask = view_of_size(buffers.face, roi.size());
  cv::compare(frame.faces(roi), face.id, face_mask, cv::CMP_EQ);
  close_square(face_mask, face_mask, 1, buffers.morphology);

  // The rim: a ring a few pixels inside the outline, whose height the edges
  // are found at (a lid's bulge or sag leaves it alone).
  cv::Mat1b rim_mask = view_of_size(buffers.rim, roi.size());
  cv::Mat1b inner5 = view_of_size(buffers.inner, roi.size());
  erode_square(face_mask, rim_mask, 2, buffers.morphology);
  erode_square(rim_mask, inner5, 3, buffers.morphology);
  cv::subtract(rim_mask, inner5, rim_mask);
  std::vector<float>& values = buffers.values;
  values.clear();
  for_each_set_pixel(rim_mask, [&](int u, int v) {
    const float h = heights(v + roi.y, u + roi.x);
    if (!std::isnan(h)) values.push_back(h);
  });
  if (values.size() < 10) {
    for (std::size_t n = 0; n < face.pixel_count; ++n) {
      const int i = face.pixels[n];
      values.push_back(heights(i / width, i % width));
    }
  }
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  TopOutline outline;
  const float rim = values[values.size() / 2];
  outline.rim_mm = rim;
  outline.pixel_mm = pixel_mm;
  outline.plane = plane_at(frame.floor, rim);
  const TopPlane& basis = outline.plane;

  const auto on_plane = [&](float u, float v, cv::Point2f& q) {
    return outline.on_plane(u, v, frame, q);
  };

  // A first rectangle around the top's outline. Its hull is all that counts,
  // and every corner of the hull is a row's first or last pixel on the top;
  // the view onto the plane keeps straight lines straight.
  buffers.outline.clear();
  for (int v = 0; v < face_mask.rows; ++v) {
    const std::uint8_t* row = face_mask[v];
    int first = 0;
    while (first < face_mask.cols && !row[first]) ++first;
    if (first == face_mask.cols) continue;
    int last = face_mask.cols - 1;
    while (!row[last]) --last;
    for (const int u : {first, last}) {
      cv::Point2f q;
      if (on_plane(float(u + roi.x), float(v + roi.y), q)) buffers.outline.push_back(q);
    }
  }
  const std::optional<AreaRectangle> first =
      buffers.outline.size() < 6  // three rows
          ? std::nullopt
          : min_area_rectangle(buffers.outline, buffers.sorted, buffers.hull);
  if (!first) {
    reason = "too few pixels on the top";
    return std::nullopt;
  }
  PlaneRectangle rect;
  rect.centre = first->centre;
  rect.angle = first->angle;
  rect.half[0] = first->half[0];
  rect.half[1] = first->half[1];

  // The pixels that can matter for the edges: a ring around the first
  // rectangle's outline in the image, wider than the band the edges are
  // sought in, for the rectangle still moves a little.
  // The rectangle grown and shrunk on its plane, filled in the image: the
  // one minus the other.
  const float ring_mm = band_mm + 3.0f * pixel_mm;
  // Corners behind the camera or beyond any image (a wild fit on a hostile
  // frame) leave nothing to fill.
  const float reach = 4.0f * static_cast<float>(std::max(width, heights.rows));
  const auto outline_in_image = [&](float grow) -> std::optional<std::array<cv::Point2f, 4>> {
    PlaneRectangle grown = rect;
    grown.half[0] = std::max(0.0f, rect.half[0] + grow);
    grown.half[1] = std::max(0.0f, rect.half[1] + grow);
    std::array<cv::Point2f, 4> polygon;
    for (int i = 0; i < 4; ++i) {
      const cv::Vec3f p = basis.point(grown.corner(i));
      if (!(p[2] > 1.0f)) return std::nullopt;
      const cv::Point2f px = point_to_pixel(cv::Point3f(p[0], p[1], p[2]), k);
      if (!(std::abs(px.x) < reach && std::abs(px.y) < reach)) return std::nullopt;
      polygon[i] = px - cv::Point2f(static_cast<float>(roi.x), static_cast<float>(roi.y));
    }
    return polygon;
  };
  const auto outer = outline_in_image(ring_mm);
  const auto inner = outline_in_image(-ring_mm);
  if (!outer || !inner) {
    reason = "the top's outline does not lie in front of the camera";
    return std::nullopt;
  }
  auto& ring = buffers.ring;
  ring.clear();
  const auto same_region = [&](int v, int u) {
    if (!frame.above(v, u)) return false;
    const int label = frame.regions(v, u);
    return label == face.region || label == -2 - face.region;
  };
  for_each_ring_pixel(*outer, *inner, roi.size(), [&](int u, int v) {
    OutlineBuffers::RingPixel r;
    r.u = u + roi.x;
    r.v = v + roi.y;
    if (!on_plane(float(u + roi.x), float(v + roi.y), r.q)) return;
    r.h = heights(v + roi.y, u + roi.x);
    r.in_face = face_mask(v, u);
    // A point of a side, straight below the edge when the side is in view:
    // upright sides put it on the floor's plane where the edge is.
    // Below the rim's rounding: its points stand inside the side.
    r.below_valid = !std::isnan(r.h) &&
                    r.h < rim - std::max(1.2f * on_tolerance, options.max_rim_radius_mm) &&
                    r.h > 0.1f * rim && same_region(v + roi.y, u + roi.x);
    if (r.below_valid) r.below = basis.in_plane(pixel_point(frame.depth, k, v + roi.y, u + roi.x));
    ring.push_back(r);
  });

  float edge_rms = 0.0f;
  bool hidden = false;
  // The middle between the rim and what lies beyond each side.
  float middle[4];
  bool in_view[4];
  // Whether a side in view was placed by its points (in the last round).
  bool standing_side[4] = {false, false, false, false};
  // The pixels between the top and what lies beyond the hiding edges, and
  // those edges' length in pixels: how many pixels wide the camera blurs
  // an edge.
  float mixed_pixels = 0.0f;
  float hiding_length = 0.0f;
  for (int pass = 0; pass < options.refinements; ++pass) {
    const bool last = pass + 1 == options.refinements;
    // The first rectangle may be off by a few pixels; later ones are close,
    // and a narrow band is all the step needs.
    const float step_band = pass == 0 ? band_mm : least_band;
    const float resolution = pixel_mm / static_cast<float>(options.steps_per_pixel);
    const int steps = static_cast<int>(std::ceil(2.0f * step_band / resolution));
    int bins[4];
    float side_reach[4];
    for (int side = 0; side < 4; ++side) {
      OutlineBuffers::Side& b = buffers.sides[side];
      b.below.clear();
      b.beyond.clear();
      b.near = 0;
      b.higher_near = 0;
      b.past = 0;
      b.missing_past = 0;
      side_reach[side] = options.side_reach * rect.half_length(side);
      bins[side] = std::clamp(
          static_cast<int>(2.0f * side_reach[side] / (options.stretch_pixels * pixel_mm)), 3,
          OutlineBuffers::kMaxBins);
      b.across.reset(-step_band, resolution, steps);
      b.across_valid.reset(-step_band, resolution, steps);
      for (int bin = 0; bin < bins[side]; ++bin) b.along[bin].reset(-step_band, resolution, steps);
      // The side's face is in view when the camera stands outside its plane.
      const cv::Point2f normal = rect.normal(side);
      const cv::Vec3f normal_3d = normal.x * basis.e1 + normal.y * basis.e2;
      in_view[side] = basis.point(rect.centre + normal * rect.half[side % 2]).dot(normal_3d) < 0.0f;
    }
    // Each ring pixel in the rectangle's frame, handed to the side whose band
    // it lies in (the bands stop short of the corners).
    const cv::Point2f axis = rect.axis();
    const cv::Point2f across = rect.across();
    const float beyond_from = options.beyond_pixels * pixel_mm;
    for (OutlineBuffers::RingPixel& r : ring) {
      const cv::Point2f d = r.q - rect.centre;
      const float x = d.dot(axis);
      const float y = d.dot(across);
      // Side k: s outward from its line, t along it.
      const float sx = std::abs(x) - rect.half[0];
      const float sy = std::abs(y) - rect.half[1];
      r.side = -1;
      if (std::abs(sx) <= band_mm && std::abs(y) <= options.side_reach * rect.half[1]) {
        r.side = x > 0 ? 0 : 2;
        r.s = sx;
        r.t = x > 0 ? y : -y;
      } else if (std::abs(sy) <= band_mm && std::abs(x) <= options.side_reach * rect.half[0]) {
        r.side = y > 0 ? 1 : 3;
        r.s = sy;
        r.t = y > 0 ? -x : x;
      }
      if (r.side < 0 || std::isnan(r.h)) continue;
      if (r.s >= beyond_from && r.s <= band_mm && r.h < rim - on_tolerance) {
        buffers.sides[r.side].beyond.push_back(r.h);
      }
    }
    // The threshold across a hiding edge: where a pixel half on the top
    // reads. The pixels the edge crosses read mixes of the top and what lies
    // beyond, weighted by the light each returns; crossed at every phase,
    // the median of their readings is the reading of a pixel half on the top.
    // Without enough of them (the camera blanked them), the middle.
    mixed_pixels = 0.0f;
    hiding_length = 0.0f;
    float mixed_above[4];
    float mixed_below[4];
    float beyond_level[4];
    for (int side = 0; side < 4; ++side) {
      OutlineBuffers::Side& b = buffers.sides[side];
      float& level = beyond_level[side];
      level = 0.0f;
      if (!b.beyond.empty()) {
        std::nth_element(b.beyond.begin(), b.beyond.begin() + b.beyond.size() / 2, b.beyond.end());
        level = b.beyond[b.beyond.size() / 2];
      }
      middle[side] = 0.5f * (rim + level);
      const float clear = std::max(on_tolerance, options.mixed_margin * (rim - level));
      mixed_above[side] = level + clear;
      mixed_below[side] = rim - clear;
      b.mixed.clear();
    }
    for (const OutlineBuffers::RingPixel& r : ring) {
      if (r.side >= 0 && std::abs(r.s) <= step_band && r.h > mixed_above[r.side] &&
          r.h < mixed_below[r.side]) {
        buffers.sides[r.side].mixed.push_back(r.h);
      }
    }
    for (int side = 0; side < 4; ++side) {
      OutlineBuffers::Side& b = buffers.sides[side];
      if (static_cast<int>(b.mixed.size()) >= std::max(options.min_mixed, bins[side])) {
        std::nth_element(b.mixed.begin(), b.mixed.begin() + b.mixed.size() / 2, b.mixed.end());
        middle[side] = b.mixed[b.mixed.size() / 2];
      }
      if (!in_view[side]) {
        mixed_pixels += static_cast<float>(b.mixed.size());
        hiding_length += 2.0f * side_reach[side] / pixel_mm;
      }
    }
    const float missing_from = options.missing_from_pixels * pixel_mm;
    const float missing_to = options.missing_to_pixels * pixel_mm;
    for (const OutlineBuffers::RingPixel& r : ring) {
      if (r.side < 0) continue;
      OutlineBuffers::Side& b = buffers.sides[r.side];
      const float s = r.s;
      const bool higher = !std::isnan(r.h) && r.h > rim + on_tolerance;
      if (s > 0.0f && s < 2.0f * pixel_mm) {
        ++b.near;
        if (higher) ++b.higher_near;
      }
      // Beyond a side in view lies that side, which the camera's filter may
      // blank as a whole: no depth there is off the top, not hidden.
      const bool in_view_side = in_view[r.side];
      if (s >= missing_from && s <= missing_to && !in_view_side) {
        ++b.past;
        if (std::isnan(r.h)) ++b.missing_past;
      }
      // Something higher hides the edge, as missing depth does.
      const bool missing = std::isnan(r.h);
      if (higher || (missing && !in_view_side)) continue;
      if (r.below_valid) b.below.push_back(r.below);
      if (std::abs(s) > step_band) continue;
      const bool on = in_view_side ? r.in_face : r.h >= middle[r.side];
      b.across.add(s, on);
      if (in_view_side && !missing) b.across_valid.add(s, on);
      const int bin = std::clamp(
          static_cast<int>((r.t + side_reach[r.side]) / (2.0f * side_reach[r.side]) * bins[r.side]),
          0, bins[r.side] - 1);
      b.along[bin].add(s, on);
    }

    float shift[4] = {0, 0, 0, 0};
    for (bool& placed : standing_side) placed = false;
    double rotation_sum = 0.0;
    int rotation_weight = 0;
    double squared_residuals = 0.0;
    int residual_count = 0;
    hidden = false;
    for (int side = 0; side < 4; ++side) {
      OutlineBuffers::Side& b = buffers.sides[side];
      const cv::Point2f normal = rect.normal(side);
      const cv::Point2f tangent = rect.tangent(side);
      const float offset = rect.offset(side);
      hidden = hidden || (b.near > 0 && b.higher_near > options.higher_share * b.near) ||
               (b.past > 0 && b.missing_past > options.missing_share * b.past);

      // The edge across the side from all its samples, and bin by bin along
      // it for the edge's course.
      std::optional<EdgeEstimate> step = b.across.edge();
      // Beyond the top's edge on a side in view the camera's filter blanks
      // the top's last pixels and the side's face together: the edge lies
      // within that band, when what lies past it shows.
      bool within_band = false;
      if (in_view[side]) {
        if (const std::optional<EdgeEstimate> valid = b.across_valid.edge()) {
          step = valid;
          within_band = true;
        }
      }
      float edge = step ? step->position : 0.0f;
      SideEdge& found = outline.sides[side];
      found = SideEdge{};
      found.found = step.has_value();
      if (step) {
        found.gap_mm = step->gap;
        found.samples = step->samples;
        found.errors = step->errors;
      }
      auto& course = buffers.course;  // (t, edge s)
      course.clear();
      for (int bin = 0; bin < bins[side]; ++bin) {
        if (const auto at = b.along[bin].edge()) {
          course.emplace_back(
              -side_reach[side] + (bin + 0.5f) * 2.0f * side_reach[side] / bins[side],
              at->position);
        }
      }
      std::optional<Line> course_line;
      if (course.size() >= 3) course_line = fit_line(course);
      // Where a side is in view, the edge is above its points: pixels just
      // off the top's edge on that side see the side, close in height, and
      // would pull the step outwards.
      if (step && in_view[side]) {
        std::vector<float>& upright = buffers.values;
        upright.clear();
        const std::size_t every = b.below.size() / kMaxMedianSamples + 1;
        for (std::size_t n = 0; n < b.below.size(); n += every) {
          const cv::Point2f& below = b.below[n];
          if (std::abs(below.dot(tangent) - rect.centre.dot(tangent)) <= side_reach[side]) {
            upright.push_back(below.dot(normal) - offset);
          }
        }
        std::size_t standing = 0;
        const float window = options.side_window_pixels * pixel_mm;
        const float side_edge = upright.empty() ? 0.0f : densest_middle(upright, window, standing);
        // densest_middle sorted the points: the rest spread over the span.
        const float span = upright.empty() ? 0.0f : upright.back() - upright.front();
        const float rest_density =
            static_cast<float>(upright.size() - standing) / std::max(window, span - window);
        if (standing >= static_cast<std::size_t>(options.min_side_points) &&
            standing / window >= options.min_standing_contrast * rest_density) {
          edge = side_edge;
          standing_side[side] = true;
        } else if (within_band) {
          // Too little of the side's face to stand on: the camera blanked it
          // with the edge's own pixels, and the gap reaches over it, as far
          // as the ray sees the face, (rim - level) times its slant.
          const float face = std::min(
              step->gap, (rim - beyond_level[side]) * std::abs(grazing_tangent(rect, basis, side)));
          edge -= 0.5f * face;
          found.gap_mm = step->gap - face;
        }
      }
      shift[side] = edge;
      if (course_line) {
        rotation_sum += -std::atan(course_line->b) * course.size();
        rotation_weight += static_cast<int>(course.size());
        double side_squares = 0.0;
        for (const cv::Point2f& c : course) {
          const double r = c.y - course_line->a - course_line->b * c.x;
          side_squares += r * r;
          ++residual_count;
        }
        squared_residuals += side_squares;
        found.course_rms_mm = static_cast<float>(std::sqrt(side_squares / course.size()));
        found.stretches = static_cast<int>(course.size());
      }
    }
    // Opposite sides move the centre by half their difference, the size by
    // half their sum.
    rect.centre +=
        0.5f * (shift[0] - shift[2]) * rect.axis() + 0.5f * (shift[1] - shift[3]) * rect.across();
    rect.half[0] += 0.5f * (shift[0] + shift[2]);
    rect.half[1] += 0.5f * (shift[1] + shift[3]);
    // Every side's normal turns with the rectangle, so all of them measure
    // the same turn.
    if (!last && rotation_weight > 0)
      rect.angle += static_cast<float>(rotation_sum / rotation_weight);
    // From now on the rectangle moves by little: only the ring pixels near
    // its outline can still matter.
    if (pass == 0) {
      const float keep = least_band + 2.0f * pixel_mm;
      const cv::Point2f a = rect.axis();
      const cv::Point2f c = rect.across();
      ring.erase(std::remove_if(ring.begin(), ring.end(),
                                [&](const OutlineBuffers::RingPixel& r) {
                                  if (r.below_valid) return false;
                                  const cv::Point2f d = r.q - rect.centre;
                                  const float sx = std::abs(std::abs(d.dot(a)) - rect.half[0]);
                                  const float sy = std::abs(std::abs(d.dot(c)) - rect.half[1]);
                                  return std::min(sx, sy) > keep;
                                }),
                 ring.end());
    }
    edge_rms = residual_count > 0
                   ? static_cast<float>(std::sqrt(squared_residuals / residual_count))
                   : 0.0f;
  }

  // A hiding edge is where the camera's ray grazes the rim, which a
  // carton's rounded rim lowers: the ray found there meets the rim's plane
  // inside the side. Each such side goes out by what its rounding hides,
  // the rounding read off a side in view (or a typical one without).
  outline.edge_blur_px = hiding_length > 0.0f ? mixed_pixels / hiding_length : 0.0f;
  // The pixels between the top and the floor are about the blur's middle
  // part: it reaches about twice as far.
  const float blur_reach = 2.0f * outline.edge_blur_px;
  // Past a side in view, a pixel's own footprint (half a pixel, which the
  // rim's fit models) and whatever the camera blurs beyond it mix the top
  // with the face.
  const float in_view_blur =
      std::max(options.rim_blur_pixels, 0.5f + std::max(0.0f, blur_reach - 1.0f)) * pixel_mm;
  const float hiding_blur = std::max(options.rim_hiding_pixels, blur_reach) * pixel_mm;
  float rim_upper[4];
  outline.rim_radius_mm = estimate_rim_radius(
      ring, rect, basis, standing_side, in_view, middle, rim, options.rim_near_pixels * pixel_mm,
      options.rim_bin_pixels * pixel_mm, pixel_mm, in_view_blur, hiding_blur, options,
      buffers.values, buffers.rim_scratch, rim_upper);
  // Without a rounding read, the rim may be rounded by as much as any of
  // its sides' pixels allow (a carton is rounded alike all round), up to
  // what cartons are: a hiding edge goes out by what half of that hides,
  // and may lie as much further out or in.
  outline.unseen_rim_mm = 0.0f;
  if (outline.rim_radius_mm == 0.0f) {
    outline.unseen_rim_mm = options.max_unseen_rim_mm;
    for (const float upper : rim_upper) {
      if (upper >= 0.0f) outline.unseen_rim_mm = std::min(outline.unseen_rim_mm, upper);
    }
  }
  {
    float shift[4] = {0, 0, 0, 0};
    for (int side = 0; side < 4; ++side) {
      SideEdge& placed = outline.sides[side];
      placed.in_view = in_view[side];
      placed.standing = standing_side[side];
      placed.rim_upper_mm = rim_upper[side];
      const float grazing = grazing_tangent(rect, basis, side);
      placed.grazing = grazing;
      if (in_view[side]) continue;
      // What a rounding of 1 mm hides from the ray (mm).
      const float hides = 1.0f + grazing - std::sqrt(1.0f + grazing * grazing);
      placed.unseen_rim_spread_mm = 0.5f * outline.unseen_rim_mm * hides;
      shift[side] = outline.rim_radius_mm * hides + placed.unseen_rim_spread_mm;
      placed.rim_shift_mm = shift[side];
    }
    rect.centre +=
        0.5f * (shift[0] - shift[2]) * rect.axis() + 0.5f * (shift[1] - shift[3]) * rect.across();
    rect.half[0] += 0.5f * (shift[0] + shift[2]);
    rect.half[1] += 0.5f * (shift[1] + shift[3]);
  }

  // Corners, in the image too.
  for (int i = 0; i < 4; ++i) {
    const cv::Vec3f p = basis.point(rect.corner(i));
    outline.corners_mm[i] = cv::Point3f(p[0], p[1], p[2]);
    outline.corners_px[i] = point_to_pixel(outline.corners_mm[i], k);
    if (!(p[2] > 1.0f && std::abs(outline.corners_px[i].x) < reach &&
          std::abs(outline.corners_px[i].y) < reach)) {
      reason = "the top's outline does not lie in front of the camera";
      return std::nullopt;
    }
  }
  outline.rectangle = rect;
  outline.edge_rms = edge_rms;
  outline.hidden = hidden;
  outline.fill = coverage(frame, outline.corners_px, rim, options.coverage_rise_mm);
  return outline;
}

}  // namespace boxdim::precise
