#include "scene/carton_top.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace boxdim {

namespace {

// How much light the parts of a carton return (white paper about 0.9).
constexpr double kCartonReflectivity = 0.45;
constexpr double kDarkCartonReflectivity = 0.1;
constexpr double kTapeReflectivity = 0.6;
// The gap between the flaps shows the carton's inside, board in the shade
// of the flaps: this share of the board's light. A hand hole's likewise.
constexpr double kCrackShade = 0.4;
constexpr double kHandleShade = 0.2;
// The surface's highest point is sought on a grid this many points a side.
constexpr int kHighestGrid = 161;
// An off-centre bulge peaks at most this far out (share of the half side).
constexpr float kMaxBulgeOffset = 0.7f;

void require(bool ok, const std::string& message) {
  if (!ok) throw std::invalid_argument(message);
}

std::string item(const char* which, const char* name) { return std::string(which) + " " + name; }

void require_range(double value, double low, double high, const char* which, const char* name,
                   const char* unit) {
  require(std::isfinite(value) && value >= low && value <= high,
          item(which, name) + " must lie in [" + std::to_string(low) + ", " + std::to_string(high) +
              "]" + unit + " (got " + std::to_string(value) + ")");
}

double gaussian(double d2, double sigma) { return std::exp(-d2 / (2.0 * sigma * sigma)); }

}  // namespace

bool BoxTop::shaped() const {
  return rim_radius_mm > 0.0f || seam.present || !bumps.empty() || offset_bulge_mm != 0.0f ||
         !notches.empty() || handle.present || !labels.empty() || reflectivity > 0.0f;
}

void validate_box_top(const BoxTop& top, float length_mm, float width_mm, float height_mm,
                      const char* which) {
  const double half_short = 0.5 * std::min(length_mm, width_mm);
  const double half_long = 0.5 * std::max(length_mm, width_mm);
  // A shape may reach at most this far below the lid: the box must hold it.
  const double depth_room = 0.8 * height_mm;
  require_range(top.rim_radius_mm, 0.0, std::min(30.0, 0.5 * half_short), which, "rim radius",
                " mm");
  if (top.seam.present) {
    const CartonSeam& s = top.seam;
    require_range(s.offset_mm, -0.5 * half_short, 0.5 * half_short, which, "seam offset", " mm");
    require_range(s.ridge_mm, -20.0, 20.0, which, "seam ridge", " mm");
    require_range(s.ridge_width_mm, 1.0, half_short, which, "seam ridge width", " mm");
    require_range(s.step_mm, -20.0, 20.0, which, "flap step", " mm");
    require_range(s.crack_width_mm, 0.0, 20.0, which, "crack width", " mm");
    require_range(s.crack_depth_mm, 0.0, depth_room, which, "crack depth", " mm");
    require_range(s.tape_width_mm, 1.0, 2.0 * half_short, which, "tape width", " mm");
  }
  for (const TopBump& b : top.bumps) {
    require_range(b.centre_mm.x, -half_long, half_long, which, "bump centre x", " mm");
    require_range(b.centre_mm.y, -half_long, half_long, which, "bump centre y", " mm");
    require_range(b.height_mm, -20.0, 20.0, which, "bump height", " mm");
    require_range(b.radius_mm, 1.0, 2.0 * half_long, which, "bump radius", " mm");
  }
  require_range(top.offset_bulge_mm, -20.0, 20.0, which, "offset bulge", " mm");
  require_range(top.offset_bulge_at.x, -kMaxBulgeOffset, kMaxBulgeOffset, which,
                "offset bulge position x", "");
  require_range(top.offset_bulge_at.y, -kMaxBulgeOffset, kMaxBulgeOffset, which,
                "offset bulge position y", "");
  for (const TopNotch& n : top.notches) {
    require(n.side >= 0 && n.side <= 3, item(which, "notch side must be 0 to 3"));
    const double along = 0.5 * (n.side % 2 == 0 ? width_mm : length_mm);
    const double inward = 0.5 * (n.side % 2 == 0 ? length_mm : width_mm);
    require_range(n.position_mm, -along, along, which, "notch position", " mm");
    require_range(n.width_mm, 1.0, 2.0 * along, which, "notch width", " mm");
    require_range(n.reach_mm, 1.0, inward, which, "notch reach", " mm");
    require_range(n.drop_mm, 0.0, depth_room, which, "notch drop", " mm");
  }
  if (top.handle.present) {
    const HandleRecess& h = top.handle;
    require_range(h.width_mm, 1.0, half_long, which, "handle width", " mm");
    require_range(h.length_mm, h.width_mm, 2.0 * half_short, which, "handle length", " mm");
    require_range(h.from_end_mm, 0.5 * h.width_mm, half_long, which, "handle position", " mm");
    require_range(h.depth_mm, 0.0, depth_room, which, "handle depth", " mm");
  }
  for (const TopLabel& l : top.labels) {
    require_range(l.reflectivity, 0.01, 1.0, which, "label reflectivity", "");
    require(std::isfinite(l.centre_mm.x) && std::isfinite(l.centre_mm.y) &&
                std::isfinite(l.size_mm.width) && std::isfinite(l.size_mm.height),
            item(which, "label must have a finite place and size"));
  }
  require_range(top.reflectivity, 0.0, 1.0, which, "reflectivity", "");
}

CartonTopShape::CartonTopShape(const BoxTop& top, double half_length, double half_width)
    : top_(top), half_{half_length, half_width} {
  long_axis_ = half_width > half_length ? 1 : 0;
  base_reflectivity_ = top.reflectivity > 0.0f ? top.reflectivity
                       : top.dark              ? kDarkCartonReflectivity
                                               : kCartonReflectivity;
  // The off-centre bulge peaks where (s + 1) / 2 raised to this power is a half.
  for (int a = 0; a < 2; ++a) {
    const double peak = a == 0 ? top.offset_bulge_at.x : top.offset_bulge_at.y;
    bulge_power_[a] = std::log(0.5) / std::log(0.5 * (peak + 1.0));
  }
  double rises = std::abs(top.lid_mm) + std::abs(top.offset_bulge_mm);
  for (const TopBump& b : top.bumps) rises += std::abs(b.height_mm);
  if (top.seam.present) rises += std::abs(top.seam.ridge_mm) + std::abs(top.seam.step_mm);
  double deepest = top.rim_radius_mm;
  if (top.seam.present && !top.seam.taped && top.seam.crack_width_mm > 0.0f) {
    deepest = std::max(deepest, double{top.seam.crack_depth_mm});
  }
  for (const TopNotch& n : top.notches) deepest = std::max(deepest, double{n.drop_mm});
  if (top.handle.present) deepest = std::max(deepest, double{top.handle.depth_mm});
  upper_bound_ = rises;
  lower_bound_ = -(rises + deepest);
  highest_ = -std::numeric_limits<double>::infinity();
  for (int j = 0; j < kHighestGrid; ++j) {
    for (int i = 0; i < kHighestGrid; ++i) {
      const double x = half_[0] * (-1.0 + 2.0 * i / (kHighestGrid - 1));
      const double y = half_[1] * (-1.0 + 2.0 * j / (kHighestGrid - 1));
      highest_ = std::max(highest_, relief(x, y));
    }
  }
}

// A lid held by its walls along one axis: 0 at both edges (s = -1, 1), 1 at
// its peak; 1 - s^2 for a peak in the middle.
double CartonTopShape::held_profile(double s, double power) const {
  const double u = std::clamp(0.5 * (s + 1.0), 0.0, 1.0);
  const double w = std::pow(u, power);
  return 4.0 * w * (1.0 - w);
}

bool CartonTopShape::in_crack(double across) const {
  const CartonSeam& s = top_.seam;
  return s.present && !s.taped && s.crack_width_mm > 0.0f &&
         std::abs(across - s.offset_mm) < 0.5 * s.crack_width_mm;
}

bool CartonTopShape::in_handle(double x, double y) const {
  const HandleRecess& h = top_.handle;
  if (!h.present) return false;
  const double along = long_axis_ == 0 ? x : y;
  const double across = long_axis_ == 0 ? y : x;
  const double end = half_[long_axis_] - h.from_end_mm;
  const double centre = h.at_positive_end ? end : -end;
  // A slot with round ends: within half its width of a segment across.
  const double segment = 0.5 * (h.length_mm - h.width_mm);
  const double beyond = std::max(0.0, std::abs(across) - segment);
  return std::hypot(along - centre, beyond) < 0.5 * h.width_mm;
}

const TopNotch* CartonTopShape::notch_at(double x, double y) const {
  for (const TopNotch& n : top_.notches) {
    const int axis = n.side % 2;  // the axis the notch reaches in along
    const double sign = n.side < 2 ? 1.0 : -1.0;
    const double inward = sign * (axis == 0 ? x : y);
    const double along = axis == 0 ? y : x;
    if (inward > half_[axis] - n.reach_mm && std::abs(along - n.position_mm) < 0.5 * n.width_mm) {
      return &n;
    }
  }
  return nullptr;
}

double CartonTopShape::relief(double x, double y) const {
  double r = 0.0;
  const double xn = x / half_[0];
  const double yn = y / half_[1];
  if (top_.lid_mm != 0.0f) {
    r += top_.lid_mm * std::max(0.0, 1.0 - xn * xn) * std::max(0.0, 1.0 - yn * yn);
  }
  if (top_.offset_bulge_mm != 0.0f) {
    r += top_.offset_bulge_mm * held_profile(xn, bulge_power_[0]) *
         held_profile(yn, bulge_power_[1]);
  }
  for (const TopBump& b : top_.bumps) {
    const double dx = x - b.centre_mm.x;
    const double dy = y - b.centre_mm.y;
    r += b.height_mm * gaussian(dx * dx + dy * dy, b.radius_mm);
  }
  const CartonSeam& s = top_.seam;
  if (s.present) {
    const double across = (long_axis_ == 0 ? y : x) - s.offset_mm;
    if (s.ridge_mm != 0.0f) r += s.ridge_mm * gaussian(across * across, s.ridge_width_mm);
    if (across > 0.0) r += s.step_mm;
  }
  if (top_.rim_radius_mm > 0.0f) {
    const double rr = top_.rim_radius_mm;
    const double inset = std::min(half_[0] - std::abs(x), half_[1] - std::abs(y));
    if (inset < rr) {
      const double from_centre = rr - std::max(0.0, inset);
      r -= rr - std::sqrt(std::max(0.0, rr * rr - from_centre * from_centre));
    }
  }
  if (in_crack(long_axis_ == 0 ? y : x)) r = std::min(r, -double{s.crack_depth_mm});
  if (const TopNotch* n = notch_at(x, y)) r = std::min(r, -double{n->drop_mm});
  if (in_handle(x, y)) r = std::min(r, -double{top_.handle.depth_mm});
  return r;
}

bool CartonTopShape::glossy(double x, double y) const {
  const CartonSeam& s = top_.seam;
  return s.present && s.taped &&
         std::abs((long_axis_ == 0 ? y : x) - s.offset_mm) < 0.5 * s.tape_width_mm;
}

double CartonTopShape::reflectivity(double x, double y) const {
  if (in_crack(long_axis_ == 0 ? y : x)) return kCrackShade * base_reflectivity_;
  if (in_handle(x, y)) return kHandleShade * base_reflectivity_;
  if (glossy(x, y)) return kTapeReflectivity;
  for (const TopLabel& l : top_.labels) {
    if (std::abs(x - l.centre_mm.x) < 0.5 * l.size_mm.width &&
        std::abs(y - l.centre_mm.y) < 0.5 * l.size_mm.height) {
      return l.reflectivity;
    }
  }
  return base_reflectivity_;
}

bool CartonTopShape::step_near(double x, double y, double radius) const {
  const CartonSeam& s = top_.seam;
  if (s.present && (s.step_mm != 0.0f || (!s.taped && s.crack_width_mm > 0.0f))) {
    const double across = (long_axis_ == 0 ? y : x) - s.offset_mm;
    if (std::abs(across) < radius + 0.5 * s.crack_width_mm) return true;
  }
  for (const TopNotch& n : top_.notches) {
    const int axis = n.side % 2;
    const double sign = n.side < 2 ? 1.0 : -1.0;
    const double inward = sign * (axis == 0 ? x : y);
    const double along = std::abs((axis == 0 ? y : x) - n.position_mm);
    if (inward > half_[axis] - n.reach_mm - radius && along < 0.5 * n.width_mm + radius) {
      return true;
    }
  }
  if (top_.handle.present) {
    const HandleRecess& h = top_.handle;
    const double along = long_axis_ == 0 ? x : y;
    const double across = long_axis_ == 0 ? y : x;
    const double end = half_[long_axis_] - h.from_end_mm;
    const double centre = h.at_positive_end ? end : -end;
    if (std::abs(along - centre) < 0.5 * h.width_mm + radius &&
        std::abs(across) < 0.5 * h.length_mm + radius) {
      return true;
    }
  }
  return false;
}

}  // namespace boxdim
