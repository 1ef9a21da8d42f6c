#include "cli/depth_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "temp_dir.h"

namespace boxdim {
namespace {

void write_bytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string little_endian_samples(std::initializer_list<std::uint16_t> samples) {
  std::string bytes;
  for (std::uint16_t s : samples) {
    bytes.push_back(static_cast<char>(s & 0xFF));
    bytes.push_back(static_cast<char>(s >> 8));
  }
  return bytes;
}

struct NameCase {
  const char* name;
  std::optional<std::pair<int, int>> size;
};

class CaptureNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(CaptureNameTest, ReadsTheSizeFromCaptureFileNames) {
  const auto size = size_from_capture_name(GetParam().name);
  ASSERT_EQ(size.has_value(), GetParam().size.has_value());
  if (size) {
    EXPECT_EQ(size->width, GetParam().size->first);
    EXPECT_EQ(size->height, GetParam().size->second);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, CaptureNameTest,
    ::testing::Values(NameCase{"1_640x480-depth_1763800000.raw", std::pair{640, 480}},
                      NameCase{"/data/depth/2_320x240-depth_17.raw", std::pair{320, 240}},
                      NameCase{"1_320x240-ir_17.raw", std::pair{320, 240}},
                      NameCase{"frame_640x480.raw", std::nullopt},
                      NameCase{"1_640x480-depth_17.png", std::nullopt},
                      NameCase{"1_0x480-depth_17.raw", std::nullopt},
                      NameCase{"1_99999x480-depth_17.raw", std::nullopt}));

TEST(DepthFile, RawSamplesAreLittleEndian) {
  testing::TempDir dir;
  const std::string path = dir.file("tiny.raw");
  write_bytes(path, little_endian_samples({1, 0x1234, 0xFFFF, 800, 0, 65000}));
  const DepthFrame frame = read_depth_file(path, FrameSize{3, 2});
  EXPECT_EQ(frame.size.width, 3);
  EXPECT_EQ(frame.size.height, 2);
  EXPECT_EQ(frame.samples, (std::vector<std::uint16_t>{1, 0x1234, 0xFFFF, 800, 0, 65000}));
}

TEST(DepthFile, AFullFrameNeedsNoSize) {
  testing::TempDir dir;
  const std::string path = dir.file("frame.raw");
  write_bytes(path, std::string(640 * 480 * 2, '\x01'));
  const DepthFrame frame = read_depth_file(path, std::nullopt);
  EXPECT_EQ(frame.size.width, 640);
  EXPECT_EQ(frame.samples.front(), 0x0101);
}

struct BadRawCase {
  const char* name;
  const char* file_name;
  std::size_t bytes;
  std::optional<FrameSize> size;
  const char* reason;
};

class BadRawTest : public ::testing::TestWithParam<BadRawCase> {};

TEST_P(BadRawTest, IsRejectedWithItsReason) {
  const BadRawCase& c = GetParam();
  testing::TempDir dir;
  const std::string path = dir.file(c.file_name);
  if (c.bytes != std::size_t(-1)) write_bytes(path, std::string(c.bytes, '\0'));
  try {
    read_depth_file(path, c.size);
    FAIL() << "accepted";
  } catch (const DepthFileError& e) {
    EXPECT_NE(std::string(e.what()).find(c.reason), std::string::npos) << e.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadRawTest,
    ::testing::Values(
        BadRawCase{"missing", "absent.raw", std::size_t(-1), std::nullopt, "no such file"},
        BadRawCase{"unknown_size", "frame.raw", 1000, std::nullopt, "frame size unknown"},
        BadRawCase{"empty", "frame.raw", 0, std::nullopt, "empty file"},
        BadRawCase{"truncated_by_name", "1_640x480-depth_5.raw", 614398, std::nullopt,
                   "truncated: 614398 bytes, a 640x480 frame needs 614400"},
        BadRawCase{"too_long_for_size", "frame.raw", 614400, FrameSize{320, 240},
                   "wrong size: 614400 bytes, a 320x240 frame has 153600"},
        BadRawCase{"odd_length", "frame.raw", 9, FrameSize{2, 2}, "wrong size"},
        BadRawCase{"not_an_image", "frame.png", 100, std::nullopt, "not a readable image"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DepthFile, ReadsSixteenBitImagesAndRejectsEightBitOnes) {
  testing::TempDir dir;
  cv::Mat depth(6, 8, CV_16UC1);
  cv::randu(depth, 0, 65535);
  for (const char* name : {"d.png", "d.tiff"}) {
    ASSERT_TRUE(cv::imwrite(dir.file(name), depth));
    const DepthFrame frame = read_depth_file(dir.file(name), std::nullopt);
    ASSERT_EQ(frame.samples.size(), 48u);
    EXPECT_EQ(frame.samples[9], depth.at<std::uint16_t>(1, 1)) << name;
    EXPECT_THROW(read_depth_file(dir.file(name), FrameSize{6, 8}), DepthFileError) << name;
  }
  cv::Mat grey(6, 8, CV_8UC1, cv::Scalar(9));
  ASSERT_TRUE(cv::imwrite(dir.file("g.png"), grey));
  EXPECT_THROW(read_depth_file(dir.file("g.png"), std::nullopt), DepthFileError);
}

TEST(DepthFile, WrittenFramesReadBackUnchanged) {
  testing::TempDir dir;
  cv::Mat depth(5, 7, CV_16UC1);
  cv::randu(depth, 0, 65535);
  write_raw_depth(dir.file("w.raw"), depth);
  const DepthFrame frame = read_depth_file(dir.file("w.raw"), FrameSize{7, 5});
  EXPECT_TRUE(std::equal(frame.samples.begin(), frame.samples.end(), depth.begin<std::uint16_t>()));
  EXPECT_THROW(write_raw_depth(dir.file("no/such/dir/w.raw"), depth), DepthFileError);
}

TEST(DepthFile, ParsesSizes) {
  EXPECT_EQ(parse_frame_size("640x480").height, 480);
  for (const char* bad : {"640", "640x", "x480", "640x480x2", "-640x480", "0x480", "640X480",
                          "9000x10", " 640x480"}) {
    EXPECT_THROW(parse_frame_size(bad), std::invalid_argument) << bad;
  }
}

}  // namespace
}  // namespace boxdim
