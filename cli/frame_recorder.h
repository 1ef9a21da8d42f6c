// Every frame the cameras deliver, kept in the folder layout the virtual
// camera replays (BOXDIM_CAMERA=replay:DIR): depth/<camera>_<W>x<H>-depth_
// <seconds>_<counter>.raw, bare little-endian 16-bit samples. The counter
// numbers each camera's frames on from the highest already in the folder,
// and a frame never replaces a file: a second capture into the folder, or
// two at once, keep every frame.
#pragma once

#include <map>
#include <string>

#include "core/depth_frame.h"

namespace boxdim {

class FrameRecorder {
 public:
  // Makes DIR/depth; throws OutputError when it cannot.
  explicit FrameRecorder(std::string dir);

  // Writes the frame; throws OutputError when it cannot (nothing of it is
  // left behind then). Returns its path.
  std::string record(const DepthFrame& frame);

 private:
  std::string depth_dir_;
  std::map<int, long long> frames_of_camera_;
};

}  // namespace boxdim
