#include "virtual_camera/capture_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <ostream>
#include <regex>
#include <tuple>
#include <utility>

namespace boxdim::virtual_camera {
namespace {

constexpr int kMaxSide = 4096;

std::optional<CapturedFrame>& slot(CapturedSet& set, const std::string& kind) {
  if (kind == "raw") return set.raw;
  if (kind == "depth") return set.depth;
  return set.ir;
}

void warn(std::ostream& warnings, const std::filesystem::path& file, const std::string& reason) {
  warnings << "corvane_sdk: replay: skipping " << shown_path(file) << ": " << reason << '\n';
}

}  // namespace

std::string shown_path(const std::filesystem::path& path) {
  std::string shown;
  for (const char c : path.string()) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      static const char kHex[] = "0123456789abcdef";
      shown += "\\x";
      shown += kHex[byte >> 4];
      shown += kHex[byte & 15];
    } else {
      shown += c;
    }
  }
  return shown;
}

std::optional<CaptureName> parse_capture_name(const std::string& file_name) {
  // Digit counts bound the numbers so that none can overflow.
  static const std::regex pattern(
      R"(^(\d{1,9})_(\d{1,4})x(\d{1,4})-(raw|depth|ir)_(\d{1,18})(?:_(\d{1,18}))?\.raw$)");
  std::smatch match;
  if (!std::regex_match(file_name, match, pattern)) return std::nullopt;
  CaptureName name;
  name.id = std::stoi(match[1]);
  name.size = cv::Size(std::stoi(match[2]), std::stoi(match[3]));
  name.kind = match[4];
  name.time = std::stoll(match[5]);
  if (match[6].matched) name.counter = std::stoll(match[6]);
  if (name.size.width < 1 || name.size.height < 1 || name.size.width > kMaxSide ||
      name.size.height > kMaxSide) {
    return std::nullopt;
  }
  return name;
}

std::vector<CapturedSet> scan_capture(const std::filesystem::path& folder, std::ostream& warnings) {
  namespace fs = std::filesystem;
  std::map<std::tuple<std::int64_t, std::int64_t, int>, CapturedSet> sets;
  for (const std::string kind : {"raw", "depth", "ir"}) {
    std::error_code error;
    const fs::path subfolder = folder / kind;
    if (!fs::is_directory(subfolder, error)) continue;
    // Sorted, so that which of two clashing files wins does not depend on
    // the file system's order.
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(subfolder, error)) {
      if (entry.is_regular_file(error)) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
      const std::optional<CaptureName> name = parse_capture_name(file.filename().string());
      if (!name) {
        warn(warnings, file, "not named <id>_<W>x<H>-<kind>_<time>.raw");
        continue;
      }
      if (name->kind != kind) {
        warn(warnings, file, "a " + name->kind + " frame in the " + kind + " folder");
        continue;
      }
      const std::uintmax_t expected = static_cast<std::uintmax_t>(name->size.area()) * 2;
      const std::uintmax_t bytes = fs::file_size(file, error);
      if (error || bytes != expected) {
        warn(warnings, file,
             std::to_string(error ? 0 : bytes) + " bytes, not " + std::to_string(expected));
        continue;
      }
      CapturedSet& set = sets[{name->time, name->counter, name->id}];
      set.time = name->time;
      set.counter = name->counter;
      set.id = name->id;
      std::optional<CapturedFrame>& frame = slot(set, kind);
      if (frame) {
        warn(warnings, file, "another " + kind + " frame of the same device, second and counter");
        continue;
      }
      frame = CapturedFrame{file, name->size};
    }
  }
  std::vector<CapturedSet> ordered;
  for (auto& entry : sets) ordered.push_back(std::move(entry.second));
  return ordered;
}

std::vector<std::vector<CapturedSet>> sets_by_camera(std::vector<CapturedSet> sets) {
  std::map<int, std::vector<CapturedSet>> cameras;
  for (CapturedSet& set : sets) {
    if (set.raw || set.depth) cameras[set.id].push_back(std::move(set));
  }
  std::vector<std::vector<CapturedSet>> ordered;
  for (auto& entry : cameras) ordered.push_back(std::move(entry.second));
  return ordered;
}

cv::Mat read_captured_frame(const CapturedFrame& frame) {
  // Opened without waiting and checked to be a plain file before a byte is
  // read: a named pipe put where a frame was would block the open, and so the
  // camera, for ever.
  const int fd = ::open(frame.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return cv::Mat();
  std::vector<unsigned char> bytes(static_cast<std::size_t>(frame.size.area()) * 2);
  struct stat file;
  bool whole = ::fstat(fd, &file) == 0 && S_ISREG(file.st_mode) &&
               static_cast<std::uintmax_t>(file.st_size) == bytes.size();
  std::size_t done = 0;
  while (whole && done < bytes.size()) {
    const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) whole = false;
    if (n > 0) done += static_cast<std::size_t>(n);
  }
  ::close(fd);
  if (!whole) return cv::Mat();
  cv::Mat samples(frame.size, CV_16UC1);
  auto* out = samples.ptr<std::uint16_t>();
  for (std::size_t i = 0; i < bytes.size() / 2; ++i) {
    out[i] = static_cast<std::uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return samples;
}

}  // namespace boxdim::virtual_camera
