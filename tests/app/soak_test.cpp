// Ten thousand depth frames from the virtual camera through the program's
// frame handler, without windows: once the buffers have grown to their
// working size, the process's resident memory must stay flat.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "app/frame_handler.h"
#include "app/globals.h"
#include "headless_display.h"
#include "virtual_camera/virtual_camera_fixture.h"

namespace boxdim {
namespace {

// Measured: after the warm-up the resident size did not move at all (0 kB)
// over 10,000 frames, while keeping 1 kB a frame grew it by 1.9 MB over only
// 2,500 frames. The bound leaves room for the allocator's own churn.
constexpr long kMaxGrowthKb = 2048;
constexpr int kDefaultFrames = 10000;
constexpr int kWarmUpFrames = 500;
constexpr std::int32_t kDepthOnlyStream = 2;

long resident_kb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

int frames_to_run() {
  const char* text = std::getenv("BOXDIM_SOAK_FRAMES");
  return text != nullptr ? std::atoi(text) : kDefaultFrames;
}

class SoakTest : public virtual_camera::testing::VirtualCameraTest {
 protected:
  void SetUp() override {
    VirtualCameraTest::SetUp();
    g_measurement_state = MeasurementState{};
    // Discarded: a captured log would itself grow with every frame.
    g_measurement_state.seams.log = &discard_;
    g_measurement_state.seams.error_log = &discard_;
    g_measurement_state.seams.seed_clock = [this] { return std::time_t{seed_}; };
  }
  void TearDown() override {
    g_stream_types.clear();
    g_measurement_state = MeasurementState{};
    VirtualCameraTest::TearDown();
  }

  HeadlessDisplay headless_;
  std::ostream discard_{nullptr};
  Shell shell_{headless_, discard_};
  int seed_ = 0;
};

TEST_F(SoakTest, ResidentMemoryStaysFlatOverTenThousandFrames) {
  const int frames = frames_to_run();
  ASSERT_GT(frames, 1) << "BOXDIM_SOAK_FRAMES";
  const int warm_up = std::min(kWarmUpFrames, frames / 2);
  // A noisy, tilted scene: every stage runs, on frames that differ.
  open_first("sim", "box=400x300x200,camera-height=1000,tilt=5,yaw=20,noise=1.5,seed=7");
  ASSERT_EQ(Corvane::StartStreaming(1, kDepthOnlyStream), 0);
  g_stream_types[1] = {1, kDepthOnlyStream};
  int measured = 0;
  int ok = 0;
  shell_.on_measured = [&](const DepthFrameResult& result) {
    ++measured;
    ok += result.outcome.ok ? 1 : 0;
  };

  long warm_kb = 0;
  for (int frame = 1; frame <= frames; ++frame) {
    seed_ = frame;
    Corvane::FrameData* set = next_set();
    ASSERT_NE(set, nullptr) << "frame " << frame;
    handle_frame(shell_, 1, set);
    if (frame == warm_up) warm_kb = resident_kb();
  }
  const long end_kb = resident_kb();
  EXPECT_EQ(Corvane::StopStreaming(1), 0);

  RecordProperty("frames", frames);
  RecordProperty("rss_after_warm_up_kb", static_cast<int>(warm_kb));
  RecordProperty("rss_at_end_kb", static_cast<int>(end_kb));
  std::cout << frames << " frames, " << ok << " measured; VmRSS after frame " << warm_up << ": "
            << warm_kb << " kB, at the end: " << end_kb << " kB (" << end_kb - warm_kb << " kB)\n";
  ASSERT_GT(warm_kb, 0) << "VmRSS not found in /proc/self/status";
  EXPECT_EQ(measured, frames);
  EXPECT_GT(ok, frames * 9 / 10) << "the frames must go through every stage";
#ifdef __SANITIZE_ADDRESS__
  // AddressSanitizer holds freed memory back in quarantine, so the resident
  // size climbs for reasons of its own; its leak check at exit stands in.
  std::cout << "resident size not judged under AddressSanitizer\n";
#else
  EXPECT_LE(end_kb - warm_kb, kMaxGrowthKb);
#endif
}

}  // namespace
}  // namespace boxdim
