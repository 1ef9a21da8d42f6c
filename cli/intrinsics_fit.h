// Whether intrinsics given on the command line can belong to a frame: a typo
// such as fx = 16 for 506 would otherwise measure a 400 mm box as 12 m.
#pragma once

#include <string>

#include "core/camera_intrinsics.h"
#include "source/depth_file.h"

namespace boxdim {

// Empty when `k` can describe a frame of `size`, else why not: focal lengths
// from 0.1 to 10 times the frame's width, the principal point inside the frame.
std::string intrinsics_misfit(const CameraIntrinsics& k, FrameSize size);

}  // namespace boxdim
