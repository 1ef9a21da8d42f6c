#include "virtual_camera/virtual_clock.h"

#include <mutex>
#include <utility>

namespace boxdim::virtual_camera {
namespace {

// The clock is read under the SDK's lock, but a test may swap it from
// another thread, so it has a lock of its own.
std::mutex& clock_mutex() {
  static std::mutex mutex;
  return mutex;
}

ClockFunction& clock_function() {
  static ClockFunction clock;
  return clock;
}

}  // namespace

void set_clock(ClockFunction clock) {
  std::lock_guard<std::mutex> lock(clock_mutex());
  clock_function() = std::move(clock);
}

std::chrono::steady_clock::time_point clock_now() {
  std::lock_guard<std::mutex> lock(clock_mutex());
  const ClockFunction& clock = clock_function();
  return clock ? clock() : std::chrono::steady_clock::now();
}

}  // namespace boxdim::virtual_camera
