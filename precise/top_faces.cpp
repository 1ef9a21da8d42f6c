#include "precise/top_faces.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "precise/frame_points.h"
#include "precise/option_checks.h"

namespace boxdim::precise {

namespace {

// A median needs no more values than this to be as good as all of them.
constexpr int kMaxMedianSamples = 1000;

// The bounds of pixels given by their index, ascending: the row follows
// without a division per pixel.
cv::Rect bounds_of(const int* begin, const int* end, int width) {
  const int first_row = *begin / width;
  int row = first_row;
  int row_start = row * width;
  int u0 = width;
  int u1 = -1;
  for (const int* p = begin; p != end; ++p) {
    while (*p >= row_start + width) {
      row_start += width;
      ++row;
    }
    u0 = std::min(u0, *p - row_start);
    u1 = std::max(u1, *p - row_start);
  }
  return cv::Rect(u0, first_row, u1 - u0 + 1, row - first_row + 1);
}

// Pixel indices put in order of a key per pixel (a counting sort), `next`
// holding each key's next place. Keys come in long runs (a row's pixels of
// one region), so a run's next place is held locally rather than read back
// from memory for every pixel.
void scatter_by_key(const int* begin, const int* end, const int* keys, std::vector<int>& next,
                    std::vector<int>& out) {
  int key = -1;
  int* place = nullptr;
  for (const int* p = begin; p != end; ++p) {
    const int k = keys[*p];
    if (k != key) {
      if (key >= 0) next[key] = static_cast<int>(place - out.data());
      key = k;
      place = out.data() + next[k];
    }
    *place++ = *p;
  }
  if (key >= 0) next[key] = static_cast<int>(place - out.data());
}

}  // namespace

void TopFaceOptions::check() const {
  check_option("faces.above_mm", above_mm, 0.0f, 1000.0f);
  check_option("faces.above_per_mm", above_per_mm, 0.0f, 1.0f);
  check_option("faces.jump_mm", jump_mm, 0.0f, 10000.0f);
  check_option("faces.jump_per_mm", jump_per_mm, 0.0f, 1.0f);
  check_option("faces.min_region_pixels", min_region_pixels, 1, 1 << 24);
  check_option("faces.min_face_pixels", min_face_pixels, 1, 1 << 24);
  check_option("faces.histogram_bin_mm", histogram_bin_mm, 0.1f, 1000.0f);
  check_option("faces.histogram_smoothing", histogram_smoothing, 0, 100);
  check_option("faces.peak_divisor", peak_divisor, 1, 1000);
  check_option("faces.lid_allowance_mm", lid_allowance_mm, 0.0f, 1000.0f);
  check_option("faces.band_noise_factor", band_noise_factor, 0.0f, 100.0f);
  check_option("faces.band_extra_mm", band_extra_mm, 0.0f, 1000.0f);
  check_option("faces.max_spread_mm", max_spread_mm, 0.0f, 1000.0f);
  check_option("faces.step_noise_factor", step_noise_factor, 0.0f, 100.0f);
  check_option("faces.step_extra_mm", step_extra_mm, 0.0f, 1000.0f);
  check_option("faces.bridge_pixels", bridge_pixels, 0, 64);
  check_option("faces.bridge_share", bridge_share, 0.0f, 1.0f);
}

void TopFaceFinder::bridge(int i, int step, int steps_left, const float* h, const std::uint16_t* z,
                           const std::uint8_t* up, int n) {
  const float top = h[i];
  const float jump = surface_jump(z[i]);
  for (int k = 1; k <= options_.bridge_pixels + 1 && k <= steps_left; ++k) {
    const int j = i + k * step;
    if (j < 0 || j >= n) return;
    if (up[j] && std::abs(h[j] - top) <= jump) {
      if (k == 1) return;  // joined directly, or not at all
      const int a = root(i);
      const int b = root(j);
      if (a != b) parent_[std::max(a, b)] = std::min(a, b);
      return;
    }
    // What lies between: no depth, or lower than the top but not the floor.
    const bool between = std::isnan(h[j]) || (h[j] > options_.bridge_share * top && h[j] < top);
    if (!between) return;
  }
}

int TopFaceFinder::root(int i) {
  while (parent_[i] != i) {
    parent_[i] = parent_[parent_[i]];
    i = parent_[i];
  }
  return i;
}

const std::vector<TopFace>& TopFaceFinder::find(const cv::Mat1f& heights, const cv::Mat1b& above,
                                                const cv::Mat& depth, int max_faces) {
  faces_.clear();
  const int width = heights.cols;
  const int rows = heights.rows;
  const int n = static_cast<int>(heights.total());
  parent_.resize(n);
  above_.clear();
  // Pixels above the floor, joined along each row where the surface does not
  // jump: a run points at its first pixel, which is its own root.
  for (int v = 0; v < rows; ++v) {
    const float* h = heights[v];
    const auto* z = depth.ptr<std::uint16_t>(v);
    const std::uint8_t* up = above[v];
    int* parent = &parent_[v * width];
    int run = -1;
    for (int u = 0; u < width; ++u) {
      // Below the floor's noise: no entry, the mask says so. Most of a frame
      // is floor, passed eight pixels at a time.
      if (!up[u]) {
        run = -1;
        std::uint64_t eight = 0;
        while (u + 8 < width && (std::memcpy(&eight, up + u + 1, 8), eight == 0)) u += 8;
        continue;
      }
      const int i = v * width + u;
      above_.push_back(i);
      const bool starts = run < 0 || std::abs(h[u] - h[u - 1]) > surface_jump(z[u]);
      if (starts) run = i;
      parent[u] = run;
      // A run that begins after a gap may go on from one before it.
      if (starts && options_.bridge_pixels > 0 && u > 1) {
        bridge(i, -1, u, heights.ptr<float>(), depth.ptr<std::uint16_t>(),
               above.ptr<std::uint8_t>(), n);
      }
    }
  }
  // Rows joined to the row below.
  const float* h = heights[0];
  const auto* z = depth.ptr<std::uint16_t>(0);
  const std::uint8_t* up = above.ptr<std::uint8_t>();
  int joined = -2;  // the last pixel joined to the one below it; none yet
  for (const int i : above_) {
    const int j = i + width;
    if (j >= n || !up[j] || std::abs(h[i] - h[j]) > surface_jump(z[i])) {
      if (options_.bridge_pixels > 0) {
        // Down the column, and along both diagonals: a thin line across the
        // top at any angle is thin along one of them.
        const int column = i % width;
        const int rows_below = (n - 1 - i) / width;
        bridge(i, width, rows_below, h, z, up, n);
        bridge(i, width + 1, std::min(rows_below, width - 1 - column), h, z, up, n);
        bridge(i, width - 1, std::min(rows_below, column), h, z, up, n);
      }
      continue;
    }
    // Along two runs that are already joined, the next pair adds nothing.
    const bool same_runs = joined == i - 1 && parent_[i] == parent_[i - 1] && up[j - 1] &&
                           parent_[j] == parent_[j - 1];
    joined = i;
    if (same_runs) continue;
    const int a = root(i);
    const int b = root(j);
    if (a != b) parent_[std::max(a, b)] = std::min(a, b);
  }

  // Regions by their root, largest first, with their bounds. The pixels come
  // in order, so the row follows without a division.
  labels_.create(rows, width);
  if (face_ids_.size() != heights.size() || next_id_ > kMaxIdBase) {
    face_ids_.create(rows, width);
    face_ids_.setTo(-1);
    next_id_ = 0;
  }
  // Ids count on from frame to frame, so that the last frame's tops never
  // pass for this one's without clearing the whole image.
  id_base_ = next_id_;
  above_mask_ = &above;
  int* labels = labels_.ptr<int>();
  std::size_t used = 0;
  int v = 0;
  int previous = -2;
  int previous_run = -1;
  int previous_label = -1;
  int run_pixels = 0;  // of the current run, counted into its region when it ends
  int run_last_u = 0;
  const auto end_run = [&] {
    if (previous_label < 0) return;
    regions_[previous_label].count += run_pixels;
    region_extent_[previous_label].u1 = std::max(region_extent_[previous_label].u1, run_last_u);
  };
  for (const int i : above_) {
    while (i >= (v + 1) * width) ++v;
    const int u = i - v * width;
    // A run's pixels share their run's label: one root walk per run, and its
    // region's count and bounds change once, when it ends. A run never goes
    // on into the next row, even where the two rows' runs are joined.
    if (i == previous + 1 && u != 0 && parent_[i] == previous_run) {
      labels[i] = previous_label;
      ++run_pixels;
      run_last_u = u;
      previous = i;
      continue;
    }
    end_run();
    previous = i;
    previous_run = parent_[i];
    const int r = root(i);
    int label;
    if (r == i) {
      label = static_cast<int>(used++);
      if (regions_.size() < used) {
        regions_.resize(used);
        region_extent_.resize(used);
      }
      regions_[label] = Span{};
      region_extent_[label] = {u, v, u, v};
    } else {
      label = labels[r];
    }
    labels[i] = label;
    previous_label = label;
    run_pixels = 1;
    run_last_u = u;
    Extent& extent = region_extent_[label];
    extent.u0 = std::min(extent.u0, u);
    extent.v1 = v;
  }
  end_run();
  // Each region's pixels, in order, back to back.
  int start = 0;
  for (std::size_t r = 0; r < used; ++r) {
    regions_[r].start = start;
    start += regions_[r].count;
  }
  region_buffer_.resize(start);
  cursor_.resize(used);
  for (std::size_t r = 0; r < used; ++r) cursor_[r] = regions_[r].start;
  scatter_by_key(above_.data(), above_.data() + above_.size(), labels, cursor_, region_buffer_);

  face_spans_.clear();
  face_buffer_.clear();
  order_.clear();
  for (std::size_t r = 0; r < used; ++r) {
    if (regions_[r].count >= options_.min_region_pixels) order_.push_back(static_cast<int>(r));
  }
  std::sort(order_.begin(), order_.end(),
            [&](int a, int b) { return regions_[a].count > regions_[b].count; });
  for (const int r : order_) {
    if (static_cast<int>(faces_.size()) >= max_faces) break;
    split_region(r, heights, max_faces);
  }
  // The faces' pixels stay where they are until the next find().
  for (std::size_t f = 0; f < faces_.size(); ++f) {
    faces_[f].pixels = face_buffer_.data() + face_spans_[f].start;
    faces_[f].pixel_count = face_spans_[f].count;
  }
  next_id_ = id_base_ + static_cast<int>(faces_.size());
  return faces_;
}

int TopFaceFinder::label_pieces(const cv::Mat1f& heights, float mode, float half_band) {
  const int width = heights.cols;
  const auto root = [this](int r) {
    while (runs_[r].parent != r) {
      runs_[r].parent = runs_[runs_[r].parent].parent;
      r = runs_[r].parent;
    }
    return r;
  };
  // Each run joined to the runs of the row above that it touches, across
  // corners too; a piece's root is its first run.
  const int n_runs = static_cast<int>(runs_.size());
  int row_start = 0;
  int above_begin = 0;  // the row above's runs: [above_begin, above_end)
  int above_end = 0;
  for (int r = 0; r < n_runs; ++r) {
    const Run& run = runs_[r];
    if (r > 0 && runs_[r - 1].v != run.v) {
      const bool row_above = runs_[r - 1].v == run.v - 1;
      above_begin = row_above ? row_start : r;
      above_end = r;
      row_start = r;
    }
    while (above_begin < above_end && runs_[above_begin].u1 < run.u0 - 1) ++above_begin;
    for (int k = above_begin; k < above_end && runs_[k].u0 <= run.u1 + 1; ++k) {
      const int a = root(r);
      const int b = root(k);
      if (a != b) runs_[std::max(a, b)].parent = std::min(a, b);
    }
  }
  // Runs across a thin line of pixels a top may be split by (no depth, or
  // lower than the band but not the floor), along the row and down the
  // columns, joined too.
  const int gap = options_.bridge_pixels;
  if (gap > 0 && n_runs > 0) {
    const float* h = heights.ptr<float>();
    const auto between = [&](int i) {
      return std::isnan(h[i]) || (h[i] > options_.bridge_share * mode && h[i] < mode - half_band);
    };
    const auto join = [&](int a, int b) {
      a = root(a);
      b = root(b);
      if (a != b) runs_[std::max(a, b)].parent = std::min(a, b);
    };
    const int first_row = runs_[0].v;
    const int row_count = runs_[n_runs - 1].v - first_row + 1;
    row_first_run_.assign(row_count + 1, n_runs);
    for (int r = n_runs - 1; r >= 0; --r) row_first_run_[runs_[r].v - first_row] = r;
    for (int row = row_count - 1; row >= 0; --row) {
      row_first_run_[row] = std::min(row_first_run_[row], row_first_run_[row + 1]);
    }
    for (int r = 0; r < n_runs; ++r) {
      const Run& run = runs_[r];
      const int row_start = run.v * width;
      if (r + 1 < n_runs && runs_[r + 1].v == run.v && runs_[r + 1].u0 - run.u1 - 1 <= gap &&
          root(r) != root(r + 1)) {
        bool across = true;
        for (int u = run.u1 + 1; u < runs_[r + 1].u0 && across; ++u)
          across = between(row_start + u);
        if (across) join(r, r + 1);
      }
      // Down the columns and along both diagonals, as for the regions.
      for (int k = 2; k <= gap + 1 && run.v - first_row + k < row_count; ++k) {
        const int row = run.v - first_row + k;
        for (int o = row_first_run_[row]; o < row_first_run_[row + 1]; ++o) {
          const Run& other = runs_[o];
          for (int slant = -1; slant <= 1; ++slant) {
            const int shift = slant * k;
            if (other.u1 < run.u0 + shift || other.u0 > run.u1 + shift || root(r) == root(o)) {
              continue;
            }
            // One start of the overlap whose pixels between are all of the line.
            const int c0 = std::max(run.u0, other.u0 - shift);
            const int c1 = std::min(run.u1, other.u1 - shift);
            for (int c = c0; c <= c1; ++c) {
              bool across = true;
              for (int m = 1; m < k && across; ++m) {
                const int u = c + slant * m;
                across = u >= 0 && u < width && between((run.v + m) * width + u);
              }
              if (across) {
                join(r, o);
                break;
              }
            }
          }
        }
      }
    }
  }
  // Labels 1, 2, ... in the order of the pieces' first pixels, as
  // cv::connectedComponents numbers them.
  int count = 1;
  for (int r = 0; r < n_runs; ++r) {
    const int top = root(r);
    runs_[r].label = top == r ? count++ : runs_[top].label;
  }
  return count;
}

void TopFaceFinder::split_region(int region, const cv::Mat1f& heights, int max_faces) {
  const int* pixels = region_buffer_.data() + regions_[region].start;
  const int* pixels_end = pixels + regions_[region].count;
  const int width = heights.cols;
  const int n_pixels = static_cast<int>(heights.total());
  const float* h = heights.ptr<float>();
  int* labels = labels_.ptr<int>();
  float low = h[*pixels];
  float high = low;
  for (const int* p = pixels; p != pixels_end; ++p) {
    const int i = *p;
    low = std::min(low, h[i]);
    high = std::max(high, h[i]);
  }
  // Pixel-to-pixel spread of the region's heights (mm): the noise, as the
  // sides' slopes only add a few large differences.
  differences_.clear();
  const std::ptrdiff_t every = (pixels_end - pixels) / kMaxMedianSamples + 1;
  for (const int* p = pixels; p < pixels_end; p += every) {
    const int i = *p;
    if ((i + 1) % width != 0 && (*above_mask_)(0, i + 1) && labels[i + 1] == region) {
      differences_.push_back(std::abs(h[i + 1] - h[i]));
    }
  }
  float noise = 1.0f;
  if (!differences_.empty()) {
    std::nth_element(differences_.begin(), differences_.begin() + differences_.size() / 2,
                     differences_.end());
    noise = std::max(0.5f, differences_[differences_.size() / 2] / 0.954f);
  }

  // The heights the region's pixels cluster at: the tops.
  const int bins = std::min(2000, static_cast<int>((high - low) / options_.histogram_bin_mm) + 1);
  histogram_.assign(bins, 0);
  const float per_bin = 1.0f / options_.histogram_bin_mm;
  for (const int* p = pixels; p != pixels_end; ++p) {
    const int i = *p;
    histogram_[std::min(bins - 1, static_cast<int>((h[i] - low) * per_bin))] += 1;
  }
  smoothed_.assign(bins, 0);
  for (int b = 0; b < bins; ++b) {
    for (int d = -options_.histogram_smoothing; d <= options_.histogram_smoothing; ++d) {
      if (b + d >= 0 && b + d < bins) smoothed_[b] += histogram_[b + d];
    }
  }
  const int peak = *std::max_element(smoothed_.begin(), smoothed_.end());
  // A top is a peak that stands out: from it, the counts fall to at most half
  // of it on both sides before they rise higher. The heights of a side seen
  // at a slant spread evenly, and the bumps their noise makes do not.
  const auto stands_out = [&](int b) {
    const int height = smoothed_[b];
    // Beyond the histogram's ends the counts are zero.
    const auto walk = [&](int step) {
      int lowest = height;
      int k = b + step;
      for (; k >= 0 && k < bins && smoothed_[k] <= height; k += step) {
        lowest = std::min(lowest, smoothed_[k]);
      }
      return (k < 0 || k >= bins) ? 0 : lowest;
    };
    return 2 * std::max(walk(-1), walk(+1)) <= height;
  };
  modes_.clear();  // highest first
  for (int b = bins - 1; b >= 0; --b) {
    const bool local_max = (b + 1 >= bins || smoothed_[b] >= smoothed_[b + 1]) &&
                           (b == 0 || smoothed_[b] > smoothed_[b - 1]);
    if (local_max &&
        smoothed_[b] >= std::max(options_.min_face_pixels, peak / options_.peak_divisor) &&
        stands_out(b)) {
      modes_.push_back(low + (b + 0.5f) * options_.histogram_bin_mm);
    }
  }

  int* face_ids = face_ids_.ptr<int>();
  for (const float mode : modes_) {
    if (static_cast<int>(faces_.size()) >= max_faces) return;
    // The band of this top's height, on the region's pixels not yet taken,
    // as runs along the rows; each 8-connected piece of it is one top.
    const float half_band =
        options_.lid_allowance_mm + options_.band_noise_factor * noise + options_.band_extra_mm;
    runs_.clear();
    int previous = -2;
    for (const int* p = pixels; p != pixels_end; ++p) {
      const int i = *p;
      if (labels[i] != region || !(std::abs(h[i] - mode) <= half_band)) continue;
      // The pixels come in order: one after the last in the same row goes on
      // its run.
      if (i == previous + 1 && i % width != 0) {
        ++runs_.back().u1;
      } else {
        const int v = i / width;
        const int u = i - v * width;
        runs_.push_back(Run{v, u, u, static_cast<int>(runs_.size())});
      }
      previous = i;
    }
    const int count = label_pieces(heights, mode, half_band);
    // Each piece's pixels, in order, back to back (piece 0 holds none).
    pieces_span_.assign(count, Span{});
    for (const Run& run : runs_) pieces_span_[run.label].count += run.u1 - run.u0 + 1;
    int start = 0;
    for (Span& piece : pieces_span_) {
      piece.start = start;
      start += piece.count;
    }
    piece_buffer_.resize(start);
    cursor_.resize(count);
    for (int k = 0; k < count; ++k) cursor_[k] = pieces_span_[k].start;
    for (const Run& run : runs_) {
      int* place = piece_buffer_.data() + cursor_[run.label];
      for (int i = run.v * width + run.u0, end = run.v * width + run.u1; i <= end; ++i) {
        *place++ = i;
      }
      cursor_[run.label] += run.u1 - run.u0 + 1;
    }
    piece_face_.assign(count, -1);
    for (int k = 1; k < count; ++k) {
      const Span piece = pieces_span_[k];
      if (piece.count < options_.min_face_pixels) continue;
      const int* first = piece_buffer_.data() + piece.start;
      // A top is flat but for its noise and a lid's bulge; a piece of a side
      // seen at a slant spreads evenly over the whole band.
      std::vector<float>& sample = differences_;
      sample.clear();
      const int stride = piece.count / kMaxMedianSamples + 1;
      for (int n = 0; n < piece.count; n += stride) sample.push_back(h[first[n]]);
      const std::size_t q1 = sample.size() / 4;
      const std::size_t q2 = sample.size() / 2;
      const std::size_t q3 = sample.size() * 3 / 4;
      std::nth_element(sample.begin(), sample.begin() + q2, sample.end());
      const float median = sample[q2];
      std::nth_element(sample.begin(), sample.begin() + q1, sample.begin() + q2);
      std::nth_element(sample.begin() + q2, sample.begin() + q3, sample.end());
      if (sample[q3] - sample[q1] > options_.max_spread_mm + 2.0f * noise) continue;
      // Nor does a top change by more than its noise from pixel to pixel; a
      // strip of a steep side does, and only its ends would lie in a band.
      sample.clear();
      for (int n = 0; n < piece.count; n += stride) {
        const int i = first[n];
        float step = 0.0f;
        if ((i + 1) % width != 0 && !std::isnan(h[i + 1])) step = std::abs(h[i + 1] - h[i]);
        if (i + width < n_pixels && !std::isnan(h[i + width])) {
          step = std::max(step, std::abs(h[i + width] - h[i]));
        }
        sample.push_back(step);
      }
      std::nth_element(sample.begin(), sample.begin() + q2, sample.end());
      if (sample[q2] > options_.step_noise_factor * noise + options_.step_extra_mm) continue;
      TopFace face;
      face.region = region;
      face.id = id_base_ + static_cast<int>(faces_.size());
      face.bounds = bounds_of(first, first + piece.count, width);
      face.height_mm = median;
      face.noise_mm = noise;
      face_spans_.push_back({static_cast<int>(face_buffer_.size()), piece.count});
      face_buffer_.insert(face_buffer_.end(), first, first + piece.count);
      piece_face_[k] = face.id;
      faces_.push_back(face);
      if (static_cast<int>(faces_.size()) >= max_faces) break;
    }
    // What this mode took is no longer the region's for the lower ones; the
    // tops it found are marked by their ids.
    for (const Run& run : runs_) {
      const int first = run.v * width + run.u0;
      const int length = run.u1 - run.u0 + 1;
      std::fill(labels + first, labels + first + length, -2 - region);
      const int face = piece_face_[run.label];
      if (face >= 0) std::fill(face_ids + first, face_ids + first + length, face);
    }
  }
}

}  // namespace boxdim::precise
