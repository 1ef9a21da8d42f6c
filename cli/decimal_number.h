// Numbers as the command line takes them: the whole token, in decimal. "0x10",
// " 5", "5mm", "-1" for a count or a value beyond the type's range are refused,
// never read as something else.
#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>

namespace boxdim {

// The number `text` spells, or nothing. Floating-point values must be finite.
template <typename Number>
std::optional<Number> parse_decimal(const std::string& text) {
  Number value{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
  if constexpr (std::is_floating_point_v<Number>) {
    if (!std::isfinite(value)) return std::nullopt;
  }
  return value;
}

// A check for a CLI11 option: a decimal number from `min` to `max`.
template <typename Number>
CLI::Validator decimal_in(Number min, Number max) {
  return CLI::Validator(
      [min, max](std::string& text) -> std::string {
        const std::optional<Number> value = parse_decimal<Number>(text);
        // Spelled as a decimal number but beyond the type (-1 for a count, a
        // seed of 2^64) is a range problem, not a spelling one.
        const bool spelled_right =
            value.has_value() || (parse_decimal<long double>(text).has_value() &&
                                  (std::is_floating_point_v<Number> ||
                                   text.find_first_not_of("-0123456789") == std::string::npos));
        std::ostringstream reason;
        if (!spelled_right) {
          reason << "'" << text << "' is not a "
                 << (std::is_integral_v<Number> ? "whole decimal number" : "decimal number");
        } else if (!value || *value < min || *value > max) {
          reason << "'" << text << "' is not from " << +min << " to " << +max;
        }
        return reason.str();
      },
      "");
}

// Any finite decimal number; what is sensible is checked where the value is used.
inline CLI::Validator finite_decimal() {
  return decimal_in<float>(-std::numeric_limits<float>::max(), std::numeric_limits<float>::max());
}

}  // namespace boxdim
