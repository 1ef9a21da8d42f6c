// A capture keeps every frame: a second run into the same folder, or a
// second recorder at once, numbers its frames on instead of writing over
// the first's, and a frame that cannot be written whole leaves nothing.
#include "cli/frame_recorder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include "cli/output.h"
#include "cli/temp_dir.h"

namespace boxdim {
namespace {

namespace fs = std::filesystem;

DepthFrame frame_of(std::uint16_t value) {
  DepthFrame frame;
  frame.depth = cv::Mat(48, 64, CV_16UC1, cv::Scalar(value));
  frame.camera_id = 1;
  frame.timestamp_us = 7'000'000;  // every frame in the same second
  return frame;
}

std::set<std::string> names_in(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
  return names;
}

TEST(FrameRecorder, ASecondRunAndASecondRecorderNumberTheirFramesOn) {
  testing::TempDir dir;
  const std::string capture = dir.file("capture");
  {
    FrameRecorder first_run(capture);
    for (int i = 0; i < 3; ++i) first_run.record(frame_of(1000));
  }
  // A file that is not one of the recorder's, in the way of a next name.
  std::ofstream(capture + "/depth/1_64x48-depth_7_000005.raw") << "someone else's";
  FrameRecorder second_run(capture);
  FrameRecorder at_the_same_time(capture);
  for (int i = 0; i < 3; ++i) {
    second_run.record(frame_of(2000));
    at_the_same_time.record(frame_of(3000));
  }
  const std::set<std::string> names = names_in(fs::path(capture) / "depth");
  EXPECT_EQ(names.size(), 10u) << "nine frames and the file that was there";
  EXPECT_TRUE(names.count("1_64x48-depth_7_000001.raw"));
  EXPECT_TRUE(names.count("1_64x48-depth_7_000011.raw")) << "numbered on past the others";
  std::ifstream kept(capture + "/depth/1_64x48-depth_7_000005.raw");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "someone else's");
}

// A disk that fills up, as a file size limit makes one.
TEST(FrameRecorder, AFrameThatCannotBeWrittenWholeLeavesNothing) {
  testing::TempDir dir;
  FrameRecorder recorder(dir.file("capture"));
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto previous_handler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = before;
  small.rlim_cur = 1000;  // less than a frame's 6,144 bytes
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  std::string failure;
  try {
    recorder.record(frame_of(1000));
  } catch (const OutputError& e) {
    failure = e.what();
  }
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, previous_handler);
  EXPECT_NE(failure.find("could not be written completely (File too large)"), std::string::npos)
      << failure;
  EXPECT_TRUE(names_in(fs::path(dir.file("capture")) / "depth").empty());
}

}  // namespace
}  // namespace boxdim
