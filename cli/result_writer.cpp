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
  } else if (result.failure && result.failure->stage == box_status_name(BoxStatus::kUncertain)) {
    // Not a failure: a refusal, with its reason.
    text << "not measured (uncertain: " << result.failure->message << ")";
  } else if (result.failure) {
    text << "not measured (" << result.failure->stage << " failed)";
  } else {
    text << "not measured (no box)";
  }
  // The line is about the box nearest the centre; the others are counted.
  if (result.boxes.size() > 1) {
    std::size_t measured = 0;
    for (const BoxMeasurement& box : result.boxes) measured += box.status == BoxStatus::kMeasured;
    text << "; " << result.boxes.size() << " boxes in view, " << measured << " measured";
  }
  return text.str();
}

namespace {

nlohmann::json corners_json(const std::vector<cv::Point2f>& corners) {
  nlohmann::json list = nlohmann::json::array();
  for (const cv::Point2f& c : corners) list.push_back({json_number(c.x), json_number(c.y)});
  return list;
}

nlohmann::json box_json(const BoxMeasurement& box) {
  const bool measured = box.status == BoxStatus::kMeasured;
  const auto dimension = [measured](float value) {
    return measured ? nlohmann::json(json_number(value)) : nlohmann::json(nullptr);
  };
  return {{"status", box_status_name(box.status)},
          {"length_mm", dimension(box.dimensions.box_length)},
          {"width_mm", dimension(box.dimensions.box_width)},
          {"height_mm", dimension(box.dimensions.box_height)},
          {"corners_px", corners_json(box.corners_px)},
          {"center_px", {json_number(box.centre_px.x), json_number(box.centre_px.y)}},
          {"confidence",
           box.confidence ? nlohmann::json(json_number(*box.confidence)) : nlohmann::json(nullptr)},
          {"uncertainty_mm", box.uncertainty
                                 ? nlohmann::json({json_number(box.uncertainty->box_length),
                                                   json_number(box.uncertainty->box_width),
                                                   json_number(box.uncertainty->box_height)})
                                 : nlohmann::json(nullptr)}};
}

}  // namespace

nlohmann::json result_json(const MeasurementResult& result, const std::string& engine) {
  nlohmann::json line = missing_result_json();
  line["engine"] = engine;
  line["boxes"] = nlohmann::json::array();
  for (const BoxMeasurement& box : result.boxes) line["boxes"].push_back(box_json(box));
  if (const BoxMeasurement* box = result.primary_box()) {
    line["ok"] = true;
    line["length_mm"] = json_number(box->dimensions.box_length);
    line["width_mm"] = json_number(box->dimensions.box_width);
    line["height_mm"] = json_number(box->dimensions.box_height);
    line["corners_px"] = corners_json(box->corners_px);
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
