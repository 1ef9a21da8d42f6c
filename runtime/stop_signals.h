// SIGINT, SIGTERM and SIGHUP taken as a request to stop rather than as the
// end of the process: while a StopSignals lives, they only set a flag that
// the programs' loops poll, so that cameras are stopped, the SDK is shut down
// and outputs are completed before the process ends.
#pragma once

namespace boxdim {

class StopSignals {
 public:
  // Installs the handlers and forgets any earlier request.
  StopSignals();
  // Puts the handlers back as they were.
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // The signal that asked to stop (the first one), or 0.
  static int requested();
  // "SIGINT", "SIGTERM" or "SIGHUP" ("a signal" for any other).
  static const char* name(int signal);
};

}  // namespace boxdim
