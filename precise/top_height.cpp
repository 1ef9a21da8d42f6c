#include "precise/top_height.h"

#include <algorithm>
#include <cmath>

#include "precise/option_checks.h"

namespace boxdim::precise {

void HeightOptions::check() const {
  check_option("height.max_samples", max_samples, 10, 1 << 24);
  check_option("height.inset_pixels", inset_pixels, 0.0f, 100.0f);
  check_option("height.min_pixels", min_pixels, 3, 1 << 20);
}

std::optional<TopHeight> fit_top_height(const FrameView& frame, const TopFace& face,
                                        const TopOutline& outline, const HeightOptions& options) {
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
  }
  if (result.top.n < options.min_pixels) return std::nullopt;
  result.surface = fit_top_surface(result.top, half_long, half_short);
  return result;
}

}  // namespace boxdim::precise
