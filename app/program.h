// The whole program from banner to the last Esc, as the entry point runs it.
#pragma once

namespace boxdim {

// Start-up, main loop, shutdown and the final wait for Esc. SDK failures are
// reported and never end the program early. SIGINT, SIGTERM and SIGHUP end
// the loop as Esc does and skip the final wait.
void run_program();

}  // namespace boxdim
