// A scratch folder for one test, removed afterwards.
#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace boxdim::testing {

class TempDir {
 public:
  TempDir() {
    std::random_device seed;
    path_ = std::filesystem::temp_directory_path() /
            ("boxdim-test-" + std::to_string(seed()) + std::to_string(seed()));
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace boxdim::testing
