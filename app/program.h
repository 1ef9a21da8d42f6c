// The whole program from banner to the last Esc, as the entry point runs it.
#pragma once

#include "app/shell.h"

namespace boxdim {

// Start-up, main loop, shutdown and the final wait for Esc, with the shell's
// windows and console; the measurement stages print to the same console.
// SDK failures are reported and never end the program early. SIGINT, SIGTERM
// and SIGHUP end the loop as Esc does and skip the final wait.
void run_program(Shell& shell);

// The same with highgui's windows and standard output, unbuffered so that
// every line is out as soon as it is printed, also into a pipe.
void run_program();

}  // namespace boxdim
