// Arbitrary bytes as a depth frame file, loaded and measured the way
// `boxdim-cli measure --json` does, with the command's promises checked:
// standard output carries exactly one JSON object for the file, and a file that
// cannot be used costs exactly one line on standard error, naming it.
//
// Input layout: byte 0 chooses how the file is named and sized, bytes 1-4 give
// a width and height (little-endian 16 bits each) for the kinds that use one,
// the rest is the file's content.
//   0  frame.raw                   size only from a 614,400-byte file
//   1  1_WxH-depth_1.raw           size from the name (any 16-bit W and H)
//   2  frame.png
//   3  frame.tif
//   4  frame.raw with --size WxH   W and H folded to 1..1024
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "cli/measure_command.h"

namespace {

constexpr std::size_t kHeaderBytes = 5;
constexpr int kNameKinds = 5;
constexpr int kMaxGivenSide = 1024;

std::filesystem::path scratch_dir;

void fail(const char* promise, const std::string& out, const std::string& err) {
  std::fprintf(stderr, "broken promise: %s\n--- stdout ---\n%s--- stderr ---\n%s\n", promise,
               out.c_str(), err.c_str());
  std::abort();
}

std::size_t count_lines(const std::string& text) {
  std::size_t lines = 0;
  for (char ch : text) lines += ch == '\n';
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  scratch_dir = std::filesystem::temp_directory_path() /
                ("boxdim-depth-file-fuzzer-" + std::to_string(getpid()));
  std::filesystem::create_directories(scratch_dir);
  std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(scratch_dir, ignored);
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint8_t header[kHeaderBytes] = {};
  for (std::size_t i = 0; i < kHeaderBytes && i < size; ++i) header[i] = data[i];
  const int kind = header[0] % kNameKinds;
  const int w = header[1] | header[2] << 8;
  const int h = header[3] | header[4] << 8;

  boxdim::MeasureOptions options;
  options.json = true;
  options.seed = 1;
  std::string name = "frame.raw";
  if (kind == 1) name = "1_" + std::to_string(w) + "x" + std::to_string(h) + "-depth_1.raw";
  if (kind == 2) name = "frame.png";
  if (kind == 3) name = "frame.tif";
  if (kind == 4) options.size = boxdim::FrameSize{1 + w % kMaxGivenSide, 1 + h % kMaxGivenSide};
  const std::string path = (scratch_dir / name).string();
  {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (size > kHeaderBytes) {
      file.write(reinterpret_cast<const char*>(data + kHeaderBytes),
                 static_cast<std::streamsize>(size - kHeaderBytes));
    }
  }
  options.files = {path};

  std::ostringstream out;
  std::ostringstream err;
  const int status = boxdim::run_measure(options, out, err);
  std::filesystem::remove(path);

  if (status < 0 || status > 2) fail("exit status 0, 1 or 2", out.str(), err.str());
  if (count_lines(out.str()) != 1) fail("one line on standard output", out.str(), err.str());
  const auto line = nlohmann::json::parse(out.str(), nullptr, false);
  if (line.is_discarded() || !line.is_object() || line.value("file", "") != path) {
    fail("a JSON object naming the file", out.str(), err.str());
  }
  if (status == 2) {
    const std::string prefix = "boxdim-cli: " + path + ": ";
    if (err.str().rfind(prefix, 0) != 0 || count_lines(err.str()) != 1) {
      fail("one line on standard error naming the file", out.str(), err.str());
    }
  }
  return 0;
}
