#include "cli/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>

namespace boxdim {

namespace {

// The reason the last system call gave, when there is one.
std::string system_reason(const char* fallback) {
  return errno != 0 ? std::string(std::strerror(errno)) : std::string(fallback);
}

}  // namespace

void check_stream(std::ostream& out, const std::string& output) {
  errno = 0;
  out.flush();
  if (!out) throw OutputError(output, "cannot be written (" + system_reason("write failed") + ")");
}

void write_line(std::ostream& out, const std::string& text, const std::string& output) {
  errno = 0;
  out << text << '\n';
  check_stream(out, output);
}

namespace {

// Writes the whole file, opened with `flags`; a file left half written is
// removed, so that what stays on the disk is whole. False when the file
// exists and `flags` ask for a new one.
bool write_whole_file(const std::string& path, const std::vector<unsigned char>& bytes, int flags) {
  errno = 0;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666);
  if (fd < 0) {
    if (errno == EEXIST && (flags & O_EXCL)) return false;
    throw OutputError(path, "cannot be opened for writing (" + system_reason("open failed") + ")");
  }
  // Only a plain file is removed: a device, a pipe or a terminal named as
  // the output is no half-written file, and is not ours to remove.
  struct stat file;
  const bool plain = ::fstat(fd, &file) == 0 && S_ISREG(file.st_mode);
  const auto fail = [&](const std::string& reason) {
    if (plain) ::unlink(path.c_str());
    throw OutputError(path, "could not be written completely (" + reason + ")");
  };
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      // A write that took nothing without an error is a full disk.
      const std::string reason = n == 0 ? std::strerror(ENOSPC) : system_reason("write failed");
      ::close(fd);
      fail(reason);
    }
    written += static_cast<std::size_t>(n);
  }
  // A network or full file system may only report the failure on close.
  if (::close(fd) != 0) fail(system_reason("close failed"));
  return true;
}

}  // namespace

void write_file(const std::string& path, const std::vector<unsigned char>& bytes) {
  write_whole_file(path, bytes, O_TRUNC);
}

bool write_new_file(const std::string& path, const std::vector<unsigned char>& bytes) {
  return write_whole_file(path, bytes, O_EXCL);
}

void write_png(const std::string& path, const cv::Mat& picture) {
  std::vector<unsigned char> png;
  bool encoded = false;
  try {
    encoded = cv::imencode(".png", picture, png);
  } catch (const cv::Exception&) {
    encoded = false;
  }
  if (!encoded) throw OutputError(path, "the picture could not be encoded as PNG");
  write_file(path, png);
}

void create_output_folder(const std::string& dir, const std::string& what) {
  // Why it could not be made, kept apart from the check that follows (which
  // would only say that it does not exist).
  std::error_code made;
  std::filesystem::create_directories(dir, made);
  std::error_code checked;
  if (!std::filesystem::is_directory(dir, checked)) {
    const std::error_code& why = made ? made : checked;
    throw OutputError(
        dir, "cannot create the " + what + (why ? " (" + why.message() + ")" : std::string()));
  }
}

}  // namespace boxdim
