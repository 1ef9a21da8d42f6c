// The command line of boxdim-cli: parses the arguments, validates them once,
// and runs the chosen subcommand.
#pragma once

#include <ostream>

namespace boxdim {

// Returns the process exit status; 2 for bad usage.
int run_cli(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace boxdim
