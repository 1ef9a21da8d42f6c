// Depth files (raw, PNG, TIFF) as consecutive frames of one camera, in the
// order given.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/camera_intrinsics.h"
#include "source/depth_file.h"
#include "source/frame_source.h"

namespace boxdim {

// The intrinsics for a frame of a size; throws std::invalid_argument with
// the reason when there are none that fit it.
using IntrinsicsForSize = std::function<CameraIntrinsics(cv::Size)>;

// The station camera's intrinsics carried over to the frame's size; throws
// std::invalid_argument, saying to give intrinsics, for a frame that is not
// 4:3 as the camera's own.
CameraIntrinsics default_intrinsics_for(cv::Size size);

class FileSource : public FrameSource {
 public:
  // `size` is the size of raw files that carry none in their name.
  FileSource(std::vector<std::string> paths, std::optional<FrameSize> size,
             IntrinsicsForSize intrinsics = default_intrinsics_for);

  // Frames are owned; the origin is the path, the time the file's
  // modification time. A file that cannot be read, or whose size no
  // intrinsics fit, throws FrameSourceError naming it.
  std::optional<DepthFrame> next() override;

 private:
  const std::vector<std::string> paths_;
  const std::optional<FrameSize> size_;
  const IntrinsicsForSize intrinsics_;
  std::size_t next_ = 0;
};

}  // namespace boxdim
