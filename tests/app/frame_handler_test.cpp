#include "app/frame_handler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <opencv2/imgproc.hpp>

#include "app_fixture.h"
#include "measure/frame_preparation.h"
#include "scene/depth_scene.h"
#include "support/test_frames.h"

namespace boxdim::testing {
namespace {

namespace fs = std::filesystem;

// A frame set under construction: frames are laid out where the handler
// expects them, the buffer grows to whatever a test writes.
struct FrameSetBuilder {
  FakeFrameSet set;

  void add(int kind, int width, int height) { set.frames.push_back({kind, height, width}); }
  void put(std::size_t at, const void* bytes, std::size_t size) {
    if (set.data.size() < at + size) set.data.resize(at + size, 0);
    std::memcpy(set.data.data() + at, bytes, size);
  }
  void put(std::size_t at, const cv::Mat& samples) {
    put(at, samples.data, samples.total() * samples.elemSize());
  }
  Corvane::FrameData data() {
    return {static_cast<std::int32_t>(set.frames.size()), set.frames.data(), set.data.data()};
  }
};

cv::Mat samples_with(int height, int width, const std::function<int(int, int)>& value) {
  cv::Mat samples(height, width, CV_16UC1);
  for (int row = 0; row < height; ++row) {
    for (int col = 0; col < width; ++col) samples.at<std::uint16_t>(row, col) = value(row, col);
  }
  return samples;
}

std::string bytes_of(const cv::Mat& samples) {
  return std::string(reinterpret_cast<const char*>(samples.data), samples.total() * 2);
}

bool same_image(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

class FrameHandlerTest : public AppTest {
 protected:
  FrameHandlerTest() {
    for (const char* name : {"raw_1", "depth_1", "ir_1", "RGB_1", "RGBD_depth_1", "RGBD_RGB_1"}) {
      screen.windows[name] = 1;
    }
  }
};

constexpr int kW = 160;
constexpr int kH = 120;
constexpr std::size_t kFrameBytes = kW * kH * 2;

// Colour, raw, infrared and depth back to back: colour advances 1.5 bytes a
// pixel, and the measurement reads the depth from twice its offset.
TEST_F(FrameHandlerTest, WalksAllFourKindsOfOneBufferByTheirAdvances) {
  ScratchWorkingDirectory scratch;
  g_stream_types[1] = {1, 6};
  g_save_enabled[1] = true;
  const std::size_t raw_at = kW * kH * 3 / 2;
  const std::size_t ir_at = raw_at + kFrameBytes;
  const std::size_t depth_at = ir_at + kFrameBytes;
  FrameSetBuilder frames;
  frames.add(Corvane::kFrameColor, kW, kH);
  frames.add(Corvane::kFrameRaw, kW, kH);
  frames.add(Corvane::kFrameIr, kW, kH);
  frames.add(Corvane::kFrameDepth, kW, kH);
  const std::vector<unsigned char> yuyv(raw_at, 128);
  const cv::Mat raw(kH, kW, CV_16UC1, cv::Scalar(1100));
  const cv::Mat ir(kH, kW, CV_16UC1, cv::Scalar(1200));
  const cv::Mat depth(kH, kW, CV_16UC1, cv::Scalar(1300));
  const cv::Mat measured(kH, kW, CV_16UC1, cv::Scalar(1500));
  frames.put(0, yuyv.data(), yuyv.size());
  frames.put(raw_at, raw);
  frames.put(ir_at, ir);
  frames.put(depth_at, depth);
  frames.put(2 * depth_at, measured);
  const Corvane::FrameData data = frames.data();

  handle_frame(shell, 1, &data);

  std::vector<std::string> order;
  for (const auto& [name, image] : screen.shown) order.push_back(name);
  EXPECT_EQ(order, (std::vector<std::string>{"RGB_1", "raw_1", "ir_1", "depth_1"}));
  EXPECT_EQ(g_measurement_state.depth, std::vector<std::uint16_t>(measured.begin<std::uint16_t>(),
                                                                  measured.end<std::uint16_t>()));
  EXPECT_EQ(g_frame_counts[1].count, 2);
  EXPECT_EQ(screen.resized, std::vector<std::string>{"depth_1 640x480"});
  EXPECT_EQ(screen.waits, std::vector<int>{10});

  // Saved from the frames' own offsets, colour never.
  using Saved = std::vector<std::pair<std::string, cv::Mat>>;
  for (const auto& [folder, samples] : Saved{{"raw", raw}, {"ir", ir}, {"depth", depth}}) {
    const std::vector<fs::path> files = files_in(scratch.path() / folder);
    ASSERT_EQ(files.size(), 1u) << folder;
    EXPECT_EQ(file_bytes(files[0]), bytes_of(samples)) << folder;
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), fs::directory_iterator()), 3);
}

TEST_F(FrameHandlerTest, FramesOfADeviceWithoutStreamTypeAreIgnored) {
  g_stream_types[2] = {2, 2};
  g_save_enabled[1] = true;
  FrameSetBuilder frames;
  frames.add(Corvane::kFrameRaw, 4, 2);
  frames.put(0, cv::Mat(2, 4, CV_16UC1, cv::Scalar(5)));
  const Corvane::FrameData data = frames.data();
  handle_frame(shell, 1, &data);
  EXPECT_TRUE(screen.shown.empty());
  EXPECT_TRUE(g_frame_counts.empty());
}

// Shows `depth` (after `before`, if any) through the handler, on a fresh
// measurement state, and returns what the depth window showed.
cv::Mat through_handler(Shell& shell, FakeDisplay& screen, const cv::Mat& depth,
                        const cv::Mat& before = {}) {
  g_measurement_state = MeasurementState{};
  g_measurement_state.seams.log = &shell.out;
  g_measurement_state.seams.seed_clock = [] { return std::time_t{1}; };
  FrameSetBuilder frames;
  if (!before.empty()) {
    frames.add(Corvane::kFrameIr, before.cols, before.rows);
    frames.put(0, before);
  }
  const std::size_t at = before.total() * 2;
  frames.add(Corvane::kFrameDepth, depth.cols, depth.rows);
  frames.put(at, depth);
  // Room for the measurement's read at twice the offset; it equals the frame
  // only when nothing comes before it.
  frames.set.data.resize(2 * at + depth.total() * 2, 0);
  const Corvane::FrameData data = frames.data();
  screen.shown.clear();
  handle_frame(shell, 1, &data);
  const std::vector<cv::Mat> shown = screen.shown_in("depth_1");
  return shown.empty() ? cv::Mat() : shown.back();
}

cv::Mat prepared_picture(const cv::Mat& depth) {
  MeasurementState state;
  std::ostringstream log;
  std::ostringstream errors;
  capture_state(state, log, errors);
  return load_frame(state, depth);
}

TEST_F(FrameHandlerTest, ShowsTheResultPictureWhenMeasuredAndTheEdgeStagePictureOtherwise) {
  g_stream_types[1] = {1, 2};
  const cv::Mat empty(kH, kW, CV_16UC1, cv::Scalar(0));
  EXPECT_TRUE(same_image(through_handler(shell, screen, empty), prepared_picture(empty)));
  EXPECT_FALSE(out.str().empty()) << "the failing stage says why";

  const cv::Mat depth = render_scene(standard_scene()).depth;
  const cv::Mat shown = through_handler(shell, screen, depth);
  EXPECT_TRUE(same_image(shown, g_measurement_state.result_image));
  EXPECT_FALSE(same_image(shown, prepared_picture(depth))) << "no result drawn";
}

struct ProbeCase {
  const char* name;
  int width;
  int height;
  int mouse_x;
  int mouse_y;
  int text_x;  // -1: no probe
};

class ProbeTest : public FrameHandlerTest, public ::testing::WithParamInterface<ProbeCase> {};

// The depth frame follows a 2 x 2 infrared frame, so the probe's sample comes
// from the frame's own offset while the measurement reads from twice it.
TEST_P(ProbeTest, DrawsTheDepthUnderThePointer) {
  const ProbeCase& probe = GetParam();
  g_stream_types[1] = {1, 4};
  const cv::Mat depth = samples_with(probe.height, probe.width, [&](int row, int col) {
    return 600 + (row * probe.width + col) % 3000;
  });
  const cv::Mat ir(2, 2, CV_16UC1, cv::Scalar(9));
  const cv::Mat without = through_handler(shell, screen, depth, ir);
  g_mouse_x = probe.mouse_x;
  g_mouse_y = probe.mouse_y;
  const cv::Mat with = through_handler(shell, screen, depth, ir);
  cv::Mat expected = without.clone();
  if (probe.text_x >= 0) {
    const int d = depth.at<std::uint16_t>(probe.mouse_y, probe.mouse_x);
    const std::string text = " (x:" + std::to_string(probe.mouse_x) +
                             ",y:" + std::to_string(probe.mouse_y) + ",d:" + std::to_string(d) +
                             ")";
    cv::putText(expected, text, {probe.text_x, probe.mouse_y}, cv::FONT_HERSHEY_PLAIN, 1.0,
                cv::Scalar(255, 255, 255), 1);
    cv::circle(expected, {probe.mouse_x, probe.mouse_y}, 3, cv::Scalar(255, 255, 255));
  }
  EXPECT_TRUE(same_image(with, expected));
}

INSTANTIATE_TEST_SUITE_P(Positions, ProbeTest,
                         ::testing::Values(ProbeCase{"PulledToHeightMinus10", 640, 480, 600, 100,
                                                     470},
                                           ProbeCase{"Inside", 640, 480, 300, 200, 300},
                                           ProbeCase{"LastPixel", 320, 240, 319, 239, 230},
                                           ProbeCase{"LeftColumn", 640, 480, 0, 100, -1},
                                           ProbeCase{"TopRow", 640, 480, 100, 0, -1},
                                           ProbeCase{"RightOfFrame", 320, 240, 320, 100, -1},
                                           ProbeCase{"BelowFrame", 320, 240, 100, 240, -1}),
                         CaseName());

TEST_F(FrameHandlerTest, AlignedStreamShowsTheColouredDepthAndTheColourWithoutMeasuring) {
  ScratchWorkingDirectory scratch;
  g_stream_types[1] = {1, 7};
  g_save_enabled[1] = true;
  const std::vector<std::uint16_t> aligned_depth(kW * kH, 1000);
  const std::vector<unsigned char> aligned_colour(kW * kH * 3, 90);
  sdk().add_device(1, 1).rgbd = {kW, kH, aligned_depth.data(), aligned_colour.data()};
  FrameSetBuilder frames;
  frames.add(Corvane::kFrameDepth, kW, kH);
  frames.put(0, cv::Mat(kH, kW, CV_16UC1, cv::Scalar(1000)));
  const Corvane::FrameData data = frames.data();

  handle_frame(shell, 1, &data);

  EXPECT_EQ(sdk().calls_text(), "GetRGBD(1) GetDepthColor(160,120)");
  EXPECT_EQ(screen.shown_in("RGBD_depth_1").size(), 1u);
  EXPECT_EQ(screen.shown_in("RGBD_RGB_1").size(), 1u);
  EXPECT_TRUE(g_measurement_state.depth.empty());
  EXPECT_EQ(fs::directory_iterator(scratch.path()), fs::directory_iterator()) << "nothing saved";
  EXPECT_EQ(g_frame_counts[1].count, 1);
}

}  // namespace
}  // namespace boxdim::testing
