#include "scene/scene_motion.h"

#include <cmath>

namespace boxdim {

SceneParameters scene_at(const SceneParameters& scene, const SceneMotion& motion, double seconds,
                         std::int64_t frame) {
  SceneParameters at = scene;
  at.seed = scene.seed + static_cast<std::uint64_t>(frame);
  const double in_round = motion.every_s > 0.0 ? std::fmod(seconds, motion.every_s) : seconds;
  at.with_box = scene.with_box && in_round >= motion.placed_s && in_round < motion.removed_s;
  const float moved = static_cast<float>(motion.conveyor_mm_s * seconds);
  at.offset_mm.x += moved;
  at.other_boxes.clear();
  for (std::size_t i = 0; i < scene.other_boxes.size(); ++i) {
    if (!motion.other_there(i, seconds)) continue;
    FloorBox box = scene.other_boxes[i];
    // Other boxes are placed relative to the main box: they stay where the
    // main box was at time 0.
    box.offset_mm.x -= moved;
    at.other_boxes.push_back(box);
  }
  return at;
}

}  // namespace boxdim
