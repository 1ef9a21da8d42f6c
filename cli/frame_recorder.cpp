#include "cli/frame_recorder.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "cli/output.h"
#include "source/depth_file.h"

namespace boxdim {

namespace {

// The highest counter of each camera's frames already in the folder.
std::map<int, long long> counters_in(const std::string& depth_dir) {
  std::map<int, long long> highest;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(depth_dir, ec), end; !ec && it != end;
       it.increment(ec)) {
    int camera = 0;
    int width = 0;
    int height = 0;
    long long seconds = 0;
    long long counter = 0;
    char tail = 0;
    const std::string name = it->path().filename().string();
    if (std::sscanf(name.c_str(), "%d_%dx%d-depth_%lld_%lld.ra%c", &camera, &width, &height,
                    &seconds, &counter, &tail) == 6 &&
        tail == 'w') {
      long long& top = highest[camera];
      top = std::max(top, counter);
    }
  }
  return highest;
}

}  // namespace

FrameRecorder::FrameRecorder(std::string dir)
    : depth_dir_((std::filesystem::path(dir) / "depth").string()) {
  create_output_folder(depth_dir_, "capture folder");
  frames_of_camera_ = counters_in(depth_dir_);
}

std::string FrameRecorder::record(const DepthFrame& frame) {
  const long long seconds = frame.timestamp_us >= 0 ? frame.timestamp_us / 1000000 : 0;
  const std::vector<unsigned char> bytes = raw_depth_bytes(frame.depth);
  // Another capture into the same folder may have taken the next name.
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const long long counter = ++frames_of_camera_[frame.camera_id];
    char name[96];
    std::snprintf(name, sizeof name, "%d_%dx%d-depth_%lld_%06lld.raw", frame.camera_id,
                  frame.depth.cols, frame.depth.rows, seconds, counter);
    const std::string path = (std::filesystem::path(depth_dir_) / name).string();
    if (write_new_file(path, bytes)) return path;
  }
  throw OutputError(depth_dir_, "has no free name for camera " + std::to_string(frame.camera_id) +
                                    "'s next frame");
}

}  // namespace boxdim
