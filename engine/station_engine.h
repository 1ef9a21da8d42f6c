// The station pipeline as an engine: frame preparation and the pipeline
// driver on a measurement state of its own, whose plane carries over from one
// frame to the next as in the station program. It measures the one box under
// the image centre.
#pragma once

#include <memory>
#include <string>

#include "core/engine.h"
#include "engine/last_line_log.h"
#include "measure/measurement_state.h"

namespace boxdim {

class StationEngine : public Engine {
 public:
  static constexpr const char* kName = "station";

  explicit StationEngine(const EngineContext& context);

  std::string name() const override { return kName; }
  // Everything the pipeline prints goes to the context's streams, byte for
  // byte; a frame that is not measured carries the failing stage and the
  // last line printed while measuring it.
  MeasurementResult measure(const DepthFrame& frame) override;

  // The pipeline's state after the last frame, for tests and benchmarks.
  const MeasurementState& state() const { return state_; }

 private:
  LastLineLog log_;
  MeasurementState state_;
};

}  // namespace boxdim
