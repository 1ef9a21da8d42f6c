#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>

#include "cli/output.h"
#include "cli_run.h"
#include "scene/depth_scene.h"
#include "source/depth_file.h"
#include "support/scratch_working_directory.h"
#include "support/test_frames.h"
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

void PrintTo(const UsageCase& c, std::ostream* os) { *os << c.name; }

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
        UsageCase{"zero_division", {"measure", "--division", "0", "x.raw"}, "--division"},
        UsageCase{"division_not_a_number", {"evaluate", "--division", "5mm"}, "--division"},
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
        // Sequences judge the tracker over kinds of their own, not scenes' sides.
        UsageCase{"sides_of_sequences", {"evaluate", "--sequences", "1", "--sides"}, "--sides"},
        UsageCase{"plot_not_png",
                  {"evaluate", "--plot", "errors.jpg"},
                  "errors.jpg: the picture must be a .png file"},
        UsageCase{"unwritable_csv",
                  {"evaluate", "--csv", "/nonexistent/boxdim/scenes.csv"},
                  "scenes.csv: cannot be opened for writing"},
        // Numbers are read whole and in decimal, within their range.
        UsageCase{"hex_intrinsics",
                  {"measure", "--intrinsics", "0x10,506,323,231", "x.raw"},
                  "--intrinsics: '0x10,506,323,231' is not of the form fx,fy,cx,cy"},
        UsageCase{"focal_length_of_another_frame",
                  {"measure", "--size", "640x480", "--intrinsics", "16,506,323,231", "x.raw"},
                  "--intrinsics: focal lengths fx 16, fy 506 do not fit a 640x480 frame"},
        UsageCase{"principal_point_off_the_frame",
                  {"measure", "--size", "320x240", "--intrinsics", "253,253,323,231", "x.raw"},
                  "principal point (323, 231) lies outside a 320x240 frame"},
        UsageCase{
            "negative_seed", {"measure", "--seed", "-1", "x.raw"}, "--seed: '-1' is not from 0"},
        UsageCase{"seed_beyond_64_bits",
                  {"simulate", "--box", "4x3x2", "--camera-height", "1000", "--out", "x.raw",
                   "--seed", "18446744073709551616"},
                  "--seed: '18446744073709551616' is not from 0 to 18446744073709551615"},
        UsageCase{"hex_camera_height",
                  {"simulate", "--box", "4x3x2", "--camera-height", "0x3e8", "--out", "x.raw"},
                  "--camera-height: '0x3e8' is not a decimal number"},
        UsageCase{"spaced_tilt",
                  {"simulate", "--box", "4x3x2", "--camera-height", "900", "--tilt", " 5", "--out",
                   "x.raw"},
                  "--tilt: ' 5' is not a decimal number"},
        UsageCase{
            "hex_scenes", {"evaluate", "--scenes", "0x10"}, "--scenes: '0x10' is not a whole"},
        UsageCase{"too_many_scenes", {"evaluate", "--scenes", "10001"}, "is not from 1 to 10000"},
        UsageCase{"hex_frames", {"live", "--frames", "0x3"}, "--frames: '0x3' is not a whole"},
        UsageCase{"too_large_size", {"measure", "--size", "4096x4096", "x.raw"}, "too large"},
        // Every command that measures takes an engine by name.
        UsageCase{"unknown_engine_measure",
                  {"measure", "--engine", "exact", "x.raw"},
                  "--engine: unknown engine 'exact' (known: precise, station)"},
        UsageCase{
            "unknown_engine_live", {"live", "--engine", "Station"}, "(known: precise, station)"},
        UsageCase{
            "unknown_engine_evaluate", {"evaluate", "--engine", ""}, "(known: precise, station)"}),
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
  EXPECT_EQ(keys,
            (std::vector<std::string>{"boxes", "corners_px", "elapsed_ms", "engine", "failed_stage",
                                      "file", "height_mm", "length_mm", "ok", "width_mm"}));
  EXPECT_EQ(result["file"], frame);
  EXPECT_EQ(result["ok"], true);
  EXPECT_TRUE(result["failed_stage"].is_null());
  for (const char* side : {"length_mm", "width_mm", "height_mm"}) {
    EXPECT_NEAR(result[side].get<double>(), truth[side].get<double>(), 3.0) << side;
  }
  ASSERT_EQ(result["corners_px"].size(), 4u);
  EXPECT_EQ(result["corners_px"][0].size(), 2u);
  EXPECT_GT(result["elapsed_ms"].get<double>(), 0.0);
  EXPECT_EQ(result["engine"], "precise") << "the default engine";
  ASSERT_EQ(result["boxes"].size(), 1u);
  EXPECT_EQ(result["boxes"][0]["status"], "measured");
  EXPECT_EQ(result["boxes"][0]["length_mm"], result["length_mm"]);

  // The station engine's stages write their lines to stderr; the seed
  // replaces the clock in both its random generators, which otherwise
  // changes only once a second.
  const CliRun station = run({"measure", "--json", "--engine", "station", "--seed", "1", frame});
  EXPECT_EQ(nlohmann::json::parse(station.out)["engine"], "station");
  EXPECT_NE(station.err.find("box_height: "), std::string::npos) << "the stages' lines";
  EXPECT_EQ(run({"measure", "--json", "--engine", "station", "--seed", "1", frame}).err,
            station.err);
  EXPECT_NE(run({"measure", "--json", "--engine", "station", "--seed", "2", frame}).err,
            station.err);
}

// A box whose size cannot be told within the station's division is
// refused with the reason and no numbers; within it, each dimension's
// uncertainty comes with the box.
TEST_F(CliTest, ADivisionTighterThanTheUncertaintyRefusesTheBoxWithItsReason) {
  const std::string frame = simulate("box.raw", {"--noise", "2"});
  const auto box_of = [](const CliRun& r) {
    return nlohmann::json::parse(lines_of(r.out).at(0))["boxes"].at(0);
  };
  const CliRun within = run({"measure", "--json", "--seed", "1", frame});
  EXPECT_EQ(within.status, 0) << within.err;
  const auto measured = box_of(within);
  EXPECT_EQ(measured["status"], "measured");
  ASSERT_EQ(measured["uncertainty_mm"].size(), 3u);
  for (const auto& u : measured["uncertainty_mm"]) {
    EXPECT_GT(u.get<double>(), 0.0);
    EXPECT_LE(u.get<double>(), 5.0);
  }

  const CliRun tight = run({"measure", "--json", "--seed", "1", "--division", "0.5", frame});
  EXPECT_EQ(tight.status, 1);
  const auto refused = box_of(tight);
  EXPECT_EQ(refused["status"], "uncertain");
  EXPECT_TRUE(refused["length_mm"].is_null());
  EXPECT_EQ(refused["uncertainty_mm"], measured["uncertainty_mm"]);
  EXPECT_EQ(nlohmann::json::parse(lines_of(tight.out).at(0))["failed_stage"], "uncertain");
  const CliRun text = run({"measure", "--seed", "1", "--division", "0.5", frame});
  EXPECT_NE(text.out.find("not measured (uncertain: its size cannot be told within the division)"),
            std::string::npos)
      << text.out;
}

TEST_F(CliTest, WithoutJsonTheLogGoesToStandardOutputAndAnnotationsNameTheFile) {
  const std::string frame = simulate("scene-a.raw");
  const std::string blank = dir.file("scene-b.raw");
  write_bytes(blank, std::string(614400, '\0'));
  const CliRun r =
      run({"measure", "--engine", "station", "--annotate", dir.file("pictures"), frame, blank});
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

// The precise engine draws every box in the colour of its status with its
// dimensions; a frame without boxes stays the depth picture alone.
TEST_F(CliTest, PreciseAnnotationsDrawEveryBoxInTheColourOfItsStatus) {
  const std::string frame = dir.file("three.raw");
  SceneParameters scene = testing::standard_scene();
  scene.camera_height_mm = 1300.0f;
  scene.other_boxes = {FloorBox{300, 200, 150, {-430, 150}, 20, {}},
                       FloorBox{45, 40, 100, {300, -250}, 0, {}}};
  write_file(frame, raw_depth_bytes(render_scene(scene).depth));
  const std::string blank = dir.file("blank.raw");
  write_bytes(blank, std::string(614400, '\0'));
  const CliRun r = run({"measure", "--annotate", dir.file("pictures"), frame, blank});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(r.err, "");
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;
  EXPECT_NE(lines[0].find("; 3 boxes in view, 2 measured"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[1].rfind(blank + ": not measured (floor failed)", 0), 0u) << lines[1];

  const auto pixels_of = [](const cv::Mat& picture, cv::Scalar colour) {
    cv::Mat hit;
    cv::inRange(picture, colour, colour, hit);
    return cv::countNonZero(hit);
  };
  const cv::Scalar measured(60, 200, 60);
  const cv::Scalar too_small(160, 160, 160);
  const cv::Mat boxes = cv::imread(dir.file("pictures/three.png"));
  ASSERT_EQ(boxes.size(), cv::Size(640, 480));
  EXPECT_GT(pixels_of(boxes, measured), 400) << "two outlines and their dimensions";
  EXPECT_GT(pixels_of(boxes, too_small), 20);
  const cv::Mat empty = cv::imread(dir.file("pictures/blank.png"));
  ASSERT_EQ(empty.size(), cv::Size(640, 480));
  EXPECT_EQ(pixels_of(empty, measured) + pixels_of(empty, too_small), 0);
}

// Rows name files in the test's folder; "{box}" is a rendered frame there.
struct OverwriteCase {
  const char* name;
  std::vector<std::string> args;
  const char* message;
};

void PrintTo(const OverwriteCase& c, std::ostream* os) { *os << c.name; }

class OverwriteTest : public CliTest, public ::testing::WithParamInterface<OverwriteCase> {};

// Refused before anything is measured or written: every file in the folder
// stays as it was, and nothing is added.
TEST_P(OverwriteTest, IsRefusedBeforeAnythingIsWritten) {
  const std::string box = simulate("box.raw");
  ASSERT_TRUE(cv::imwrite(dir.file("box.png"), cv::Mat(48, 64, CV_16UC1, cv::Scalar(900))));
  for (const char* sub : {"d1", "d2"}) {
    std::filesystem::create_directory(dir.file(sub));
    std::filesystem::copy_file(box, dir.file(std::string(sub) + "/x.raw"));
  }
  const auto snapshot = [&] {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path())) {
      if (!entry.is_regular_file()) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      files[entry.path().string()] = std::string(std::istreambuf_iterator<char>(in), {});
    }
    return files;
  };
  const auto before = snapshot();

  std::vector<std::string> args;
  for (const std::string& arg : GetParam().args) {
    args.push_back(std::regex_replace(arg, std::regex("\\{dir\\}"), dir.path().string()));
  }
  const CliRun r = run(args);
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  const std::string expected =
      std::regex_replace(GetParam().message, std::regex("\\{dir\\}"), dir.path().string());
  EXPECT_EQ(r.err, "boxdim-cli: " + expected + "\n");
  EXPECT_EQ(snapshot(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, OverwriteTest,
    ::testing::Values(
        OverwriteCase{"picture_over_input",
                      {"measure", "--annotate", "{dir}", "{dir}/box.raw", "{dir}/box.png"},
                      "--annotate would write the picture of {dir}/box.raw over the input "
                      "{dir}/box.png"},
        OverwriteCase{"two_pictures_one_file",
                      {"measure", "--annotate", "{dir}/D", "{dir}/d1/x.raw", "{dir}/d2/x.raw"},
                      "--annotate would write the pictures of {dir}/d1/x.raw and {dir}/d2/x.raw "
                      "to the same file {dir}/D/x.png"},
        OverwriteCase{"simulate_out_is_png",
                      {"simulate", "--box", "4x3x2", "--camera-height", "900", "--out",
                       "{dir}/s.raw", "--png", "{dir}/d1/../s.raw"},
                      "--out and --png name the same file: {dir}/d1/../s.raw"},
        OverwriteCase{
            "evaluate_csv_is_plot",
            {"evaluate", "--scenes", "1", "--csv", "{dir}/e.png", "--plot", "{dir}/./e.png"},
            "--csv and --plot name the same file: {dir}/./e.png"}),
    [](const auto& info) { return std::string(info.param.name); });

struct UnwritableCase {
  const char* name;
  std::vector<std::string> args;
  const char* message;  // after "boxdim-cli: "
  std::size_t lines_out;
};

void PrintTo(const UnwritableCase& c, std::ostream* os) { *os << c.name; }

class UnwritableOutputTest : public CliTest,
                             public ::testing::WithParamInterface<UnwritableCase> {};

// The first output that cannot be written ends the run: one line naming it
// and why, status 2, and what was written before it stays.
TEST_P(UnwritableOutputTest, StopsTheRunWithOneLineAndStatusTwo) {
  for (const char* name : {"first.raw", "second.raw", "third.raw"}) simulate(name);
  std::ofstream(dir.file("occupied")) << "a file, not a folder";
  std::filesystem::create_directories(dir.file("pics/second.png"));
  const auto in_dir = [&](const std::string& text) {
    return std::regex_replace(text, std::regex("\\{dir\\}"), dir.path().string());
  };
  std::vector<std::string> args;
  for (const std::string& arg : GetParam().args) args.push_back(in_dir(arg));
  const CliRun r = run(args);
  EXPECT_EQ(r.status, 2);
  const std::string expected = "boxdim-cli: " + in_dir(GetParam().message);
  std::vector<std::string> ours;
  for (const std::string& line : lines_of(r.err)) {
    if (line.rfind("boxdim-cli", 0) == 0) ours.push_back(line);
  }
  // A device named as the output is no half-written file to remove.
  for (const std::string& arg : args) {
    if (arg.rfind("/dev/", 0) == 0) EXPECT_TRUE(std::filesystem::is_character_file(arg)) << arg;
  }
  ASSERT_EQ(ours.size(), 1u) << r.err;
  EXPECT_EQ(ours[0].substr(0, expected.size()), expected) << ours[0];
  EXPECT_EQ(lines_of(r.out).size(), GetParam().lines_out) << r.out;
}

INSTANTIATE_TEST_SUITE_P(
    Outputs, UnwritableOutputTest,
    ::testing::Values(
        UnwritableCase{"annotation_folder_blocked",
                       {"measure", "--json", "--annotate", "{dir}/occupied", "{dir}/first.raw"},
                       "{dir}/occupied: cannot create the annotation folder (Not a directory)",
                       0},
        UnwritableCase{"second_picture_blocked",
                       {"measure", "--json", "--seed", "1", "--annotate", "{dir}/pics",
                        "{dir}/first.raw", "{dir}/second.raw", "{dir}/third.raw"},
                       "{dir}/pics/second.png: cannot be opened for writing (Is a directory)",
                       2},
        UnwritableCase{
            "raw_onto_a_folder",
            {"simulate", "--box", "4x3x2", "--camera-height", "900", "--out", "{dir}/pics"},
            "{dir}/pics: cannot be opened for writing (Is a directory)",
            0},
        UnwritableCase{"preview_onto_a_full_disk",
                       {"simulate", "--box", "4x3x2", "--camera-height", "900", "--out",
                        "{dir}/s.raw", "--png", "/dev/full"},
                       "/dev/full: could not be written completely (No space left on device)",
                       0},
        UnwritableCase{"csv_onto_a_full_disk",
                       {"evaluate", "--scenes", "1", "--csv", "/dev/full"},
                       "/dev/full: cannot be written (No space left on device)",
                       0}),
    [](const auto& info) { return std::string(info.param.name); });

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
  } else if (kind == "over_four_megapixels") {
    ASSERT_TRUE(cv::imwrite(bad, cv::Mat(2049, 2049, CV_16UC1, cv::Scalar(900))));
  } else if (kind == "symlink_loop") {
    std::filesystem::create_symlink(bad, bad + ".back");
    std::filesystem::create_symlink(bad + ".back", bad);
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

// A PNG signature and header for 30000 x 30000 16-bit grey, then junk.
const std::string kHugePngHeader =
    std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x75\x30\0\0\x75\x30\x10\0\0\0\0", 29) +
    std::string(200, '\x7f');
// A little-endian TIFF whose first directory says 5000 x 5000 (two LONG entries).
const std::string kHugeTiffHeader = std::string("II*\0\x08\0\0\0\x02\0", 10) +
                                    std::string("\x00\x01\x04\0\x01\0\0\0\x88\x13\0\0", 12) +
                                    std::string("\x01\x01\x04\0\x01\0\0\0\x88\x13\0\0", 12) +
                                    std::string(100, '\0');

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
        BadFileCase{"eight_bit_png", "grey.png", "", "not a 16-bit"},
        BadFileCase{"symlink_loop", "loop.raw", "",
                    "cannot be read (Too many levels of symbolic links)"},
        // Sizes are refused from the header, before a pixel is decoded: this
        // one would take 1.8 GB.
        BadFileCase{"huge_png_header", "huge.png", kHugePngHeader,
                    "image of 30000x30000 pixels is too large"},
        BadFileCase{"huge_tiff_header", "huge.tiff", kHugeTiffHeader,
                    "image of 5000x5000 pixels is too large"},
        BadFileCase{"over_four_megapixels", "big.png", "",
                    "image of 2049x2049 pixels is too large"},
        BadFileCase{"huge_capture_name", "1_4096x4096-depth_7.raw", std::string(1000, 5),
                    "frame of 4096x4096 pixels is too large"}),
    [](const auto& info) { return std::string(info.param.name); });

// Without --intrinsics, the station camera's own are carried over to each
// frame's size (a 320 x 240 frame is its 640 x 480 mode binned 2 x 2), also
// when the sizes change from one frame to the next.
TEST_F(CliTest, FramesOfEverySizeAreMeasuredWithTheIntrinsicsOfTheirSize) {
  std::vector<std::string> args = {"measure", "--json", "--seed", "1"};
  const cv::Size sizes[] = {{320, 240}, {640, 480}, {1280, 960}, {320, 240}};
  for (const cv::Size& size : sizes) {
    const std::string name = "1_" + std::to_string(size.width) + "x" + std::to_string(size.height) +
                             "-depth_" + std::to_string(args.size()) + ".raw";
    write_file(dir.file(name), raw_depth_bytes(render_scene(testing::scene_at_size(size)).depth));
    args.push_back(dir.file(name));
  }
  const CliRun r = run(args);
  EXPECT_EQ(r.status, 0) << r.err;
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), std::size(sizes));
  for (const std::string& line : lines) {
    const auto result = nlohmann::json::parse(line);
    ASSERT_EQ(result["ok"], true) << line;
    EXPECT_NEAR(result["length_mm"].get<double>(), 400.0, 3.0) << line;
    EXPECT_NEAR(result["width_mm"].get<double>(), 300.0, 3.0) << line;
    EXPECT_NEAR(result["height_mm"].get<double>(), 200.0, 3.0) << line;
  }
}

// A frame of another shape than the camera's 4:3 is not one of its modes:
// scaled to it, the default intrinsics would stretch its pixels (a 640 x 640
// frame read a 100 px square as 158 x 118 mm). Without --intrinsics it is
// refused, saying so; with them it is measured.
TEST_F(CliTest, AFrameThatIsNot4By3NeedsItsIntrinsics) {
  const std::string square = dir.file("1_640x640-depth_7.raw");
  write_file(square, std::vector<unsigned char>(640 * 640 * 2, 0x10));
  const CliRun refused = run({"measure", "--json", square});
  EXPECT_EQ(refused.status, 2);
  const auto line = nlohmann::json::parse(refused.out);
  EXPECT_EQ(line["ok"], false);
  EXPECT_EQ(line["error"],
            "a 640x640 frame is not 4:3 like the default camera's 640x480, whose intrinsics would "
            "stretch its pixels: give --intrinsics fx,fy,cx,cy");
  const CliRun given = run({"measure", "--json", "--intrinsics", "506,506,320,320", square});
  EXPECT_EQ(given.status, 1) << "measured, with nothing on its floor: " << given.err;
}

TEST_F(CliTest, GivenIntrinsicsThatCannotBelongToAFrameMakeThatFileUnusable) {
  const std::string frame = simulate("box.raw");
  const CliRun r = run({"measure", "--json", "--intrinsics", "16,506,323,231", frame});
  EXPECT_EQ(r.status, 2);
  const auto line = nlohmann::json::parse(r.out);
  EXPECT_EQ(line["ok"], false);
  EXPECT_EQ(line["error"],
            "--intrinsics: focal lengths fx 16, fy 506 do not fit a 640x480 frame (64 to 6400 px)");
  EXPECT_NE(r.err.find("boxdim-cli: " + frame + ": --intrinsics: focal lengths"),
            std::string::npos);
}

// Linux file names are bytes; JSON is UTF-8. Invalid bytes become U+FFFD, and
// every file still gets its line.
TEST_F(CliTest, PathsThatAreNotUtf8ComeOutAsValidJsonLines) {
  const std::string frame = simulate("box.raw");
  const std::string latin1 = dir.file("caf\xe9.raw");
  std::filesystem::copy_file(frame, latin1);
  const CliRun measured = run({"measure", "--json", "--seed", "1", latin1, frame});
  EXPECT_EQ(measured.status, 0) << measured.err;
  const auto lines = lines_of(measured.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(nlohmann::json::parse(lines[0])["file"], dir.file("caf\xef\xbf\xbd.raw"));
  EXPECT_EQ(nlohmann::json::parse(lines[1])["file"], frame);

  const CliRun simulated =
      run({"simulate", "--box", "4x3x2", "--camera-height", "900", "--out", dir.file("s\xff.raw")});
  EXPECT_EQ(simulated.status, 0) << simulated.err;
  EXPECT_EQ(nlohmann::json::parse(simulated.out)["file"], dir.file("s\xef\xbf\xbd.raw"));
}

TEST_F(CliTest, AFileNameStartingWithADashIsMeasuredAfterTheDoubleDash) {
  const std::string frame = simulate("box.raw");
  const testing::ScratchWorkingDirectory cwd;
  std::filesystem::copy_file(frame, "-dash.raw");
  const CliRun r = run({"measure", "--json", "--", "-dash.raw"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(nlohmann::json::parse(r.out)["file"], "-dash.raw");
}

TEST_F(CliTest, EvaluateReportsOneFamilyAndWritesItsScenesAndPlot) {
  const CliRun r = run({"evaluate", "--scenes", "2", "--family", "tilted", "--csv",
                        dir.file("scenes.csv"), "--plot", dir.file("errors.png")});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto table = lines_of(r.out);
  ASSERT_GE(table.size(), 5u) << r.out;
  EXPECT_EQ(table[2].rfind("family", 0), 0u) << table[2];
  // Every engine measures every scene, side by side.
  EXPECT_TRUE(std::regex_search(table[4], std::regex("^tilted +precise +2 "))) << table[4];
  EXPECT_TRUE(std::regex_search(table[5], std::regex("^ +station +2 "))) << table[5];
  EXPECT_EQ(r.out.find("top-down"), std::string::npos) << "only the family asked for";
  EXPECT_NE(r.err.find("2/2"), std::string::npos) << "progress on standard error";
  EXPECT_EQ(r.err.find('\r'), std::string::npos)
      << "no bar rewritten in place where no terminal is";

  std::ifstream csv(dir.file("scenes.csv"));
  const auto rows = lines_of(std::string(std::istreambuf_iterator<char>(csv), {}));
  ASSERT_EQ(rows.size(), 5u);
  const auto columns = [](const std::string& row) {
    return std::count(row.begin(), row.end(), ',');
  };
  for (const std::string& row : rows) EXPECT_EQ(columns(row), columns(rows[0])) << row;
  EXPECT_EQ(rows[1].rfind("tilted,1,precise,", 0), 0u) << rows[1];
  EXPECT_EQ(rows[2].rfind("tilted,1,station,", 0), 0u) << rows[2];

  const cv::Mat plot = cv::imread(dir.file("errors.png"));
  ASSERT_FALSE(plot.empty());
  EXPECT_GT(plot.cols, plot.rows);
}

}  // namespace
}  // namespace boxdim
