// One box measured at the station, as the history keeps it and the service
// reports it: when, by which camera and track, its fused dimensions.
#pragma once

#include <cstdint>
#include <string>

namespace boxdim::service {

struct MeasurementRecord {
  std::int64_t id = 0;       // the history's, from 1; 0 until stored
  std::int64_t time_us = 0;  // UTC, microseconds since 1970, when it was measured
  int device_id = 0;
  int track_id = 0;
  double length_mm = 0.0;
  double width_mm = 0.0;
  double height_mm = 0.0;
  double uncertainty_mm = 0.0;
  int frames = 0;
  bool has_proof = false;  // a proof picture is kept beside the history
};

// "2026-11-23T08:15:02.123Z".
std::string utc_time_text(std::int64_t time_us);
// The inverse, for "YYYY-MM-DDTHH:MM:SS[.fff]Z"; nothing for any other text.
bool parse_utc_time(const std::string& text, std::int64_t& time_us);

}  // namespace boxdim::service
