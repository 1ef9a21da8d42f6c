#include "precise/floor_finder.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

namespace boxdim::precise {

namespace {

// About this many points of the frame take part; a 640 x 480 frame gives
// every eighth pixel of every eighth row.
constexpr int kSamplePoints = 4800;
constexpr int kHypotheses = 150;
constexpr int kScoringPoints = 1200;
// The camera looks down: the floor's normal lies within this angle of the
// camera's backward axis (a tilt of 30 degrees and the field of view).
constexpr float kMaxFloorAngleCos = 0.6f;  // 53 degrees
// A plane needs this share of the points to be the floor.
constexpr double kMinFloorShare = 0.12;
// A kept floor is found anew when more than this share lies behind it.
constexpr double kMaxBehindShare = 0.01;

// How far (mm) a point may lie off the floor and still count as on it: the
// range noise grows with the distance.
float on_plane_tolerance(float z) { return 6.0f + 0.008f * z; }

struct Score {
  int on = 0;
  int behind = 0;
};

Score score(const FloorPlane& plane, const std::vector<cv::Vec3f>& points, std::size_t count) {
  Score s;
  for (std::size_t i = 0; i < count; ++i) {
    const float h = plane.height(points[i]);
    const float tolerance = on_plane_tolerance(points[i][2]);
    if (std::abs(h) <= tolerance) {
      ++s.on;
    } else if (h < -2.0f * tolerance) {
      ++s.behind;
    }
  }
  return s;
}

}  // namespace

std::optional<FloorPlane> FloorFinder::find(const cv::Mat& depth, const CameraIntrinsics& k,
                                            std::mt19937& rng) {
  const int step =
      std::max(1, static_cast<int>(std::lround(std::sqrt(depth.total() / double(kSamplePoints)))));
  sample_.clear();
  for (int v = step / 2; v < depth.rows; v += step) {
    for (int u = step / 2; u < depth.cols; u += step) {
      if (depth.at<std::uint16_t>(v, u) > 0) sample_.push_back(pixel_point(depth, k, v, u));
    }
  }
  if (sample_.size() < 50) {
    floor_.reset();
    return floor_;
  }
  // A floor that still fits is kept as it was refined when found: it does
  // not move, and refining it on every frame would only follow the noise.
  if (floor_) {
    const Score kept = score(*floor_, sample_, sample_.size());
    if (kept.on >= kMinFloorShare * sample_.size() &&
        kept.behind <= kMaxBehindShare * sample_.size()) {
      return floor_;
    }
  }
  floor_ = search(rng);
  if (floor_) floor_ = refine(*floor_);
  return floor_;
}

std::optional<FloorPlane> FloorFinder::search(std::mt19937& rng) {
  // Hypotheses are scored on a random part of the sample, the winner refined
  // on all of it.
  std::shuffle(sample_.begin(), sample_.end(), rng);
  const std::size_t scoring = std::min<std::size_t>(sample_.size(), kScoringPoints);
  std::uniform_int_distribution<std::size_t> pick(0, sample_.size() - 1);
  std::optional<FloorPlane> best;
  long best_value = 0;
  for (int h = 0; h < kHypotheses; ++h) {
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
    if (-plane.normal[2] < kMaxFloorAngleCos) continue;
    const Score s = score(plane, sample_, scoring);
    const long value = s.on - 4L * s.behind;
    if (!best || value > best_value) {
      best = plane;
      best_value = value;
    }
  }
  if (!best || best_value < kMinFloorShare * scoring) return std::nullopt;
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
      const float sigma_at_1m = std::max(0.3f, 1.4826f * scaled[scaled.size() / 2]);
      for (const cv::Vec3f& p : sample_) {
        if (std::abs(plane.height(p)) <= 3.0f * sigma_at_1m * p[2] / 1000.0f + 1.0f) {
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

std::optional<FloorPlane> FloorFinder::fit(const std::vector<cv::Vec3f>& inliers) {
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
  if (-plane.normal[2] < kMaxFloorAngleCos) return std::nullopt;
  return plane;
}

}  // namespace boxdim::precise
