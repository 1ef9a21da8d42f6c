#include "precise/top_faces.h"

#include <algorithm>
#include <cmath>

namespace boxdim::precise {

namespace {

constexpr int kMinRegionPixels = 30;
constexpr int kMinFacePixels = 30;
constexpr float kHistogramBinMm = 3.0f;
constexpr int kHistogramSmoothing = 2;  // bins on either side
// A lid may bulge or sag by about this much: its top still counts as one.
constexpr float kLidAllowanceMm = 12.0f;

// What rises less than this above the floor is floor (mm, at depth z): the
// range noise grows with the distance.
float min_height(float z) { return 12.0f + 0.005f * z; }
// Neighbours whose heights differ by more than this lie on different surfaces.
float surface_jump(float z) { return 25.0f + 0.012f * z; }

}  // namespace

int TopFaceFinder::root(int i) {
  while (parent_[i] != i) {
    parent_[i] = parent_[parent_[i]];
    i = parent_[i];
  }
  return i;
}

const std::vector<TopFace>& TopFaceFinder::find(const cv::Mat1f& heights, const cv::Mat3f& points,
                                                int max_faces) {
  faces_.clear();
  const int width = heights.cols;
  const int n = static_cast<int>(heights.total());
  parent_.assign(n, -1);
  const auto above = [&](int v, int u) {
    const float h = heights(v, u);
    return !std::isnan(h) && h > min_height(points(v, u)[2]);
  };
  for (int v = 0; v < heights.rows; ++v) {
    for (int u = 0; u < width; ++u) {
      if (above(v, u)) parent_[v * width + u] = v * width + u;
    }
  }
  const auto join = [&](int a, int b, float z) {
    if (parent_[b] < 0 ||
        std::abs(heights(a / width, a % width) - heights(b / width, b % width)) > surface_jump(z)) {
      return;
    }
    const int ra = root(a);
    const int rb = root(b);
    if (ra != rb) parent_[std::max(ra, rb)] = std::min(ra, rb);
  };
  for (int v = 0; v < heights.rows; ++v) {
    for (int u = 0; u < width; ++u) {
      const int i = v * width + u;
      if (parent_[i] < 0) continue;
      const float z = points(v, u)[2];
      if (u + 1 < width) join(i, i + 1, z);
      if (v + 1 < heights.rows) join(i, i + width, z);
    }
  }

  // Regions by their root, largest first.
  labels_.create(heights.rows, width);
  labels_.setTo(-1);
  std::size_t used = 0;
  for (int i = 0; i < n; ++i) {
    if (parent_[i] < 0) continue;
    const int r = root(i);
    int& label = labels_(r / width, r % width);
    if (label < 0) {
      label = static_cast<int>(used++);
      if (region_pixels_.size() < used) region_pixels_.emplace_back();
      region_pixels_[label].clear();
    }
    labels_(i / width, i % width) = label;
    region_pixels_[label].push_back(i);
  }
  std::vector<int> order;
  for (std::size_t r = 0; r < used; ++r) {
    if (region_pixels_[r].size() >= kMinRegionPixels) order.push_back(static_cast<int>(r));
  }
  std::sort(order.begin(), order.end(),
            [&](int a, int b) { return region_pixels_[a].size() > region_pixels_[b].size(); });
  for (const int r : order) {
    if (static_cast<int>(faces_.size()) >= max_faces) break;
    split_region(region_pixels_[r], heights, r, max_faces);
  }
  return faces_;
}

void TopFaceFinder::split_region(const std::vector<int>& pixels, const cv::Mat1f& heights,
                                 int region, int max_faces) {
  const int width = heights.cols;
  const auto h_of = [&](int i) { return heights(i / width, i % width); };
  float low = h_of(pixels[0]);
  float high = low;
  for (const int i : pixels) {
    low = std::min(low, h_of(i));
    high = std::max(high, h_of(i));
  }
  // Pixel-to-pixel spread of the region's heights (mm): the noise, as the
  // sides' slopes only add a few large differences.
  differences_.clear();
  for (const int i : pixels) {
    const int u = i % width;
    if (u + 1 < width && labels_(i / width, u + 1) == region) {
      differences_.push_back(std::abs(h_of(i + 1) - h_of(i)));
    }
  }
  float noise = 1.0f;
  if (!differences_.empty()) {
    std::nth_element(differences_.begin(), differences_.begin() + differences_.size() / 2,
                     differences_.end());
    noise = std::max(0.5f, differences_[differences_.size() / 2] / 0.954f);
  }

  const int bins = std::min(2000, static_cast<int>((high - low) / kHistogramBinMm) + 1);
  histogram_.assign(bins, 0);
  for (const int i : pixels) {
    histogram_[std::min(bins - 1, static_cast<int>((h_of(i) - low) / kHistogramBinMm))] += 1;
  }
  std::vector<int> smoothed(bins, 0);
  for (int b = 0; b < bins; ++b) {
    for (int d = -kHistogramSmoothing; d <= kHistogramSmoothing; ++d) {
      if (b + d >= 0 && b + d < bins) smoothed[b] += histogram_[b + d];
    }
  }
  const int peak = *std::max_element(smoothed.begin(), smoothed.end());
  std::vector<float> modes;  // highest first
  for (int b = bins - 1; b >= 0; --b) {
    const bool local_max = (b + 1 >= bins || smoothed[b] >= smoothed[b + 1]) &&
                           (b == 0 || smoothed[b] > smoothed[b - 1]);
    if (local_max && smoothed[b] >= std::max(kMinFacePixels, peak / 10)) {
      modes.push_back(low + (b + 0.5f) * kHistogramBinMm);
    }
  }

  int u0 = width, v0 = heights.rows, u1 = -1, v1 = -1;
  for (const int i : pixels) {
    u0 = std::min(u0, i % width);
    u1 = std::max(u1, i % width);
    v0 = std::min(v0, i / width);
    v1 = std::max(v1, i / width);
  }
  // One pixel more on every side: the flood below looks at the neighbours.
  const cv::Rect bounds =
      cv::Rect(u0 - 1, v0 - 1, u1 - u0 + 3, v1 - v0 + 3) & cv::Rect(0, 0, width, heights.rows);
  band_.create(heights.size());
  for (const float mode : modes) {
    if (static_cast<int>(faces_.size()) >= max_faces) return;
    // The band of this top's height, on the region's pixels not yet taken.
    band_(bounds).setTo(0);
    for (const int i : pixels) {
      const int u = i % width;
      const int v = i / width;
      const float half_band = kLidAllowanceMm + 3.0f * noise + 3.0f;
      if (labels_(v, u) == region && std::abs(heights(v, u) - mode) <= half_band) band_(v, u) = 1;
    }
    // Each 8-connected piece of the band is one top.
    for (const int seed : pixels) {
      if (band_(seed / width, seed % width) != 1) continue;
      TopFace face;
      face.region = region;
      stack_.assign(1, seed);
      band_(seed / width, seed % width) = 2;
      int fu0 = width, fv0 = heights.rows, fu1 = -1, fv1 = -1;
      while (!stack_.empty()) {
        const int i = stack_.back();
        stack_.pop_back();
        face.pixels.push_back(i);
        const int u = i % width;
        const int v = i / width;
        fu0 = std::min(fu0, u);
        fu1 = std::max(fu1, u);
        fv0 = std::min(fv0, v);
        fv1 = std::max(fv1, v);
        for (int dv = -1; dv <= 1; ++dv) {
          for (int du = -1; du <= 1; ++du) {
            const int nu = u + du;
            const int nv = v + dv;
            if (nu < 0 || nv < 0 || nu >= width || nv >= heights.rows) continue;
            if (band_(nv, nu) != 1) continue;
            band_(nv, nu) = 2;
            stack_.push_back(nv * width + nu);
          }
        }
      }
      if (face.pixels.size() < kMinFacePixels) continue;
      face.bounds = cv::Rect(fu0, fv0, fu1 - fu0 + 1, fv1 - fv0 + 1);
      std::vector<float> face_heights;
      face_heights.reserve(face.pixels.size());
      for (const int i : face.pixels) face_heights.push_back(h_of(i));
      std::nth_element(face_heights.begin(), face_heights.begin() + face_heights.size() / 2,
                       face_heights.end());
      face.height_mm = face_heights[face_heights.size() / 2];
      face.noise_mm = noise;
      faces_.push_back(std::move(face));
      if (static_cast<int>(faces_.size()) >= max_faces) return;
    }
    // What this top took is no longer the region's for the lower ones.
    for (const int i : pixels) {
      if (band_(i / width, i % width) == 2) labels_(i / width, i % width) = -2 - region;
    }
  }
}

}  // namespace boxdim::precise
