// A scene over time, as a camera films it frame after frame: the box put
// down and taken away, other boxes put down later, a box carried past on a
// conveyor, and fresh noise in every frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "scene/depth_scene.h"

namespace boxdim {

struct SceneMotion {
  // Seconds from the first frame: the main box stands on the floor from
  // placed_s until removed_s.
  double placed_s = 0.0;
  double removed_s = std::numeric_limits<double>::infinity();
  // When positive, the placing and removing come again every this many
  // seconds (a station where box after box is put down): it must exceed
  // removed_s, so that each box is gone before the next one comes.
  double every_s = 0.0;
  // The main box moves along the floor in the untilted image's column
  // direction at this speed (mm/s), from its offset at time 0. The other
  // boxes stand where they are placed relative to the box's offset at time 0.
  float conveyor_mm_s = 0.0f;
  // When each other box is put down and taken away (index-parallel to
  // other_boxes; a box beyond a list's end is there from the start, or
  // until the end).
  std::vector<double> others_placed_s;
  std::vector<double> others_removed_s;

  // Whether anything changes over time.
  bool still() const {
    return placed_s <= 0.0 && removed_s == std::numeric_limits<double>::infinity() &&
           every_s <= 0.0 && conveyor_mm_s == 0.0f && others_placed_s.empty() &&
           others_removed_s.empty();
  }

  // Whether other box `i` stands on the floor at `seconds`.
  bool other_there(std::size_t i, double seconds) const {
    return (i >= others_placed_s.size() || seconds >= others_placed_s[i]) &&
           (i >= others_removed_s.size() || seconds < others_removed_s[i]);
  }
};

// The scene at `seconds` after the first frame, in frame number `frame`: the
// boxes where and whether they are then, and noise seeded for that frame.
SceneParameters scene_at(const SceneParameters& scene, const SceneMotion& motion, double seconds,
                         std::int64_t frame);

}  // namespace boxdim
