// Time per measurement stage and per whole frame on fixed rendered scenes.
// Each stage starts from the state the stages before it left, restored before
// every iteration, so it always sees the same input; a whole frame is the
// station engine's measure(). Whole frames also count the heap allocations a
// frame makes once the engine's buffers have grown.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <sstream>
#include <stdexcept>

#include "engine/precise_engine.h"
#include "engine/station_engine.h"
#include "footprint/length_width.h"
#include "height/box_height.h"
#include "height/result_overlay.h"
#include "measure/frame_preparation.h"
#include "measure/plane_fitting.h"
#include "measure/point_cloud.h"
#include "measure/point_selection.h"
#include "pipeline/station_pipeline.h"
#include "precise/top_surface.h"
#include "scene/depth_scene.h"
#include "tracking/box_tracker.h"

namespace {
std::atomic<long> heap_allocations{0};
}  // namespace

// Every allocation of this program counted, to show what a frame allocates.
// GCC takes the malloc inside a replacement operator new and the free inside
// its matching delete for a mismatched pair once both are inlined; they match.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  heap_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace boxdim {
namespace {

constexpr std::time_t kSeed = 1;

// Heap allocations per frame over a run, once the first frame has grown the
// buffers.
class AllocationCount {
 public:
  void start() { start_ = heap_allocations.load(); }
  void report(benchmark::State& bench) const {
    const long frames = std::max<long>(1, static_cast<long>(bench.iterations()) - 1);
    bench.counters["allocs_per_frame"] =
        static_cast<double>(heap_allocations.load() - start_) / frames;
  }

 private:
  long start_ = 0;
};

enum class SceneKind { kTopDown, kTilted };

SceneParameters bench_scene(SceneKind kind) {
  SceneParameters scene;
  scene.box_length_mm = 420.0f;
  scene.box_width_mm = 310.0f;
  scene.box_height_mm = 220.0f;
  scene.camera_height_mm = 1200.0f;
  scene.yaw_deg = 25.0f;
  if (kind == SceneKind::kTilted) {
    scene.tilt_deg = 12.0f;
    scene.roll_deg = -3.0f;
  }
  scene.noise = {2.0f, 0.2f, 0.005f};
  scene.seed = 7;
  return scene;
}

// Rendered once per scene kind: rendering costs more than some stages.
const cv::Mat& bench_depth(SceneKind kind) {
  static const cv::Mat top_down = render_scene(bench_scene(SceneKind::kTopDown)).depth;
  static const cv::Mat tilted = render_scene(bench_scene(SceneKind::kTilted)).depth;
  return kind == SceneKind::kTopDown ? top_down : tilted;
}

std::ostringstream& discarded_log() {
  static std::ostringstream sink;
  sink.str("");
  return sink;
}

void quiet(MeasurementState& state) {
  state.seams.log = &discarded_log();
  state.seams.error_log = &discarded_log();
  state.seams.seed_clock = [] { return kSeed; };
}

// The stages in the driver's order; each entry runs one and says whether the
// frame goes on.
enum Stage {
  kPrepareFrame,
  kBuildPointCloud,
  kSelectPointsByCenter,
  kFitTopPlane,
  kComputeLengthWidth,
  kEstimateBoxHeight,
  kDrawMeasurementResult,
};

bool run_stage(Stage stage, MeasurementState& state, const cv::Mat& depth) {
  switch (stage) {
    case kPrepareFrame: {
      cv::Mat display;
      prepare_frame(state, depth.ptr<std::uint16_t>(), display);
      return true;
    }
    case kBuildPointCloud:
      build_point_cloud(state);
      set_center_window(state);
      return true;
    case kSelectPointsByCenter:
      return select_points_by_center(state);
    case kFitTopPlane:
      return fit_top_plane(state, kPlanePasses);
    case kComputeLengthWidth:
      return compute_length_width(state);
    case kEstimateBoxHeight:
      return estimate_box_height(state);
    case kDrawMeasurementResult:
      draw_measurement_result(state);
      return true;
  }
  return false;
}

// Copy-assigning keeps the target's vector capacity, as a camera's state keeps
// its buffers from frame to frame; cv::Mat copies share pixels, so those are cloned.
void restore(MeasurementState& state, const MeasurementState& source) {
  state = source;
  state.edge_image = source.edge_image.clone();
  state.result_image = source.result_image.clone();
}

void BM_stage(benchmark::State& bench, Stage stage, SceneKind kind) {
  const cv::Mat& depth = bench_depth(kind);
  MeasurementState before;
  quiet(before);
  set_frame_size(before, depth.cols, depth.rows);
  for (int s = kPrepareFrame; s < stage; ++s) {
    if (!run_stage(static_cast<Stage>(s), before, depth)) {
      throw std::runtime_error("benchmark scene fails before the measured stage");
    }
  }
  MeasurementState state;
  for (auto _ : bench) {
    bench.PauseTiming();
    restore(state, before);
    bench.ResumeTiming();
    benchmark::DoNotOptimize(run_stage(stage, state, depth));
  }
}

// A camera's frame after frame through the station engine, as the tools run
// it: one state, the plane carried over.
void BM_whole_frame(benchmark::State& bench, SceneKind kind) {
  EngineContext context;
  context.log = &discarded_log();
  context.error_log = &discarded_log();
  context.seed_clock = [] { return kSeed; };
  StationEngine engine(context);
  DepthFrame frame;
  frame.depth = bench_depth(kind);
  frame.intrinsics = bench_scene(kind).intrinsics;
  bool measured = true;
  AllocationCount allocations;
  bool first = true;
  MeasurementResult result;
  for (auto _ : bench) {
    engine.measure_into(frame, result);
    measured = result.primary_box() != nullptr && measured;
    benchmark::DoNotOptimize(result.picture.data);
    if (first) allocations.start();
    first = false;
  }
  allocations.report(bench);
  if (!measured) bench.SkipWithError("the benchmark scene was not measured");
}

// The precise engine on one camera's frames, the floor kept from frame to
// frame: one box, or three (the bench scene's box and two beside it); with
// or without drawing the result's picture.
void BM_precise_frame(benchmark::State& bench, int boxes, bool pictures) {
  SceneParameters scene = bench_scene(SceneKind::kTopDown);
  if (boxes == 3) {
    scene.other_boxes = {FloorBox{300, 200, 150, {-430, 150}, 20, {}},
                         FloorBox{200, 200, 300, {400, -100}, 60, {}}};
  }
  EngineContext context;
  context.seed_clock = [] { return kSeed; };
  context.draw_pictures = pictures;
  PreciseEngine engine(context);
  DepthFrame frame;
  frame.depth = render_scene(scene).depth;
  frame.intrinsics = scene.intrinsics;
  std::size_t measured = 0;
  AllocationCount allocations;
  bool first = true;
  MeasurementResult result;  // kept, as a camera's loop keeps it
  for (auto _ : bench) {
    engine.measure_into(frame, result);
    measured = 0;
    for (const BoxMeasurement& box : result.boxes) measured += box.status == BoxStatus::kMeasured;
    benchmark::DoNotOptimize(result.picture.data);
    if (first) allocations.start();
    first = false;
  }
  allocations.report(bench);
  if (measured != static_cast<std::size_t>(boxes)) {
    bench.SkipWithError("the benchmark scene's boxes were not all measured");
  }
}

// The tracker alone, on the sightings of a frame: still boxes whose tops
// wander by a fraction of a millimetre, as the precise engine hands them
// over frame after frame. Part of precise_frame; this is its share.
void BM_tracker_update(benchmark::State& bench, int boxes) {
  tracking::BoxTracker tracker;
  std::vector<tracking::Sighting> sightings(boxes);
  // Each top's heights, as the detector sums them: a few hundred on a level
  // top, rippled by a millimetre.
  std::vector<precise::TopMoments> tops(boxes);
  for (int b = 0; b < boxes; ++b) {
    sightings[b].centre_mm = cv::Point3f(-400.0f + 400.0f * b, 0.0f, 1000.0f);
    sightings[b].dimensions = {420.0f - 40.0f * b, 310.0f, 220.0f};
    for (int i = 0; i < 20; ++i) {
      for (int j = 0; j < 20; ++j) {
        tops[b].add(-0.95f + 0.1f * i, -0.95f + 0.1f * j, 220.0f + 0.5f * std::sin(7.0f * i + 3.0f * j));
      }
    }
    sightings[b].top = &tops[b];
  }
  std::vector<tracking::Assignment> assignments;
  std::vector<TrackEvent> events;
  events.reserve(2 * tracking::BoxTracker::kMaxTracks);
  std::int64_t time_us = 0;
  AllocationCount allocations;
  bool first = true;
  for (auto _ : bench) {
    time_us += 33333;
    const float wander = 0.1f * static_cast<float>(time_us / 33333 % 5);
    for (tracking::Sighting& s : sightings) s.centre_mm.x += wander - 0.2f;
    events.clear();
    tracker.update(time_us, sightings, assignments, events);
    benchmark::DoNotOptimize(assignments.data());
    if (first) allocations.start();
    first = false;
  }
  allocations.report(bench);
}

// A fixed count: restoring the state before each iteration costs more than
// the quick stages, and would stretch an open-ended run to minutes.
constexpr int kStageIterations = 400;

#define BOXDIM_STAGE_BENCHMARK(name, stage)                                \
  BENCHMARK_CAPTURE(BM_stage, name##_top_down, stage, SceneKind::kTopDown) \
      ->Name(#name "/top_down")                                            \
      ->Iterations(kStageIterations)                                       \
      ->Unit(benchmark::kMillisecond);                                     \
  BENCHMARK_CAPTURE(BM_stage, name##_tilted, stage, SceneKind::kTilted)    \
      ->Name(#name "/tilted")                                              \
      ->Iterations(kStageIterations)                                       \
      ->Unit(benchmark::kMillisecond)

BOXDIM_STAGE_BENCHMARK(prepare_frame, kPrepareFrame);
BOXDIM_STAGE_BENCHMARK(build_point_cloud, kBuildPointCloud);
BOXDIM_STAGE_BENCHMARK(select_points_by_center, kSelectPointsByCenter);
BOXDIM_STAGE_BENCHMARK(fit_top_plane, kFitTopPlane);
BOXDIM_STAGE_BENCHMARK(compute_length_width, kComputeLengthWidth);
BOXDIM_STAGE_BENCHMARK(estimate_box_height, kEstimateBoxHeight);
BOXDIM_STAGE_BENCHMARK(draw_measurement_result, kDrawMeasurementResult);

BENCHMARK_CAPTURE(BM_whole_frame, top_down, SceneKind::kTopDown)
    ->Name("whole_frame/top_down")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_whole_frame, tilted, SceneKind::kTilted)
    ->Name("whole_frame/tilted")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_precise_frame, one_box, 1, false)
    ->Name("precise_frame/one_box")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_precise_frame, three_boxes, 3, false)
    ->Name("precise_frame/three_boxes")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_tracker_update, one_box, 1)
    ->Name("tracker_update/one_box")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_tracker_update, three_boxes, 3)
    ->Name("tracker_update/three_boxes")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_precise_frame, one_box_picture, 1, true)
    ->Name("precise_frame_with_picture/one_box")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_precise_frame, three_boxes_picture, 3, true)
    ->Name("precise_frame_with_picture/three_boxes")
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace boxdim

// One core, as the station's budget is stated: OpenCV would otherwise spread
// filters over every core.
int main(int argc, char** argv) {
  cv::setNumThreads(1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
