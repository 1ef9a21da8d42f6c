// Rendered scenes as the frames of one camera, at its frame rate: a still
// box seen again and again, a box carried past, a camera that moves. Each
// frame keeps its ground truth.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "scene/depth_scene.h"
#include "source/frame_source.h"

namespace boxdim {

class RenderedSequence : public FrameSource {
 public:
  // One frame per scene, `frames_per_second` apart, as camera `camera_id`.
  explicit RenderedSequence(std::vector<SceneParameters> scenes, int camera_id = 1,
                            int frames_per_second = 30);

  // Owned frames with the scene's own intrinsics.
  std::optional<DepthFrame> next() override;

  // What the frame last handed out shows.
  const SceneGroundTruth& truth() const { return truth_; }

 private:
  const std::vector<SceneParameters> scenes_;
  const int camera_id_;
  const int frames_per_second_;
  std::size_t next_ = 0;
  SceneGroundTruth truth_;
};

}  // namespace boxdim
