#include "measure/measurement_state.h"

#include <iostream>
#include <stdexcept>
#include <string>

namespace boxdim {

MeasurementSeams::MeasurementSeams()
    : log(&std::cout), error_log(&std::cerr), seed_clock([] { return std::time(nullptr); }) {}

void set_frame_size(MeasurementState& state, int width, int height) {
  if (width <= 0 || height <= 0) {
    throw std::invalid_argument("frame size must be positive (got " + std::to_string(width) +
                                " x " + std::to_string(height) + ")");
  }
  state.width = width;
  state.height = height;
}

}  // namespace boxdim
