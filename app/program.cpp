#include "app/program.h"

#include <ostream>

#include "app/main_loop.h"
#include "app/program_output.h"
#include "app/startup.h"
#include "runtime/stop_signals.h"

namespace boxdim {

void run_program() {
  // Unbuffered, so every line is out as soon as it is printed, also into a pipe.
  program_output() << std::unitbuf;
  // A service manager's stop or a closed terminal ends the program as Esc
  // does, with the streams stopped and the SDK shut down.
  const StopSignals stop_signals;
  Session session;
  if (start_up(session)) {
    run_main_loop(session);
    stop_streams(session);
  }
  shut_down(session);
}

}  // namespace boxdim
