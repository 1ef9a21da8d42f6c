#include "measure/plane_fitting.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ostream>

#include "measure/point_selection.h"
#include "measure/top_face.h"

namespace boxdim {

namespace {

constexpr int kRansacIterations = 100;
constexpr float kSeedDistanceThresholdMm = 15.0f;
// Later passes stay within acos(0.9), about 26 degrees, of the previous plane.
constexpr float kMinNormalAgreement = 0.9f;
constexpr double kConvergedCosine = 0.999;

Eigen::Vector3f to_eigen(const cv::Point3f& p) { return {p.x, p.y, p.z}; }

// Reselection threshold: 3.5 mean inlier distances, at least 25 mm.
int reselection_distance(float plane_mean_distance) {
  return static_cast<int>(std::max(25.0, 3.5 * plane_mean_distance));
}

// RANSAC threshold of the refinement passes: 2.5 mean inlier distances, at
// least 20 mm.
float refit_threshold(float plane_mean_distance) {
  return static_cast<float>(std::max(20.0, 2.5 * plane_mean_distance));
}

void set_plane(PlaneEquation& plane, const float normal[3], float d) {
  plane = {normal[0], normal[1], normal[2], d};
}

// Refines state.plane in place through refine_plane's pointer interface.
void refine_state_plane(MeasurementState& state, const std::vector<cv::Point3f>& inliers) {
  float normal[3] = {state.plane.a, state.plane.b, state.plane.c};
  float d = state.plane.d;
  refine_plane(state, inliers, normal, &d);
  set_plane(state.plane, normal, d);
}

}  // namespace

bool fit_top_plane(MeasurementState& state, int passes) {
  if (!ransacPlaneFitting(state, state.selected_points, kRansacIterations, kSeedDistanceThresholdMm,
                          &state.plane_mean_distance, true)) {
    return false;
  }
  state.last_ransac_equation = state.plane;
  // The seed window may have caught only part of the face, so too few points
  // here is no reason to stop yet.
  select_points_by_plane(state, reselection_distance(state.plane_mean_distance));
  extract_top_face(state);

  std::ostream& log = stage_log(state);
  for (int i = 0; i < passes; ++i) {
    if (!ransacPlaneFitting(state, state.selected_points, kRansacIterations,
                            refit_threshold(state.plane_mean_distance), &state.plane_mean_distance,
                            false)) {
      return false;
    }
    if (!select_points_by_plane(state, reselection_distance(state.plane_mean_distance))) {
      return false;
    }
    extract_top_face(state);

    const PlaneEquation& p = state.plane;
    const PlaneEquation& last = state.last_ransac_equation;
    const float cosine = p.c * last.c + p.b * last.b + p.a * last.a;
    if (cosine > kConvergedCosine) {
      log << "num_iterate: " << i << '\n';
      break;
    }
    state.last_ransac_equation = state.plane;
  }

  const PlaneEquation& p = state.plane;
  log << "last_ransac_equation "
      << ":  " << p.a << "x + " << p.b << "y + " << p.c << "z + " << p.d << " = 0" << '\n';
  state.top_plane_pixels = state.selected_pixels;
  return true;
}

bool ransacPlaneFitting(MeasurementState& state, const std::vector<cv::Point3f>& points,
                        int maxIterations, float distanceThreshold, float* meanDistance,
                        bool first) {
  std::srand(static_cast<unsigned>(state.seams.seed_clock()));
  std::ostream& log = stage_log(state);

  const int numPoints = static_cast<int>(points.size());
  if (numPoints < 50) {
    log << "ransacPlaneFitting  numPoints less than 50;  " << '\n';
    log << "numPoints  " << numPoints << '\n';
    return false;
  }

  const Eigen::Vector3f last_normal(state.last_ransac_equation.a, state.last_ransac_equation.b,
                                    state.last_ransac_equation.c);
  float bestScore = 10000000.0f;
  int bestCount = 0;
  // The refinement gets the inliers of the last candidate that was scored,
  // not necessarily the best one: after an early stop they coincide, and
  // otherwise this is how the stage has always chosen.
  std::vector<cv::Point3f> inliers;

  for (int k = 0; k < maxIterations; ++k) {
    const int i1 = std::rand() % numPoints;
    int i2 = std::rand() % numPoints;
    int i3 = std::rand() % numPoints;
    while (i1 == i2 || i1 == i3 || i2 == i3) {
      i2 = std::rand() % numPoints;
      i3 = std::rand() % numPoints;
    }
    const Eigen::Vector3f p1 = to_eigen(points[i1]);
    Eigen::Vector3f n = (to_eigen(points[i2]) - p1).cross(to_eigen(points[i3]) - p1);
    n.normalize();  // leaves a zero vector as it is
    if (n.z() == 0.0f) continue;
    float d = -n.dot(p1);
    if (n.z() < 0.0f) {
      n = -n;
      d = -d;
    }
    if (!first && n.dot(last_normal) < kMinNormalAgreement) continue;
    if (d > 0.0f) continue;

    inliers.clear();
    int count = 0;
    float sum = 0.0f;
    for (const cv::Point3f& p : points) {
      const float dist = std::fabs(n.x() * p.x + n.y() * p.y + n.z() * p.z + d);
      if (dist < distanceThreshold) {
        ++count;
        sum += dist;
        inliers.push_back(p);
      }
    }
    const float mean = sum / static_cast<float>(count + 1);
    const float score = mean * static_cast<float>(numPoints / (count + 1));
    if (score < bestScore && count > numPoints / 5) {
      bestScore = score;
      bestCount = count;
      *meanDistance = mean;
    }
    if (numPoints * 99.0 < bestCount * 100.0) {
      log << "ransc times: " << k << '\n';
      break;
    }
  }

  refine_state_plane(state, inliers);
  log << static_cast<std::int64_t>(bestCount) * 100 / numPoints << " " << *meanDistance << '\n';
  if (state.plane.c <= 0.0f) {
    log << "ransacPlaneFitting failed !!" << '\n';
    return false;
  }
  return true;
}

void refine_plane(MeasurementState& state, const std::vector<cv::Point3f>& inliers, float* normal,
                  float* d) {
  // Sums written out rather than Eigen reductions: an empty inlier list must
  // give a (meaningless) NaN plane, not trip an assertion.
  Eigen::Vector3f centroid = Eigen::Vector3f::Zero();
  for (const cv::Point3f& p : inliers) centroid += to_eigen(p);
  centroid /= static_cast<float>(inliers.size());

  Eigen::Matrix3f scatter = Eigen::Matrix3f::Zero();
  for (const cv::Point3f& p : inliers) {
    const Eigen::Vector3f q = to_eigen(p) - centroid;
    scatter += q * q.transpose();
  }

  // The scatter matrix is symmetric, so the self-adjoint solver applies; it
  // returns eigenvalues in ascending order, which puts the plane's normal (the
  // direction of least spread) in column 0, taken as the solver returns it.
  // The general solver orders its output by its Schur form instead, and on a
  // face seen from above that puts an in-plane direction first.
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver(scatter, Eigen::ComputeEigenvectors);
  if (solver.info() != Eigen::Success) {
    *state.seams.error_log << "EigenSolver failed!" << '\n';
    return;
  }
  Eigen::Vector3f n = solver.eigenvectors().col(0);
  float offset = -n.dot(centroid);
  if (offset > 0.0f) {
    n = -n;
    offset = -offset;
  }
  normal[0] = n.x();
  normal[1] = n.y();
  normal[2] = n.z();
  *d = offset;
}

}  // namespace boxdim
