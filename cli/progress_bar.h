// A one-line progress bar for long runs, rewritten in place with '\r' on a
// stream of its own (standard error), so that standard output stays clean.
// On a stream that is no terminal (a log file, a pipe) the bar would pile
// up as '\r' lines: there the run's end is one plain line instead.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <ostream>
#include <string>

namespace boxdim {

class ProgressBar {
 public:
  ProgressBar(std::ostream& stream, int total)
      : stream_(stream), total_(total), terminal_(on_terminal(stream)) {}

  // `done` of the total finished; `label` says what is being worked on.
  void update(int done, const std::string& label) {
    done_ = done;
    if (!terminal_) return;
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
  void finish() {
    if (!terminal_) stream_ << std::to_string(done_) + "/" + std::to_string(total_) + " done";
    stream_ << '\n' << std::flush;
  }

  // Whether `stream` is standard error shown on a terminal.
  static bool on_terminal(const std::ostream& stream) {
    return &stream == &std::cerr && ::isatty(STDERR_FILENO) == 1;
  }

 private:
  std::ostream& stream_;
  const int total_;
  const bool terminal_;
  int done_ = 0;
  std::size_t last_width_ = 0;
};

}  // namespace boxdim
