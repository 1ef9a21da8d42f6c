// Turns one frame set of one camera into images in the device's windows,
// measures the box on every depth frame and saves frames while saving is on.
#pragma once

#include <cstdint>
#include <functional>

#include "app/camera_sdk/corvane_sdk.h"
#include "measure/measurement_state.h"
#include "pipeline/station_pipeline.h"

namespace boxdim {

// What the measurement of one depth frame gave.
struct DepthFrameResult {
  int device_id = 0;
  MeasurementOutcome outcome;
  BoxDimensions dimensions;  // meaningful only when outcome.ok
};

// Told of every depth frame the handler has measured, before the frame is
// shown. The program installs none; headless callers read the results from
// here. An empty function removes it.
void set_measurement_listener(std::function<void(const DepthFrameResult&)> listener);

// Frame sets of a device without a stream type are ignored. The frames of a
// set lie back to back in frame_data->data, in the order of its FrameInfo
// records; on stream type 7 the aligned pair is fetched with GetRGBD instead.
void handle_frame(int device_id, const Corvane::FrameData* frame_data);

// Hands SDK notifications to the frame handler. The program polls instead and
// never registers it; it stays available for an SDK that pushes frame sets.
class FrameObserver : public Corvane::ICRFrameObserver {
 public:
  void OnFrameReady(std::int32_t device_id, Corvane::FrameData* frame_data) override {
    handle_frame(device_id, frame_data);
  }
};

}  // namespace boxdim
