#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>

#include "cli_run.h"
#include "temp_dir.h"

namespace boxdim {
namespace {

using testing::CliRun;
using testing::lines_of;
using testing::run;

void write_bytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

class CliTest : public ::testing::Test {
 protected:
  // Renders a 400 x 300 x 200 mm box into `name` and returns its path.
  std::string simulate(const std::string& name, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"simulate", "--box", "400x300x200", "--camera-height",
                                     "1000",     "--out", dir.file(name)};
    args.insert(args.end(), extra.begin(), extra.end());
    const CliRun r = run(args);
    EXPECT_EQ(r.status, 0) << r.err;
    return dir.file(name);
  }

  testing::TempDir dir;
};

struct UsageCase {
  const char* name;
  std::vector<std::string> args;
  const char* message;
};

class UsageTest : public CliTest, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(UsageTest, BadUsageExitsWithTwoAndSaysWhy) {
  const CliRun r = run(GetParam().args);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find(GetParam().message), std::string::npos) << r.err;
  EXPECT_TRUE(r.out.empty()) << r.out;
}

// One row per rule that turns a command line away.
INSTANTIATE_TEST_SUITE_P(
    Arguments, UsageTest,
    ::testing::Values(
        UsageCase{"no_subcommand", {}, "subcommand"},
        UsageCase{"unknown_subcommand", {"weigh", "x.raw"}, "weigh"},
        UsageCase{"no_files", {"measure", "--json"}, "FILE"},
        UsageCase{"unknown_option", {"measure", "--colour", "x.raw"}, "--colour"},
        UsageCase{"bad_size", {"measure", "--size", "640by480", "x.raw"}, "--size"},
        UsageCase{"zero_focal",
                  {"measure", "--intrinsics", "0,500,320,240", "x.raw"},
                  "--intrinsics: focal lengths must be positive"},
        UsageCase{"two_sided_box",
                  {"simulate", "--box", "400x300", "--camera-height", "1000", "--out", "x.raw"},
                  "--box: '400x300' is not of the form LxWxH"},
        UsageCase{"flat_box",
                  {"simulate", "--box", "400x300x0", "--camera-height", "1000", "--out", "x.raw"},
                  "height"},
        UsageCase{"unwritable_out",
                  {"simulate", "--box", "4x3x2", "--camera-height", "1000", "--out",
                   "/nonexistent/boxdim/s.raw"},
                  "/nonexistent/boxdim/s.raw: cannot be opened for writing"},
        UsageCase{"unknown_family", {"evaluate", "--family", "sideways"}, "--family"},
        UsageCase{"no_scenes", {"evaluate", "--scenes", "0"}, "--scenes"},
        UsageCase{"plot_not_png",
                  {"evaluate", "--plot", "errors.jpg"},
                  "errors.jpg: the picture must be a .png file"},
        UsageCase{"unwritable_csv",
                  {"evaluate", "--csv", "/nonexistent/boxdim/scenes.csv"},
                  "scenes.csv: cannot be opened for writing"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CliTest, ASimulatedFrameIsMeasuredAsItsGroundTruthWithOneJsonObjectPerFile) {
  const std::string frame = dir.file("box.raw");
  const CliRun sim = run({"simulate", "--box", "300x400x200", "--camera-height", "1000", "--noise",
                          "1", "--seed", "5", "--out", frame, "--png", dir.file("box.png")});
  ASSERT_EQ(sim.status, 0) << sim.err;
  EXPECT_EQ(std::filesystem::file_size(frame), 614400u);
  EXPECT_EQ(cv::imread(dir.file("box.png"), cv::IMREAD_UNCHANGED).type(), CV_8UC1);
  const auto truth = nlohmann::json::parse(sim.out);
  EXPECT_EQ(truth["length_mm"], 400.0) << "the longer side is the length";
  EXPECT_EQ(truth["width_mm"], 300.0);
  EXPECT_EQ(truth["corners_px"].size(), 4u);
  EXPECT_NEAR(truth["top_plane"][3].get<double>(), -800.0, 1e-3);

  const CliRun r = run({"measure", "--json", "--seed", "1", frame});
  EXPECT_EQ(r.status, 0) << r.err;
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 1u) << r.out;
  const auto result = nlohmann::json::parse(lines[0]);
  std::vector<std::string> keys;
  for (const auto& item : result.items()) keys.push_back(item.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"corners_px", "elapsed_ms", "failed_stage", "file",
                                            "height_mm", "length_mm", "ok", "width_mm"}));
  EXPECT_EQ(result["file"], frame);
  EXPECT_EQ(result["ok"], true);
  EXPECT_TRUE(result["failed_stage"].is_null());
  for (const char* side : {"length_mm", "width_mm", "height_mm"}) {
    EXPECT_NEAR(result[side].get<double>(), truth[side].get<double>(), 3.0) << side;
  }
  ASSERT_EQ(result["corners_px"].size(), 4u);
  EXPECT_EQ(result["corners_px"][0].size(), 2u);
  EXPECT_GT(result["elapsed_ms"].get<double>(), 0.0);
  EXPECT_NE(r.err.find("box_height: "), std::string::npos) << "the stages' lines go to stderr";

  // The seed replaces the clock in both random generators, which otherwise
  // changes only once a second.
  EXPECT_EQ(run({"measure", "--json", "--seed", "1", frame}).err, r.err);
  EXPECT_NE(run({"measure", "--json", "--seed", "2", frame}).err, r.err);
}

TEST_F(CliTest, WithoutJsonTheLogGoesToStandardOutputAndAnnotationsNameTheFile) {
  const std::string frame = simulate("scene-a.raw");
  const std::string blank = dir.file("scene-b.raw");
  write_bytes(blank, std::string(614400, '\0'));
  const CliRun r = run({"measure", "--annotate", dir.file("pictures"), frame, blank});
  EXPECT_EQ(r.status, 1);
  const auto lines = lines_of(r.out);
  ASSERT_GE(lines.size(), 2u) << r.out;
  EXPECT_NE(r.out.find("box_height: "), std::string::npos);
  EXPECT_NE(r.out.find(frame + ": length "), std::string::npos) << r.out;
  EXPECT_EQ(lines[lines.size() - 2], "select_points_by_center select points less than 50;");
  EXPECT_EQ(lines.back().rfind(blank + ": not measured (select_points_by_center failed)", 0), 0u)
      << lines.back();

  const auto red_pixels = [](const cv::Mat& picture) {
    cv::Mat red;
    cv::inRange(picture, cv::Scalar(0, 0, 255), cv::Scalar(0, 0, 255), red);
    return cv::countNonZero(red);
  };
  // The measured frame carries the wire frame and the red dimension texts;
  // the failed one only the green centre marker.
  const cv::Mat measured = cv::imread(dir.file("pictures/scene-a.png"));
  ASSERT_EQ(measured.size(), cv::Size(640, 480));
  EXPECT_GT(red_pixels(measured), 100);
  const cv::Mat failed = cv::imread(dir.file("pictures/scene-b.png"));
  ASSERT_EQ(failed.size(), cv::Size(640, 480));
  EXPECT_EQ(red_pixels(failed), 0);
  EXPECT_EQ(failed.at<cv::Vec3b>(240, 320 + 12), cv::Vec3b(0, 255, 0)) << "centre marker";
}

TEST_F(CliTest, AnAnnotationFolderThatCannotBeMadeIsReportedButMeasuringGoesOn) {
  const std::string frame = simulate("scene-b.raw");
  std::ofstream(dir.file("occupied")) << "a file, not a folder";
  const CliRun r = run({"measure", "--json", "--annotate", dir.file("occupied"), frame});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(lines_of(r.out).size(), 1u);
  EXPECT_NE(r.err.find("cannot create the annotation folder"), std::string::npos) << r.err;
}

struct BadFileCase {
  const char* name;  // also how the file is made, when not from `bytes`
  const char* file_name;
  std::string bytes;
  const char* reason;
};

void PrintTo(const BadFileCase& c, std::ostream* os) { *os << c.name; }

class BadFileTest : public CliTest, public ::testing::WithParamInterface<BadFileCase> {};

TEST_P(BadFileTest, IsOneLineOnStandardErrorAndTheOtherFilesAreStillMeasured) {
  const BadFileCase& c = GetParam();
  const std::string kind = c.name;
  const std::string good = simulate("good.raw");
  const std::string bad = dir.file(c.file_name);
  if (kind == "folder") {
    std::filesystem::create_directory(bad);
  } else if (kind == "pipe") {
    ASSERT_EQ(::mkfifo(bad.c_str(), 0600), 0);
  } else if (kind == "eight_bit_png") {
    ASSERT_TRUE(cv::imwrite(bad, cv::Mat(48, 64, CV_8UC1, cv::Scalar(9))));
  } else if (kind != "missing") {
    write_bytes(bad, c.bytes);
  }
  if (kind == "unreadable") {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads any file";
    std::filesystem::permissions(bad, std::filesystem::perms::none);
  }

  // The process's own standard error too: a decoder writing there would add a
  // line the user did not ask for.
  ::testing::internal::CaptureStderr();
  const CliRun r = run({"measure", "--json", "--seed", "1", bad, good});
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(r.status, 2);

  std::vector<std::string> about_bad;
  for (const std::string& line : lines_of(r.err)) {
    if (line.find(c.file_name) != std::string::npos) about_bad.push_back(line);
  }
  ASSERT_EQ(about_bad.size(), 1u) << r.err;
  EXPECT_EQ(about_bad[0].rfind("boxdim-cli: " + bad + ": " + c.reason, 0), 0u) << about_bad[0];

  const auto objects = lines_of(r.out);
  ASSERT_EQ(objects.size(), 2u) << r.out;
  const auto failed = nlohmann::json::parse(objects[0]);
  EXPECT_EQ(failed["file"], bad);
  EXPECT_EQ(failed["ok"], false);
  EXPECT_EQ(failed["error"].get<std::string>().rfind(c.reason, 0), 0u);
  EXPECT_EQ(nlohmann::json::parse(objects[1])["ok"], true);
}

const std::string kFullFrame(614400, 5);

// Raw and image files share the checks of the file itself; an empty PNG shows
// that images go through them too.
INSTANTIATE_TEST_SUITE_P(
    Kinds, BadFileTest,
    ::testing::Values(
        BadFileCase{"missing", "gone.raw", "", "no such file"},
        BadFileCase{"folder", "folder.raw", "", "is a directory"},
        BadFileCase{"pipe", "pipe.raw", "", "not a regular file"},
        BadFileCase{"unreadable", "locked.raw", kFullFrame, "cannot be opened for reading"},
        BadFileCase{"empty_png", "empty.png", "", "empty file"},
        BadFileCase{"truncated", "1_640x480-depth_7.raw", std::string(1000, 5),
                    "truncated: 1000 bytes, a 640x480 frame needs 614400"},
        BadFileCase{"wrong_size", "1_320x240-depth_7.raw", kFullFrame,
                    "wrong size: 614400 bytes, a 320x240 frame has 153600"},
        BadFileCase{"size_unknown", "frame.raw", std::string(1000, 5), "frame size unknown"},
        BadFileCase{"corrupt_png", "corrupt.png",
                    std::string("\x89PNG\r\n\x1a\n", 8) + std::string(300, '\x7f'),
                    "not a readable image"},
        BadFileCase{"eight_bit_png", "grey.png", "", "not a 16-bit"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CliTest, EvaluateReportsOneFamilyAndWritesItsScenesAndPlot) {
  const CliRun r = run({"evaluate", "--scenes", "2", "--family", "tilted", "--csv",
                        dir.file("scenes.csv"), "--plot", dir.file("errors.png")});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto table = lines_of(r.out);
  ASSERT_GE(table.size(), 5u) << r.out;
  EXPECT_EQ(table[2].rfind("family", 0), 0u) << table[2];
  EXPECT_TRUE(std::regex_search(table[4], std::regex("^tilted +2 "))) << table[4];
  EXPECT_EQ(r.out.find("top-down"), std::string::npos) << "only the family asked for";
  EXPECT_NE(r.err.find("2/2"), std::string::npos) << "progress on standard error";

  std::ifstream csv(dir.file("scenes.csv"));
  const auto rows = lines_of(std::string(std::istreambuf_iterator<char>(csv), {}));
  ASSERT_EQ(rows.size(), 3u);
  const auto columns = [](const std::string& row) {
    return std::count(row.begin(), row.end(), ',');
  };
  for (const std::string& row : rows) EXPECT_EQ(columns(row), columns(rows[0])) << row;
  EXPECT_EQ(rows[1].rfind("tilted,1,", 0), 0u) << rows[1];

  const cv::Mat plot = cv::imread(dir.file("errors.png"));
  ASSERT_FALSE(plot.empty());
  EXPECT_GT(plot.cols, plot.rows);
}

}  // namespace
}  // namespace boxdim
