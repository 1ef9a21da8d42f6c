#include "cli/measure_command.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/intrinsics_fit.h"
#include "cli/json_line.h"
#include "cli/json_number.h"
#include "cli/output.h"
#include "cli/output_paths.h"
#include "cli/result_text.h"
#include "measure/frame_preparation.h"
#include "pipeline/station_pipeline.h"

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

// Given intrinsics are taken as they are; the default ones describe the
// 640 x 480 mode and are carried over to the frame's own size.
CameraIntrinsics intrinsics_for(const MeasureOptions& options, FrameSize size) {
  if (options.intrinsics) {
    const std::string misfit = intrinsics_misfit(*options.intrinsics, size);
    if (!misfit.empty()) throw DepthFileError("--intrinsics: " + misfit);
    return *options.intrinsics;
  }
  return scale_intrinsics(CameraIntrinsics{}, kDefaultIntrinsicsSize,
                          cv::Size(size.width, size.height));
}

nlohmann::json json_object(const std::string& file, const FileResult* result,
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

std::vector<std::string> annotation_paths(const MeasureOptions& options) {
  std::vector<std::string> paths;
  if (options.annotate_dir.empty()) return paths;
  for (const std::string& file : options.files) {
    paths.push_back(
        (std::filesystem::path(options.annotate_dir) / std::filesystem::path(file).stem())
            .string() +
        ".png");
  }
  return paths;
}

// Why the pictures cannot be written as asked, before any is: one would
// replace an input, or two would share a file. Empty when all is well.
std::string annotation_clash(const MeasureOptions& options, const std::vector<std::string>& paths) {
  const std::optional<PathClash> clash = find_path_clash(options.files, paths);
  if (!clash) return "";
  const std::string& of = options.files[clash->output];
  if (clash->with_input) {
    return "--annotate would write the picture of " + of + " over the input " +
           options.files[clash->other];
  }
  return "--annotate would write the pictures of " + options.files[clash->other] + " and " + of +
         " to the same file " + paths[clash->output];
}

void prepare_annotation_dir(const std::string& dir) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (!std::filesystem::is_directory(dir, ec)) {
    throw OutputError(dir, "cannot create the annotation folder" +
                               (ec ? " (" + ec.message() + ")" : std::string()));
  }
}

}  // namespace

int run_measure(const MeasureOptions& options, std::ostream& out, std::ostream& err) {
  const std::vector<std::string> pictures = annotation_paths(options);
  if (const std::string clash = annotation_clash(options, pictures); !clash.empty()) {
    err << "boxdim-cli: " << clash << '\n';
    return kExitBadInput;
  }

  MeasurementState state;
  state.seams.log = options.json ? &err : &out;
  state.seams.error_log = &err;
  if (options.seed) {
    const std::time_t seed = *options.seed;
    state.seams.seed_clock = [seed] { return seed; };
  }

  int status = 0;
  try {
    if (!pictures.empty()) prepare_annotation_dir(options.annotate_dir);
    for (std::size_t i = 0; i < options.files.size(); ++i) {
      const std::string& file = options.files[i];
      FileResult result;
      try {
        const DepthFrame frame = read_depth_file(file, options.size);
        state.intrinsics = intrinsics_for(options, frame.size);
        result = measure_file(state, frame);
      } catch (const std::exception& e) {
        err << "boxdim-cli: " << file << ": " << e.what() << '\n';
        status = kExitBadInput;
        if (options.json)
          write_line(out, json_line(json_object(file, nullptr, e.what())), kStandardOutput);
        continue;
      }
      if (!result.outcome.ok && status == 0) status = kExitMeasurementFailed;
      write_line(
          out, options.json ? json_line(json_object(file, &result, "")) : human_line(file, result),
          kStandardOutput);
      if (!pictures.empty()) write_png(pictures[i], result.shown);
    }
  } catch (const OutputError& e) {
    err << "boxdim-cli: " << e.what() << '\n';
    return kExitOutputFailed;
  }
  return status;
}

}  // namespace boxdim
