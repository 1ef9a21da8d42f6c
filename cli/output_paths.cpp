#include "cli/output_paths.h"

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <utility>

namespace boxdim {

namespace {

std::string file_identity(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) {
    return "inode " + std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
  }
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error) return "path " + path;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(absolute, error);
  return "path " + (error ? absolute.lexically_normal() : resolved).string();
}

}  // namespace

std::optional<PathClash> find_path_clash(const std::vector<std::string>& inputs,
                                         const std::vector<std::string>& outputs) {
  std::map<std::string, std::size_t> input_of;
  for (std::size_t i = 0; i < inputs.size(); ++i) input_of.emplace(file_identity(inputs[i]), i);
  std::map<std::string, std::size_t> output_of;
  for (std::size_t o = 0; o < outputs.size(); ++o) {
    const std::string identity = file_identity(outputs[o]);
    if (const auto input = input_of.find(identity); input != input_of.end()) {
      return PathClash{o, true, input->second};
    }
    const auto [earlier, fresh] = output_of.emplace(identity, o);
    if (!fresh) return PathClash{o, false, earlier->second};
  }
  return std::nullopt;
}

}  // namespace boxdim
