// The station program as a process of its own: what it says without a
// display, and how a stop signal ends it.
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "cli/temp_dir.h"
#include "support/child_process.h"

namespace boxdim {
namespace {

using testing::ChildProcess;
using testing::EnvironmentChanges;
using testing::eventually;
using testing::read_text;

struct NoDisplayCase {
  const char* name;
  EnvironmentChanges environment;
  const char* reason;
};

void PrintTo(const NoDisplayCase& c, std::ostream* os) { *os << c.name; }

class NoDisplayTest : public ::testing::TestWithParam<NoDisplayCase> {};

// Before anything else: no banner, no camera started, one line that says what
// to run instead, and a status a service manager sees as a failure.
TEST_P(NoDisplayTest, EndsAtOnceWithOneLineNamingTheReasonAndTheAlternative) {
  testing::TempDir dir;
  EnvironmentChanges environment = GetParam().environment;
  environment["QT_QPA_PLATFORM"] = std::nullopt;
  ChildProcess program({BOXDIM_PROGRAM}, environment, dir.file("out"), dir.file("err"));
  EXPECT_EQ(program.wait(std::chrono::seconds(20)), 1);
  EXPECT_EQ(read_text(dir.file("out")), "");
  const std::string err = read_text(dir.file("err"));
  EXPECT_EQ(err.rfind("boxdim: no display to open windows on (", 0), 0u) << err;
  EXPECT_NE(err.find(GetParam().reason), std::string::npos) << err;
  EXPECT_NE(err.find("run boxdim-cli live\n"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

INSTANTIATE_TEST_SUITE_P(
    Displays, NoDisplayTest,
    ::testing::Values(
        NoDisplayCase{"unset", {{"DISPLAY", std::nullopt}}, "DISPLAY is not set"},
        NoDisplayCase{"no_server", {{"DISPLAY", ":239"}}, "DISPLAY ':239' cannot be reached"},
        NoDisplayCase{"not_a_name", {{"DISPLAY", "nonsense"}}, "is not a display name"}),
    [](const auto& info) { return std::string(info.param.name); });

class StopSignalTest : public ::testing::TestWithParam<int> {};

// As after Esc: the streams are stopped (the report says so) and the SDK shut
// down; the final wait for Esc is skipped, nobody is there to press it.
TEST_P(StopSignalTest, StopsTheStreamsAndEndsWithoutWaitingForEsc) {
  testing::TempDir dir;
  const std::string out = dir.file("out");
  ChildProcess program({BOXDIM_PROGRAM},
                       {{"QT_QPA_PLATFORM", "offscreen"}, {"BOXDIM_CAMERA", std::nullopt}}, out,
                       dir.file("err"));
  ASSERT_TRUE(eventually([&] { return read_text(out).find("box_height: ") != std::string::npos; },
                         std::chrono::seconds(60)))
      << read_text(out) << read_text(dir.file("err"));
  program.send(GetParam());
  EXPECT_EQ(program.wait(std::chrono::seconds(30)), 0);
  const std::string text = read_text(out);
  const std::string last = "StopStreaming Success\n";
  ASSERT_GE(text.size(), last.size());
  EXPECT_EQ(text.substr(text.size() - last.size()), last) << text.substr(text.size() / 2);
}

INSTANTIATE_TEST_SUITE_P(Signals, StopSignalTest, ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& info) { return std::string(sigabbrev_np(info.param)); });

}  // namespace
}  // namespace boxdim
