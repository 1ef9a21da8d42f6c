// The station engine behind the engine and frame-source seams measures
// exactly as the pipeline called by hand: the same numbers, pictures and
// console lines, frame after frame.
#include "engine/station_engine.h"

#include <gtest/gtest.h>

#include <sstream>

#include "engine/engine_factory.h"
#include "engine/last_line_log.h"
#include "measure/frame_preparation.h"
#include "pipeline/station_pipeline.h"
#include "source/rendered_sequence.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

bool same_pixels(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0.0);
}

// A camera's day in a few frames: a box turning and moving, the camera
// tilting, noise, a binned frame, an empty floor and the box again, so that
// the plane carried from frame to frame matters.
std::vector<SceneParameters> day_of_a_camera() {
  std::vector<SceneParameters> scenes;
  for (int i = 0; i < 8; ++i) {
    SceneParameters scene = testing::standard_scene();
    scene.yaw_deg = 12.0f * i;
    scene.offset_mm = {8.0f * i, -5.0f * i};
    scene.tilt_deg = i % 3 == 2 ? 9.0f : 0.0f;
    scene.noise = {i % 2 ? 2.0f : 0.0f, 0.2f, 0.005f};
    scene.seed = 40 + i;
    scenes.push_back(scene);
  }
  scenes[5] = testing::scene_at_size({320, 240});
  scenes[6].box_height_mm = 1.0f;  // nothing to measure
  return scenes;
}

TEST(StationEngine, MeasuresARenderedSequenceExactlyAsTheDriverCalledByHand) {
  std::ostringstream engine_log;
  EngineContext context;
  context.log = &engine_log;
  context.error_log = &engine_log;
  context.seed_clock = [] { return std::time_t{3}; };
  const std::unique_ptr<Engine> engine = create_engine("station", context);
  ASSERT_EQ(engine->name(), "station");

  std::ostringstream direct_log;
  MeasurementState direct;
  testing::capture_state(direct, direct_log, direct_log, 3);

  RenderedSequence sequence(day_of_a_camera(), 7);
  int frames = 0;
  int measured = 0;
  while (std::optional<DepthFrame> frame = sequence.next()) {
    SCOPED_TRACE(::testing::Message() << "frame " << frames);
    EXPECT_EQ(frame->camera_id, 7);
    EXPECT_EQ(frame->timestamp_us, frames * 1000000LL / 30);
    engine_log.str("");
    const MeasurementResult result = engine->measure(*frame);

    direct_log.str("");
    set_frame_size(direct, frame->depth.cols, frame->depth.rows);
    direct.intrinsics = frame->intrinsics;
    cv::Mat picture;
    prepare_frame(direct, frame->depth.ptr<std::uint16_t>(), picture);
    const MeasurementOutcome outcome = measure_frame(direct, picture);

    EXPECT_EQ(engine_log.str(), direct_log.str());
    EXPECT_TRUE(same_pixels(result.picture, picture));
    EXPECT_EQ(result.camera_id, 7);
    ASSERT_EQ(result.primary_box() != nullptr, outcome.ok);
    if (outcome.ok) {
      ++measured;
      const BoxMeasurement& box = *result.primary_box();
      EXPECT_EQ(box.status, BoxStatus::kMeasured);
      EXPECT_EQ(box.dimensions.box_length, direct.dimensions.box_length);
      EXPECT_EQ(box.dimensions.box_width, direct.dimensions.box_width);
      EXPECT_EQ(box.dimensions.box_height, direct.dimensions.box_height);
      EXPECT_EQ(box.corners_px, direct.box_corners);
      EXPECT_EQ(box.corners_mm, direct.corners_3d);
      EXPECT_FALSE(result.failure);
    } else {
      ASSERT_TRUE(result.failure);
      EXPECT_EQ(result.failure->stage, outcome.failed_stage);
      EXPECT_FALSE(result.failure->message.empty());
      EXPECT_NE(direct_log.str().find(result.failure->message), std::string::npos);
    }
    ++frames;
  }
  EXPECT_EQ(frames, 8);
  EXPECT_GE(measured, 5) << "the sequence must exercise the measured path";
  EXPECT_LT(measured, 8) << "and the failed one";
}

TEST(EngineFactory, CreatesEachKnownEngineByNameAndNamesTheKnownOnesForAnyOther) {
  EXPECT_EQ(engine_names(), (std::vector<std::string>{"precise", "station"}));
  EXPECT_EQ(default_engine_name(), "precise");
  for (const std::string& name : engine_names()) EXPECT_EQ(create_engine(name)->name(), name);
  try {
    create_engine("Precise");
    FAIL() << "an unknown engine was created";
  } catch (const UnknownEngine& e) {
    EXPECT_STREQ(e.what(), "unknown engine 'Precise' (known: precise, station)");
  }
}

struct LastLineCase {
  const char* name;
  std::vector<std::pair<bool, std::string>> writes;  // (to the error log, text)
  std::string last_line;
};

void PrintTo(const LastLineCase& c, std::ostream* os) { *os << c.name; }

class LastLineTest : public ::testing::TestWithParam<LastLineCase> {};

// Every byte goes on unchanged; the last line is the stage's message as a
// reader would quote it.
TEST_P(LastLineTest, PassesEverythingOnAndKeepsTheLastLineThatSaysSomething) {
  std::ostringstream log;
  std::ostringstream errors;
  LastLineLog tee(log, errors);
  std::string expected_log;
  std::string expected_errors;
  for (const auto& [to_errors, text] : GetParam().writes) {
    (to_errors ? tee.error_log() : tee.log()) << text;
    (to_errors ? expected_errors : expected_log) += text;
  }
  EXPECT_EQ(log.str(), expected_log);
  EXPECT_EQ(errors.str(), expected_errors);
  EXPECT_EQ(tee.last_line(), GetParam().last_line);
  tee.clear();
  EXPECT_EQ(tee.last_line(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Writes, LastLineTest,
    ::testing::Values(
        LastLineCase{"nothing", {}, ""},
        LastLineCase{"spaces_around",
                     {{false, " ransac_fitline points less than 10;\n"}},
                     "ransac_fitline points less than 10;"},
        LastLineCase{"blank_lines_after", {{false, "numPoints  36\n  \n\n"}}, "numPoints  36"},
        LastLineCase{"unfinished_line", {{false, "a\nbox_height: 2"}}, "box_height: 2"},
        LastLineCase{"error_log_interleaved",
                     {{false, "ransc times: 0\n"}, {true, "EigenSolver failed!\n"}},
                     "EigenSolver failed!"},
        LastLineCase{"written_in_pieces",
                     {{false, "num"}, {false, "Points  "}, {false, "0\n"}},
                     "numPoints  0"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace boxdim
