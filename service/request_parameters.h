// The query parameters of the measurement list, checked once: what a client
// may ask for, with a message naming the parameter when it asks wrongly.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "service/measurement_history.h"

namespace boxdim::service {

struct ParsedQuery {
  HistoryQuery query;
  std::string problem;  // empty when the parameters are good
};

// `since`: a measurement id (those after it) or a UTC time
// "YYYY-MM-DDTHH:MM:SS[.fff]Z" (those measured at or after it); `limit`: how
// many, 1 to `max_limit`, `default_limit` when absent. Any other parameter is
// a mistake worth telling.
ParsedQuery parse_history_query(const std::multimap<std::string, std::string>& params,
                                int default_limit, int max_limit);

// A whole number from 0 that fits, with nothing else in the text.
std::optional<long long> parse_id(const std::string& text);

}  // namespace boxdim::service
