// Replaying a capture folder as the program's frame capture writes it,
// including the files a real capture folder may hold that cannot be played.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cli/temp_dir.h"
#include "virtual_camera/status_codes.h"
#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera::testing {
namespace {

using namespace Corvane;
namespace fs = std::filesystem;

const cv::Size kSize(8, 6);

// A frame file whose every sample is `value`, little-endian; `bytes` cuts it short.
void write_frame(const fs::path& file, std::uint16_t value, std::size_t bytes) {
  fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  for (std::size_t i = 0; i < bytes; ++i) {
    out.put(static_cast<char>(i % 2 == 0 ? value & 0xFF : value >> 8));
  }
}

void write_frame(const fs::path& file, std::uint16_t value) {
  write_frame(file, value, static_cast<std::size_t>(kSize.area()) * 2);
}

class ReplayTest : public VirtualCameraTest {
 protected:
  // Seconds 99 to 101 of device 1 (0 of the program's numbering): depth
  // samples 1099..1101 name their second. Second 100 also has an infrared
  // frame; device 2 has one depth frame at second 100. Beside them, files
  // that cannot be played.
  void SetUp() override {
    VirtualCameraTest::SetUp();
    for (const int second : {101, 99, 100}) {
      write_frame(dir.path() / "depth" / name("depth", second), 1000 + second);
    }
    write_frame(dir.path() / "ir" / name("ir", 100), 333);
    write_frame(dir.path() / "depth" / "2_8x6-depth_100.raw", 2100);
    write_frame(dir.path() / "depth" / "notes.txt", 0);
    write_frame(dir.path() / "depth" / name("depth", 102), 1102, 95);
    camera = "replay:" + dir.path().string();
  }

  static std::string name(const std::string& kind, int second) {
    return "1_8x6-" + kind + "_" + std::to_string(second) + ".raw";
  }

  // The kind and first sample of each frame of the next set, e.g. "D1100 I333".
  std::string next_samples() {
    std::string samples;
    const FrameData* set = next_set();
    for (const Frame& frame : set ? frames_of(*set) : std::vector<Frame>{}) {
      EXPECT_EQ(frame.size, kSize);
      samples += std::string(samples.empty() ? "" : " ") + "?RDIC"[frame.kind] +
                 std::to_string(frame.samples().at<std::uint16_t>(0, 0));
    }
    return samples;
  }

  boxdim::testing::TempDir dir;
  std::string camera;
};

// Device 2's frame in the same folder is a camera of its own, not a set
// between device 1's.
TEST_F(ReplayTest, PlaysEachCapturedCameraAsADeviceInTimeOrderAndLoops) {
  const std::vector<std::pair<int, std::vector<std::string>>> cases = {
      {2, {"D1099", "D1100", "D1101", "D1099"}},
      {4, {"D1099", "D1100 I333", "D1101"}},
  };
  ::testing::internal::CaptureStderr();
  open_first(camera.c_str());
  const std::string warnings = ::testing::internal::GetCapturedStderr();
  for (const std::string& file : {std::string("notes.txt"), name("depth", 102)}) {
    EXPECT_NE(warnings.find(file), std::string::npos) << file << " not named in\n" << warnings;
  }
  EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 2) << warnings;
  ASSERT_EQ(find_devices().size(), 2u);

  for (const auto& [stream, sets] : cases) {
    SCOPED_TRACE(::testing::Message() << "stream " << stream);
    ASSERT_EQ(StartStreaming(1, stream), 0);
    for (std::size_t i = 0; i < sets.size(); ++i) EXPECT_EQ(next_samples(), sets[i]) << i;
    ASSERT_EQ(StopStreaming(1), 0);
  }
  ASSERT_EQ(OpenDevice(find_devices()[1]), 0);
  ASSERT_EQ(StartStreaming(2, 2), 0);
  for (int i = 0; i < 2; ++i) {
    const FrameData* set = next_set(2);
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(frames_of(*set).at(0).samples().at<std::uint16_t>(0, 0), 2100);
  }
}

// The stream polls every millisecond; what went missing is said once, not
// on every poll.
TEST_F(ReplayTest, AFrameOrAFolderThatVanishesIsReportedOnce) {
  open_first(camera.c_str());
  ASSERT_EQ(StartStreaming(1, 2), 0);
  ASSERT_EQ(next_samples(), "D1099");
  fs::remove(dir.path() / "depth" / name("depth", 100));
  const auto poll_for = [&](int periods) {
    ::testing::internal::CaptureStderr();
    for (int p = 0; p < periods; ++p) {
      now_ += kFrameStep;
      for (int poll = 0; poll < 20; ++poll) {
        FrameData* frame = nullptr;
        GetLastFrameData(1, frame);
      }
    }
    return ::testing::internal::GetCapturedStderr();
  };
  const std::string one_file = poll_for(12);
  EXPECT_EQ(std::count(one_file.begin(), one_file.end(), '\n'), 1) << one_file;
  EXPECT_NE(one_file.find("cannot read " + (dir.path() / "depth" / name("depth", 100)).string()),
            std::string::npos)
      << one_file;

  fs::remove_all(dir.path());
  const std::string folder = poll_for(12);
  EXPECT_EQ(folder, "corvane_sdk: replay: " + dir.path().string() +
                        ": the capture has gone: no frame files left, nothing to play\n");
}

// A frame replaced by a named pipe while the capture plays: opening it
// would wait for a writer that never comes, and the camera with it.
TEST_F(ReplayTest, AFrameReplacedByANamedPipeIsSkippedWithoutWaiting) {
  open_first(camera.c_str());
  ASSERT_EQ(StartStreaming(1, 2), 0);
  ASSERT_EQ(next_samples(), "D1099");
  const fs::path frame = dir.path() / "depth" / name("depth", 100);
  fs::remove(frame);
  ASSERT_EQ(::mkfifo(frame.c_str(), 0644), 0);
  ::testing::internal::CaptureStderr();
  for (int p = 0; p < 12; ++p) {
    now_ += kFrameStep;
    FrameData* data = nullptr;
    GetLastFrameData(1, data);
  }
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("cannot read " + frame.string()), std::string::npos) << said;
}

TEST(ReplayFolders, AFolderWithoutPlayableFramesCannotBeOpened) {
  boxdim::testing::TempDir dir;
  write_frame(dir.path() / "depth" / "readme.md", 0);
  write_frame(dir.path() / "ir" / "1_8x6-ir_5.raw", 7);
  const std::vector<std::string> folders = {(dir.path() / "missing").string(), dir.path().string()};
  for (const std::string& folder : folders) {
    const std::string camera = "replay:" + folder;
    setenv("BOXDIM_CAMERA", camera.c_str(), 1);
    ASSERT_EQ(InitSDK(), 0);
    std::int32_t count = 1;
    DeviceInfo device{};
    ASSERT_EQ(FindDevice(count, &device), 0);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(OpenDevice(device), kDeviceUnavailable) << folder;
    EXPECT_NE(::testing::internal::GetCapturedStderr().find(folder), std::string::npos);
    EXPECT_EQ(StartStreaming(device.id, 2), kDeviceNotOpen);
    ASSERT_EQ(UnInitSDK(), 0);
  }
  unsetenv("BOXDIM_CAMERA");
}

class ReplayFolderTest : public VirtualCameraTest {
 protected:
  boxdim::testing::TempDir dir;
};

// Status -20 alone does not tell an operator what to do.
TEST_F(ReplayFolderTest, AStreamTheCaptureCannotFeedIsRefusedWithTheReason) {
  write_frame(dir.path() / "raw" / "1_8x6-raw_5.raw", 7);
  open_first(("replay:" + dir.path().string()).c_str());
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(StartStreaming(1, 2), kNoFramesForStream);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "corvane_sdk: replay: " + dir.path().string() +
                ": stream type 2 needs depth frames, and camera 1 of the capture has raw frames "
                "only (stream type 1 plays them)\n");
  EXPECT_EQ(StartStreaming(1, 1), 0);
}

// A file name may hold any byte but '/' and NUL: one with a newline is told
// on one line, its control characters as \xNN, so that a log stays a line
// per message.
TEST_F(ReplayFolderTest, AFileNameWithANewlineIsToldOnOneLine) {
  write_frame(dir.path() / "depth" / "1_8x6-depth_5.raw", 7);
  write_frame(dir.path() / "depth" / "forged\ncorvane_sdk: all is well.raw", 7);
  ::testing::internal::CaptureStderr();
  open_first(("replay:" + dir.path().string()).c_str());
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(said, "corvane_sdk: replay: skipping " + (dir.path() / "depth").string() +
                      "/forged\\x0acorvane_sdk: all is well.raw: not named "
                      "<id>_<W>x<H>-<kind>_<time>.raw\n");
}

// A recording of every frame numbers the frames of a second: they play in
// the order of their numbers, after a second captured the station's way.
TEST_F(ReplayFolderTest, NumberedFramesOfOneSecondPlayInTheirOrder) {
  write_frame(dir.path() / "depth" / "1_8x6-depth_100_000010.raw", 10);
  write_frame(dir.path() / "depth" / "1_8x6-depth_100_000002.raw", 2);
  write_frame(dir.path() / "depth" / "1_8x6-depth_100_000001.raw", 1);
  write_frame(dir.path() / "depth" / "1_8x6-depth_99.raw", 99);
  open_first(("replay:" + dir.path().string()).c_str());
  ASSERT_EQ(StartStreaming(1, 2), 0);
  for (const std::uint16_t expected : {99, 1, 2, 10, 99}) {
    const FrameData* set = next_set();
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(frames_of(*set).at(0).samples().at<std::uint16_t>(0, 0), expected);
  }
}

TEST_F(ReplayFolderTest, TheCamerasOfCaptureFoldersCountTowardsTheLimit) {
  write_frame(dir.path() / "depth" / "1_8x6-depth_5.raw", 7);
  write_frame(dir.path() / "depth" / "2_8x6-depth_5.raw", 7);
  std::string camera = "replay:" + dir.path().string();
  for (int i = 1; i < 9; ++i) camera += ",replay:" + dir.path().string();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(init(camera.c_str()), kBadConfiguration);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "corvane_sdk: BOXDIM_CAMERA: 18 devices with the cameras of the capture folders; at "
            "most 16 are supported\n");
}

}  // namespace
}  // namespace boxdim::virtual_camera::testing
