#include "precise/top_height.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "precise/convex_polygon.h"
#include "precise/option_checks.h"

namespace boxdim::precise {

namespace {

// What the lid's highest part adds to the smooth surface's highest point.
// The top is cut into cells; where the cells' means stray from the surface
// by more than their noise explains (one flap over the other, a bump, a
// shape no wall holds), the lid's highest part is read from the cells: the
// middle of those about as high as the highest (a flap's whole level, a
// bump's top), less what noise alone adds to that middle. Otherwise the
// surface stands (0).
float lid_correction(const TopSurface& surface, float noise, float depth_step,
                     const HeightOptions& options, HeightBuffers& buffers, float& deviation_out) {
  deviation_out = 0.0f;
  // Depths come in steps: a cell between two steps reads up to half a step
  // off whatever the noise. And the heights' own spread about the surface
  // (robust, so that a raised part does not count): the noise from pixel
  // to pixel reads low where depths are whole millimetres.
  // Each sample's stray from the surface, kept for the cells below.
  std::vector<float>& spread = buffers.values;
  spread.clear();
  buffers.strays.clear();
  for (const cv::Point3f& p : buffers.samples) {
    const double surface_height = surface.at(p.x, p.y);
    buffers.strays.push_back(p.z - surface_height);
    spread.push_back(std::abs(p.z - static_cast<float>(surface_height)));
  }
  if (!spread.empty()) {
    std::nth_element(spread.begin(), spread.begin() + spread.size() / 2, spread.end());
    noise = std::max(noise, 1.4826f * spread[spread.size() / 2]);
  }
  noise = std::max(noise, depth_step / std::sqrt(12.0f));
  const float least_stray = options.stray_steps * depth_step;
  const int cells = options.cells;
  buffers.cell_sum.assign(static_cast<std::size_t>(cells) * cells, 0.0);
  buffers.cell_count.assign(static_cast<std::size_t>(cells) * cells, 0);
  const auto cell_of = [cells](float s) {
    return std::clamp(static_cast<int>((s + 1.0f) * 0.5f * cells), 0, cells - 1);
  };
  for (std::size_t n = 0; n < buffers.samples.size(); ++n) {
    const cv::Point3f& p = buffers.samples[n];
    const int c = cell_of(p.y) * cells + cell_of(p.x);
    buffers.cell_sum[c] += buffers.strays[n];
    buffers.cell_count[c] += 1;
  }
  double squared_strays = 0.0;  // in deviations
  float largest_stray = 0.0f;
  float deviations = 0.0f;
  std::vector<float>& level = buffers.values;  // each cell's mean height
  level.clear();
  for (int cy = 0; cy < cells; ++cy) {
    for (int cx = 0; cx < cells; ++cx) {
      const int c = cy * cells + cx;
      const int n = buffers.cell_count[c];
      if (n < options.min_cell_pixels) continue;
      const float stray = static_cast<float>(buffers.cell_sum[c] / n);
      const float deviation = noise / std::sqrt(static_cast<float>(n));
      squared_strays += double(stray / deviation) * (stray / deviation);
      largest_stray = std::max(largest_stray, std::abs(stray));
      deviations += deviation;
      const float x = -1.0f + (cx + 0.5f) * 2.0f / cells;
      const float y = -1.0f + (cy + 0.5f) * 2.0f / cells;
      level.push_back(static_cast<float>(surface.at(x, y)) + stray);
    }
  }
  const double used = static_cast<double>(level.size());
  if (used < 1.0) return 0.0f;
  // Squared strays of pure noise sum to about their number, give or take
  // the square root of twice it.
  const bool strays = squared_strays > used + options.stray_deviations * std::sqrt(2.0 * used) &&
                      largest_stray >= least_stray;
  if (!strays) return 0.0f;
  const float deviation = deviations / static_cast<float>(used);
  const float highest = *std::max_element(level.begin(), level.end());
  std::size_t kept = 0;
  for (const float h : level) {
    if (h >= highest - options.plateau_deviations * deviation) level[kept++] = h;
  }
  std::nth_element(level.begin(), level.begin() + kept / 2, level.begin() + kept);
  // The middle of the cells within 2.5 deviations of the highest, over
  // cells of noise alone, stands about 0.2 ln(cells) - 0.22 deviations up.
  const float noise_lift = std::max(0.0f, 0.2f * std::log(static_cast<float>(used)) - 0.22f);
  // That middle wanders by about a third of a cell's deviation.
  deviation_out = 0.35f * deviation;
  return level[kept / 2] - noise_lift * deviation - surface.highest;
}

// How far the floor around the box lies above the whole floor's plane, and
// the spread of its heights; nothing when too little of it is seen.
bool floor_around(const FrameView& frame, const TopOutline& outline, const HeightOptions& options,
                  std::vector<float>& values, float& offset, float& spread, int& pixels) {
  // Around the box as the camera sees it, top and base: beyond a side in
  // view, and beyond what multipath does to the floor next to the box.
  const TopPlane floor_plane = plane_at(frame.floor, 0.0f);
  Octagon inner, outer;
  for (const bool far : {false, true}) {
    const float grow =
        (far ? options.floor_to_pixels : options.floor_from_pixels) * outline.pixel_mm;
    std::array<cv::Point2f, 4> top, base;
    if (!grown_corners(outline, outline.plane, grow, frame.intrinsics, top) ||
        !grown_corners(outline, floor_plane, grow, frame.intrinsics, base)) {
      return false;
    }
    (far ? outer : inner) = hull_of(top, base);
  }
  values.clear();
  const cv::Mat1f& heights = frame.heights;
  for_each_ring_pixel(outer, inner, heights.size(), [&](int u, int v) {
    if ((u + v) % 2 != 0) return;  // every other pixel is enough
    const float h = heights(v, u);
    if (!std::isnan(h) && std::abs(h) <= options.floor_band_mm) values.push_back(h);
  });
  if (values.size() < static_cast<std::size_t>(options.min_floor_pixels)) return false;
  // The mean of the heights near their median: depths are whole
  // millimetres, and a median of them keeps the step the noise averages out.
  const std::size_t middle = values.size() / 2;
  std::nth_element(values.begin(), values.begin() + middle, values.end());
  const float median = values[middle];
  double spread_sum = 0.0;
  for (const float h : values) spread_sum += double(h - median) * (h - median);
  const float deviation = static_cast<float>(std::sqrt(spread_sum / values.size()));
  double sum = 0.0, squares = 0.0;
  int kept = 0;
  for (const float h : values) {
    if (std::abs(h - median) > options.floor_deviations * deviation + 0.5f) continue;
    sum += h;
    squares += double(h) * h;
    ++kept;
  }
  offset = static_cast<float>(sum / kept);
  pixels = kept;
  spread =
      static_cast<float>(std::sqrt(std::max(0.0, squares / kept - (sum / kept) * (sum / kept))));
  return true;
}

// The step the depths of the top come in (mm): the commonest difference
// between neighbouring pixels that is not nothing; 1 mm at least (the
// samples are whole millimetres).
float depth_step_of(const FrameView& frame, const TopFace& face, std::vector<int>& counts) {
  constexpr int kLargestStep = 16;
  const int width = frame.depth.cols;
  const int size = static_cast<int>(frame.depth.total());
  const auto* depth = frame.depth.ptr<std::uint16_t>();
  const std::size_t stride = std::max<std::size_t>(1, face.pixel_count / 2000);
  // Along the rows and down the columns apart: a top that slopes along one
  // steps by its slope there, but by the camera's step along the other.
  // Depths all the same along both say nothing but whole millimetres.
  float step = 1.0f;
  bool found = false;
  for (const int next : {1, width}) {
    counts.assign(kLargestStep + 1, 0);
    for (std::size_t n = 0; n < face.pixel_count; n += stride) {
      const int i = face.pixels[n];
      if (i + next >= size || (next == 1 && (i + 1) % width == 0)) continue;
      if (!has_depth(depth[i]) || !has_depth(depth[i + next])) continue;
      const int difference = std::abs(int{depth[i + next]} - int{depth[i]});
      if (difference > 0 && difference <= kLargestStep) ++counts[difference];
    }
    const int commonest =
        static_cast<int>(std::max_element(counts.begin() + 1, counts.end()) - counts.begin());
    if (counts[commonest] == 0) continue;
    step = found ? std::min(step, static_cast<float>(commonest)) : static_cast<float>(commonest);
    found = true;
  }
  return step;
}

}  // namespace

void HeightOptions::check() const {
  check_option("height.max_samples", max_samples, 10, 1 << 24);
  check_option("height.inset_pixels", inset_pixels, 0.0f, 100.0f);
  check_option("height.min_pixels", min_pixels, 3, 1 << 20);
  check_option("height.cells", cells, 1, 256);
  check_option("height.min_cell_pixels", min_cell_pixels, 1, 1 << 20);
  check_option("height.stray_deviations", stray_deviations, 0.0f, 1000.0f);
  check_option("height.plateau_deviations", plateau_deviations, 0.0f, 1000.0f);
  check_option("height.stray_steps", stray_steps, 0.0f, 100.0f);
  check_option("height.floor_from_pixels", floor_from_pixels, 0.0f, 1000.0f);
  check_option("height.floor_to_pixels", floor_to_pixels, floor_from_pixels, 1000.0f);
  check_option("height.floor_band_mm", floor_band_mm, 0.0f, 1000.0f);
  check_option("height.min_floor_pixels", min_floor_pixels, 1, 1 << 24);
  check_option("height.floor_deviations", floor_deviations, 0.5f, 100.0f);
}

std::optional<TopHeight> fit_top_height(const FrameView& frame, const TopFace& face,
                                        const TopOutline& outline, const HeightOptions& options,
                                        HeightBuffers& buffers) {
  const cv::Mat1f& heights = frame.heights;
  const int width = heights.cols;
  const PlaneRectangle& rect = outline.rectangle;
  const int longer = rect.half[0] >= rect.half[1] ? 0 : 1;
  cv::Point2f along = longer == 0 ? rect.axis() : rect.across();
  if (along.x < 0.0f || (along.x == 0.0f && along.y < 0.0f)) along = -along;
  const cv::Point2f sideways(-along.y, along.x);
  const float half_long = std::max(1.0f, rect.half[longer]);
  const float half_short = std::max(1.0f, rect.half[1 - longer]);
  const float inset = options.inset_pixels * outline.pixel_mm;
  const float margin_x = 1.0f - inset / half_long;
  const float margin_y = 1.0f - inset / half_short;
  TopHeight result;
  buffers.samples.clear();
  const std::size_t stride =
      std::max<std::size_t>(1, face.pixel_count / static_cast<std::size_t>(options.max_samples));
  for (std::size_t n = 0; n < face.pixel_count; n += stride) {
    const int i = face.pixels[n];
    const float h = heights(i / width, i % width);
    cv::Point2f q;
    if (std::isnan(h) || !outline.on_plane(float(i % width), float(i / width), frame, q)) continue;
    q -= rect.centre;
    const float x = q.dot(along) / half_long;
    const float y = q.dot(sideways) / half_short;
    if (std::abs(x) > margin_x || std::abs(y) > margin_y) continue;
    result.top.add(x, y, h);
    buffers.samples.emplace_back(x, y, h);
  }
  if (result.top.n < options.min_pixels) return std::nullopt;
  result.surface = fit_top_surface(result.top, half_long, half_short);
  float floor_offset = 0.0f;
  float floor_spread = 0.0f;
  int floor_pixels = 0;
  if (floor_around(frame, outline, options, buffers.values, floor_offset, floor_spread,
                   floor_pixels)) {
    result.floor_offset_mm = floor_offset;
    result.floor_spread_mm = floor_spread;
    result.floor_pixels = floor_pixels;
  }
  result.depth_step_mm = depth_step_of(frame, face, buffers.cell_count);
  result.adjustment_mm = lid_correction(result.surface, face.noise_mm, result.depth_step_mm,
                                        options, buffers, result.lid_deviation_mm) -
                         result.floor_offset_mm;
  result.height_mm = result.surface.highest + result.adjustment_mm;
  return result;
}

}  // namespace boxdim::precise
