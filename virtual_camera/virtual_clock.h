// The time the virtual camera paces its frames by. Tests replace it to step
// from frame to frame without sleeping.
#pragma once

#include <chrono>
#include <functional>

namespace boxdim::virtual_camera {

using ClockFunction = std::function<std::chrono::steady_clock::time_point()>;

// An empty function restores the steady clock.
void set_clock(ClockFunction clock);

std::chrono::steady_clock::time_point clock_now();

}  // namespace boxdim::virtual_camera
