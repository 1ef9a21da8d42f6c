#include "cli/intrinsics_fit.h"

#include <sstream>

namespace boxdim {

namespace {

constexpr double kMinFocalPerWidth = 0.1;
constexpr double kMaxFocalPerWidth = 10.0;

}  // namespace

std::string intrinsics_misfit(const CameraIntrinsics& k, FrameSize size) {
  const double min_focal = kMinFocalPerWidth * size.width;
  const double max_focal = kMaxFocalPerWidth * size.width;
  std::ostringstream reason;
  const auto frame = [&] { return std::to_string(size.width) + "x" + std::to_string(size.height); };
  if (k.fx < min_focal || k.fx > max_focal || k.fy < min_focal || k.fy > max_focal) {
    reason << "focal lengths fx " << k.fx << ", fy " << k.fy << " do not fit a " << frame()
           << " frame (" << min_focal << " to " << max_focal << " px)";
  } else if (k.cx < 0.0f || k.cx > size.width - 1 || k.cy < 0.0f || k.cy > size.height - 1) {
    reason << "principal point (" << k.cx << ", " << k.cy << ") lies outside a " << frame()
           << " frame";
  }
  return reason.str();
}

}  // namespace boxdim
