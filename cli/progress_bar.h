// A one-line progress bar for long runs, rewritten in place with '\r' on a
// stream of its own (standard error), so that standard output stays clean.
#pragma once

#include <algorithm>
#include <ostream>
#include <string>

namespace boxdim {

class ProgressBar {
 public:
  ProgressBar(std::ostream& stream, int total) : stream_(stream), total_(total) {}

  // `done` of the total finished; `label` says what is being worked on.
  void update(int done, const std::string& label) {
    constexpr int kWidth = 30;
    const int filled = total_ > 0 ? done * kWidth / total_ : kWidth;
    const std::string line = "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') +
                             "] " + std::to_string(done) + "/" + std::to_string(total_) + " " +
                             label;
    // Padding wipes what a longer label left behind.
    const std::size_t width = std::max(line.size(), last_width_);
    stream_ << '\r' << line << std::string(width - line.size(), ' ') << std::flush;
    last_width_ = line.size();
  }

  // Ends the line, so that whatever follows starts on a fresh one.
  void finish() { stream_ << '\n' << std::flush; }

 private:
  std::ostream& stream_;
  const int total_;
  std::size_t last_width_ = 0;
};

}  // namespace boxdim
