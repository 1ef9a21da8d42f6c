#include "virtual_camera/frame_formats.h"

namespace boxdim::virtual_camera {
namespace {

const cv::Size kHigh(640, 480);
const cv::Size kLow(320, 240);

}  // namespace

int sensor_kind(int kind) { return kind == Corvane::kFrameIr ? Corvane::kFrameDepth : kind; }

std::optional<cv::Size> resolution_size(int kind, int resolution) {
  switch (kind) {
    case Corvane::kFrameRaw:
    case Corvane::kFrameDepth:
    case Corvane::kFrameIr:
      if (resolution == 1) return kLow;
      if (resolution == 2) return kHigh;
      return std::nullopt;
    case Corvane::kFrameColor:
      if (resolution == 2) return kLow;
      if (resolution == 4) return kHigh;
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

const std::vector<int>& stream_kinds(int stream_type) {
  using namespace Corvane;
  static const std::vector<std::vector<int>> kinds = {
      {},
      {kFrameRaw},
      {kFrameDepth},
      {kFrameColor},
      {kFrameDepth, kFrameIr},
      {kFrameDepth, kFrameColor},
      {kFrameDepth, kFrameIr, kFrameColor},
      {kFrameDepth, kFrameColor},
  };
  const bool known = stream_type >= 1 && stream_type < static_cast<int>(kinds.size());
  return kinds[known ? stream_type : 0];
}

std::size_t frame_bytes(cv::Size size) { return static_cast<std::size_t>(size.area()) * 2; }

CameraIntrinsics scaled_intrinsics(cv::Size size) {
  return scale_intrinsics(CameraIntrinsics{}, kHigh, size);
}

}  // namespace boxdim::virtual_camera
