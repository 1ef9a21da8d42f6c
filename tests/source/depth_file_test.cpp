// Reading depth files; what a bad file costs the user is tested through the
// measure command.
#include "source/depth_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "cli/temp_dir.h"

namespace boxdim {
namespace {

std::string size_text(std::optional<FrameSize> size) {
  return size ? std::to_string(size->width) + "x" + std::to_string(size->height) : "none";
}

TEST(DepthFile, ReadsSizesFromTheCommandLineAndCaptureFileNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"/data/1_640x480-depth_1763800000.raw", "640x480"},
      {"1_320x240-ir_17.raw", "320x240"},
      {"frame_640x480.raw", "none"},
      {"1_640x480-depth_17.png", "none"},
      {"1_0x480-depth_17.raw", "none"},
  };
  for (const auto& [name, size] : cases) {
    EXPECT_EQ(size_text(size_from_capture_name(name)), size) << name;
  }
  EXPECT_EQ(size_text(parse_frame_size("640x480")), "640x480");
  for (const char* bad :
       {"640x", "640x480x2", "-640x480", "640X480", " 640x480", "0x480", "9000x10"}) {
    EXPECT_THROW(parse_frame_size(bad), std::invalid_argument) << bad;
  }
}

TEST(DepthFile, RawSamplesAreLittleEndianAndTheGivenSizeIsExact) {
  testing::TempDir dir;
  const std::string path = dir.file("tiny.raw");
  std::ofstream(path, std::ios::binary)
      << std::string("\x01\x00\x34\x12\xff\xff\x20\x03\x00\x00\xe8\xfd", 12);
  const cv::Mat frame = read_depth_file(path, FrameSize{3, 2});
  ASSERT_EQ(frame.size(), cv::Size(3, 2));
  EXPECT_EQ(std::vector<std::uint16_t>(frame.begin<std::uint16_t>(), frame.end<std::uint16_t>()),
            (std::vector<std::uint16_t>{1, 0x1234, 0xFFFF, 800, 0, 65000}));
  EXPECT_THROW(read_depth_file(path, FrameSize{2, 2}), DepthFileError);
}

TEST(DepthFile, ReadsSixteenBitImagesOfTheGivenSizeOnly) {
  testing::TempDir dir;
  cv::Mat depth(6, 8, CV_16UC1);
  cv::randu(depth, 0, 65535);
  for (const char* name : {"d.png", "d.tiff"}) {
    ASSERT_TRUE(cv::imwrite(dir.file(name), depth));
    const cv::Mat frame = read_depth_file(dir.file(name), std::nullopt);
    ASSERT_EQ(frame.size(), cv::Size(8, 6)) << name;
    EXPECT_EQ(cv::countNonZero(frame != depth), 0) << name;
    EXPECT_THROW(read_depth_file(dir.file(name), FrameSize{6, 8}), DepthFileError) << name;
  }
}

}  // namespace
}  // namespace boxdim
