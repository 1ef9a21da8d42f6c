#include "app/frame_capture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
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
  std::fwrite(samples, sizeof(std::uint16_t),
              static_cast<std::size_t>(width) * static_cast<std::size_t>(height), file);
  std::fclose(file);
}

}  // namespace boxdim
