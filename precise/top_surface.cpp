#include "precise/top_surface.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>

namespace boxdim::precise {

namespace {

// The surface's highest point is sought on a grid of this many points a side.
constexpr int kHeightGrid = 17;
constexpr int kTerms = 9;
// Term k is x^px[k] * y^py[k]: 1, x, y, x^2, xy, y^2, x^2 y, x y^2, x^2 y^2.
constexpr int px[kTerms] = {0, 1, 0, 2, 1, 0, 2, 1, 2};
constexpr int py[kTerms] = {0, 0, 1, 0, 1, 2, 1, 2, 2};

// A surface a top is fitted with: each of its terms a combination of the
// full terms above.
struct SurfaceModel {
  int used = 0;
  double terms[kTerms][kTerms] = {};
};

// The surfaces a top takes, simplest first: level; a lid held level by its
// four walls that sags or bulges between them; a plane (a box not quite
// square on the floor, or a floor a little off); such a lid on such a
// plane. Each is held by the walls, so that its rim height comes from every
// height of the top: a general curved surface would read it from the few
// at the noisiest corners, and overshoot where a lid does not curve (one
// flap over the other). Whatever else the lid does, the heights themselves
// tell (see TopHeight).
const std::array<SurfaceModel, 4>& surface_models() {
  static const std::array<SurfaceModel, 4> models = [] {
    // (1 - x^2)(1 - y^2) = 1 - x^2 - y^2 + x^2 y^2: nothing at the rim.
    const double lid[kTerms] = {1, 0, 0, -1, 0, -1, 0, 0, 1};
    std::array<SurfaceModel, 4> m;
    m[0].used = 1;
    m[1].used = 2;
    m[2].used = 3;
    m[3].used = 4;
    for (SurfaceModel& model : m) model.terms[0][0] = 1.0;
    std::copy(lid, lid + kTerms, m[1].terms[1]);
    for (int i = 1; i < 3; ++i) m[2].terms[i][i] = m[3].terms[i][i] = 1.0;
    std::copy(lid, lid + kTerms, m[3].terms[3]);
    return m;
  }();
  return models;
}

void terms(float x, float y, double* t) {
  const double xx = double(x) * x;
  const double yy = double(y) * y;
  t[0] = 1.0;
  t[1] = x;
  t[2] = y;
  t[3] = xx;
  t[4] = double(x) * y;
  t[5] = yy;
  t[6] = xx * y;
  t[7] = double(x) * yy;
  t[8] = xx * yy;
}

// Solves the leading n x n block of a x = b, a symmetric and positive
// definite, by Cholesky; false when it is singular.
template <int N>
bool solve_leading(const cv::Matx<double, N, N>& a, const cv::Matx<double, N, 1>& b, int n,
                   double* x) {
  double l[N][N] = {};
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = a(i, j);
      for (int k = 0; k < j; ++k) sum -= l[i][k] * l[j][k];
      if (i == j) {
        if (sum <= 1e-12) return false;
        l[i][i] = std::sqrt(sum);
      } else {
        l[i][j] = sum / l[j][j];
      }
    }
  }
  double y[N] = {};
  for (int i = 0; i < n; ++i) {
    double sum = b(i);
    for (int k = 0; k < i; ++k) sum -= l[i][k] * y[k];
    y[i] = sum / l[i][i];
  }
  for (int i = n - 1; i >= 0; --i) {
    double sum = y[i];
    for (int k = i + 1; k < n; ++k) sum -= l[k][i] * x[k];
    x[i] = sum / l[i][i];
  }
  return true;
}

}  // namespace

void TopMoments::add(float x, float y, float height) {
  double xp[5] = {1.0, x, 0, 0, 0};
  double yp[5] = {1.0, y, 0, 0, 0};
  for (int p = 2; p < 5; ++p) {
    xp[p] = xp[p - 1] * x;
    yp[p] = yp[p - 1] * y;
  }
  for (int a = 0; a < 5; ++a) {
    for (int b = 0; b < 5; ++b) xy[a][b] += xp[a] * yp[b];
  }
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) h[a][b] += height * xp[a] * yp[b];
  }
  hh += double(height) * height;
  n += 1.0;
}

TopMoments& TopMoments::operator+=(const TopMoments& other) {
  for (int a = 0; a < 5; ++a) {
    for (int b = 0; b < 5; ++b) xy[a][b] += other.xy[a][b];
  }
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) h[a][b] += other.h[a][b];
  }
  hh += other.hh;
  n += other.n;
  return *this;
}

TopMoments TopMoments::swapped() const {
  TopMoments t = *this;
  for (int a = 0; a < 5; ++a) {
    for (int b = 0; b < 5; ++b) t.xy[a][b] = xy[b][a];
  }
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) t.h[a][b] = h[b][a];
  }
  return t;
}

TopMoments TopMoments::flipped(bool flip_x, bool flip_y) const {
  // A sum over x^a y^b changes sign with x -> -x when a is odd.
  const auto sign = [&](int a, int b) {
    return ((flip_x && a % 2 == 1) != (flip_y && b % 2 == 1)) ? -1.0 : 1.0;
  };
  TopMoments t = *this;
  for (int a = 0; a < 5; ++a) {
    for (int b = 0; b < 5; ++b) t.xy[a][b] = sign(a, b) * xy[a][b];
  }
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) t.h[a][b] = sign(a, b) * h[a][b];
  }
  return t;
}

double TopSurface::at(float x, float y) const {
  double t[kTerms];
  terms(x, y, t);
  double value = 0.0;
  for (int i = 0; i < kTerms; ++i) value += coefficients[i] * t[i];
  return value;
}

TopSurface fit_top_surface(const TopMoments& m, float half_x, float half_y) {
  cv::Matx<double, kTerms, kTerms> ata;
  cv::Matx<double, kTerms, 1> atb;
  for (int i = 0; i < kTerms; ++i) {
    atb(i) = m.h[px[i]][py[i]];
    for (int j = 0; j < kTerms; ++j) ata(i, j) = m.xy[px[i] + px[j]][py[i] + py[j]];
  }
  const double n = m.n;
  TopSurface best;
  double best_criterion = std::numeric_limits<double>::infinity();
  for (const SurfaceModel& model : surface_models()) {
    // The model's own normal equations, from the full ones: its terms are
    // combinations of the full terms.
    cv::Matx<double, kTerms, kTerms> gram;
    cv::Matx<double, kTerms, 1> projected;
    for (int a = 0; a < model.used; ++a) {
      for (int i = 0; i < kTerms; ++i) projected(a) += model.terms[a][i] * atb(i);
      for (int b = 0; b < model.used; ++b) {
        for (int i = 0; i < kTerms; ++i) {
          if (model.terms[a][i] == 0.0) continue;
          for (int j = 0; j < kTerms; ++j) {
            gram(a, b) += model.terms[a][i] * ata(i, j) * model.terms[b][j];
          }
        }
      }
    }
    double c[kTerms] = {};
    if (!solve_leading(gram, projected, model.used, c)) continue;
    // Residual sum of squares from the normal equations: h.h - c.(B^T h).
    double explained = 0.0;
    for (int a = 0; a < model.used; ++a) explained += c[a] * projected(a);
    const double rss = std::max(1e-9, m.hh - explained);
    const double criterion = n * std::log(rss / n) + model.used * std::log(n);
    if (criterion >= best_criterion) continue;
    best_criterion = criterion;
    double coefficients[kTerms] = {};
    for (int a = 0; a < model.used; ++a) {
      for (int i = 0; i < kTerms; ++i) coefficients[i] += c[a] * model.terms[a][i];
    }
    TopSurface surface;
    surface.rms = static_cast<float>(std::sqrt(rss / n));
    surface.slope = static_cast<float>(std::hypot(coefficients[1] / std::max(1.0f, half_x),
                                                  coefficients[2] / std::max(1.0f, half_y)));
    std::copy(coefficients, coefficients + kTerms, surface.coefficients);
    double highest = -std::numeric_limits<double>::infinity();
    for (int gy = 0; gy < kHeightGrid; ++gy) {
      for (int gx = 0; gx < kHeightGrid; ++gx) {
        highest = std::max(highest, surface.at(-1.0f + 2.0f * gx / (kHeightGrid - 1),
                                               -1.0f + 2.0f * gy / (kHeightGrid - 1)));
      }
    }
    surface.highest = static_cast<float>(highest);
    best = surface;
  }
  return best;
}

}  // namespace boxdim::precise
