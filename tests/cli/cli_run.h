// Runs boxdim-cli in-process with captured output.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "cli/cli_app.h"

namespace boxdim::testing {

struct CliRun {
  int status;
  std::string out;
  std::string err;
};

inline CliRun run(std::vector<std::string> args) {
  args.insert(args.begin(), "boxdim-cli");
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  std::ostringstream out;
  std::ostringstream err;
  const int status = run_cli(static_cast<int>(argv.size()), argv.data(), out, err);
  return {status, out.str(), err.str()};
}

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace boxdim::testing
