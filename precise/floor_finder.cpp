#include "precise/floor_finder.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

#include "precise/option_checks.h"

namespace boxdim::precise {

void FloorOptions::check() const {
  check_option("floor.sample_points", sample_points, 50, 1 << 22);
  check_option("floor.hypotheses", hypotheses, 1, 100000);
  check_option("floor.scoring_points", scoring_points, 50, 1 << 22);
  check_option("floor.max_angle_cos", max_angle_cos, 0.0f, 1.0f);
  check_option("floor.min_share", min_share, 0.0, 1.0);
  check_option("floor.max_behind_share", max_behind_share, 0.0, 1.0);
  check_option("floor.on_mm", on_mm, 0.0f, 1000.0f);
  check_option("floor.on_per_mm", on_per_mm, 0.0f, 1.0f);
  check_option("floor.behind_factor", behind_factor, 1.0f, 100.0f);
  check_option("floor.behind_weight", behind_weight, 0L, 1000L);
  check_option("floor.refine_deviations", refine_deviations, 0.5f, 100.0f);
  check_option("floor.min_sigma_at_1m_mm", min_sigma_at_1m_mm, 0.0f, 100.0f);
}

FloorFinder::Score FloorFinder::score(const FloorPlane& plane, std::size_t count) const {
  Score s;
  for (std::size_t i = 0; i < count; ++i) {
    const cv::Vec3f& p = sample_[i];
    const float h = plane.height(p);
    const float tolerance = on_plane_tolerance(p[2]);
    if (std::abs(h) <= tolerance) {
      ++s.on;
    } else if (h < -options_.behind_factor * tolerance) {
      ++s.behind;
    }
  }
  return s;
}

std::optional<FloorPlane> FloorFinder::find(const cv::Mat& depth, const CameraIntrinsics& k,
                                            std::uint64_t seed) {
  const int step = std::max(
      1, static_cast<int>(std::lround(std::sqrt(depth.total() / double(options_.sample_points)))));
  sample_.clear();
  for (int v = step / 2; v < depth.rows; v += step) {
    for (int u = step / 2; u < depth.cols; u += step) {
      if (has_depth(depth.at<std::uint16_t>(v, u))) sample_.push_back(pixel_point(depth, k, v, u));
    }
  }
  if (sample_.size() < 50) {
    floor_.reset();
    return floor_;
  }
  // A floor that still fits is kept as it was refined when found: it does
  // not move, and refining it on every frame would only follow the noise.
  if (floor_) {
    const Score kept = score(*floor_, sample_.size());
    if (kept.on >= options_.min_share * sample_.size() &&
        kept.behind <= options_.max_behind_share * sample_.size()) {
      return floor_;
    }
  }
  std::mt19937 rng(static_cast<std::mt19937::result_type>(seed));
  floor_ = search(rng);
  if (floor_) floor_ = refine(*floor_);
  return floor_;
}

std::optional<FloorPlane> FloorFinder::search(std::mt19937& rng) {
  // Hypotheses are scored on a random part of the sample, the winner refined
  // on all of it.
  std::shuffle(sample_.begin(), sample_.end(), rng);
  const std::size_t scoring =
      std::min<std::size_t>(sample_.size(), static_cast<std::size_t>(options_.scoring_points));
  std::uniform_int_distribution<std::size_t> pick(0, sample_.size() - 1);
  std::optional<FloorPlane> best;
  long best_value = 0;
  for (int h = 0; h < options_.hypotheses; ++h) {
    const cv::Vec3f a = sample_[pick(rng)];
    const cv::Vec3f b = sample_[pick(rng)];
    const cv::Vec3f c = sample_[pick(rng)];
    cv::Vec3f normal = (b - a).cross(c - a);
    const float length = static_cast<float>(cv::norm(normal));
    if (length < 1e-3f) continue;
    normal /= length;
    FloorPlane plane{normal, -normal.dot(a)};
    if (plane.offset < 0.0f) plane = {-normal, -plane.offset};
    // The normal points towards the camera, so its z is negative.
    if (-plane.normal[2] < options_.max_angle_cos) continue;
    const Score s = score(plane, scoring);
    const long value = s.on - options_.behind_weight * s.behind;
    if (!best || value > best_value) {
      best = plane;
      best_value = value;
    }
  }
  if (!best || best_value < options_.min_share * scoring) return std::nullopt;
  return best;
}

// Least squares on the points near the plane, then again without the
// points whose residual is beyond three robust deviations (scaled with the
// distance, as the noise is): multipath beside a box's base, flying pixels.
std::optional<FloorPlane> FloorFinder::refine(const FloorPlane& start) {
  FloorPlane plane = start;
  for (int pass = 0; pass < 2; ++pass) {
    inliers_.clear();
    if (pass == 0) {
      for (const cv::Vec3f& p : sample_) {
        if (std::abs(plane.height(p)) <= on_plane_tolerance(p[2])) inliers_.push_back(p);
      }
    } else {
      std::vector<float>& scaled = residuals_;
      scaled.clear();
      for (const cv::Vec3f& p : sample_) {
        const float h = plane.height(p);
        if (std::abs(h) <= on_plane_tolerance(p[2])) scaled.push_back(std::abs(h) * 1000.0f / p[2]);
      }
      if (scaled.size() < 50) return std::nullopt;
      std::nth_element(scaled.begin(), scaled.begin() + scaled.size() / 2, scaled.end());
      const float sigma_at_1m =
          std::max(options_.min_sigma_at_1m_mm, 1.4826f * scaled[scaled.size() / 2]);
      for (const cv::Vec3f& p : sample_) {
        if (std::abs(plane.height(p)) <=
            options_.refine_deviations * sigma_at_1m * p[2] / 1000.0f + 1.0f) {
          inliers_.push_back(p);
        }
      }
    }
    const std::optional<FloorPlane> fitted = fit(inliers_);
    if (!fitted) return std::nullopt;
    plane = *fitted;
  }
  return plane;
}

std::optional<FloorPlane> FloorFinder::fit(const std::vector<cv::Vec3f>& inliers) const {
  if (inliers.size() < 50) return std::nullopt;
  Eigen::Vector3d mean = Eigen::Vector3d::Zero();
  for (const cv::Vec3f& p : inliers) mean += Eigen::Vector3d(p[0], p[1], p[2]);
  mean /= static_cast<double>(inliers.size());
  Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
  for (const cv::Vec3f& p : inliers) {
    const Eigen::Vector3d d = Eigen::Vector3d(p[0], p[1], p[2]) - mean;
    scatter += d * d.transpose();
  }
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(scatter);
  Eigen::Vector3d normal = solver.eigenvectors().col(0);
  double offset = -normal.dot(mean);
  if (offset < 0.0) {
    normal = -normal;
    offset = -offset;
  }
  FloorPlane plane;
  plane.normal = cv::Vec3f(static_cast<float>(normal.x()), static_cast<float>(normal.y()),
                           static_cast<float>(normal.z()));
  plane.offset = static_cast<float>(offset);
  if (-plane.normal[2] < options_.max_angle_cos) return std::nullopt;
  return plane;
}

}  // namespace boxdim::precise
