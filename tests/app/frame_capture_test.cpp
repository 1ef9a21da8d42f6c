#include "app/frame_capture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "app_fixture.h"

namespace boxdim::testing {
namespace {

namespace fs = std::filesystem;

std::string file_bytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<fs::path> files_in(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  return files;
}

// Runs `save` until it falls within one second and returns that second, so
// that the expected file name is known.
std::time_t within_one_second(const std::function<void()>& save) {
  for (;;) {
    const std::time_t before = std::time(nullptr);
    save();
    if (std::time(nullptr) == before) return before;
  }
}

class FrameCaptureTest : public AppTest {
 protected:
  ScratchWorkingDirectory scratch;
};

TEST_F(FrameCaptureTest, MakeFolderJoinsTheWorkingDirectoryAndReusesTheFolder) {
  std::string path;
  make_folder(path, "depth");
  EXPECT_EQ(path, fs::current_path().string() + "/depth/");
  EXPECT_TRUE(fs::is_directory(path));
  fs::path marker = fs::path(path) / "kept";
  std::ofstream(marker) << "x";
  make_folder(path, "depth");
  EXPECT_TRUE(fs::exists(marker));
}

struct SaveCase {
  const char* name;
  int device_id;
  int kind;
  int width;
  int height;
  std::string folder;  // relative to the working directory
  std::string file;    // before "_<seconds>.raw"
};

class SaveFrameTest : public FrameCaptureTest, public ::testing::WithParamInterface<SaveCase> {};

TEST_P(SaveFrameTest, WritesTheBareSamplesUnderTheKindsName) {
  const SaveCase& c = GetParam();
  std::vector<std::uint16_t> samples(static_cast<std::size_t>(c.width) * c.height);
  for (std::size_t i = 0; i < samples.size(); ++i)
    samples[i] = static_cast<std::uint16_t>(i * 257 + 3);
  const std::time_t second = within_one_second(
      [&] { save_frame(c.device_id, samples.data(), c.kind, c.width, c.height); });
  const fs::path file =
      scratch.path() / c.folder / (c.file + "_" + std::to_string(second) + ".raw");
  ASSERT_TRUE(fs::exists(file)) << file;
  EXPECT_EQ(file_bytes(file),
            std::string(reinterpret_cast<const char*>(samples.data()), samples.size() * 2));
  EXPECT_TRUE(out.str().empty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, SaveFrameTest,
                         ::testing::Values(SaveCase{"Raw", 0, 1, 4, 3, "raw", "1_4x3-raw"},
                                           SaveCase{"Depth", 1, 2, 3, 2, "depth", "2_3x2-depth"},
                                           SaveCase{"Ir", 6, 3, 2, 5, "ir", "7_2x5-ir"},
                                           // Other kinds have no word and no folder of their own.
                                           SaveCase{"Colour", 0, 4, 2, 2, "", "1_2x2-"}),
                         CaseName());

TEST_F(FrameCaptureTest, ASecondFrameWithinTheSameSecondOverwritesTheFirst) {
  const std::vector<std::uint16_t> first(6, 1111);
  const std::vector<std::uint16_t> second(6, 2222);
  within_one_second([&] {
    save_frame(0, first.data(), 2, 3, 2);
    save_frame(0, second.data(), 2, 3, 2);
  });
  const std::vector<fs::path> files = files_in(scratch.path() / "depth");
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(file_bytes(files[0]),
            std::string(reinterpret_cast<const char*>(second.data()), second.size() * 2));
}

TEST_F(FrameCaptureTest, AFileThatCannotBeCreatedIsSkippedSilentlyAndTriedAgainNextTime) {
  std::ofstream(scratch.path() / "raw") << "a file where the folder belongs";
  const std::vector<std::uint16_t> samples(4, 7);
  save_frame(0, samples.data(), 1, 2, 2);
  EXPECT_TRUE(fs::is_regular_file(scratch.path() / "raw"));
  EXPECT_TRUE(out.str().empty());
  fs::remove(scratch.path() / "raw");
  save_frame(0, samples.data(), 1, 2, 2);
  EXPECT_EQ(files_in(scratch.path() / "raw").size(), 1u);
}

}  // namespace
}  // namespace boxdim::testing
