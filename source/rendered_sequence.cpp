#include "source/rendered_sequence.h"

#include <utility>

namespace boxdim {

RenderedSequence::RenderedSequence(std::vector<SceneParameters> scenes, int camera_id,
                                   int frames_per_second)
    : scenes_(std::move(scenes)), camera_id_(camera_id), frames_per_second_(frames_per_second) {}

std::optional<DepthFrame> RenderedSequence::next() {
  if (next_ >= scenes_.size()) return std::nullopt;
  const SceneParameters& scene = scenes_[next_];
  RenderedScene rendered = render_scene(scene);
  truth_ = rendered.truth;
  DepthFrame frame;
  frame.depth = rendered.depth;
  frame.intrinsics = scene.intrinsics;
  frame.camera_id = camera_id_;
  frame.timestamp_us = static_cast<std::int64_t>(next_) * 1000000 / frames_per_second_;
  ++next_;
  return frame;
}

}  // namespace boxdim
