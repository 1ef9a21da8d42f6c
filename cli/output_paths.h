// Catches, before a run starts, an output that would land on one of the run's
// inputs or on another of its outputs, however the two paths are spelled.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace boxdim {

// An output path that names the same file as an input or an earlier output.
struct PathClash {
  std::size_t output = 0;  // index into the outputs
  bool with_input = false;
  std::size_t other = 0;  // index into the inputs, or into the outputs
};

// The first output that names the same file as an input or an earlier output:
// for files that exist, the same device and inode (so hard and symbolic links
// count); for the others, the same absolute path with "." and ".." and the
// links of the folders above resolved. Inputs may repeat among themselves.
std::optional<PathClash> find_path_clash(const std::vector<std::string>& inputs,
                                         const std::vector<std::string>& outputs);

}  // namespace boxdim
