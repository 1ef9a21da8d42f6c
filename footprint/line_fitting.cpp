#include "footprint/line_fitting.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <ostream>
#include <utility>

#include "footprint/geometry.h"

namespace boxdim {

namespace {

constexpr int kRansacIterations = 100;
constexpr float kInlierBandPx = 3.0f;
constexpr std::size_t kMinLinePoints = 10;
constexpr double kFitRadiusAccuracy = 0.01;
constexpr double kFitAngleAccuracy = 0.01;

// Edge pixels are looked for up to 19 steps to either side of the side line,
// at every pixel between 2/10 and 8/10 of the side: the ends are the rounded
// corners.
constexpr int kSearchHalfWidth = 20;
constexpr float kSideStart = 2.0f;
constexpr float kSideEnd = 8.0f;
constexpr float kSideTenths = 10.0f;

// Samples farther out than this cannot be in any frame; it keeps their
// conversion to int defined.
constexpr float kMaxSampleCoordinate = 1.0e9f;

// The frame's edge image as width * height row-major 16-bit samples: read in
// place when it is a whole continuous frame, as the frame preparation makes
// it; any other edge image is copied into `fallback`, reading as zeros where
// it falls short.
const std::uint16_t* edge_samples(const MeasurementState& state,
                                  std::vector<std::uint16_t>& fallback) {
  const std::size_t pixels = static_cast<std::size_t>(state.width) * state.height;
  const cv::Mat& edges = state.edge_image;
  const bool samples16 = !edges.empty() && edges.elemSize() == sizeof(std::uint16_t);
  if (samples16 && edges.isContinuous() && edges.total() >= pixels) {
    return reinterpret_cast<const std::uint16_t*>(edges.data);
  }
  fallback.assign(pixels, 0);
  if (!samples16) return fallback.data();
  const cv::Mat continuous = edges.isContinuous() ? edges : edges.clone();
  std::copy_n(continuous.ptr<std::uint16_t>(), std::min(pixels, continuous.total()),
              fallback.begin());
  return fallback.data();
}

// Coarse corners of a face in view lie in the frame or just beyond it. One
// farther out than the frame's own size comes from two nearly parallel lines
// (a face with a straight run where a corner was taken); walking its sides
// pixel by pixel would cost seconds for nothing, so they yield no edge points,
// like a side whose corner is not a number.
bool within_reach(const MeasurementState& state, const cv::Point2f& corner) {
  const float w = static_cast<float>(state.width);
  const float h = static_cast<float>(state.height);
  return -w <= corner.x && corner.x <= 2.0f * w && -h <= corner.y && corner.y <= 2.0f * h;
}

// A side whose positions cannot be counted in int (non-finite corners from
// parallel lines, or nearly so) yields no edge points, and so fails its fit.
bool countable_side(float length) {
  return std::isfinite(length) &&
         length * kSideEnd / kSideTenths < static_cast<float>(std::numeric_limits<int>::max());
}

// The strongest edge pixel across the side at M; (0, 0) when none beats 0.
// The last row and column are never read.
cv::Point strongest_edge_across(const MeasurementState& state, const std::uint16_t* edges,
                                const cv::Point2f& m, const cv::Point2f& normal) {
  std::uint16_t best_value = 0;
  cv::Point best(0, 0);
  const auto consider = [&](const cv::Point2f& sample) {
    const bool convertible =
        std::fabs(sample.x) < kMaxSampleCoordinate && std::fabs(sample.y) < kMaxSampleCoordinate;
    if (!convertible) return;  // also NaN
    const cv::Point p(sample);
    if (p.y < 0 || p.y >= state.height - 1 || p.x < 0 || p.x >= state.width - 1) return;
    const std::uint16_t value = edges[static_cast<std::size_t>(p.y) * state.width + p.x];
    if (value > best_value) {
      best_value = value;
      best = p;
    }
  };
  for (int j = 0; j < kSearchHalfWidth; ++j) {
    const float step = static_cast<float>(j);
    consider({m.x + step * normal.x, m.y + step * normal.y});
    consider({m.x - step * normal.x, m.y - step * normal.y});
  }
  return best;
}

std::vector<cv::Point> edge_points_along(const MeasurementState& state, const std::uint16_t* edges,
                                         const cv::Point2f& a, const cv::Point2f& b, float length) {
  std::vector<cv::Point> points;
  if (!countable_side(length)) return points;
  const float ex = b.x - a.x;
  const float ey = -(b.y - a.y);
  const float norm = std::sqrt(ey * ey + ex * ex);
  const cv::Point2f normal(ey / norm, ex / norm);
  for (int t = static_cast<int>(length * kSideStart / kSideTenths);
       length * kSideEnd / kSideTenths > static_cast<float>(t); ++t) {
    const float s = static_cast<float>(t) / length;
    const cv::Point2f m(a.x + s * (b.x - a.x), a.y + s * (b.y - a.y));
    points.push_back(strongest_edge_across(state, edges, m, normal));
  }
  return points;
}

}  // namespace

bool ransac_fitline(MeasurementState& state, const std::vector<cv::Point>& points,
                    cv::Vec4f& line) {
  cv::RNG rng(static_cast<std::uint64_t>(state.seams.seed_clock()));
  std::ostream& log = stage_log(state);
  const int n = static_cast<int>(points.size());
  if (points.size() < kMinLinePoints) {
    log << " ransac_fitline points less than 10;" << '\n';
    return false;
  }

  std::vector<cv::Point> best;
  std::vector<cv::Point> current;
  for (int iteration = 0; iteration < kRansacIterations; ++iteration) {
    current.clear();
    // uniform() excludes its upper bound, so the last point is never a sample.
    const int i1 = rng.uniform(0, n - 1);
    int i2 = rng.uniform(0, n - 1);
    while (i2 == i1) i2 = rng.uniform(0, n - 1);
    const cv::Point& a = points[i1];
    const cv::Point2f normal = line_unit_normal(a, points[i2]);
    for (const cv::Point& p : points) {
      if (point_line_distance(a, normal, p) < kInlierBandPx) current.push_back(p);
    }
    if (best.size() < current.size()) std::swap(best, current);
  }

  if (best.size() < kMinLinePoints) {
    log << "ransac_fitline error; " << '\n';
    return false;
  }
  cv::fitLine(best, line, cv::DIST_L2, 0, kFitRadiusAccuracy, kFitAngleAccuracy);
  return true;
}

bool refine_edge_lines(MeasurementState& state, std::vector<cv::Vec4f>& lines) {
  const std::vector<cv::Point2f>& corners = state.coarse_corners;
  if (corners.size() < 4) return false;  // only a caller that skipped the coarse fit
  std::vector<std::uint16_t> copied_edges;
  const std::uint16_t* edges = edge_samples(state, copied_edges);

  for (int i = 0; i < 4; ++i) {
    const cv::Point2f& a = corners[i];
    const cv::Point2f& b = corners[(i + 1) % 4];
    const float length = static_cast<float>(point_norm(a - b));
    const std::vector<cv::Point> points = within_reach(state, a) && within_reach(state, b)
                                              ? edge_points_along(state, edges, a, b, length)
                                              : std::vector<cv::Point>{};
    cv::Vec4f line(0.0f, 0.0f, 0.0f, 0.0f);
    if (!ransac_fitline(state, points, line)) return false;
    lines.push_back(line);
  }
  return true;
}

}  // namespace boxdim
