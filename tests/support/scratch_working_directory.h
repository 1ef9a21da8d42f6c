// Runs a test in a scratch working directory, for code that writes beside
// itself; the old working directory comes back afterwards.
#pragma once

#include <filesystem>

#include "cli/temp_dir.h"

namespace boxdim::testing {

class ScratchWorkingDirectory {
 public:
  ScratchWorkingDirectory() : previous_(std::filesystem::current_path()) {
    std::filesystem::current_path(dir_.path());
  }
  ~ScratchWorkingDirectory() { std::filesystem::current_path(previous_); }
  const std::filesystem::path& path() const { return dir_.path(); }

 private:
  TempDir dir_;
  std::filesystem::path previous_;
};

}  // namespace boxdim::testing
