// Files that cannot be measured: each costs exactly one line on standard error
// naming the file and the reason, exit status 2, and nothing else; the other
// files are still measured.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "cli/cli_app.h"
#include "temp_dir.h"

namespace boxdim {
namespace {

void write_bytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

struct BadFileCase {
  const char* name;
  const char* file_name;
  // Makes the bad file at the given path.
  std::function<void(const std::string&)> make;
  const char* reason;
};

void PrintTo(const BadFileCase& c, std::ostream* os) { *os << c.name; }

class BadFileTest : public ::testing::TestWithParam<BadFileCase> {
 protected:
  int run(std::vector<std::string> args) {
    args.insert(args.begin(), "boxdim-cli");
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    // The process's own standard error too: a decoder writing there would
    // add a line the user did not ask for.
    ::testing::internal::CaptureStderr();
    const int status = run_cli(static_cast<int>(argv.size()), argv.data(), out, err);
    process_stderr = ::testing::internal::GetCapturedStderr();
    return status;
  }

  testing::TempDir dir;
  std::ostringstream out;
  std::ostringstream err;
  std::string process_stderr;
};

TEST_P(BadFileTest, IsOneLineOnStandardErrorAndTheOtherFilesAreStillMeasured) {
  const BadFileCase& c = GetParam();
  const std::string good = dir.file("good.raw");
  ASSERT_EQ(run({"simulate", "--box", "400x300x200", "--camera-height", "1000", "--out", good}), 0);
  out.str("");
  const std::string bad = dir.file(c.file_name);
  c.make(bad);
  if (c.name == std::string("unreadable") && ::geteuid() == 0) {
    GTEST_SKIP() << "root reads any file";
  }

  const int status = run({"measure", "--json", "--seed", "1", bad, good});
  EXPECT_EQ(status, 2);
  EXPECT_EQ(process_stderr, "");

  std::vector<std::string> about_bad;
  for (const std::string& line : lines_of(err.str())) {
    if (line.find(c.file_name) != std::string::npos) about_bad.push_back(line);
  }
  ASSERT_EQ(about_bad.size(), 1u) << err.str();
  EXPECT_EQ(about_bad[0].rfind("boxdim-cli: " + bad + ": " + c.reason, 0), 0u) << about_bad[0];

  // Standard output stays one JSON object per file, in order.
  const auto objects = lines_of(out.str());
  ASSERT_EQ(objects.size(), 2u) << out.str();
  const auto failed = nlohmann::json::parse(objects[0]);
  EXPECT_EQ(failed["file"], bad);
  EXPECT_EQ(failed["ok"], false);
  EXPECT_EQ(failed["error"].get<std::string>().rfind(c.reason, 0), 0u);
  const auto measured = nlohmann::json::parse(objects[1]);
  EXPECT_EQ(measured["file"], good);
  EXPECT_EQ(measured["ok"], true);
}

const auto kNothing = [](const std::string&) {};
const auto kFolder = [](const std::string& path) { std::filesystem::create_directory(path); };
const auto kPipe = [](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); };
const auto kEmpty = [](const std::string& path) { write_bytes(path, ""); };
const auto kThousandBytes = [](const std::string& path) {
  write_bytes(path, std::string(1000, '\x05'));
};
const auto kFullFrame = [](const std::string& path) {
  write_bytes(path, std::string(640 * 480 * 2, '\x05'));
};
const auto kUnreadable = [](const std::string& path) {
  write_bytes(path, std::string(640 * 480 * 2, '\x05'));
  std::filesystem::permissions(path, std::filesystem::perms::none);
};
const auto kCorruptPng = [](const std::string& path) {
  write_bytes(path, std::string("\x89PNG\r\n\x1a\n", 8) + std::string(300, '\x7f'));
};
const auto kEightBitPng = [](const std::string& path) {
  cv::imwrite(path, cv::Mat(48, 64, CV_8UC1, cv::Scalar(9)));
};

INSTANTIATE_TEST_SUITE_P(
    Kinds, BadFileTest,
    ::testing::Values(
        BadFileCase{"missing", "gone.raw", kNothing, "no such file"},
        BadFileCase{"folder", "folder.raw", kFolder, "is a directory"},
        BadFileCase{"pipe", "pipe.raw", kPipe, "not a regular file"},
        BadFileCase{"unreadable", "locked.raw", kUnreadable, "cannot be opened for reading"},
        BadFileCase{"empty_raw", "empty.raw", kEmpty, "empty file"},
        BadFileCase{"empty_png", "empty.png", kEmpty, "empty file"},
        BadFileCase{"truncated", "1_640x480-depth_7.raw", kThousandBytes,
                    "truncated: 1000 bytes, a 640x480 frame needs 614400"},
        BadFileCase{"wrong_size", "1_320x240-depth_7.raw", kFullFrame,
                    "wrong size: 614400 bytes, a 320x240 frame has 153600"},
        BadFileCase{"size_unknown", "frame.raw", kThousandBytes, "frame size unknown"},
        BadFileCase{"corrupt_png", "corrupt.png", kCorruptPng, "not a readable image"},
        BadFileCase{"eight_bit_png", "grey.png", kEightBitPng, "not a 16-bit"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace boxdim
