#include "service/api_json.h"

#include <cmath>

namespace boxdim::service {

double tenth_mm(double value) { return std::round(value * 10.0) / 10.0; }

nlohmann::json measurement_json(const MeasurementRecord& r) {
  nlohmann::json j;
  j["id"] = r.id ? nlohmann::json(r.id) : nlohmann::json(nullptr);
  j["time"] = utc_time_text(r.time_us);
  j["device_id"] = r.device_id;
  j["track_id"] = r.track_id;
  j["length_mm"] = tenth_mm(r.length_mm);
  j["width_mm"] = tenth_mm(r.width_mm);
  j["height_mm"] = tenth_mm(r.height_mm);
  j["uncertainty_mm"] = tenth_mm(r.uncertainty_mm);
  j["frames"] = r.frames;
  j["proof"] = r.has_proof && r.id
                   ? nlohmann::json("/api/v1/measurements/" + std::to_string(r.id) + "/proof.png")
                   : nlohmann::json(nullptr);
  return j;
}

nlohmann::json event_json(const char* event_name, int device_id, int track_id, std::int64_t time_us,
                          const MeasurementRecord* measurement) {
  nlohmann::json j;
  j["event"] = event_name;
  j["device_id"] = device_id;
  j["track_id"] = track_id;
  j["time"] = utc_time_text(time_us);
  if (measurement) {
    const nlohmann::json m = measurement_json(*measurement);
    for (const char* key :
         {"id", "length_mm", "width_mm", "height_mm", "uncertainty_mm", "frames", "proof"}) {
      j[key] = m[key];
    }
  }
  return j;
}

std::string error_json(const std::string& message) {
  // A message may quote what a request said, which need not be UTF-8.
  return nlohmann::json{{"error", message}}.dump(-1, ' ', false,
                                                 nlohmann::json::error_handler_t::replace);
}

}  // namespace boxdim::service
