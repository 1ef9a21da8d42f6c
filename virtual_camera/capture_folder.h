// Reading a folder as the program's frame capture writes it: depth/, raw/ and ir/ holding
// <id>_<W>x<H>-<kind>_<time>.raw files of W * H bare little-endian 16-bit samples. A
// recording of every frame adds a frame counter, <time>_<counter>, as seconds alone would
// name 30 frames alike.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

namespace boxdim::virtual_camera {

struct CaptureName {
  int id = 0;
  cv::Size size;
  std::string kind;          // "raw", "depth" or "ir"
  std::int64_t time = 0;     // seconds
  std::int64_t counter = 0;  // the frame's number in a recording of every frame; 0 without
};

// nullopt unless the name has the capture's form.
std::optional<CaptureName> parse_capture_name(const std::string& file_name);

struct CapturedFrame {
  std::filesystem::path path;
  cv::Size size;
};

// The frames one device captured within one second, or as one numbered frame.
struct CapturedSet {
  std::int64_t time = 0;
  std::int64_t counter = 0;
  int id = 0;
  std::optional<CapturedFrame> raw;
  std::optional<CapturedFrame> depth;
  std::optional<CapturedFrame> ir;
};

// The folder's sets in time order, then by counter, then by id. Every file that does not
// parse, sits in the wrong subfolder or holds the wrong number of bytes is
// skipped with one line on `warnings`. Only names and sizes are read.
std::vector<CapturedSet> scan_capture(const std::filesystem::path& folder, std::ostream& warnings);

// The playable sets (those with a raw or depth frame: infrared only comes
// along with depth) of each camera that the capture holds, by camera id.
std::vector<std::vector<CapturedSet>> sets_by_camera(std::vector<CapturedSet> sets);

// A path as a log line shows it: control characters (a newline in a file
// name would start a line of its own) as \xNN.
std::string shown_path(const std::filesystem::path& path);

// The frame's samples as CV_16UC1; empty when the file cannot be read whole.
cv::Mat read_captured_frame(const CapturedFrame& frame);

}  // namespace boxdim::virtual_camera
