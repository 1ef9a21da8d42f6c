#include "cli/evaluate_sequences.h"

#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include "cli/output.h"
#include "cli/progress_bar.h"
#include "evaluation/sequences.h"

namespace boxdim {

namespace {

constexpr std::time_t kRansacSeed = 1;

std::string fixed(double value, int decimals) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(decimals) << value;
  return text.str();
}

// "L / W / H" p95s, or "-" without any.
std::string p95s(const ErrorStatistics (&e)[3], bool any) {
  if (!any) return "-";
  return fixed(e[0].p95_mm, 1) + " / " + fixed(e[1].p95_mm, 1) + " / " + fixed(e[2].p95_mm, 1);
}

}  // namespace

int run_sequence_evaluation(int count, std::uint64_t seed, std::ostream& out, std::ostream& err) {
  const std::vector<SequenceFamily> families = sequence_families();
  std::vector<std::vector<SequenceScript>> scripts;
  int total = 0;
  for (const SequenceFamily& family : families) {
    scripts.push_back(sample_sequences(family, count, seed));
    total += static_cast<int>(scripts.back().size());
  }
  ProgressBar progress(err, total);
  int done = 0;
  std::vector<SequenceStatistics> stats;
  for (std::size_t f = 0; f < families.size(); ++f) {
    std::vector<SequenceOutcome> outcomes;
    for (const SequenceScript& script : scripts[f]) {
      progress.update(done++, families[f].name);
      outcomes.push_back(run_sequence(script, kRansacSeed));
    }
    stats.push_back(summarise(outcomes));
  }
  progress.update(done, "done");
  progress.finish();

  std::ostringstream table;
  table << count << " sequences per kind, scene seed " << seed << ", RANSAC seed " << kRansacSeed
        << ", precise engine\n\n";
  const auto row = [&](const std::string& kind, const std::string& sequences,
                       const std::string& right, const std::string& single,
                       const std::string& fused, const std::string& late, const std::string& settle,
                       const std::string& sd, const std::string& ms) {
    table << std::left << std::setw(10) << kind << std::right << std::setw(10) << sequences
          << std::setw(14) << right << std::setw(18) << single << std::setw(18) << fused
          << std::setw(18) << late << std::setw(16) << settle << std::setw(9) << sd << std::setw(10)
          << ms << '\n';
  };
  row("kind", "sequences", "events right", "one frame p95", "at event p95", "at removal p95",
      "rest to event", "reading", "ms/frame");
  row("", "", "", "L / W / H", "L / W / H", "L / W / H", "median / max", "sd mm", "median");
  for (std::size_t f = 0; f < families.size(); ++f) {
    const SequenceStatistics& s = stats[f];
    const bool boxes = s.boxes > 0;
    row(families[f].name, std::to_string(s.sequences),
        s.sequences ? fixed(100.0 * s.events_right / s.sequences, 0) + " %" : "-",
        p95s(s.single_frame, boxes), p95s(s.fused, boxes), p95s(s.late, s.any_late),
        s.any_settled ? fixed(s.settle_median_s, 2) + " / " + fixed(s.settle_max_s, 2) + " s" : "-",
        s.any_reading_sd ? fixed(s.reading_sd_max_mm, 2) : "-", fixed(s.median_ms, 1));
  }
  table << "Events right: each box placed, measured and removed exactly once, on one track,\n"
           "no other track placed and no measured event off the boxes. Errors in mm: one\n"
           "frame, every frame a box was measured in; at event, the fused reading of its\n"
           "measured event; at removal, a resting box's last fused reading before it was\n"
           "taken away. Rest to event: from a box being put down to its measured event.\n"
           "Reading sd: the largest standard deviation of a resting box's reported reading\n"
           "after its measured event.\n";
  bool any_problem = false;
  for (std::size_t f = 0; f < families.size(); ++f) {
    for (const auto& [problem, sequences] : stats[f].problems) {
      if (!any_problem) table << "\nWhat went wrong (kind: sequences x first problem):\n";
      any_problem = true;
      table << "  " << families[f].name << ": " << sequences << " x " << problem << '\n';
    }
  }
  try {
    out << table.str();
    check_stream(out, kStandardOutput);
  } catch (const OutputError& e) {
    err << "boxdim-cli: " << e.what() << '\n';
    return kExitOutputFailed;
  }
  return 0;
}

}  // namespace boxdim
