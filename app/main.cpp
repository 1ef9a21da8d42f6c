// boxdim: measures boxes seen from above by time-of-flight cameras.
#include <iostream>

#include "app/program.h"
#include "runtime/display_check.h"

int main() {
  if (const std::string problem = boxdim::display_problem(); !problem.empty()) {
    std::cerr << "boxdim: no display to open windows on (" << problem
              << "); to measure without windows, run boxdim-cli live\n";
    return 1;
  }
  boxdim::run_program();
  // Always 0 once it ran: SDK failures are reported on the console, not in the
  // exit status.
  return 0;
}
