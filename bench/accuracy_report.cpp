// Prints the pipeline's accuracy over the rendered scene families as a
// Markdown table: success rate and the median and 95th-percentile absolute
// error of each dimension. Usage: accuracy_report [scenes per family] [seed]
#include <cstdio>
#include <cstdlib>
#include <string>

#include "scene/accuracy.h"

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : 100;
  const unsigned long long seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 2026;
  if (count <= 0) {
    std::fprintf(stderr, "accuracy_report: scenes per family must be a positive number\n");
    return 2;
  }
  std::printf("%d scenes per family, scene seed %llu, RANSAC seed 1\n\n", count, seed);
  std::printf(
      "| family | measured | length median / p95 | width median / p95 | height median / p95 |\n");
  std::printf("|---|---|---|---|---|\n");
  std::string failures;
  for (const boxdim::SceneFamily& family : boxdim::accuracy_families()) {
    std::vector<boxdim::SceneMeasurement> results;
    for (const boxdim::SceneParameters& scene : boxdim::sample_family(family, count, seed)) {
      results.push_back(boxdim::measure_scene(scene, 1));
    }
    const boxdim::FamilyStatistics s = boxdim::summarise(results);
    std::printf("| %s | %.0f %% of %d | %.1f / %.1f mm | %.1f / %.1f mm | %.1f / %.1f mm |\n",
                family.name.c_str(), 100.0 * s.success_rate(), s.scenes, s.length.median_mm,
                s.length.p95_mm, s.width.median_mm, s.width.p95_mm, s.height.median_mm,
                s.height.p95_mm);
    for (const auto& [reason, n] : s.failures) {
      failures += "- " + family.name + ": " + std::to_string(n) + " x " + reason + "\n";
    }
  }
  if (!failures.empty())
    std::printf("\nFailed scenes by stage and its last log line:\n%s", failures.c_str());
  return 0;
}
