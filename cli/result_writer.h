// One writer for every command that prints results (measure, live): the words
// that follow a file name or a camera's frame number, and the JSON keys.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "core/measurement_result.h"

namespace boxdim {

// "length 400.0 mm, width 300.0 mm, height 200.0 mm" for the primary box, or
// "not measured (<stage> failed)"; with more than one box in view, followed
// by "; 3 boxes in view, 2 measured".
std::string result_text(const MeasurementResult& result);

// The primary box as "ok", "length_mm", "width_mm", "height_mm",
// "corners_px" (null when not measured), "failed_stage" and "elapsed_ms";
// "engine"; and "boxes", every box the engine found: "status",
// "length_mm", "width_mm", "height_mm" (null unless measured), "corners_px",
// "center_px" and "confidence" (null when the engine gives none).
nlohmann::json result_json(const MeasurementResult& result, const std::string& engine);

// The same keys for a frame that could not be had: not ok, nulls, 0 ms.
nlohmann::json missing_result_json();

}  // namespace boxdim
