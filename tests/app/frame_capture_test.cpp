#include "app/frame_capture.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <regex>
#include <vector>

#include "app_fixture.h"

namespace boxdim::testing {
namespace {

namespace fs = std::filesystem;

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

// The kind's folder and word come from the frame handler's tests; here the
// name's numbers, and a kind without a word of its own.
TEST_F(FrameCaptureTest, WritesTheBareSamplesNamedByDeviceSizeKindAndSecond) {
  const std::vector<std::tuple<int, int, int, int, std::string>> cases = {
      {0, 1, 4, 3, "raw/1_4x3-raw"}, {6, 4, 2, 5, "7_2x5-"}};
  for (const auto& [device_id, kind, width, height, name] : cases) {
    std::vector<std::uint16_t> samples(static_cast<std::size_t>(width) * height);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = i * 257 + 3;
    const std::time_t second =
        within_one_second([&] { save_frame(device_id, samples.data(), kind, width, height); });
    const fs::path file = scratch.path() / (name + "_" + std::to_string(second) + ".raw");
    EXPECT_EQ(file_bytes(file),
              std::string(reinterpret_cast<const char*>(samples.data()), samples.size() * 2))
        << file;
  }
  EXPECT_TRUE(out.str().empty());
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

// A disk that fills up, as a file size limit makes one: a frame that
// cannot be written whole is removed, the first failure of a run of them
// is said on standard error once, and a frame written again ends the run.
TEST_F(FrameCaptureTest, AFrameThatCannotBeWrittenWholeIsRemovedAndSaidOnce) {
  const std::vector<std::uint16_t> samples(640 * 480, 1000);
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  // Past the limit a write fails with EFBIG instead of the signal.
  const auto previous_handler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = before;
  small.rlim_cur = 100000;  // less than one frame's 614,400 bytes
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  ::testing::internal::CaptureStderr();
  for (int frame = 0; frame < 3; ++frame) save_frame(0, samples.data(), 2, 640, 480);
  const std::string said = ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, previous_handler);
  EXPECT_TRUE(files_in(scratch.path() / "depth").empty()) << "no truncated frame is left";
  EXPECT_TRUE(std::regex_match(said, std::regex("save_frame: .*/depth/1_640x480-depth_[0-9]+\\.raw "
                                                "could not be written completely \\(File too "
                                                "large\\); not kept\n")))
      << said;
  EXPECT_TRUE(out.str().empty());

  ::testing::internal::CaptureStderr();
  save_frame(0, samples.data(), 2, 640, 480);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(files_in(scratch.path() / "depth").size(), 1u);
}

}  // namespace
}  // namespace boxdim::testing
