#include "source/file_source.h"

#include <sys/stat.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace boxdim {

namespace {

std::int64_t modification_time_us(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return 0;
  return static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1000000 + info.st_mtim.tv_nsec / 1000;
}

}  // namespace

CameraIntrinsics default_intrinsics_for(cv::Size size) {
  // Scaled alike in both axes only: a frame of another shape is not the
  // default camera's, binned or not, and scaling it would stretch its pixels.
  if (static_cast<long long>(size.width) * kDefaultIntrinsicsSize.height !=
      static_cast<long long>(size.height) * kDefaultIntrinsicsSize.width) {
    throw std::invalid_argument(
        "a " + std::to_string(size.width) + "x" + std::to_string(size.height) +
        " frame is not 4:3 like the default camera's 640x480, whose intrinsics would stretch its "
        "pixels: give --intrinsics fx,fy,cx,cy");
  }
  return scale_intrinsics(CameraIntrinsics{}, kDefaultIntrinsicsSize, size);
}

FileSource::FileSource(std::vector<std::string> paths, std::optional<FrameSize> size,
                       IntrinsicsForSize intrinsics)
    : paths_(std::move(paths)), size_(size), intrinsics_(std::move(intrinsics)) {}

std::optional<DepthFrame> FileSource::next() {
  if (next_ >= paths_.size()) return std::nullopt;
  const std::string& path = paths_[next_++];
  DepthFrame frame;
  try {
    frame.depth = read_depth_file(path, size_);
    frame.intrinsics = intrinsics_(frame.depth.size());
  } catch (const std::exception& e) {
    throw FrameSourceError(path, e.what());
  }
  frame.timestamp_us = modification_time_us(path);
  frame.origin = path;
  return frame;
}

}  // namespace boxdim
