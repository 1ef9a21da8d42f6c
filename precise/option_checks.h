// How the precise engine's options are checked, once, where a detector is
// made: a value out of its range is refused with the option's name.
#pragma once

#include <cmath>
#include <sstream>
#include <stdexcept>
#include <string>

namespace boxdim::precise {

// Throws std::invalid_argument "<name> must lie in [low, high] (got value)"
// unless low <= value <= high (and value is a number).
template <typename T>
void check_option(const char* name, T value, T low, T high) {
  if (value >= low && value <= high) return;
  std::ostringstream text;
  text << name << " must lie in [" << low << ", " << high << "] (got " << value << ")";
  throw std::invalid_argument(text.str());
}

}  // namespace boxdim::precise
