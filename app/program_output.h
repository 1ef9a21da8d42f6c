// The program's console: every line it prints goes through one stream, so that
// tests can capture it and the measurement stages' lines interleave in order.
#pragma once

#include <ostream>
#include <string>

namespace boxdim {

// Standard output unless replaced.
std::ostream& program_output();
// Redirects the program's lines and the measurement stages' lines to `stream`
// (std::cout to restore). The caller keeps it alive.
void set_program_output(std::ostream* stream);

// Reports a failed SDK call: "<operation> errorcode:<code>".
void print_error(const std::string& operation, int code);

}  // namespace boxdim
