// Bringing the cameras up and shutting them down: SDK version, enumeration,
// per-device report and fixed configuration by device type, and the stop
// sequence with its final wait for Esc.
#pragma once

#include "app/session.h"

namespace boxdim {

// Prints the banner and the SDK version, initialises the SDK, enumerates and
// configures the devices and starts the fps ticker. False when no device was
// enumerated: the caller goes straight to shut_down.
bool start_up(Session& session);

// Stops every open stream and reports each device's stop, then frees the device list.
void stop_streams(Session& session);

// Shuts the SDK down, stops the fps ticker and waits for Esc.
void shut_down(Session& session);

}  // namespace boxdim
