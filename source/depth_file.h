// Depth frames on disk: bare little-endian 16-bit samples as the station's
// frame capture writes them, or 16-bit PNG/TIFF images.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace boxdim {

struct FrameSize {
  int width = 0;
  int height = 0;
};

// The largest frame accepted from a file or the command line: depth cameras
// make at most a few megapixels, and one frame of this size is measured in
// under 300 MB.
constexpr int kMaxFrameSide = 4096;
constexpr long long kMaxFramePixels = 2048LL * 2048;

// Why a file cannot be used; the message names the reason, not the file.
class DepthFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Empty when a frame of `size` can be measured, else why not (too large).
std::string frame_size_problem(FrameSize size);

// "640x480" -> {640, 480}; throws std::invalid_argument on anything else,
// or on a size that frame_size_problem refuses.
FrameSize parse_frame_size(const std::string& text);

// The size written into a capture file name, "..._640x480-depth_....raw".
std::optional<FrameSize> size_from_capture_name(const std::string& path);

// The samples (CV_16UC1, millimetres) of a raw frame (size from `size`, else
// the capture name, else 640 x 480 for a file of exactly 614,400 bytes) or of
// a 16-bit PNG/TIFF image, whose size is checked in its header before it is
// decoded. Throws DepthFileError when the file is unreadable, truncated, too
// large or of the wrong size.
cv::Mat read_depth_file(const std::string& path, std::optional<FrameSize> size);

// A CV_16UC1 image as the bytes of a raw frame: bare little-endian samples.
std::vector<unsigned char> raw_depth_bytes(const cv::Mat& depth);

}  // namespace boxdim
