#include "scene/sensor_model.h"

#include <cmath>
#include <stdexcept>
#include <string>

namespace boxdim {

namespace {

void require_range(double value, double low, double high, const char* name) {
  if (!(std::isfinite(value) && value >= low && value <= high)) {
    throw std::invalid_argument(std::string("sensor ") + name + " must lie in [" +
                                std::to_string(low) + ", " + std::to_string(high) + "] (got " +
                                std::to_string(value) + ")");
  }
}

}  // namespace

void validate_sensor(const SensorModel& s) {
  require_range(s.footprint_samples, 1, 16, "footprint samples");
  require_range(s.depth_step_at_1m_mm, 0.01, 50.0, "depth step at 1 m");
  require_range(s.edge_blur_px, 0.0, 5.0, "edge blur");
  require_range(s.min_amplitude, 0.0, 1.0, "minimum amplitude");
  require_range(s.reflectivity_bias_mm, -20.0, 20.0, "reflectivity bias");
  require_range(s.glossy_dropout, 0.0, 1.0, "glossy dropout");
  require_range(s.fixed_pattern_mm, -50.0, 50.0, "fixed pattern");
  require_range(s.fixed_ramp_x_mm, -50.0, 50.0, "fixed ramp x");
  require_range(s.fixed_ramp_y_mm, -50.0, 50.0, "fixed ramp y");
  require_range(s.wiggle_mm, -50.0, 50.0, "wiggle");
  require_range(s.wiggle_period_mm, 10.0, 100000.0, "wiggle period");
  require_range(s.wiggle_phase_rad, -100.0, 100.0, "wiggle phase");
}

}  // namespace boxdim
