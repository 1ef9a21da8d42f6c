// Where depth frames come from: a list of files, a rendered sequence, the
// cameras behind the SDK. A source hands them out one at a time.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "core/depth_frame.h"

namespace boxdim {

// A frame the source could not deliver (a file that cannot be read); the
// source goes on with the next one on the next call.
class FrameSourceError : public std::runtime_error {
 public:
  FrameSourceError(std::string origin, const std::string& reason)
      : std::runtime_error(reason), origin_(std::move(origin)) {}
  // The file (or device) the frame should have come from.
  const std::string& origin() const { return origin_; }

 private:
  std::string origin_;
};

class FrameSource {
 public:
  virtual ~FrameSource() = default;

  // The next frame, or nothing when the source has no more. Throws
  // FrameSourceError for a frame that could not be had.
  virtual std::optional<DepthFrame> next() = 0;
};

}  // namespace boxdim
