#include "cli/measure_command.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "cli/json_number.h"
#include "cli/result_text.h"
#include "measure/frame_preparation.h"
#include "measure/pipeline.h"

namespace boxdim {

namespace {

constexpr int kExitMeasurementFailed = 1;
constexpr int kExitBadInput = 2;

struct FileResult {
  MeasurementOutcome outcome;
  BoxDimensions dimensions;
  std::vector<cv::Point2f> corners;  // the top face's image corners
  double elapsed_ms = 0.0;
  cv::Mat shown;  // the picture the station would show for this frame
};

FileResult measure_file(MeasurementState& state, const DepthFrame& frame) {
  FileResult result;
  const auto start = std::chrono::steady_clock::now();
  set_frame_size(state, frame.size.width, frame.size.height);
  prepare_frame(state, frame.samples.data(), result.shown);
  result.outcome = run_measurement(state);
  if (result.outcome.ok) result.shown = state.result_image.clone();
  result.elapsed_ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  result.dimensions = state.dimensions;
  result.corners = state.box_corners;
  return result;
}

nlohmann::json json_line(const std::string& file, const FileResult* result,
                         const std::string& error) {
  nlohmann::json line;
  line["file"] = file;
  const bool measured = result != nullptr && result->outcome.ok;
  line["ok"] = measured;
  const auto dimension = [&](float value) {
    return measured ? nlohmann::json(json_number(value)) : nlohmann::json(nullptr);
  };
  line["length_mm"] = dimension(result ? result->dimensions.box_length : 0.0f);
  line["width_mm"] = dimension(result ? result->dimensions.box_width : 0.0f);
  line["height_mm"] = dimension(result ? result->dimensions.box_height : 0.0f);
  line["failed_stage"] = (result && result->outcome.failed_stage)
                             ? nlohmann::json(result->outcome.failed_stage)
                             : nlohmann::json(nullptr);
  line["corners_px"] = nullptr;
  if (measured) {
    line["corners_px"] = nlohmann::json::array();
    for (const cv::Point2f& c : result->corners) {
      line["corners_px"].push_back({json_number(c.x), json_number(c.y)});
    }
  }
  // Microseconds are all the resolution a timing needs.
  line["elapsed_ms"] = result ? std::round(result->elapsed_ms * 1000.0) / 1000.0 : 0.0;
  if (!error.empty()) line["error"] = error;
  return line;
}

std::string human_line(const std::string& file, const FileResult& result) {
  std::ostringstream line;
  line << file << ": ";
  line << result_text(result.outcome, result.dimensions);
  line << std::fixed << std::setprecision(1) << " [" << result.elapsed_ms << " ms]";
  return line.str();
}

void write_annotation(const std::string& dir, const std::string& file, const cv::Mat& picture) {
  const std::string path =
      (std::filesystem::path(dir) / std::filesystem::path(file).stem()).string() + ".png";
  bool written = false;
  try {
    written = cv::imwrite(path, picture);
  } catch (const cv::Exception&) {
    written = false;
  }
  if (!written) throw DepthFileError("picture " + path + " could not be written");
}

void prepare_annotation_dir(const std::string& dir) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (!std::filesystem::is_directory(dir, ec)) {
    throw DepthFileError("cannot create the annotation folder");
  }
}

}  // namespace

int run_measure(const MeasureOptions& options, std::ostream& out, std::ostream& err) {
  MeasurementState state;
  state.seams.log = options.json ? &err : &out;
  state.seams.error_log = &err;
  if (options.seed) {
    const std::time_t seed = *options.seed;
    state.seams.seed_clock = [seed] { return seed; };
  }
  if (options.intrinsics) state.intrinsics = *options.intrinsics;

  int status = 0;
  const auto report_error = [&](const std::string& what, const std::string& reason) {
    err << "boxdim-cli: " << what << ": " << reason << '\n';
    status = kExitBadInput;
  };

  bool annotate = !options.annotate_dir.empty();
  if (annotate) {
    try {
      prepare_annotation_dir(options.annotate_dir);
    } catch (const DepthFileError& e) {
      report_error(options.annotate_dir, e.what());
      annotate = false;
    }
  }

  for (const std::string& file : options.files) {
    DepthFrame frame;
    FileResult result;
    try {
      frame = read_depth_file(file, options.size);
      result = measure_file(state, frame);
    } catch (const std::exception& e) {
      report_error(file, e.what());
      if (options.json) out << json_line(file, nullptr, e.what()).dump() << '\n' << std::flush;
      continue;
    }
    if (!result.outcome.ok && status == 0) status = kExitMeasurementFailed;
    if (options.json) {
      out << json_line(file, &result, "").dump() << '\n';
    } else {
      out << human_line(file, result) << '\n';
    }
    out.flush();
    if (annotate) {
      try {
        write_annotation(options.annotate_dir, file, result.shown);
      } catch (const DepthFileError& e) {
        report_error(file, e.what());
      }
    }
  }
  return status;
}

}  // namespace boxdim
