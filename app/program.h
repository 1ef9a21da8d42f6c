// The whole program from banner to the last Esc, as the entry point runs it.
#pragma once

namespace boxdim {

// Start-up, main loop, shutdown and the final wait for Esc. SDK failures are
// reported and never end the program early.
void run_program();

}  // namespace boxdim
