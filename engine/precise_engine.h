// The precise engine: every box on the floor, each measured as its smallest
// enclosing cuboid (precise/) and followed from frame to frame (tracking/).
// The primary box is the measured one nearest the image centre.
#pragma once

#include <ctime>
#include <functional>
#include <string>

#include "core/engine.h"
#include "tracking/tracked_detector.h"

namespace boxdim {

class PreciseEngine : public Engine {
 public:
  static constexpr const char* kName = "precise";

  explicit PreciseEngine(const EngineContext& context);

  std::string name() const override { return kName; }
  // A frame without a measured box carries why in its failure: the stage
  // ("intrinsics", "floor", "detection" or the status of the box nearest the
  // centre) and a message.
  MeasurementResult measure(const DepthFrame& frame) override;
  void measure_into(const DepthFrame& frame, MeasurementResult& result) override;

 private:
  tracking::TrackedDetector boxes_;
  std::function<std::time_t()> seed_clock_;
  bool draw_pictures_;
};

}  // namespace boxdim
