#include "cli/result_writer.h"

#include <cmath>
#include <iomanip>
#include <sstream>

#include "cli/json_number.h"

namespace boxdim {

std::string result_text(const MeasurementResult& result) {
  std::ostringstream text;
  if (const BoxMeasurement* box = result.primary_box()) {
    text << std::fixed << std::setprecision(1) << "length " << box->dimensions.box_length
         << " mm, width " << box->dimensions.box_width << " mm, height "
         << box->dimensions.box_height << " mm";
  } else if (result.failure) {
    text << "not measured (" << result.failure->stage << " failed)";
  } else {
    text << "not measured (no box)";
  }
  return text.str();
}

nlohmann::json result_json(const MeasurementResult& result) {
  nlohmann::json line = missing_result_json();
  if (const BoxMeasurement* box = result.primary_box()) {
    line["ok"] = true;
    line["length_mm"] = json_number(box->dimensions.box_length);
    line["width_mm"] = json_number(box->dimensions.box_width);
    line["height_mm"] = json_number(box->dimensions.box_height);
    line["corners_px"] = nlohmann::json::array();
    for (const cv::Point2f& c : box->corners_px) {
      line["corners_px"].push_back({json_number(c.x), json_number(c.y)});
    }
  }
  if (result.failure) line["failed_stage"] = result.failure->stage;
  // Microseconds are all the resolution a timing needs.
  line["elapsed_ms"] = std::round(result.elapsed_ms * 1000.0) / 1000.0;
  return line;
}

nlohmann::json missing_result_json() {
  return {{"ok", false},          {"length_mm", nullptr},  {"width_mm", nullptr},
          {"height_mm", nullptr}, {"corners_px", nullptr}, {"failed_stage", nullptr},
          {"elapsed_ms", 0.0}};
}

}  // namespace boxdim
