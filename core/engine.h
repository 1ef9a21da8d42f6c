// A measurement engine: one depth frame in, the boxes it found out. Engines
// keep what they learn from frame to frame (a floor plane, tracks), so each
// camera gets an engine of its own.
#pragma once

#include <ctime>
#include <functional>
#include <iosfwd>
#include <string>

#include "core/depth_frame.h"
#include "core/measurement_result.h"

namespace boxdim {

// What an engine takes from the program: where its console lines go, the
// clock that seeds its random sampling, and whether results need their
// picture. Empty members keep the station's defaults: standard output,
// standard error, the current time in seconds.
struct EngineContext {
  std::ostream* log = nullptr;
  std::ostream* error_log = nullptr;
  std::function<std::time_t()> seed_clock;
  // An engine may leave MeasurementResult::picture empty when false: drawing
  // costs time that a program that shows nothing need not spend. The station
  // pipeline draws as part of its frame preparation either way.
  bool draw_pictures = true;
  // The station's division (mm): an engine that grades its boxes reports
  // one whose size it cannot tell within it as uncertain.
  float division_mm = 5.0f;
};

class Engine {
 public:
  virtual ~Engine() = default;

  // The name it is created by.
  virtual std::string name() const = 0;
  // Measures the frame as the next one of its camera.
  virtual MeasurementResult measure(const DepthFrame& frame) = 0;
  // The same into a result kept from frame to frame, whose buffers an engine
  // may reuse, so that a camera running all day allocates nothing per frame.
  virtual void measure_into(const DepthFrame& frame, MeasurementResult& result) {
    result = measure(frame);
  }
};

}  // namespace boxdim
