// What the station program's shell works with besides its prescribed
// process-wide objects: the window system it shows frames in, the console it
// prints to, the fps ticker's last mark, and a hook told of every measured
// depth frame. The program owns one for its whole run; tests build theirs
// with a fake display and a captured console.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "app/display.h"
#include "measure/measurement_state.h"
#include "pipeline/station_pipeline.h"

namespace boxdim {

// What the measurement of one depth frame gave.
struct DepthFrameResult {
  int device_id = 0;
  MeasurementOutcome outcome;
  BoxDimensions dimensions;  // meaningful only when outcome.ok
};

struct Shell {
  Shell(Display& display, std::ostream& out) : display(display), out(out) {}

  Display& display;
  // The program's console; the measurement stages print to it too.
  std::ostream& out;
  // Told of every depth frame the handler has measured, before the frame is
  // shown; the program sets none.
  std::function<void(const DepthFrameResult&)> on_measured;
  // The fps ticker's last mark in milliseconds, touched by the ticker thread
  // only; 0 makes the first pass tick at once.
  double last_tick_ms = 0.0;
};

// Reports a failed SDK call: "<operation> errorcode:<code>".
inline void print_error(std::ostream& out, const std::string& operation, int code) {
  out << operation << " errorcode:" << code << "\n";
}

}  // namespace boxdim
