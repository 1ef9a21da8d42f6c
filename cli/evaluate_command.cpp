#include "cli/evaluate_command.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <optional>
#include <sstream>

#include "cli/error_plot.h"
#include "cli/evaluate_sequences.h"
#include "cli/output.h"
#include "cli/output_paths.h"
#include "cli/progress_bar.h"
#include "evaluation/side_errors.h"
#include "runtime/stop_signals.h"

namespace boxdim {

namespace {

// The random sampling of every scene starts from the same seed, so that a
// run depends on the scene seed alone.
constexpr std::time_t kRansacSeed = 1;
constexpr std::size_t kFailuresShown = 3;

constexpr double kPi = 3.14159265358979323846;

// The optical axis's angle from straight down: tilt and roll compose to
// cos(angle) = cos(tilt) * cos(roll).
double camera_angle_deg(const SceneParameters& scene) {
  const double to_rad = kPi / 180.0;
  const double cosine = std::cos(scene.tilt_deg * to_rad) * std::cos(scene.roll_deg * to_rad);
  return std::acos(std::clamp(cosine, -1.0, 1.0)) / to_rad;
}

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char ch : text) quoted += ch == '"' ? std::string("\"\"") : std::string(1, ch);
  return quoted + "\"";
}

const char* const kCsvHeader =
    "family,scene,engine,camera_height_mm,tilt_deg,roll_deg,yaw_deg,offset_x_mm,offset_y_mm,"
    "noise_mm_at_1m,image,fx,multipath_mm,lid_mm,dark_top,boxes,camera_angle_deg,"
    "top_face_distance_mm,true_length_mm,true_width_mm,"
    "true_height_mm,ok,failed_stage,failure_reason,length_mm,width_mm,height_mm,"
    "length_error_mm,width_error_mm,height_error_mm,elapsed_ms,stray_detections,uncertain,"
    "length_uncertainty_mm,width_uncertainty_mm,height_uncertainty_mm";

// Errors are signed, measured minus true; empty when the scene was not measured.
std::string csv_row(const std::string& family, int index, const SceneMeasurement& m) {
  const SceneParameters& s = m.scene;
  const BoxDimensions& truth = m.truth.dimensions;
  std::ostringstream row;
  row << std::setprecision(6) << csv_field(family) << ',' << index << ',' << csv_field(m.engine)
      << ',' << s.camera_height_mm << ',' << s.tilt_deg << ',' << s.roll_deg << ',' << s.yaw_deg
      << ',' << s.offset_mm.x << ',' << s.offset_mm.y << ',' << s.noise.sigma_at_1m_mm << ','
      << s.image_width << 'x' << s.image_height << ',' << s.intrinsics.fx << ','
      << s.noise.multipath_mm << ',' << s.top.lid_mm << ',' << (s.top.dark ? "true" : "false")
      << ',' << (s.with_box ? 1 : 0) + s.other_boxes.size() << ',' << camera_angle_deg(s) << ','
      << m.truth.top_face_depth_mm << ',' << truth.box_length << ',' << truth.box_width << ','
      << truth.box_height << ',' << (m.ok ? "true" : "false") << ',' << csv_field(m.failed_stage)
      << ',' << csv_field(m.reason) << ',';
  if (m.ok) {
    row << m.measured.box_length << ',' << m.measured.box_width << ',' << m.measured.box_height
        << ',' << m.measured.box_length - truth.box_length << ','
        << m.measured.box_width - truth.box_width << ','
        << m.measured.box_height - truth.box_height;
  } else {
    row << ",,,,,";
  }
  row << ',' << std::round(m.elapsed_ms * 1000.0) / 1000.0 << ',' << m.stray_detections << ','
      << (m.uncertain ? "true" : "false") << ',';
  if (m.uncertainty) {
    row << m.uncertainty->box_length << ',' << m.uncertainty->box_width << ','
        << m.uncertainty->box_height;
  } else {
    row << ",,";
  }
  return row.str();
}

// Fails before a long run rather than after it.
void check_plot_path(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
  if (extension != ".png") throw OutputError(path, "the picture must be a .png file");
  if (!std::ofstream(path, std::ios::binary | std::ios::app)) {
    throw OutputError(path, "cannot be opened for writing");
  }
}

std::string millimetres(const ErrorStatistics& e, bool any) {
  if (!any) return "-";
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << e.median_mm << " / " << e.p95_mm;
  return text.str();
}

std::string percent(double share) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(0) << 100.0 * share << " %";
  return text.str();
}

// What one engine made of one family's scenes.
struct FamilyResult {
  const SceneFamily* family;
  std::string engine;
  FamilyStatistics stats;
};

void print_table(std::ostream& out, const std::vector<FamilyResult>& results) {
  std::size_t family_width = 6;
  std::size_t engine_width = 6;
  for (const FamilyResult& r : results) {
    family_width = std::max(family_width, r.family->name.size());
    engine_width = std::max(engine_width, r.engine.size());
  }
  const auto row =
      [&](const std::string& family, const std::string& engine, const std::string& scenes,
          const std::string& measured, const std::string& uncertain, const std::string& within,
          const std::string& l, const std::string& w, const std::string& h,
          const std::string& covered, const std::string& stray, const std::string& ms) {
        out << std::left << std::setw(static_cast<int>(family_width + 2)) << family
            << std::setw(static_cast<int>(engine_width)) << engine << std::right << std::setw(8)
            << scenes << std::setw(10) << measured << std::setw(11) << uncertain << std::setw(13)
            << within << std::setw(15) << l << std::setw(15) << w << std::setw(15) << h
            << std::setw(10) << covered << std::setw(8) << stray << std::setw(10) << ms << '\n';
      };
  row("family", "engine", "scenes", "measured", "uncertain", "within 5 mm", "length", "width",
      "height", "within U", "stray", "ms/frame");
  row("", "", "", "", "", "", "median / p95", "median / p95", "median / p95", "", "", "median");
  const SceneFamily* previous = nullptr;
  for (const FamilyResult& r : results) {
    const FamilyStatistics& s = r.stats;
    const bool any = s.measured > 0;
    std::ostringstream ms;
    ms << std::fixed << std::setprecision(1) << s.median_ms;
    const bool measurable = r.family->measurable();
    const bool graded = s.with_uncertainty > 0 && measurable;
    row(r.family == previous ? "" : r.family->name, r.engine, std::to_string(s.scenes),
        percent(s.success_rate()), measurable ? percent(s.uncertain_rate()) : "-",
        measurable ? percent(s.within_tolerance_rate()) : "-",
        millimetres(s.length, any && measurable), millimetres(s.width, any && measurable),
        millimetres(s.height, any && measurable), graded ? percent(s.covered_rate()) : "-",
        percent(s.stray_rate()), ms.str());
    previous = r.family;
  }
  out << "Absolute errors in mm over the measured scenes; uncertain: the box found but its\n"
         "size not told within the division; within 5 mm: all three dimensions, share of\n"
         "all scenes; within U: the share of errors within the uncertainty the engine gave,\n"
         "the lowest of the three dimensions' (engines that give one); stray: scenes with a\n"
         "detection (of any status) that lies on no box's top. reject scenes are right when\n"
         "not measured: their measured column counts wrong measurements.\n";

  bool header_printed = false;
  for (const FamilyResult& r : results) {
    if (!r.family->measurable()) continue;
    std::vector<std::pair<std::string, int>> failures(r.stats.failures.begin(),
                                                      r.stats.failures.end());
    std::stable_sort(failures.begin(), failures.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    if (failures.size() > kFailuresShown) failures.resize(kFailuresShown);
    for (const auto& [reason, count] : failures) {
      if (!header_printed) out << "\nMost common failures (stage: its own message):\n";
      header_printed = true;
      out << "  " << r.family->name << ", " << r.engine << ": " << count << " x " << reason << '\n';
    }
  }
}

void print_side_table(std::ostream& out,
                      const std::vector<std::pair<const SceneFamily*, std::vector<SideError>>>&
                          families) {
  out << "\nThe sides of the boxes the precise engine measured, against the true sides\n"
         "(mm, + outwards: a box read long on that side):\n\n"
      << "family     placed by                      sides     mean       sd\n";
  for (const auto& [family, errors] : families) {
    const auto stats = summarise_sides(errors);
    bool first = true;
    for (int p = 0; p < kSidePlacements; ++p) {
      if (stats[p].sides == 0) continue;
      out << std::left << std::setw(11) << (first ? family->name : "") << std::setw(28)
          << side_placement_name(static_cast<SidePlacement>(p)) << std::right << std::setw(8)
          << stats[p].sides << std::fixed << std::setprecision(2) << std::showpos
          << std::setw(9) << stats[p].mean_mm << std::noshowpos << std::setw(9)
          << stats[p].sd_mm << '\n';
      first = false;
    }
  }
}

ErrorPoint error_point(int series, const SceneMeasurement& m) {
  const BoxDimensions& truth = m.truth.dimensions;
  return {series,
          camera_angle_deg(m.scene),
          m.truth.top_face_depth_mm,
          {std::abs(double(m.measured.box_length) - truth.box_length),
           std::abs(double(m.measured.box_width) - truth.box_width),
           std::abs(double(m.measured.box_height) - truth.box_height)}};
}

int evaluate(const EvaluateOptions& options, std::ostream& out, std::ostream& err) {
  if (!options.csv_path.empty() && !options.plot_path.empty() &&
      find_path_clash({}, {options.csv_path, options.plot_path})) {
    err << "boxdim-cli: --csv and --plot name the same file: " << options.plot_path << '\n';
    return kExitOutputFailed;
  }
  if (!options.plot_path.empty()) check_plot_path(options.plot_path);
  std::ofstream csv;
  if (!options.csv_path.empty()) {
    csv.open(options.csv_path, std::ios::trunc);
    if (!csv) throw OutputError(options.csv_path, "cannot be opened for writing");
    write_line(csv, kCsvHeader, options.csv_path);
  }

  const int total = options.scenes * static_cast<int>(options.families.size());
  write_line(out,
             std::to_string(options.scenes) + " scenes per family, scene seed " +
                 std::to_string(options.seed) + ", RANSAC seed " + std::to_string(kRansacSeed) +
                 "\n",
             kStandardOutput);
  // Scene by scene, so that the progress bar and the CSV move from the first
  // one on, and an interruption keeps everything measured so far. Each scene
  // is rendered once and measured by every engine.
  const StopSignals stop_signals;
  ProgressBar progress(err, total);
  std::vector<FamilyResult> results;
  std::vector<ErrorPoint> points;
  std::vector<int> sampled;  // per family
  std::vector<std::pair<const SceneFamily*, std::vector<SideError>>> sides;
  int done = 0;
  for (const SceneFamily& family : options.families) {
    if (StopSignals::requested()) break;
    SceneSampler sampler(family, options.scenes, options.seed);
    std::vector<std::vector<SceneMeasurement>> by_engine(options.engines.size());
    if (options.sides && family.measurable()) sides.push_back({&family, {}});
    int index = 0;
    while (!StopSignals::requested()) {
      progress.update(done, family.name);
      const std::optional<SceneParameters> scene = sampler.next();
      if (!scene) break;
      ++index;
      const RenderedScene rendered = render_scene(*scene);
      for (std::size_t e = 0; e < options.engines.size(); ++e) {
        by_engine[e].push_back(
            measure_scene(*scene, rendered, options.engines[e], kRansacSeed, options.division_mm));
        const SceneMeasurement& m = by_engine[e].back();
        if (csv.is_open()) write_line(csv, csv_row(family.name, index, m), options.csv_path);
        if (m.ok && family.measurable()) points.push_back(error_point(static_cast<int>(e), m));
      }
      if (options.sides && family.measurable()) {
        const std::vector<SideError> errors =
            measure_sides(*scene, rendered, options.division_mm, kRansacSeed);
        sides.back().second.insert(sides.back().second.end(), errors.begin(), errors.end());
      }
      ++done;
    }
    sampled.push_back(index);
    for (std::size_t e = 0; e < options.engines.size(); ++e) {
      results.push_back({&family, options.engines[e], summarise(by_engine[e])});
    }
  }
  const int stop_signal = StopSignals::requested();
  progress.update(done, stop_signal ? "interrupted" : "done");
  progress.finish();

  for (std::size_t f = 0; f < sampled.size() && !stop_signal; ++f) {
    if (sampled[f] < options.scenes) {
      err << "boxdim-cli evaluate: " << options.families[f].name << ": only " << sampled[f]
          << " scenes could be drawn\n";
    }
  }
  std::ostringstream report;
  print_table(report, results);
  if (options.sides) print_side_table(report, sides);
  if (stop_signal) {
    report << "\nInterrupted by " << StopSignals::name(stop_signal) << " after " << done << " of "
           << total << " scenes; the figures cover those.\n";
    err << "boxdim-cli evaluate: interrupted by " << StopSignals::name(stop_signal) << " after "
        << done << " of " << total << " scenes\n";
  }
  out << report.str();
  check_stream(out, kStandardOutput);

  if (!options.plot_path.empty())
    write_png(options.plot_path, draw_error_plot(options.engines, points));
  // As a shell reports a process the signal ended, though this one ended
  // itself, with its report complete.
  return stop_signal ? 128 + stop_signal : 0;
}

}  // namespace

int run_evaluate(const EvaluateOptions& options, std::ostream& out, std::ostream& err) {
  if (options.sequences > 0) {
    return run_sequence_evaluation(options.sequences, options.seed, out, err);
  }
  try {
    return evaluate(options, out, err);
  } catch (const OutputError& e) {
    err << "boxdim-cli: " << e.what() << '\n';
    return kExitOutputFailed;
  }
}

}  // namespace boxdim
