#include "engine/last_line_log.h"

namespace boxdim {

namespace {

// Without the spaces around it; empty when it holds nothing else.
std::string trimmed(const std::string& line) {
  const std::size_t first = line.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return line.substr(first, line.find_last_not_of(' ') - first + 1);
}

}  // namespace

LastLineLog::LastLineLog(std::ostream& log, std::ostream& error_log)
    : log_buffer_(log, *this),
      error_buffer_(error_log, *this),
      log_(&log_buffer_),
      error_log_(&error_buffer_) {}

std::string LastLineLog::last_line() const {
  const std::string unfinished = trimmed(current_);
  return unfinished.empty() ? last_ : unfinished;
}

void LastLineLog::clear() {
  current_.clear();
  last_.clear();
}

void LastLineLog::note(const char* text, std::streamsize count) {
  for (std::streamsize i = 0; i < count; ++i) {
    if (text[i] != '\n') {
      current_ += text[i];
      continue;
    }
    if (std::string line = trimmed(current_); !line.empty()) last_ = std::move(line);
    current_.clear();
  }
}

LastLineLog::Tee::int_type LastLineLog::Tee::overflow(int_type ch) {
  if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
  const char c = traits_type::to_char_type(ch);
  owner_.note(&c, 1);
  target_.put(c);
  return ch;
}

std::streamsize LastLineLog::Tee::xsputn(const char* text, std::streamsize count) {
  owner_.note(text, count);
  target_.write(text, count);
  return count;
}

int LastLineLog::Tee::sync() {
  target_.flush();
  return 0;
}

}  // namespace boxdim
