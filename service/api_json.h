// The service's JSON: a stored measurement as the API and the event stream
// report it, and the events as the stream carries them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "core/track_event.h"
#include "service/measurement_record.h"

namespace boxdim::service {

// {"id", "time", "device_id", "track_id", "length_mm", "width_mm",
// "height_mm", "uncertainty_mm", "frames", "proof"}: proof is the picture's
// address on this service, or null.
nlohmann::json measurement_json(const MeasurementRecord& record);

// {"event", "device_id", "track_id", "time"}; a measured event adds the
// stored measurement's keys, or, when it could not be stored, its readings
// with "id": null.
nlohmann::json event_json(const char* event_name, int device_id, int track_id, std::int64_t time_us,
                          const MeasurementRecord* measurement);

// {"error": message}
std::string error_json(const std::string& message);

// Millimetres to a tenth, as the station reports them.
double tenth_mm(double value);

}  // namespace boxdim::service
