// Streams of a simulated device through the SDK: which frames each stream
// type delivers and how big, the frame pacing, and the settings a user
// changes showing in the frames.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "virtual_camera_fixture.h"

namespace boxdim::virtual_camera::testing {
namespace {

using namespace Corvane;

const cv::Size kHigh(640, 480);
const cv::Size kLow(320, 240);

// The box's top is 800 mm from the camera and fills the frame's centre.
constexpr int kTopDepthMm = 800;

cv::Vec3b centre_colour(const cv::Mat& bgr) {
  return bgr.at<cv::Vec3b>(bgr.rows / 2, bgr.cols / 2);
}

std::uint16_t centre_sample(const cv::Mat& samples) {
  return samples.at<std::uint16_t>(samples.rows / 2, samples.cols / 2);
}

// Every frame of a set lies in its own part of the buffer: each one's centre
// shows what its kind should show there.
void expect_centre_of_box(const Frame& frame) {
  switch (frame.kind) {
    case kFrameDepth:
      EXPECT_EQ(centre_sample(frame.samples()), kTopDepthMm);
      break;
    case kFrameRaw:  // phase of 800 mm in a 2.5 m range, 12 bits
      EXPECT_NEAR(centre_sample(frame.samples()), 800.0 / 2500.0 * 4095.0, 1.0);
      break;
    case kFrameIr:
      EXPECT_GT(centre_sample(frame.samples()), 0);
      break;
    case kFrameColor: {
      const cv::Vec3b bgr = centre_colour(frame.colour());
      EXPECT_TRUE(bgr[2] > bgr[1] && bgr[1] > bgr[0]) << "cardboard is brown, got " << bgr;
      break;
    }
  }
}

class StreamingTest : public VirtualCameraTest {};

TEST_F(StreamingTest, EachStreamTypeDeliversItsFramesInOrderAndSize) {
  struct Case {
    int stream;
    int depth_res, colour_res, raw_res;
    std::vector<std::pair<int, cv::Size>> frames;
  };
  const std::vector<Case> cases = {
      {1, 2, 4, 2, {{kFrameRaw, kHigh}}},
      {1, 2, 4, 1, {{kFrameRaw, kLow}}},
      {2, 1, 4, 2, {{kFrameDepth, kLow}}},
      {3, 2, 2, 2, {{kFrameColor, kLow}}},
      {4, 2, 4, 2, {{kFrameDepth, kHigh}, {kFrameIr, kHigh}}},
      {5, 1, 4, 1, {{kFrameDepth, kLow}, {kFrameColor, kHigh}}},
      {6, 1, 4, 2, {{kFrameDepth, kLow}, {kFrameIr, kLow}, {kFrameColor, kHigh}}},
      {6, 2, 2, 2, {{kFrameDepth, kHigh}, {kFrameIr, kHigh}, {kFrameColor, kLow}}},
      {7, 2, 4, 2, {{kFrameDepth, kHigh}, {kFrameColor, kHigh}}},
      {7, 1, 2, 2, {{kFrameDepth, kLow}, {kFrameColor, kLow}}},
  };
  open_first("sim");
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message()
                 << "stream " << c.stream << ", resolutions depth " << c.depth_res << " colour "
                 << c.colour_res << " raw " << c.raw_res);
    ASSERT_EQ(SetFrameResolution(1, kFrameDepth, c.depth_res), 0);
    ASSERT_EQ(SetFrameResolution(1, kFrameColor, c.colour_res), 0);
    ASSERT_EQ(SetFrameResolution(1, kFrameRaw, c.raw_res), 0);
    ASSERT_EQ(StartStreaming(1, c.stream), 0);
    const FrameData* set = next_set();
    ASSERT_NE(set, nullptr);
    const std::vector<Frame> frames = frames_of(*set);
    ASSERT_EQ(frames.size(), c.frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_EQ(frames[i].kind, c.frames[i].first) << "frame " << i;
      EXPECT_EQ(frames[i].size, c.frames[i].second) << "frame " << i;
      expect_centre_of_box(frames[i]);
      // Each kind's intrinsics belong to its own frames.
      Intrinsics k{};
      ASSERT_EQ(GetIntric(1, frames[i].kind, k), 0);
      EXPECT_EQ(cv::Size(k.width, k.height), frames[i].size);
      EXPECT_FLOAT_EQ(k.fy, 506.605f * frames[i].size.width / 640);
      EXPECT_FLOAT_EQ(k.cy, (231.166f + 0.5f) * frames[i].size.width / 640 - 0.5f);
    }
    ASSERT_EQ(StopStreaming(1), 0);
  }
}

TEST_F(StreamingTest, DeliversOneSetPerFramePeriodAndSkipsMissedOnes) {
  // Steps of the clock and whether the poll after each finds a new set.
  struct Step {
    double periods;
    bool new_set;
  };
  const std::vector<Step> steps = {
      {0.0, false}, {0.5, false}, {0.55, true}, {0.0, false}, {0.9, false},
      {0.2, true},  {3.5, true},  {0.0, false}, {0.6, true},
  };
  open_first("sim");
  ASSERT_EQ(StartStreaming(1, 2), 0);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    now_ += std::chrono::duration_cast<std::chrono::nanoseconds>(steps[i].periods * kFrameStep);
    FrameData* set = nullptr;
    const std::int32_t status = GetLastFrameData(1, set);
    EXPECT_EQ(status == 0, steps[i].new_set) << "step " << i << ", status " << status;
    EXPECT_EQ(set != nullptr, steps[i].new_set) << "step " << i;
  }
}

TEST_F(StreamingTest, LowResolutionSeesTheSameSceneAtHalfScale) {
  open_first("sim");
  ASSERT_EQ(StartStreaming(1, 2), 0);
  const cv::Mat high = frames_of(*next_set())[0].samples();
  ASSERT_EQ(SetFrameResolution(1, kFrameDepth, 1), 0);
  ASSERT_EQ(ChangeStreaming(1, 2), 0);
  const cv::Mat low = frames_of(*next_set())[0].samples();
  ASSERT_EQ(low.size(), kLow);

  const auto box_pixels = [](const cv::Mat& depth) { return cv::countNonZero(depth < 900); };
  EXPECT_NEAR(box_pixels(low) * 4.0, box_pixels(high), 0.02 * box_pixels(high));
}

TEST_F(StreamingTest, MirrorAndFlipTurnEveryFrameOfTheSet) {
  struct Case {
    bool mirror, flip;
    int flip_code;
  };
  const std::vector<Case> cases = {{true, false, 1}, {false, true, 0}, {true, true, -1}};
  // Off-centre, so that every turn moves the box.
  open_first("sim", "noise=0,offset=120:-60,yaw=20");
  ASSERT_EQ(StartStreaming(1, 4), 0);
  const std::vector<Frame> plain = frames_of(*next_set());
  const cv::Mat depth = plain[0].samples();
  const cv::Mat ir = plain[1].samples();
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "mirror " << c.mirror << ", flip " << c.flip);
    ASSERT_EQ(SetMirror(1, c.mirror), 0);
    ASSERT_EQ(SetFlip(1, c.flip), 0);
    const std::vector<Frame> turned = frames_of(*next_set());
    cv::Mat expected_depth, expected_ir;
    cv::flip(depth, expected_depth, c.flip_code);
    cv::flip(ir, expected_ir, c.flip_code);
    EXPECT_EQ(cv::norm(turned[0].samples(), expected_depth, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(turned[1].samples(), expected_ir, cv::NORM_INF), 0.0);
    EXPECT_GT(cv::norm(turned[0].samples(), depth, cv::NORM_INF), 0.0);

    Intrinsics k{};
    ASSERT_EQ(GetIntric(1, kFrameDepth, k), 0);
    EXPECT_FLOAT_EQ(k.cx, c.mirror ? 639 - 323.018f : 323.018f);
    EXPECT_FLOAT_EQ(k.cy, c.flip ? 479 - 231.166f : 231.166f);
  }
}

// Pairs of 4-neighbours that both return and lie more than 50 mm apart.
int depth_jumps(const cv::Mat& depth) {
  int jumps = 0;
  for (int v = 0; v + 1 < depth.rows; ++v) {
    for (int u = 0; u + 1 < depth.cols; ++u) {
      const int own = depth.at<std::uint16_t>(v, u);
      for (const int other :
           {int{depth.at<std::uint16_t>(v, u + 1)}, int{depth.at<std::uint16_t>(v + 1, u)}}) {
        if (own != 0 && other != 0 && std::abs(own - other) > 50) ++jumps;
      }
    }
  }
  return jumps;
}

TEST_F(StreamingTest, DepthFiltersCleanTheDepthFrame) {
  open_first("sim", "noise=0,flying=1,dropout=0.02");
  ASSERT_EQ(StartStreaming(1, 2), 0);
  const cv::Mat raw = frames_of(*next_set())[0].samples();
  ASSERT_GT(depth_jumps(raw), 100);

  ASSERT_EQ(SetTrailFilter(1, true), 0);
  const cv::Mat trailed = frames_of(*next_set())[0].samples();
  EXPECT_EQ(depth_jumps(trailed), 0);
  ASSERT_EQ(SetTrailFilter(1, false), 0);

  // Scattered dropouts vanish under the median; edges stay where they were.
  ASSERT_EQ(SetFilter(1, true), 0);
  const cv::Mat smoothed = frames_of(*next_set())[0].samples();
  const int holes = raw.rows * raw.cols - cv::countNonZero(raw);
  EXPECT_LT(raw.rows * raw.cols - cv::countNonZero(smoothed), holes / 20);
  EXPECT_EQ(centre_sample(smoothed), kTopDepthMm);
}

TEST_F(StreamingTest, IntegrationTimeKeepsToItsRangeAndStep) {
  struct Case {
    std::int32_t value;
    bool accepted;
  };
  const std::vector<Case> cases = {{100, true}, {150, true},   {2000, true},
                                   {50, false}, {2050, false}, {675, false}};
  open_first("sim");
  std::int32_t min = 0, max = 0, value = 0;
  ASSERT_EQ(GetIntegralTimeRange(1, kFrameDepth, min, max), 0);
  EXPECT_EQ(std::make_pair(min, max), std::make_pair(100, 2000));
  ASSERT_EQ(GetIntegralTime(1, value), 0);
  EXPECT_EQ(value, 650);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    ASSERT_EQ(SetIntegralTime(1, 650), 0);
    EXPECT_EQ(SetIntegralTime(1, c.value) == 0, c.accepted);
    ASSERT_EQ(GetIntegralTime(1, value), 0);
    EXPECT_EQ(value, c.accepted ? c.value : 650);
  }
  for (const int frame_type : {0, 1, 3, 4}) {
    EXPECT_EQ(GetIntegralTimeRange(1, frame_type, min, max) == 0, frame_type == 3) << frame_type;
  }

  // Twice the light on the sensor, twice the infrared amplitude.
  ASSERT_EQ(SetIntegralTime(1, 650), 0);
  ASSERT_EQ(StartStreaming(1, 4), 0);
  const double nominal = centre_sample(frames_of(*next_set())[1].samples());
  ASSERT_EQ(SetIntegralTime(1, 1300), 0);
  EXPECT_NEAR(centre_sample(frames_of(*next_set())[1].samples()), 2 * nominal, 1.0);
}

TEST_F(StreamingTest, AlignedStreamPairsDepthWithColourAtTheDepthSize) {
  open_first("sim");
  ASSERT_EQ(SetFrameResolution(1, kFrameDepth, 1), 0);
  ASSERT_EQ(StartStreaming(1, 7), 0);
  const std::vector<Frame> frames = frames_of(*next_set());
  RGBDFrame pair{};
  ASSERT_EQ(GetRGBD(1, pair), 0);
  ASSERT_EQ(cv::Size(pair.width, pair.height), kLow);
  const cv::Mat depth(kLow, CV_16UC1, const_cast<std::uint16_t*>(pair.depth));
  EXPECT_EQ(cv::norm(depth, frames[0].samples(), cv::NORM_INF), 0.0);
  const cv::Mat colour(kLow, CV_8UC3, const_cast<unsigned char*>(pair.color));
  // Box and floor meet at the same pixels in both images.
  const cv::Mat box_in_depth = depth < 900;
  cv::Mat colour_hsv;
  cv::cvtColor(colour, colour_hsv, cv::COLOR_BGR2HSV);
  cv::Mat box_in_colour;
  cv::inRange(colour_hsv, cv::Scalar(0, 60, 0), cv::Scalar(30, 255, 255), box_in_colour);
  EXPECT_EQ(cv::countNonZero(box_in_depth != box_in_colour), 0);
}

}  // namespace
}  // namespace boxdim::virtual_camera::testing
