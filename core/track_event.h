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
  // How far the estimate may be from the box's size (mm), each dimension's
  // (about 95 % of readings within it), and the largest of the three.
  BoxDimensions uncertainty;
  float uncertainty_mm = 0.0f;
  // The largest of the medians' standard errors (mm): how far the reading
  // still moves from frame to frame, which says when it has settled.
  float standard_error_mm = 0.0f;
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
