#include "app/program.h"

#include <iostream>
#include <memory>

#include "app/globals.h"
#include "app/main_loop.h"
#include "app/startup.h"
#include "runtime/stop_signals.h"

namespace boxdim {

void run_program(Shell& shell) {
  g_measurement_state.seams.log = &shell.out;
  // A service manager's stop or a closed terminal ends the program as Esc
  // does, with the streams stopped and the SDK shut down.
  const StopSignals stop_signals;
  Session session(shell);
  if (start_up(session)) {
    run_main_loop(session);
    stop_streams(session);
  }
  shut_down(session);
}

void run_program() {
  std::cout << std::unitbuf;
  const std::unique_ptr<Display> windows = make_highgui_display();
  Shell shell(*windows, std::cout);
  run_program(shell);
}

}  // namespace boxdim
