#include "app/main_loop.h"

#include <chrono>
#include <functional>
#include <opencv2/core/utility.hpp>

#include "app/frame_handler.h"
#include "app/globals.h"
#include "app/key_commands.h"
#include "runtime/stop_signals.h"

namespace boxdim {

namespace {

constexpr double kTickIntervalMs = 1000.0;
constexpr int kKeyWaitMs = 30;
constexpr std::chrono::milliseconds kPause(1);

void publish_fps(const Session& session) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    g_fps[device.id] = g_frame_counts[device.id];
    g_frame_counts[device.id].count = 0;
  }
}

// At most one frame set per device and pass; no new one is no news.
void poll_devices(Session& session) {
  for (std::size_t i = 0; i < session.devices.size(); ++i) {
    if (!session.opened[i]) continue;
    const std::int32_t id = session.devices[i].id;
    Corvane::FrameData* frame_data = nullptr;
    if (session.record(Corvane::GetLastFrameData(id, frame_data)) == 0) {
      handle_frame(session.shell(), id, frame_data);
    }
  }
}

}  // namespace

int wait_for_key(Display& display, int delay_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(delay_ms);
  const int key = display.wait_key(delay_ms);
  if (key == -1) std::this_thread::sleep_until(deadline);
  return key;
}

void fps_ticker(Shell& shell) {
  while (g_running.load()) {
    const double now_ms = cv::getTickCount() / cv::getTickFrequency() * 1000.0;
    if (now_ms - shell.last_tick_ms >= kTickIntervalMs) {
      g_fps_tick.exchange(true);
      shell.last_tick_ms = now_ms;
    }
    std::this_thread::sleep_for(kPause);
  }
}

void start_fps_ticker(Shell& shell) {
  g_running.exchange(true);
  g_fps_thread = std::thread(fps_ticker, std::ref(shell));
}

void stop_fps_ticker() {
  g_running.exchange(false);
  if (g_fps_thread.joinable()) g_fps_thread.join();
}

void run_main_loop(Session& session) {
  while (!session.quit && StopSignals::requested() == 0) {
    if (g_fps_tick.load()) {
      publish_fps(session);
      g_fps_tick.exchange(false);
    }
    poll_devices(session);
    std::this_thread::sleep_for(kPause);
    dispatch_key(session, wait_for_key(session.shell().display, kKeyWaitMs));
  }
}

}  // namespace boxdim
