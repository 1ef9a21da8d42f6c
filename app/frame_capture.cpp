#include "app/frame_capture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace boxdim {

namespace {

const char* kind_word(int kind) {
  switch (kind) {
    case 1:
      return "raw";
    case 2:
      return "depth";
    case 3:
      return "ir";
    default:
      return "";
  }
}

}  // namespace

void make_folder(std::string& path_out, const std::string& name) {
  char working_directory[PATH_MAX];
  const char* base = getcwd(working_directory, sizeof working_directory);
  path_out = std::string(base != nullptr ? base : "") + "/" + name + "/";
  // Fails harmlessly when the folder is already there; a folder that cannot be
  // made shows up as a file that cannot be opened, which is skipped as well.
  mkdir(path_out.c_str(), 0777);
}

void save_frame(int device_id, const void* samples, int kind, int width, int height) {
  const std::string word = kind_word(kind);
  std::string folder;
  make_folder(folder, word);
  // Named to the second: a second frame within the same second replaces the first.
  const long long seconds = static_cast<long long>(std::time(nullptr));
  const std::string path = folder + std::to_string(device_id + 1) + "_" + std::to_string(width) +
                           "x" + std::to_string(height) + "-" + word + "_" +
                           std::to_string(seconds) + ".raw";
  std::FILE* file = std::fopen(path.c_str(), "wb+");
  if (file == nullptr) return;
  const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  errno = 0;
  const bool written = std::fwrite(samples, sizeof(std::uint16_t), count, file) == count;
  // A full disk may only tell when the buffered rest goes out.
  const bool closed = std::fclose(file) == 0;
  // Whether the last frame's failure was reported: a full disk fails every
  // frame, and one line says it; a frame written again ends the streak.
  static bool failing = false;
  if (written && closed) {
    failing = false;
    return;
  }
  const int error = errno;
  // The half-written frame, when it is a plain file (not a device put there).
  struct stat written_file;
  if (::stat(path.c_str(), &written_file) == 0 && S_ISREG(written_file.st_mode)) {
    std::remove(path.c_str());
  }
  if (!failing) {
    std::fprintf(stderr, "save_frame: %s could not be written completely (%s); not kept\n",
                 path.c_str(), error != 0 ? std::strerror(error) : "write failed");
    std::fflush(stderr);
  }
  failing = true;
}

}  // namespace boxdim
