#include "app/program.h"

#include <ostream>

#include "app/main_loop.h"
#include "app/program_output.h"
#include "app/startup.h"

namespace boxdim {

void run_program() {
  // Unbuffered, so every line is out as soon as it is printed, also into a pipe.
  program_output() << std::unitbuf;
  Session session;
  if (start_up(session)) {
    run_main_loop(session);
    stop_streams(session);
  }
  shut_down(session);
}

}  // namespace boxdim
