#include "source/depth_file.h"

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

#include "source/image_header.h"

namespace boxdim {

namespace {

constexpr std::size_t kFullFrameBytes = 640 * 480 * 2;

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
  if (!std::filesystem::exists(status)) {
    if (ec && ec != std::errc::no_such_file_or_directory) {
      throw DepthFileError("cannot be read (" + ec.message() + ")");
    }
    if (std::filesystem::is_symlink(std::filesystem::symlink_status(path, ec))) {
      throw DepthFileError("no such file (a symbolic link to nothing)");
    }
    throw DepthFileError("no such file");
  }
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

cv::Mat read_raw(const std::string& path, std::optional<FrameSize> given) {
  // Sizes are checked before reading, so a wrong file costs nothing to reject.
  const std::uintmax_t bytes = readable_file_size(path);
  const FrameSize size = raw_frame_size(path, bytes, given);
  if (const std::string problem = frame_size_problem(size); !problem.empty()) {
    throw DepthFileError("frame of " + problem);
  }
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
  cv::Mat depth(size.height, size.width, CV_16UC1);
  in.read(reinterpret_cast<char*>(depth.data), static_cast<std::streamsize>(expected));
  if (in.gcount() != static_cast<std::streamsize>(expected)) {
    throw DepthFileError("could not be read to the end");
  }
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  for (auto it = depth.begin<std::uint16_t>(); it != depth.end<std::uint16_t>(); ++it) {
    *it = static_cast<std::uint16_t>((*it >> 8) | (*it << 8));
  }
#endif
  return depth;
}

// The size the image's header claims, checked before anything is decoded: a
// small file may claim gigabytes of pixels.
FrameSize checked_image_size(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::optional<cv::Size> claimed = image_size_from_header(in);
  if (!claimed) throw DepthFileError("not a readable image");
  const FrameSize size{claimed->width, claimed->height};
  if (const std::string problem = frame_size_problem(size); !problem.empty()) {
    throw DepthFileError("image of " + problem);
  }
  return size;
}

cv::Mat read_image(const std::string& path, std::optional<FrameSize> given) {
  readable_file_size(path);
  const FrameSize claimed = checked_image_size(path);
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
  if (size.width != claimed.width || size.height != claimed.height) {
    throw DepthFileError("not a readable image (its header says " + describe(claimed) +
                         ", its pixels are " + describe(size) + ")");
  }
  if (given && (given->width != size.width || given->height != size.height)) {
    throw DepthFileError("image is " + describe(size) + ", not the " + describe(*given) +
                         " given by --size");
  }
  return image;
}

}  // namespace

std::string frame_size_problem(FrameSize size) {
  const auto area = static_cast<long long>(size.width) * size.height;
  if (size.width < 1 || size.height < 1) return describe(size) + " pixels is empty";
  if (size.width > kMaxFrameSide || size.height > kMaxFrameSide || area > kMaxFramePixels) {
    return describe(size) + " pixels is too large: a frame may have at most " +
           std::to_string(kMaxFrameSide) + " pixels on a side and " +
           std::to_string(kMaxFramePixels) + " pixels in all (2048x2048)";
  }
  return "";
}

FrameSize parse_frame_size(const std::string& text) {
  static const std::regex pattern(R"(^(\d{1,9})x(\d{1,9})$)");
  std::smatch m;
  if (!std::regex_match(text, m, pattern)) {
    throw std::invalid_argument("'" + text + "' is not a size of the form WxH");
  }
  const FrameSize size{std::stoi(m[1]), std::stoi(m[2])};
  if (const std::string problem = frame_size_problem(size); !problem.empty()) {
    throw std::invalid_argument(problem);
  }
  return size;
}

std::optional<FrameSize> size_from_capture_name(const std::string& path) {
  static const std::regex pattern(R"(_(\d{1,9})x(\d{1,9})-(?:depth|raw|ir)_[^/]*\.raw$)");
  const std::string name = std::filesystem::path(path).filename().string();
  std::smatch m;
  if (!std::regex_search(name, m, pattern)) return std::nullopt;
  const FrameSize size{std::stoi(m[1]), std::stoi(m[2])};
  if (size.width < 1 || size.height < 1) return std::nullopt;
  return size;
}

cv::Mat read_depth_file(const std::string& path, std::optional<FrameSize> size) {
  const std::string ext = lower_extension(path);
  if (ext == ".png" || ext == ".tif" || ext == ".tiff") return read_image(path, size);
  return read_raw(path, size);
}

std::vector<unsigned char> raw_depth_bytes(const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  std::vector<unsigned char> bytes;
  bytes.reserve(depth.total() * 2);
  for (int r = 0; r < depth.rows; ++r) {
    const auto* row = depth.ptr<std::uint16_t>(r);
    for (int c = 0; c < depth.cols; ++c) {
      bytes.push_back(static_cast<unsigned char>(row[c] & 0xFF));
      bytes.push_back(static_cast<unsigned char>(row[c] >> 8));
    }
  }
  return bytes;
}

}  // namespace boxdim
