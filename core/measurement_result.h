// What an engine makes of one depth frame: every box it found, which of them
// answers "the box", why nothing was measured when nothing was, and the frame
// as the engine draws it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/geometry.h"
#include "core/track_event.h"

namespace boxdim {

// Only a measured box carries dimensions; for the others they are unknown.
enum class BoxStatus {
  kMeasured,
  kPartial,    // cut by the frame's border or by missing data
  kIrregular,  // the top face is not a rectangle
  kTooSmall,   // a side under the smallest box measured
  kUncertain,  // its size cannot be told within the station's division
};

// "measured", "partial", "irregular", "too_small", "uncertain".
const char* box_status_name(BoxStatus status);

struct BoxMeasurement {
  BoxStatus status = BoxStatus::kMeasured;
  BoxDimensions dimensions;
  // The top face's corners in order around it: in the image (column, row)
  // and in camera coordinates (mm).
  std::vector<cv::Point2f> corners_px;
  std::vector<cv::Point3f> corners_mm;
  cv::Point2f centre_px;
  std::optional<int> track_id;        // when an engine follows boxes from frame to frame
  std::optional<FusedReading> fused;  // its track's reading, once measured in a frame
  std::optional<float> confidence;    // 0 to 1, when an engine grades its boxes
  // Each dimension's uncertainty (mm, about 95 % of errors within it), when
  // an engine tells it (for measured and uncertain boxes).
  std::optional<BoxDimensions> uncertainty;
};

// Why a frame gave no measured box: the stage that gave up (a stable code,
// e.g. "fit_top_plane") and its own last message.
struct StageFailure {
  std::string stage;
  std::string message;
};

struct MeasurementResult {
  int camera_id = 0;
  std::int64_t timestamp_us = 0;
  std::vector<BoxMeasurement> boxes;
  std::optional<std::size_t> primary;   // index into boxes
  std::optional<StageFailure> failure;  // set when no box was measured
  std::vector<TrackEvent> events;       // what this frame changed, when an engine tracks
  double elapsed_ms = 0.0;
  cv::Mat picture;  // 8-bit BGR: the frame with the result drawn on it

  // The box that answers "the box", or nullptr.
  const BoxMeasurement* primary_box() const {
    return primary && *primary < boxes.size() ? &boxes[*primary] : nullptr;
  }
};

}  // namespace boxdim
