#include "app/program_output.h"

#include <iostream>

#include "app/globals.h"

namespace boxdim {

namespace {

std::ostream* output = &std::cout;

}  // namespace

std::ostream& program_output() { return *output; }

void set_program_output(std::ostream* stream) {
  output = stream;
  g_measurement_state.seams.log = stream;
}

void print_error(const std::string& operation, int code) {
  program_output() << operation << " errorcode:" << code << "\n";
}

}  // namespace boxdim
