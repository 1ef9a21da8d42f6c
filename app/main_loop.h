// The main loop that polls every open camera and reads the keys, and the fps
// ticker thread that marks its seconds.
#pragma once

#include "app/session.h"

namespace boxdim {

// Body of g_fps_thread: sets g_fps_tick once a second while g_running is
// true, keeping its last mark in the shell.
void fps_ticker(Shell& shell);
// Sets g_running and starts g_fps_thread.
void start_fps_ticker(Shell& shell);
// Clears g_running and joins g_fps_thread if it runs.
void stop_fps_ticker();

// display.wait_key(delay_ms), but never back sooner than the delay without a
// key: highgui answers at once while no window is open, and the final wait
// would otherwise spin a core.
int wait_for_key(Display& display, int delay_ms);

// Until Esc or a stop signal: publish the frame counts when a second has passed, poll each open
// device once, sleep 1 ms, wait up to 30 ms for a key and run its command.
void run_main_loop(Session& session);

}  // namespace boxdim
