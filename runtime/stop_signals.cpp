#include "runtime/stop_signals.h"

#include <csignal>

namespace boxdim {

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t stop_signal = 0;
struct sigaction previous[sizeof kStopSignals / sizeof kStopSignals[0]];

extern "C" void note_stop_signal(int signal) {
  if (stop_signal == 0) stop_signal = signal;
}

}  // namespace

StopSignals::StopSignals() {
  stop_signal = 0;
  struct sigaction action {};
  action.sa_handler = note_stop_signal;
  sigemptyset(&action.sa_mask);
  // Restarted calls keep a read or a wait from failing half-way; the loops
  // look at the flag often enough.
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < sizeof kStopSignals / sizeof kStopSignals[0]; ++i) {
    sigaction(kStopSignals[i], &action, &previous[i]);
  }
}

StopSignals::~StopSignals() {
  for (std::size_t i = 0; i < sizeof kStopSignals / sizeof kStopSignals[0]; ++i) {
    sigaction(kStopSignals[i], &previous[i], nullptr);
  }
}

int StopSignals::requested() { return stop_signal; }

const char* StopSignals::name(int signal) {
  switch (signal) {
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    default:
      return "a signal";
  }
}

}  // namespace boxdim
