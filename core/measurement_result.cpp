#include "core/measurement_result.h"

namespace boxdim {

const char* box_status_name(BoxStatus status) {
  switch (status) {
    case BoxStatus::kMeasured:
      return "measured";
    case BoxStatus::kPartial:
      return "partial";
    case BoxStatus::kIrregular:
      return "irregular";
    case BoxStatus::kTooSmall:
      return "too_small";
    case BoxStatus::kUncertain:
      return "uncertain";
  }
  return "unknown";
}

const char* track_event_name(TrackEventKind kind) {
  switch (kind) {
    case TrackEventKind::kPlaced:
      return "placed";
    case TrackEventKind::kMeasured:
      return "measured";
    case TrackEventKind::kRemoved:
      return "removed";
  }
  return "unknown";
}

}  // namespace boxdim
