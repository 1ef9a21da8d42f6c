// boxdim-cli: measures boxes in recorded or simulated depth frames, headless.
#include <iostream>

#include "cli/cli_app.h"

int main(int argc, char** argv) { return boxdim::run_cli(argc, argv, std::cout, std::cerr); }
