#include "scene/sensor_frame.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

namespace boxdim::scene_geometry {

namespace {

constexpr double kPi = 3.14159265358979323846;
// The modulation's unambiguous range (20 MHz): a pixel's phase turns once
// over this many mm of range.
constexpr double kUnambiguousRangeMm = 7500.0;
// A pixel is integrated over its footprint when a neighbour's centre saw
// another surface or lies this far off in depth (share of the depth, plus
// a constant in mm): a side seen at a slant is integrated too.
constexpr double kEdgeShare = 0.01;
constexpr double kEdgeMm = 2.0;
// A pixel reaches this many pixel sizes from its centre (half its diagonal).
constexpr double kPixelReach = 0.75;
// How much the measured light itself varies: a pixel near the camera's
// threshold returns depth in some frames and not in others.
constexpr double kAmplitudeNoise = 0.25;
// Range noise never grows beyond this (mm): a pixel that dark reads nothing.
constexpr double kMaxSigmaMm = 60.0;
// The camera's edge-preserving smoothing: neighbours within this share of
// the depth take part, weighted by a Gaussian of this width (px).
constexpr double kSmoothingWindow = 0.03;
constexpr double kSmoothingSigmaPx = 0.8;
// Disparity of a structured-light camera, as this constant over the depth.
constexpr double kDisparityScale = 1.0e6;
constexpr double kMaxDepthMm = 65535.0;

struct Accumulated {
  std::complex<double> phasor{0.0, 0.0};
  double reference_range = 0.0;
  double light = 0.0;         // sum of the samples' amplitudes
  double reflectivity = 0.0;  // amplitude-weighted
  double glossy = 0.0;        // amplitude-weighted share
  int samples = 0;
  bool any = false;

  void add(const RayHit& hit, double ray_length) {
    ++samples;
    if (hit.kind == kNoSurface) return;
    const double range = hit.depth * ray_length;
    if (!any) {
      reference_range = range;
      any = true;
    }
    const double metres = range / 1000.0;
    const double amplitude = hit.reflectivity * hit.incidence_cos / (metres * metres);
    const double phase = 2.0 * kPi * (range - reference_range) / kUnambiguousRangeMm;
    phasor += std::polar(amplitude, phase);
    light += amplitude;
    reflectivity += amplitude * hit.reflectivity;
    glossy += hit.glossy ? amplitude : 0.0;
  }
  // The range the pixel reads, and its light (white paper head-on at 1 m: 1).
  double range() const {
    return reference_range + std::arg(phasor) / (2.0 * kPi) * kUnambiguousRangeMm;
  }
  double amplitude() const { return std::abs(phasor) / samples; }
};

Eigen::Vector3d pixel_ray(double u, double v, const CameraIntrinsics& k) {
  return {(u - k.cx) / k.fx, (v - k.cy) / k.fy, 1.0};
}

// Pixels whose footprint may see more than one depth.
cv::Mat1b pixels_to_integrate(const std::vector<RayHit>& hits, int width, int height) {
  cv::Mat1b integrate = cv::Mat1b::zeros(height, width);
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      const RayHit& here = hits[static_cast<std::size_t>(v) * width + u];
      if (here.near_step) integrate(v, u) = 1;
      for (int dv = 0; dv <= 1; ++dv) {
        for (int du = -1; du <= 1; ++du) {
          if (dv == 0 && du <= 0) continue;
          const int nu = u + du;
          const int nv = v + dv;
          if (nu < 0 || nu >= width || nv >= height) continue;
          const RayHit& there = hits[static_cast<std::size_t>(nv) * width + nu];
          const double deeper = std::max(here.depth, there.depth);
          if (here.kind != there.kind || here.box != there.box ||
              std::abs(here.depth - there.depth) > kEdgeShare * deeper + kEdgeMm) {
            integrate(v, u) = 1;
            integrate(nv, nu) = 1;
          }
        }
      }
    }
  }
  return integrate;
}

// Errors the camera makes the same way in every frame (mm of range).
double repeated_error(const SensorModel& s, double u, double v, double range, int width, int height,
                      const CameraIntrinsics& k) {
  const double corner = 0.25 * (double(width) * width + double(height) * height);
  const double du = u - k.cx;
  const double dv = v - k.cy;
  double error = s.fixed_pattern_mm * (du * du + dv * dv) / corner;
  error += s.fixed_ramp_x_mm * (u / std::max(1, width - 1) - 0.5);
  error += s.fixed_ramp_y_mm * (v / std::max(1, height - 1) - 0.5);
  error += s.wiggle_mm * std::sin(2.0 * kPi * range / s.wiggle_period_mm + s.wiggle_phase_rad);
  return error;
}

cv::Mat1d smooth_edges(const cv::Mat1d& depth) {
  cv::Mat1d out = depth.clone();
  double weights[3][3];
  for (int dv = -1; dv <= 1; ++dv) {
    for (int du = -1; du <= 1; ++du) {
      weights[dv + 1][du + 1] =
          std::exp(-(du * du + dv * dv) / (2.0 * kSmoothingSigmaPx * kSmoothingSigmaPx));
    }
  }
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      const double z = depth(v, u);
      if (z <= 0.0) continue;
      double sum = 0.0;
      double weight = 0.0;
      for (int dv = -1; dv <= 1; ++dv) {
        for (int du = -1; du <= 1; ++du) {
          const int nu = u + du;
          const int nv = v + dv;
          if (nu < 0 || nv < 0 || nu >= depth.cols || nv >= depth.rows) continue;
          const double other = depth(nv, nu);
          if (other <= 0.0 || std::abs(other - z) > kSmoothingWindow * z) continue;
          sum += weights[dv + 1][du + 1] * other;
          weight += weights[dv + 1][du + 1];
        }
      }
      out(v, u) = sum / weight;
    }
  }
  return out;
}

cv::Mat1d filter_flying_pixels(const cv::Mat1d& depth, FlyingPixelFilter filter) {
  cv::Mat1d out = depth.clone();
  const bool strong = filter == FlyingPixelFilter::kStrong;
  const double share = strong ? 0.02 : 0.05;
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      const double z = depth(v, u);
      if (z <= 0.0) continue;
      bool flies = false;
      for (int dv = -1; dv <= 1 && !flies; ++dv) {
        for (int du = -1; du <= 1 && !flies; ++du) {
          if ((du == 0 && dv == 0) || (!strong && du != 0 && dv != 0)) continue;
          const int nu = u + du;
          const int nv = v + dv;
          if (nu < 0 || nv < 0 || nu >= depth.cols || nv >= depth.rows) continue;
          const double other = depth(nv, nu);
          flies = other > 0.0 && std::abs(other - z) > share * z;
        }
      }
      if (flies) out(v, u) = 0.0;
    }
  }
  return out;
}

// Depth from disparity: blurred across edges by the matching window, then
// quantised in disparity, so that depth steps grow with the distance squared.
cv::Mat1d structured_light(const cv::Mat1d& depth, const SensorModel& s) {
  cv::Mat1d disparity(depth.size(), 0.0);
  cv::Mat1d valid(depth.size(), 0.0);
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      if (depth(v, u) > 0.0) {
        disparity(v, u) = kDisparityScale / depth(v, u);
        valid(v, u) = 1.0;
      }
    }
  }
  if (s.edge_blur_px > 0.0f) {
    const int radius = static_cast<int>(std::ceil(2.5 * s.edge_blur_px));
    const cv::Size window(2 * radius + 1, 2 * radius + 1);
    cv::Mat1d blurred, weight;
    cv::GaussianBlur(disparity, blurred, window, s.edge_blur_px, s.edge_blur_px,
                     cv::BORDER_CONSTANT);
    cv::GaussianBlur(valid, weight, window, s.edge_blur_px, s.edge_blur_px, cv::BORDER_CONSTANT);
    for (int v = 0; v < depth.rows; ++v) {
      for (int u = 0; u < depth.cols; ++u) {
        if (valid(v, u) > 0.0) disparity(v, u) = blurred(v, u) / weight(v, u);
      }
    }
  }
  // At 1 m a disparity step of depth_step_at_1m is a depth step of that much.
  const double step = s.depth_step_at_1m_mm;
  cv::Mat1d out(depth.size(), 0.0);
  for (int v = 0; v < depth.rows; ++v) {
    for (int u = 0; u < depth.cols; ++u) {
      if (valid(v, u) == 0.0) continue;
      const double levels = std::round(disparity(v, u) / step);
      out(v, u) = levels > 0.0 ? kDisparityScale / (levels * step) : 0.0;
    }
  }
  return out;
}

}  // namespace

SensorFrame render_sensor_frame(const SceneParameters& scene, const SceneGeometry& g) {
  const CameraIntrinsics& k = scene.intrinsics;
  const SensorModel& sensor = scene.sensor;
  const DepthNoise& noise = scene.noise;
  const int width = scene.image_width;
  const int height = scene.image_height;
  const double step_reach = kPixelReach / std::min(k.fx, k.fy);

  std::vector<RayHit> centres(static_cast<std::size_t>(width) * height);
  SensorFrame frame;
  frame.surfaces.create(height, width);
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      const RayHit hit = cast_ray(g, pixel_ray(u, v, k), true, step_reach);
      centres[static_cast<std::size_t>(v) * width + u] = hit;
      frame.surfaces(v, u) = hit.kind;
    }
  }
  const cv::Mat1b integrate = pixels_to_integrate(centres, width, height);

  // Light bounced off a box's side reaches the floor beside it by a longer
  // path, fading over the reach.
  cv::Mat1f pixels_to_box;
  if (noise.multipath_mm > 0.0f) {
    cv::distanceTransform(frame.surfaces != kBoxSurface, pixels_to_box, cv::DIST_L2,
                          cv::DIST_MASK_PRECISE);
  }

  std::mt19937_64 rng(scene.seed);
  std::normal_distribution<double> normal(0.0, 1.0);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  const int n = sensor.footprint_samples;
  cv::Mat1d depth(height, width, 0.0);
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      const RayHit& centre = centres[static_cast<std::size_t>(v) * width + u];
      Accumulated light;
      if (integrate(v, u)) {
        for (int j = 0; j < n; ++j) {
          for (int i = 0; i < n; ++i) {
            const Eigen::Vector3d ray =
                pixel_ray(u + (i + 0.5) / n - 0.5, v + (j + 0.5) / n - 0.5, k);
            light.add(cast_ray(g, ray, true), ray.norm());
          }
        }
      } else {
        light.add(centre, pixel_ray(u, v, k).norm());
      }
      if (!light.any || light.amplitude() <= 0.0) continue;
      const double ray_length = pixel_ray(u, v, k).norm();
      double range = light.range();
      if (noise.multipath_mm > 0.0f && centre.kind == kFloorSurface) {
        const double fade = 1.0 - pixels_to_box(v, u) / noise.multipath_reach_px;
        if (fade > 0.0) range += noise.multipath_mm * fade;
      }
      const double amplitude = light.amplitude();
      const double reflectivity = light.reflectivity / light.light;
      range += repeated_error(sensor, u, v, range, width, height, k);
      range += sensor.reflectivity_bias_mm * std::log2(0.5 / reflectivity);
      const double sigma =
          std::min(kMaxSigmaMm, noise.sigma_at_1m_mm / std::sqrt(std::max(amplitude, 1e-9)));
      range += sigma * normal(rng);
      const bool too_dark =
          amplitude * (1.0 + kAmplitudeNoise * normal(rng)) < sensor.min_amplitude;
      const bool dropped = uniform(rng) < noise.dropout_probability;
      const bool glossy = light.glossy > 0.5 * light.light && uniform(rng) < sensor.glossy_dropout;
      if (too_dark || dropped || glossy || sigma >= kMaxSigmaMm) continue;
      depth(v, u) = std::max(0.0, range / ray_length);
    }
  }

  if (sensor.sensing == DepthSensing::kTimeOfFlight) {
    if (sensor.edge_smoothing) depth = smooth_edges(depth);
    if (sensor.flying_filter != FlyingPixelFilter::kOff) {
      depth = filter_flying_pixels(depth, sensor.flying_filter);
    }
  } else {
    depth = structured_light(depth, sensor);
  }
  frame.depth.create(height, width);
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      frame.depth(v, u) =
          static_cast<std::uint16_t>(std::clamp(std::round(depth(v, u)), 0.0, kMaxDepthMm));
    }
  }
  return frame;
}

}  // namespace boxdim::scene_geometry
