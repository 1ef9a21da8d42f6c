#include "app/globals.h"

namespace boxdim {

std::atomic<bool> g_running{false};
std::atomic<bool> g_fps_tick{false};
std::thread g_fps_thread;

std::map<std::int32_t, std::pair<std::int32_t, std::int32_t>> g_stream_types;
std::map<std::int32_t, FrameCount> g_frame_counts;
std::map<std::int32_t, FrameCount> g_fps;
std::map<std::int32_t, bool> g_save_enabled;
std::map<std::int32_t, bool> g_toggle_p;
std::map<std::int32_t, bool> g_toggle_q;

std::int32_t g_mouse_x = -1;
std::int32_t g_mouse_y = -1;

MeasurementState g_measurement_state;
// Never deleted: the interface lives as long as the process.
Interface* g_interface = Interface::CreateInterface();

}  // namespace boxdim
