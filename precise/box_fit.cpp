#include "precise/box_fit.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <utility>

namespace boxdim::precise {

namespace {

constexpr float kMinSideMm = 50.0f;
// Below this share of its rectangle covered, a top is not one rectangle.
constexpr float kMinFill = 0.88f;
// A top that slopes more than this against the floor does not lie on it.
constexpr float kMaxTopSlope = 0.05f;
constexpr int kRefinements = 3;
constexpr int kHeightGrid = 17;
constexpr std::size_t kMaxHeightSamples = 2500;
// A visible side needs this many points below the edge to place it.
constexpr std::size_t kMinSidePoints = 6;

// The top's plane: in-plane coordinates x = p . e1, y = p . e2.
struct Basis {
  cv::Vec3f e1, e2, n;
  float lift = 0.0f;  // n-coordinate of the plane: height - floor offset

  cv::Point2f in_plane(const cv::Vec3f& p) const { return {p.dot(e1), p.dot(e2)}; }
  cv::Vec3f point(const cv::Point2f& q) const { return q.x * e1 + q.y * e2 + lift * n; }
};

Basis basis_at(const FloorPlane& floor, float height) {
  Basis b;
  b.n = floor.normal;
  cv::Vec3f x(1.0f, 0.0f, 0.0f);
  b.e1 = cv::normalize(x - x.dot(b.n) * b.n);
  b.e2 = b.n.cross(b.e1);
  b.lift = height - floor.offset;
  return b;
}

// A rectangle on the plane: centre, the direction of its first axis, and half
// its extent along that axis and the one across.
struct Rectangle {
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

// The position between `on` and off samples (sorted by s) that misclassifies
// the fewest; the mean of the positions that tie.
std::optional<float> step_edge(const FitBuffers::Sample* begin, const FitBuffers::Sample* end) {
  const int n = static_cast<int>(end - begin);
  int on_total = 0;
  for (const auto* p = begin; p != end; ++p) on_total += p->on;
  if (on_total < 2 || n - on_total < 1) return std::nullopt;
  // Cost with the edge before sample 0: every on sample lies outside.
  int cost = on_total;
  int best = cost;
  double sum = 0.0;
  int count = 0;
  for (int i = 0; i < n; ++i) {
    cost += begin[i].on ? -1 : 1;
    if (i + 1 < n && begin[i + 1].s == begin[i].s) continue;
    const float position = i + 1 < n ? 0.5f * (begin[i].s + begin[i + 1].s) : begin[i].s;
    if (cost < best) {
      best = cost;
      sum = position;
      count = 1;
    } else if (cost == best && count > 0) {
      sum += position;
      ++count;
    }
  }
  if (count == 0) return std::nullopt;
  return static_cast<float>(sum / count);
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

// The highest point of the top above the floor: a constant, a plane or a
// biquadratic surface, whichever the samples (x, y in [-1, 1], height)
// support best, evaluated over the whole rectangle. A bulging lid rises
// above its rim; a sagging one leaves the rim highest.
struct TopSurface {
  float highest = 0.0f;
  float slope = 0.0f;  // of the plane through it, height per unit of x and y
  float rms = 0.0f;
};

TopSurface top_surface(const std::vector<cv::Point3f>& samples, float half_x, float half_y) {
  constexpr int kTerms = 9;
  const auto terms = [](float x, float y, double* t) {
    t[0] = 1.0;
    t[1] = x;
    t[2] = y;
    t[3] = double(x) * x;
    t[4] = double(x) * y;
    t[5] = double(y) * y;
    t[6] = double(x) * x * y;
    t[7] = double(x) * y * y;
    t[8] = double(x) * x * y * y;
  };
  cv::Matx<double, kTerms, kTerms> ata = cv::Matx<double, kTerms, kTerms>::zeros();
  cv::Matx<double, kTerms, 1> atb = cv::Matx<double, kTerms, 1>::zeros();
  double sum_h2 = 0.0;
  for (const cv::Point3f& s : samples) {
    double t[kTerms];
    terms(s.x, s.y, t);
    for (int i = 0; i < kTerms; ++i) {
      atb(i) += t[i] * s.z;
      for (int j = 0; j < kTerms; ++j) ata(i, j) += t[i] * t[j];
    }
    sum_h2 += double(s.z) * s.z;
  }
  const double n = static_cast<double>(samples.size());
  TopSurface best;
  double best_criterion = std::numeric_limits<double>::infinity();
  for (const int used : {1, 3, kTerms}) {
    cv::Mat a(used, used, CV_64F);
    cv::Mat b(used, 1, CV_64F);
    for (int i = 0; i < used; ++i) {
      b.at<double>(i) = atb(i);
      for (int j = 0; j < used; ++j) a.at<double>(i, j) = ata(i, j);
    }
    cv::Mat c;
    if (!cv::solve(a, b, c, cv::DECOMP_CHOLESKY)) continue;
    // Residual sum of squares from the normal equations: h.h - c.(A^T h).
    const double rss = std::max(1e-9, sum_h2 - c.dot(b));
    const double criterion = n * std::log(rss / n) + used * std::log(n);
    if (criterion >= best_criterion) continue;
    best_criterion = criterion;
    TopSurface surface;
    surface.rms = static_cast<float>(std::sqrt(rss / n));
    double coefficients[kTerms] = {};
    for (int i = 0; i < used; ++i) coefficients[i] = c.at<double>(i);
    surface.slope = static_cast<float>(std::hypot(coefficients[1] / std::max(1.0f, half_x),
                                                  coefficients[2] / std::max(1.0f, half_y)));
    double highest = -std::numeric_limits<double>::infinity();
    for (int gy = 0; gy < kHeightGrid; ++gy) {
      for (int gx = 0; gx < kHeightGrid; ++gx) {
        double t[kTerms];
        terms(-1.0f + 2.0f * gx / (kHeightGrid - 1), -1.0f + 2.0f * gy / (kHeightGrid - 1), t);
        double value = 0.0;
        for (int i = 0; i < kTerms; ++i) value += coefficients[i] * t[i];
        highest = std::max(highest, value);
      }
    }
    surface.highest = static_cast<float>(highest);
    best = surface;
  }
  return best;
}

}  // namespace

BoxFit fit_box(const FrameView& frame, const TopFace& face, FitBuffers& buffers) {
  BoxFit fit;
  const cv::Mat1f& heights = frame.heights;
  const int width = heights.cols;
  const CameraIntrinsics& k = frame.intrinsics;

  // Depth and footprint of a pixel at the top, and the noise of its heights.
  std::vector<float>& values = buffers.values;
  values.clear();
  for (const int i : face.pixels) values.push_back(frame.points(i / width, i % width)[2]);
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  const float depth = values[values.size() / 2];
  const float pixel_mm = depth / k.fx;
  const float noise = face.noise_mm;
  const float on_tolerance = std::max(3.0f, 2.5f * noise);
  const float band_mm = std::max(12.0f, 5.0f * pixel_mm) + 3.0f * noise;

  // The region around the top, the top's pixels in it, holes closed.
  const int margin = static_cast<int>(std::ceil(band_mm / pixel_mm)) + 3;
  const cv::Rect roi =
      (face.bounds + cv::Size(2 * margin, 2 * margin) - cv::Point(margin, margin)) &
      cv::Rect(0, 0, width, heights.rows);
  buffers.face.create(roi.size());
  buffers.face.setTo(0);
  for (const int i : face.pixels) buffers.face(i / width - roi.y, i % width - roi.x) = 255;
  cv::morphologyEx(buffers.face, buffers.face, cv::MORPH_CLOSE, cv::Mat());

  // The rim: a ring a few pixels inside the outline, whose height the edges
  // are found at (a lid's bulge or sag leaves it alone).
  cv::Mat1b inner2, inner5;
  cv::erode(buffers.face, inner2, cv::Mat(), cv::Point(-1, -1), 2);
  cv::erode(buffers.face, inner5, cv::Mat(), cv::Point(-1, -1), 5);
  values.clear();
  for (int v = 0; v < roi.height; ++v) {
    for (int u = 0; u < roi.width; ++u) {
      const float h = heights(v + roi.y, u + roi.x);
      if (inner2(v, u) && !inner5(v, u) && !std::isnan(h)) values.push_back(h);
    }
  }
  if (values.size() < 10) {
    for (const int i : face.pixels) values.push_back(heights(i / width, i % width));
  }
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  const float rim = values[values.size() / 2];
  const Basis basis = basis_at(frame.floor, rim);

  // Every pixel's ray on the rim's plane.
  buffers.plane.create(roi.size());
  buffers.plane_ok.create(roi.size());
  for (int v = 0; v < roi.height; ++v) {
    for (int u = 0; u < roi.width; ++u) {
      cv::Vec3f p;
      const bool ok = ray_at_height(float(u + roi.x), float(v + roi.y), k, frame.floor, rim, p);
      buffers.plane_ok(v, u) = ok;
      buffers.plane(v, u) = ok ? cv::Vec2f(p.dot(basis.e1), p.dot(basis.e2)) : cv::Vec2f();
    }
  }

  // A first rectangle around the top's pixels.
  buffers.outline.clear();
  for (int v = 0; v < roi.height; ++v) {
    for (int u = 0; u < roi.width; ++u) {
      if (buffers.face(v, u) && buffers.plane_ok(v, u)) {
        buffers.outline.emplace_back(buffers.plane(v, u)[0], buffers.plane(v, u)[1]);
      }
    }
  }
  if (buffers.outline.size() < 10) {
    fit.reason = "too few pixels on the top";
    return fit;
  }
  const cv::RotatedRect first = cv::minAreaRect(buffers.outline);
  Rectangle rect;
  rect.centre = first.center;
  rect.angle = first.angle * static_cast<float>(CV_PI / 180.0);
  rect.half[0] = 0.5f * first.size.width;
  rect.half[1] = 0.5f * first.size.height;

  const auto same_region = [&](int v, int u) {
    const int label = frame.regions(v, u);
    return label == face.region || label == -2 - face.region;
  };

  float edge_rms = 0.0f;
  int edge_bins = 0;
  double missing_share = 0.0;
  for (int pass = 0; pass < kRefinements; ++pass) {
    const bool last = pass + 1 == kRefinements;
    float shift[4] = {0, 0, 0, 0};
    double rotation_sum = 0.0;
    int rotation_weight = 0;
    double squared_residuals = 0.0;
    int residual_count = 0;
    missing_share = 0.0;
    for (int side = 0; side < 4; ++side) {
      const cv::Point2f normal = rect.normal(side);
      const cv::Point2f tangent = rect.tangent(side);
      const float offset = rect.offset(side);
      const float reach = 0.8f * rect.half_length(side);
      const float along_centre = rect.centre.dot(tangent);
      auto& samples = buffers.samples;
      samples.clear();
      int missing_near = 0, near = 0;
      // The side's face is in view when the camera stands outside its plane.
      const cv::Point2f middle = rect.centre + normal * rect.half[side % 2];
      const cv::Vec3f normal_3d = normal.x * basis.e1 + normal.y * basis.e2;
      const bool side_in_view = basis.point(middle).dot(normal_3d) < 0.0f;
      std::vector<float>& side_points = buffers.side;
      side_points.clear();
      for (int v = 0; v < roi.height; ++v) {
        for (int u = 0; u < roi.width; ++u) {
          if (!buffers.plane_ok(v, u)) continue;
          const cv::Point2f q(buffers.plane(v, u)[0], buffers.plane(v, u)[1]);
          const float s = q.dot(normal) - offset;
          const float t = q.dot(tangent) - along_centre;
          if (std::abs(s) > band_mm || std::abs(t) > reach) continue;
          const float h = heights(v + roi.y, u + roi.x);
          if (s > 0.0f && s < 2.0f * pixel_mm) {
            ++near;
            // Beyond the edge: no depth, or something standing higher.
            if (std::isnan(h) || h > rim + on_tolerance) ++missing_near;
          }
          if (std::isnan(h)) continue;
          const bool on = buffers.face(v, u) && h >= rim - on_tolerance;
          samples.push_back({s, t, h, on});
          // A point of the visible side, straight below the edge: the side
          // is upright, so the point's place on the floor's plane is the edge's.
          if (side_in_view && !on && h < rim - 1.2f * on_tolerance && h > 0.1f * rim &&
              same_region(v + roi.y, u + roi.x)) {
            const cv::Point2f below = basis.in_plane(frame.points(v + roi.y, u + roi.x));
            if (std::abs(below.dot(tangent) - along_centre) <= reach) {
              side_points.push_back(below.dot(normal) - offset);
            }
          }
        }
      }
      missing_share = std::max(missing_share, near > 0 ? double(missing_near) / near : 0.0);

      // The edge's course along the side, bin by bin, for its direction.
      const int bins = std::clamp(static_cast<int>(2.0f * reach / (6.0f * pixel_mm)), 3, 12);
      std::sort(samples.begin(), samples.end(), [&](const auto& a, const auto& b) {
        const int ba = std::min(bins - 1, static_cast<int>((a.t + reach) / (2.0f * reach) * bins));
        const int bb = std::min(bins - 1, static_cast<int>((b.t + reach) / (2.0f * reach) * bins));
        return ba != bb ? ba < bb : a.s < b.s;
      });
      std::vector<cv::Point2f> course;  // (t, edge s)
      std::size_t start = 0;
      while (start < samples.size()) {
        const int bin = std::min(
            bins - 1, static_cast<int>((samples[start].t + reach) / (2.0f * reach) * bins));
        std::size_t end = start;
        while (end < samples.size() &&
               std::min(bins - 1, static_cast<int>((samples[end].t + reach) / (2.0f * reach) *
                                                   bins)) == bin) {
          ++end;
        }
        if (const auto edge = step_edge(&samples[start], &samples[start] + (end - start))) {
          course.emplace_back(-reach + (bin + 0.5f) * 2.0f * reach / bins, *edge);
        }
        start = end;
      }
      std::sort(samples.begin(), samples.end(),
                [](const auto& a, const auto& b) { return a.s < b.s; });
      std::optional<float> edge = samples.empty()
                                      ? std::nullopt
                                      : step_edge(samples.data(), samples.data() + samples.size());
      // Where a side is in view, the edge is above its points: pixels just
      // off the top's edge on that side see the side, close in height, and
      // would pull the step outwards.
      if (edge && side_points.size() >= kMinSidePoints) {
        std::nth_element(side_points.begin(), side_points.begin() + side_points.size() / 2,
                         side_points.end());
        const float upright = side_points[side_points.size() / 2];
        if (std::abs(upright - *edge) < 3.0f * pixel_mm) edge = upright;
      }
      if (edge) shift[side] = *edge;
      if (course.size() >= 3) {
        if (const std::optional<Line> line = fit_line(course)) {
          rotation_sum += -std::atan(line->b) * course.size();
          rotation_weight += static_cast<int>(course.size());
          for (const cv::Point2f& c : course) {
            squared_residuals += std::pow(c.y - line->a - line->b * c.x, 2);
            ++residual_count;
          }
        }
      }
    }
    // Opposite sides move the centre by half their difference, the size by
    // half their sum.
    rect.centre +=
        0.5f * (shift[0] - shift[2]) * rect.axis() + 0.5f * (shift[1] - shift[3]) * rect.across();
    rect.half[0] += 0.5f * (shift[0] + shift[2]);
    rect.half[1] += 0.5f * (shift[1] + shift[3]);
    if (!last && rotation_weight > 0) {
      const float rotation = static_cast<float>(rotation_sum / rotation_weight);
      // A side's normal turns with the rectangle; sides 1 and 3 see it the
      // same way as 0 and 2 because their normals are turned too.
      rect.angle += rotation;
    }
    edge_rms = residual_count > 0
                   ? static_cast<float>(std::sqrt(squared_residuals / residual_count))
                   : 0.0f;
    edge_bins = residual_count;
  }

  // Corners and dimensions.
  for (int i = 0; i < 4; ++i) {
    const cv::Vec3f p = basis.point(rect.corner(i));
    fit.corners_mm[i] = cv::Point3f(p[0], p[1], p[2]);
    fit.corners_px[i] = point_to_pixel(fit.corners_mm[i], k);
  }
  fit.centre_px =
      0.25f * (fit.corners_px[0] + fit.corners_px[1] + fit.corners_px[2] + fit.corners_px[3]);
  fit.length_mm = 2.0f * std::max(rect.half[0], rect.half[1]);
  fit.width_mm = 2.0f * std::min(rect.half[0], rect.half[1]);

  // The highest point of the top, from the pixels well inside the outline.
  std::vector<cv::Point3f> top_samples;
  top_samples.reserve(std::min(face.pixels.size(), kMaxHeightSamples));
  const std::size_t stride = std::max<std::size_t>(1, face.pixels.size() / kMaxHeightSamples);
  for (std::size_t n = 0; n < face.pixels.size(); ++n) {
    const int i = face.pixels[n];
    const int v = i / width - roi.y;
    const int u = i % width - roi.x;
    if (!buffers.plane_ok(v, u)) continue;
    const cv::Point2f q = cv::Point2f(buffers.plane(v, u)[0], buffers.plane(v, u)[1]) - rect.centre;
    const float x = q.dot(rect.axis()) / std::max(1.0f, rect.half[0]);
    const float y = q.dot(rect.across()) / std::max(1.0f, rect.half[1]);
    if (std::abs(x) > 1.0f || std::abs(y) > 1.0f) continue;
    const float margin_x = 2.0f * pixel_mm / std::max(1.0f, rect.half[0]);
    const float margin_y = 2.0f * pixel_mm / std::max(1.0f, rect.half[1]);
    if (n % stride != 0 || std::abs(x) > 1.0f - margin_x || std::abs(y) > 1.0f - margin_y) continue;
    const float h = heights(i / width, i % width);
    if (!std::isnan(h)) top_samples.emplace_back(x, y, h);
  }
  if (top_samples.size() < 10) {
    fit.reason = "too few pixels inside the top";
    return fit;
  }
  const TopSurface surface = top_surface(top_samples, rect.half[0], rect.half[1]);
  fit.height_mm = surface.highest;

  // How well it all fits, and whether it can be trusted.
  // The share of the rectangle's pixels in the image that the top covers
  // (its holes from dropouts closed).
  int covered = 0;
  for (int v = 0; v < roi.height; ++v) {
    for (int u = 0; u < roi.width; ++u) {
      if (!buffers.face(v, u) || !buffers.plane_ok(v, u)) continue;
      const cv::Point2f q = cv::Point2f(buffers.plane(v, u)[0], buffers.plane(v, u)[1]) - rect.centre;
      if (std::abs(q.dot(rect.axis())) <= rect.half[0] && std::abs(q.dot(rect.across())) <= rect.half[1]) {
        ++covered;
      }
    }
  }
  const std::vector<cv::Point2f> outline(fit.corners_px.begin(), fit.corners_px.end());
  const double rectangle_pixels = cv::contourArea(outline);
  const float fill = static_cast<float>(std::min(1.0, covered / std::max(1.0, rectangle_pixels)));
  fit.confidence = fill * std::exp(-0.5f * std::pow(edge_rms / (1.5f * pixel_mm), 2.0f));
  const bool at_border = face.bounds.x <= 0 || face.bounds.y <= 0 || face.bounds.br().x >= width ||
                         face.bounds.br().y >= heights.rows;
  if (at_border) {
    fit.status = BoxStatus::kPartial;
    fit.reason = "cut by the frame's border";
  } else if (missing_share > 0.4) {
    fit.status = BoxStatus::kPartial;
    fit.reason = "cut by missing data or by something in front";
  } else if (fill < kMinFill || surface.slope > kMaxTopSlope ||
             edge_rms > std::max(4.0f, 1.5f * pixel_mm) || surface.rms > 3.0f * noise + 2.0f) {
    fit.status = BoxStatus::kIrregular;
    fit.reason = "the top is not a flat rectangle";
  } else if (fit.width_mm < kMinSideMm) {
    fit.status = BoxStatus::kTooSmall;
    fit.reason = "a side under 50 mm";
  } else {
    fit.status = BoxStatus::kMeasured;
  }
  (void)edge_bins;
  return fit;
}

}  // namespace boxdim::precise
