#include "cli/depth_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <regex>

namespace boxdim {

namespace {

constexpr std::size_t kFullFrameBytes = 640 * 480 * 2;

bool valid_side(long long side) { return side >= 1 && side <= kMaxFrameSide; }

std::string lower_extension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
  return ext;
}

std::string describe(FrameSize size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

// The size of a regular, non-empty file that can be opened for reading. Pipes
// and devices are refused before anything opens them: opening a pipe would wait
// for a writer.
std::uintmax_t readable_file_size(const std::string& path) {
  std::error_code ec;
  const auto status = std::filesystem::status(path, ec);
  if (ec || !std::filesystem::exists(status)) throw DepthFileError("no such file");
  if (std::filesystem::is_directory(status)) throw DepthFileError("is a directory");
  if (!std::filesystem::is_regular_file(status)) throw DepthFileError("not a regular file");
  const std::uintmax_t bytes = std::filesystem::file_size(path, ec);
  if (ec) throw DepthFileError("cannot be read (" + ec.message() + ")");
  errno = 0;
  if (!std::ifstream(path, std::ios::binary)) {
    throw DepthFileError(std::string("cannot be opened for reading (") + std::strerror(errno) +
                         ")");
  }
  if (bytes == 0) throw DepthFileError("empty file");
  return bytes;
}

// libpng reports a corrupt file on standard error itself, before OpenCV hands
// back the empty image that the reader turns into its own message naming the
// file. Standard error points at /dev/null while a file decodes, so that the
// user sees that one line only.
class DecoderMessagesMuted {
 public:
  DecoderMessagesMuted() {
    std::fflush(stderr);
    saved_ = ::dup(STDERR_FILENO);
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved_ >= 0 && null >= 0) ::dup2(null, STDERR_FILENO);
    if (null >= 0) ::close(null);
  }
  ~DecoderMessagesMuted() {
    if (saved_ < 0) return;
    std::fflush(stderr);
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
  }
  DecoderMessagesMuted(const DecoderMessagesMuted&) = delete;
  DecoderMessagesMuted& operator=(const DecoderMessagesMuted&) = delete;

 private:
  int saved_ = -1;
};

FrameSize raw_frame_size(const std::string& path, std::uintmax_t bytes,
                         std::optional<FrameSize> given) {
  if (given) return *given;
  if (auto from_name = size_from_capture_name(path)) return *from_name;
  if (bytes == kFullFrameBytes) return {640, 480};
  throw DepthFileError(
      "frame size unknown: " + std::to_string(bytes) +
      " bytes is not a 640x480 frame and the name carries no size; give --size WxH");
}

DepthFrame read_raw(const std::string& path, std::optional<FrameSize> given) {
  // Sizes are checked before reading, so a wrong file costs nothing to reject.
  const std::uintmax_t bytes = readable_file_size(path);
  const FrameSize size = raw_frame_size(path, bytes, given);
  const std::uintmax_t expected = std::uintmax_t{2} * size.width * size.height;
  if (bytes < expected) {
    throw DepthFileError("truncated: " + std::to_string(bytes) + " bytes, a " + describe(size) +
                         " frame needs " + std::to_string(expected));
  }
  if (bytes > expected) {
    throw DepthFileError("wrong size: " + std::to_string(bytes) + " bytes, a " + describe(size) +
                         " frame has " + std::to_string(expected));
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) throw DepthFileError("cannot be opened for reading");
  std::vector<unsigned char> raw(static_cast<std::size_t>(expected));
  in.read(reinterpret_cast<char*>(raw.data()), static_cast<std::streamsize>(raw.size()));
  if (in.gcount() != static_cast<std::streamsize>(raw.size())) {
    throw DepthFileError("could not be read to the end");
  }
  DepthFrame frame{size, std::vector<std::uint16_t>(raw.size() / 2)};
  for (std::size_t i = 0; i < frame.samples.size(); ++i) {
    frame.samples[i] = static_cast<std::uint16_t>(raw[2 * i] | (raw[2 * i + 1] << 8));
  }
  return frame;
}

DepthFrame read_image(const std::string& path, std::optional<FrameSize> given) {
  readable_file_size(path);
  cv::Mat image;
  try {
    const DecoderMessagesMuted muted;
    image = cv::imread(path, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    image.release();
  }
  if (image.empty()) throw DepthFileError("not a readable image");
  if (image.type() != CV_16UC1) {
    throw DepthFileError("not a 16-bit single-channel depth image");
  }
  const FrameSize size{image.cols, image.rows};
  if (!valid_side(size.width) || !valid_side(size.height)) {
    throw DepthFileError("image of " + describe(size) + " is larger than " +
                         std::to_string(kMaxFrameSide) + " pixels on a side");
  }
  if (given && (given->width != size.width || given->height != size.height)) {
    throw DepthFileError("image is " + describe(size) + ", not the " + describe(*given) +
                         " given by --size");
  }
  DepthFrame frame{size, {}};
  frame.samples.reserve(image.total());
  for (int r = 0; r < image.rows; ++r) {
    const auto* row = image.ptr<std::uint16_t>(r);
    frame.samples.insert(frame.samples.end(), row, row + image.cols);
  }
  return frame;
}

}  // namespace

FrameSize parse_frame_size(const std::string& text) {
  static const std::regex pattern(R"(^(\d{1,9})x(\d{1,9})$)");
  std::smatch m;
  if (!std::regex_match(text, m, pattern)) {
    throw std::invalid_argument("'" + text + "' is not a size of the form WxH");
  }
  const long long w = std::stoll(m[1]);
  const long long h = std::stoll(m[2]);
  if (!valid_side(w) || !valid_side(h)) {
    throw std::invalid_argument("'" + text + "': each side must be 1 to " +
                                std::to_string(kMaxFrameSide) + " pixels");
  }
  return {static_cast<int>(w), static_cast<int>(h)};
}

std::optional<FrameSize> size_from_capture_name(const std::string& path) {
  static const std::regex pattern(R"(_(\d{1,9}x\d{1,9})-(?:depth|raw|ir)_[^/]*\.raw$)");
  const std::string name = std::filesystem::path(path).filename().string();
  std::smatch m;
  if (!std::regex_search(name, m, pattern)) return std::nullopt;
  try {
    return parse_frame_size(m[1]);
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

DepthFrame read_depth_file(const std::string& path, std::optional<FrameSize> size) {
  const std::string ext = lower_extension(path);
  if (ext == ".png" || ext == ".tif" || ext == ".tiff") return read_image(path, size);
  return read_raw(path, size);
}

void write_raw_depth(const std::string& path, const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  std::vector<char> bytes;
  bytes.reserve(depth.total() * 2);
  for (int r = 0; r < depth.rows; ++r) {
    const auto* row = depth.ptr<std::uint16_t>(r);
    for (int c = 0; c < depth.cols; ++c) {
      bytes.push_back(static_cast<char>(row[c] & 0xFF));
      bytes.push_back(static_cast<char>(row[c] >> 8));
    }
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw DepthFileError("cannot be opened for writing");
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) throw DepthFileError("could not be written completely");
}

}  // namespace boxdim
