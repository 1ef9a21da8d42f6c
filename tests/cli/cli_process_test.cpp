// boxdim-cli as a process of its own: stop signals, and a standard output
// that cannot be written.
#include <gtest/gtest.h>

#include <csignal>
#include <opencv2/imgcodecs.hpp>
#include <regex>
#include <string>

#include "cli/temp_dir.h"
#include "cli_run.h"
#include "support/child_process.h"

namespace boxdim {
namespace {

using testing::ChildProcess;
using testing::eventually;
using testing::lines_of;
using testing::read_text;

constexpr std::chrono::seconds kPatience(90);

class LiveStopSignalTest : public ::testing::TestWithParam<int> {};

TEST_P(LiveStopSignalTest, StopsTheCamerasAndClosesWithTheNumberOfFrames) {
  testing::TempDir dir;
  const std::string out = dir.file("out");
  const std::string err = dir.file("err");
  ChildProcess live({BOXDIM_CLI_PROGRAM, "live"}, {{"BOXDIM_CAMERA", std::nullopt}}, out, err);
  ASSERT_TRUE(eventually([&] { return lines_of(read_text(out)).size() >= 3; }, kPatience))
      << read_text(err);
  live.send(GetParam());
  EXPECT_EQ(live.wait(kPatience), 0);
  const auto lines = lines_of(read_text(err));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "boxdim-cli live: " + std::to_string(lines_of(read_text(out)).size()) +
                              " frames measured, stopped by SIG" + sigabbrev_np(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Signals, LiveStopSignalTest, ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& info) { return std::string(sigabbrev_np(info.param)); });

struct FullOutputCase {
  const char* name;
  std::vector<std::string> args;
};

void PrintTo(const FullOutputCase& c, std::ostream* os) { *os << c.name; }

class FullOutputTest : public ::testing::TestWithParam<FullOutputCase> {};

// Nothing is lost silently: the first write that fails ends the run with one
// line and status 2 (live would otherwise run forever).
TEST_P(FullOutputTest, StopsWithOneLineAndStatusTwo) {
  testing::TempDir dir;
  const std::string frame = dir.file("box.raw");
  ASSERT_EQ(
      testing::run({"simulate", "--box", "400x300x200", "--camera-height", "1000", "--out", frame})
          .status,
      0);
  std::vector<std::string> argv = {BOXDIM_CLI_PROGRAM};
  for (const std::string& arg : GetParam().args) {
    argv.push_back(arg == "FRAME" ? frame : arg == "OUT" ? dir.file("s.raw") : arg);
  }
  ChildProcess cli(argv, {{"BOXDIM_CAMERA", std::nullopt}}, "/dev/full", dir.file("err"));
  EXPECT_EQ(cli.wait(kPatience), 2);
  const std::string err = read_text(dir.file("err"));
  const std::string message = "standard output: cannot be written (No space left on device)\n";
  EXPECT_NE(err.find(message), std::string::npos) << err;
  EXPECT_EQ(err.find(message), err.rfind(message)) << "once: " << err;
}

INSTANTIATE_TEST_SUITE_P(
    Commands, FullOutputTest,
    ::testing::Values(FullOutputCase{"measure", {"measure", "--seed", "1", "FRAME", "FRAME"}},
                      FullOutputCase{"measure_json", {"measure", "--json", "FRAME", "FRAME"}},
                      FullOutputCase{
                          "simulate",
                          {"simulate", "--box", "4x3x2", "--camera-height", "900", "--out", "OUT"}},
                      FullOutputCase{"evaluate", {"evaluate", "--scenes", "1"}},
                      FullOutputCase{"live_json", {"live", "--json"}}),
    [](const auto& info) { return std::string(info.param.name); });

// Scene by scene: rows are in the CSV long before the run could be done, and
// an interruption still leaves the report and the plot of what was measured.
TEST(EvaluateProcessTest, AnInterruptedRunReportsAndPlotsTheScenesItMeasured) {
  testing::TempDir dir;
  const std::string csv = dir.file("scenes.csv");
  const std::string plot = dir.file("errors.png");
  ChildProcess evaluate({BOXDIM_CLI_PROGRAM, "evaluate", "--scenes", "10000", "--family",
                         "top-down", "--engine", "station", "--csv", csv, "--plot", plot},
                        {}, dir.file("out"), dir.file("err"));
  ASSERT_TRUE(eventually([&] { return lines_of(read_text(csv)).size() >= 4; }, kPatience));
  evaluate.send(SIGINT);
  EXPECT_EQ(evaluate.wait(kPatience), 128 + SIGINT);

  const std::size_t rows = lines_of(read_text(csv)).size() - 1;
  const std::string report = read_text(dir.file("out"));
  EXPECT_NE(report.find("Interrupted by SIGINT after " + std::to_string(rows) + " of 10000 scenes"),
            std::string::npos)
      << report;
  EXPECT_TRUE(
      std::regex_search(report, std::regex("\ntop-down +station +" + std::to_string(rows) + " ")))
      << report;
  EXPECT_NE(read_text(dir.file("err")).find("interrupted by SIGINT"), std::string::npos);
  EXPECT_FALSE(cv::imread(plot).empty());
}

}  // namespace
}  // namespace boxdim
