// One JSON value as one line of text that every JSON reader accepts. File
// names on Linux are bytes, not text: bytes that are not UTF-8 (a name
// written in Latin-1, say) come out as U+FFFD, the replacement character,
// instead of making the whole line unwritable.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace boxdim {

inline std::string json_line(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace boxdim
