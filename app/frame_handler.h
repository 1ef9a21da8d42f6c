// Turns one frame set of one camera into images in the device's windows,
// measures the box on every depth frame and saves frames while saving is on.
#pragma once

#include <cstdint>

#include "app/camera_sdk/corvane_sdk.h"
#include "app/shell.h"

namespace boxdim {

// Frame sets of a device without a stream type are ignored. The frames of a
// set lie back to back in frame_data->data, in the order of its FrameInfo
// records; on stream type 7 the aligned pair is fetched with GetRGBD instead.
// Windows, console and the measured-frame hook are the shell's.
void handle_frame(Shell& shell, int device_id, const Corvane::FrameData* frame_data);

// Hands SDK notifications to the frame handler. The program polls instead and
// never registers it; it stays available for an SDK that pushes frame sets.
class FrameObserver : public Corvane::ICRFrameObserver {
 public:
  explicit FrameObserver(Shell& shell) : shell_(shell) {}
  void OnFrameReady(std::int32_t device_id, Corvane::FrameData* frame_data) override {
    handle_frame(shell_, device_id, frame_data);
  }

 private:
  Shell& shell_;
};

}  // namespace boxdim
