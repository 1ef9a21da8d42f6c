// What a tracker says about a box over time: it appeared, its reading settled,
// it left. One box placed gives one `measured` event, however many frames
// it stays for.
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>

#include "core/geometry.h"

namespace boxdim {

// A box's dimensions estimated from all the frames it was measured in.
struct FusedReading {
  BoxDimensions dimensions;
  // How far the estimate may be from the box's size (mm): the largest of the
  // three dimensions' standard errors.
  float uncertainty_mm = 0.0f;
  int frames = 0;  // the frames it was measured in
};

enum class TrackEventKind {
  kPlaced,    // a new box appeared: seen in a few frames, measured in one
  kMeasured,  // its reading settled; once per box
  kRemoved,   // it left
};

// "placed", "measured", "removed".
const char* track_event_name(TrackEventKind kind);

struct TrackEvent {
  TrackEventKind kind = TrackEventKind::kPlaced;
  int track_id = 0;
  std::int64_t time_us = 0;  // of the frame that gave the event
  FusedReading reading;      // for kMeasured
  // Where the box's top was in that frame (column, row), for kPlaced and
  // kMeasured: what a proof image outlines.
  std::array<cv::Point2f, 4> corners_px{};
};

}  // namespace boxdim
