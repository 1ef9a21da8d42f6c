// Every engine meets the frames no camera should send: a failed frame or a
// measurement, never a crash or an access outside a buffer (the sanitizer
// build runs these too), and the same engine measures the next good frame.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

#include "engine/engine_factory.h"
#include "support/hostile_frames.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

using testing::HostileCase;
using testing::HostileOutcome;

class EngineHostileFrameTest
    : public ::testing::TestWithParam<std::tuple<std::string, HostileCase>> {};

bool any_measured(const MeasurementResult& result) {
  for (const BoxMeasurement& box : result.boxes) {
    if (box.status == BoxStatus::kMeasured) return true;
  }
  return false;
}

TEST_P(EngineHostileFrameTest, EndsAsAFailedFrameOrAResultAndSpoilsNothingAfter) {
  const auto& [engine_name, c] = GetParam();
  std::ostringstream log;
  EngineContext context;
  context.log = &log;
  context.error_log = &log;
  context.seed_clock = [] { return std::time_t{1}; };
  const std::unique_ptr<Engine> engine = create_engine(engine_name, context);

  DepthFrame frame;
  frame.depth = c.frame(c.size);
  frame.intrinsics = c.intrinsics;
  MeasurementResult result;
  ASSERT_NO_THROW(result = engine->measure(frame));
  if (c.outcome == HostileOutcome::kFails) {
    EXPECT_FALSE(any_measured(result));
    EXPECT_EQ(result.primary_box(), nullptr);
    EXPECT_TRUE(result.failure.has_value());
  } else if (c.outcome == HostileOutcome::kMeasuresTheBox) {
    ASSERT_NE(result.primary_box(), nullptr) << log.str();
    EXPECT_NEAR(result.primary_box()->dimensions.box_length, 400.0f, 3.0f);
  }
  if (!result.picture.empty()) {
    EXPECT_EQ(result.picture.size(), c.size);
  }

  frame.depth = render_scene(testing::standard_scene()).depth;
  frame.intrinsics = CameraIntrinsics{};
  ASSERT_NO_THROW(result = engine->measure(frame));
  ASSERT_NE(result.primary_box(), nullptr) << log.str();
  EXPECT_NEAR(result.primary_box()->dimensions.box_length, 400.0f, 3.0f);
  EXPECT_NEAR(result.primary_box()->dimensions.box_height, 200.0f, 3.0f);
}

INSTANTIATE_TEST_SUITE_P(Frames, EngineHostileFrameTest,
                         ::testing::Combine(::testing::ValuesIn(engine_names()),
                                            ::testing::ValuesIn(testing::hostile_cases())),
                         [](const auto& info) {
                           return std::get<0>(info.param) + "_" + std::get<1>(info.param).name;
                         });

}  // namespace
}  // namespace boxdim
