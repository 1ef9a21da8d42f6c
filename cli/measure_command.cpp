#include "cli/measure_command.h"

#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "cli/intrinsics_fit.h"
#include "cli/json_line.h"
#include "cli/output.h"
#include "cli/output_paths.h"
#include "cli/result_writer.h"
#include "engine/engine_factory.h"
#include "source/file_source.h"

namespace boxdim {

namespace {

constexpr int kExitMeasurementFailed = 1;
constexpr int kExitBadInput = 2;

// Given intrinsics are taken as they are, when they fit the frame; the
// default ones are carried over to the frame's size.
IntrinsicsForSize intrinsics_policy(const MeasureOptions& options) {
  if (!options.intrinsics) return default_intrinsics_for;
  const CameraIntrinsics given = *options.intrinsics;
  return [given](cv::Size size) {
    const std::string misfit = intrinsics_misfit(given, {size.width, size.height});
    if (!misfit.empty()) throw std::invalid_argument("--intrinsics: " + misfit);
    return given;
  };
}

std::string file_json(const std::string& file, nlohmann::json line, const std::string& error) {
  line["file"] = file;
  if (!error.empty()) line["error"] = error;
  return json_line(line);
}

std::string human_line(const std::string& file, const MeasurementResult& result) {
  std::ostringstream line;
  line << file << ": " << result_text(result) << std::fixed << std::setprecision(1) << " ["
       << result.elapsed_ms << " ms]";
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

}  // namespace

int run_measure(const MeasureOptions& options, std::ostream& out, std::ostream& err) {
  const std::vector<std::string> pictures = annotation_paths(options);
  if (const std::string clash = annotation_clash(options, pictures); !clash.empty()) {
    err << "boxdim-cli: " << clash << '\n';
    return kExitBadInput;
  }

  EngineContext context;
  context.log = options.json ? &err : &out;
  context.error_log = &err;
  context.draw_pictures = !pictures.empty();
  context.division_mm = options.division_mm;
  if (options.seed) {
    const std::time_t seed = *options.seed;
    context.seed_clock = [seed] { return seed; };
  }
  const std::unique_ptr<Engine> engine = create_engine(options.engine, context);
  FileSource files(options.files, options.size, intrinsics_policy(options));

  int status = 0;
  try {
    if (!pictures.empty()) create_output_folder(options.annotate_dir, "annotation folder");
    for (std::size_t i = 0; i < options.files.size(); ++i) {
      std::optional<DepthFrame> frame;
      try {
        frame = files.next();
      } catch (const FrameSourceError& e) {
        err << "boxdim-cli: " << e.origin() << ": " << e.what() << '\n';
        status = kExitBadInput;
        if (options.json) {
          write_line(out, file_json(e.origin(), missing_result_json(), e.what()), kStandardOutput);
        }
        continue;
      }
      const MeasurementResult result = engine->measure(*frame);
      if (!result.primary_box() && status == 0) status = kExitMeasurementFailed;
      write_line(out,
                 options.json ? file_json(frame->origin, result_json(result, engine->name()), "")
                              : human_line(frame->origin, result),
                 kStandardOutput);
      if (!pictures.empty()) write_png(pictures[i], result.picture);
    }
  } catch (const OutputError& e) {
    err << "boxdim-cli: " << e.what() << '\n';
    return kExitOutputFailed;
  }
  return status;
}

}  // namespace boxdim
