// The program's process-wide objects: the flags shared with the fps ticker,
// the per-device maps, the mouse probe, the measurement state and the interface.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <thread>
#include <utility>

#include "interface/interface.h"
#include "measure/measurement_state.h"

namespace boxdim {

// Frames of one device: counted during the current second, or the last second's total.
struct FrameCount {
  std::int32_t count = 0;
};

// True while the fps ticker is to keep running.
extern std::atomic<bool> g_running;
// Set by the fps ticker once a second, cleared by the main loop.
extern std::atomic<bool> g_fps_tick;
extern std::thread g_fps_thread;

// Device id -> (device id, stream type): how the device's frame sets are laid out.
extern std::map<std::int32_t, std::pair<std::int32_t, std::int32_t>> g_stream_types;
extern std::map<std::int32_t, FrameCount> g_frame_counts;
extern std::map<std::int32_t, FrameCount> g_fps;
// Device id -> whether its raw, depth and infrared frames are written to disk.
extern std::map<std::int32_t, bool> g_save_enabled;
// Flipped by the p and q keys; kept as state only, nothing reads them.
extern std::map<std::int32_t, bool> g_toggle_p;
extern std::map<std::int32_t, bool> g_toggle_q;

// Pixel under the held left mouse button; -1 (any value <= 0) when there is no probe.
extern std::int32_t g_mouse_x;
extern std::int32_t g_mouse_y;

extern MeasurementState g_measurement_state;
extern Interface* g_interface;

}  // namespace boxdim
