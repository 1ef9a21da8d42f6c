// boxdim: measures boxes seen from above by time-of-flight cameras.
#include "app/program.h"

int main() {
  boxdim::run_program();
  // Always 0: SDK failures are reported on the console, not in the exit status.
  return 0;
}
