// Floats for JSON output: the shortest decimal that reads back as the same
// float, so 0.3f prints as 0.3 rather than 0.30000001192092896.
#pragma once

#include <charconv>
#include <cmath>
#include <string>

namespace boxdim {

inline double json_number(float value) {
  if (!std::isfinite(value)) return value;
  char text[32];
  const auto result = std::to_chars(text, text + sizeof(text), value);
  return std::stod(std::string(text, result.ptr));
}

}  // namespace boxdim
