#include "cli/frame_recorder.h"

#include <cstdio>
#include <filesystem>

#include "cli/output.h"
#include "source/depth_file.h"

namespace boxdim {

FrameRecorder::FrameRecorder(std::string dir)
    : depth_dir_((std::filesystem::path(dir) / "depth").string()) {
  create_output_folder(depth_dir_, "capture folder");
}

std::string FrameRecorder::record(const DepthFrame& frame) {
  const long long counter = ++frames_of_camera_[frame.camera_id];
  const long long seconds = frame.timestamp_us >= 0 ? frame.timestamp_us / 1000000 : 0;
  char name[96];
  std::snprintf(name, sizeof name, "%d_%dx%d-depth_%lld_%06lld.raw", frame.camera_id,
                frame.depth.cols, frame.depth.rows, seconds, counter);
  const std::string path = (std::filesystem::path(depth_dir_) / name).string();
  write_file(path, raw_depth_bytes(frame.depth));
  return path;
}

}  // namespace boxdim
