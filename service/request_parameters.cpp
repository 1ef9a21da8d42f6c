#include "service/request_parameters.h"

#include <charconv>

namespace boxdim::service {
namespace {

// What a request said, short enough to quote back.
std::string quoted(const std::string& text) {
  return text.size() <= 40 ? text : text.substr(0, 40) + "...";
}

}  // namespace

std::optional<long long> parse_id(const std::string& text) {
  long long value = 0;
  const char* end = text.data() + text.size();
  const auto [at, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || at != end || value < 0) return std::nullopt;
  return value;
}

ParsedQuery parse_history_query(const std::multimap<std::string, std::string>& params,
                                int default_limit, int max_limit) {
  ParsedQuery parsed;
  parsed.query.limit = default_limit;
  for (const auto& [name, value] : params) {
    if (params.count(name) > 1) {
      parsed.problem = quoted(name) + ": given more than once";
      return parsed;
    }
    if (name == "since") {
      std::int64_t time_us = 0;
      if (const std::optional<long long> id = parse_id(value)) {
        parsed.query.after_id = *id;
      } else if (parse_utc_time(value, time_us)) {
        parsed.query.since_time_us = time_us;
      } else {
        parsed.problem = "since: '" + quoted(value) +
                         "' is neither a measurement id nor a UTC time like "
                         "2026-11-23T08:15:02Z";
        return parsed;
      }
    } else if (name == "limit") {
      const std::optional<long long> limit = parse_id(value);
      if (!limit || *limit < 1 || *limit > max_limit) {
        parsed.problem = "limit: '" + quoted(value) + "' is not a whole number from 1 to " +
                         std::to_string(max_limit);
        return parsed;
      }
      parsed.query.limit = static_cast<int>(*limit);
    } else {
      parsed.problem = "unknown parameter '" + quoted(name) + "' (since, limit)";
      return parsed;
    }
  }
  return parsed;
}

}  // namespace boxdim::service
