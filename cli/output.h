// Everything the command-line tool writes goes through here, and every write
// is checked: a full disk, a closed pipe or a missing folder stops the run
// with one line naming the output and the reason, instead of a run that looks
// fine and lost its results.
#pragma once

#include <opencv2/core.hpp>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace boxdim {

// Exit status of a run that could not write one of its outputs.
constexpr int kExitOutputFailed = 2;

// An output that could not be written; the message is "<output>: <reason>".
class OutputError : public std::runtime_error {
 public:
  OutputError(const std::string& output, const std::string& reason)
      : std::runtime_error(output + ": " + reason) {}
};

// What standard output is called in messages.
inline const std::string kStandardOutput = "standard output";

// `text` and a newline on `out`, flushed. Throws OutputError naming `output`
// when the stream has failed, now or since its last check (so lines that
// others wrote to it in between are checked too).
void write_line(std::ostream& out, const std::string& text, const std::string& output);

// Flushes `out` and throws OutputError naming `output` when it has failed.
void check_stream(std::ostream& out, const std::string& output);

// `bytes` as the whole content of the file at `path`; throws OutputError
// naming it when it cannot be written whole, and then removes what it wrote.
void write_file(const std::string& path, const std::vector<unsigned char>& bytes);
// The same for a file that must not exist yet: false, writing nothing, when
// it does.
bool write_new_file(const std::string& path, const std::vector<unsigned char>& bytes);

// `picture` as a PNG file at `path`.
void write_png(const std::string& path, const cv::Mat& picture);

// Makes the folder `dir` (and its parents) unless it is there; throws
// OutputError naming it, "cannot create the <what>", when it cannot be made.
void create_output_folder(const std::string& dir, const std::string& what);

}  // namespace boxdim
