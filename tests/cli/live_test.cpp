// boxdim-cli live on the virtual camera, configured through its environment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "cli/output.h"
#include "cli_run.h"
#include "scene/depth_scene.h"
#include "source/depth_file.h"
#include "support/test_frames.h"
#include "temp_dir.h"

namespace boxdim {
namespace {

using testing::CliRun;
using testing::lines_of;
using testing::run;

class LiveTest : public ::testing::Test {
 protected:
  void TearDown() override {
    unsetenv("BOXDIM_CAMERA");
    unsetenv("BOXDIM_SCENE");
  }

  static CliRun run_with(const char* camera, const char* scene, std::vector<std::string> args) {
    setenv("BOXDIM_CAMERA", camera, 1);
    setenv("BOXDIM_SCENE", scene, 1);
    args.insert(args.begin(), "live");
    return run(args);
  }
};

TEST_F(LiveTest, JsonGivesOneMeasuredFramePerLineAndNothingElse) {
  // Two cameras, so that each line must name its own.
  const CliRun r =
      run_with("sim,sim:5", "box=400x300x200,yaw=15,noise=1,seed=1", {"--frames", "6", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 6u) << r.out;
  std::map<int, int> frames_of_camera;
  for (const std::string& line : lines) {
    const auto result = nlohmann::json::parse(line);
    const int camera = result["device_id"].get<int>();
    EXPECT_EQ(result["frame"].get<int>(), ++frames_of_camera[camera]) << line;
    ASSERT_EQ(result["ok"], true) << line;
    EXPECT_NEAR(result["length_mm"].get<double>(), 400.0, 3.0);
    EXPECT_NEAR(result["width_mm"].get<double>(), 300.0, 3.0);
    EXPECT_NEAR(result["height_mm"].get<double>(), 200.0, 3.0);
    EXPECT_EQ(result["engine"], "precise");
  }
  // Both cameras are polled in every round, so neither starves the other.
  EXPECT_EQ(frames_of_camera.size(), 2u);
}

// A capture may mix the camera's two depth resolutions; each frame is
// measured with the camera's intrinsics carried over to its own size.
TEST_F(LiveTest, AReplayOfMixedResolutionsMeasuresEveryFrameAtItsOwnSize) {
  testing::TempDir dir;
  std::filesystem::create_directories(dir.path() / "depth");
  for (int second = 1; second <= 4; ++second) {
    const cv::Size size = second % 2 ? cv::Size(320, 240) : cv::Size(640, 480);
    const std::string name = "1_" + std::to_string(size.width) + "x" + std::to_string(size.height) +
                             "-depth_" + std::to_string(second) + ".raw";
    write_file((dir.path() / "depth" / name).string(),
               raw_depth_bytes(render_scene(testing::scene_at_size(size)).depth));
  }
  const std::string camera = "replay:" + dir.path().string();
  const CliRun r = run_with(camera.c_str(), "", {"--frames", "8", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 8u);
  for (const std::string& line : lines) {
    const auto result = nlohmann::json::parse(line);
    ASSERT_EQ(result["ok"], true) << line;
    EXPECT_NEAR(result["length_mm"].get<double>(), 400.0, 3.0) << line;
    EXPECT_NEAR(result["width_mm"].get<double>(), 300.0, 3.0) << line;
  }
}

TEST_F(LiveTest, ACameraProblemIsOneLineOnStandardErrorWithStatusThree) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "no camera found"},
      {"replay:/nonexistent/boxdim-capture", "OpenDevice (camera 1) failed with status -7"},
  };
  for (const auto& [camera, message] : cases) {
    const CliRun r = run_with(camera, "", {"--frames", "1"});
    EXPECT_EQ(r.status, 3) << camera;
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_NE(r.err.find("boxdim-cli live: " + std::string(message) + "\n"), std::string::npos)
        << r.err;
  }
}

// A box put down and taken away under a simulated camera: one placed, one
// measured and one removed event, in that order, for one track, the reading
// within the station's 5 mm and its proof picture written.
TEST_F(LiveTest, EventsSayOnceWhenABoxIsPlacedMeasuredAndRemoved) {
  testing::TempDir dir;
  const std::string proofs = (dir.path() / "proofs").string();
  const CliRun r =
      run_with("sim", "box=400x300x200,camera-height=1200,yaw=20,noise=1.5,placed=0.3,removed=1.6",
               {"--frames", "75", "--events", "--json", "--proof", proofs});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 3u) << r.out;
  const char* kinds[] = {"placed", "measured", "removed"};
  double time = -1.0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const auto event = nlohmann::json::parse(lines[i]);
    EXPECT_EQ(event["event"], kinds[i]) << lines[i];
    EXPECT_EQ(event["device_id"], 1) << lines[i];
    EXPECT_EQ(event["track_id"], nlohmann::json::parse(lines[0])["track_id"]) << lines[i];
    EXPECT_GT(event["time"].get<double>(), time) << lines[i];
    time = event["time"].get<double>();
    if (event["event"] != "measured") {
      EXPECT_FALSE(event.contains("length_mm")) << lines[i];
      continue;
    }
    EXPECT_NEAR(event["length_mm"].get<double>(), 400.0, 5.0) << lines[i];
    EXPECT_NEAR(event["width_mm"].get<double>(), 300.0, 5.0) << lines[i];
    EXPECT_NEAR(event["height_mm"].get<double>(), 200.0, 5.0) << lines[i];
    // Within the station's division, 5 mm by default.
    EXPECT_LE(event["uncertainty_mm"].get<double>(), 5.0) << lines[i];
    EXPECT_GE(event["frames"].get<int>(), 8) << lines[i];
    const std::string proof = event["proof"].get<std::string>();
    EXPECT_EQ(std::filesystem::path(proof).parent_path(), std::filesystem::path(proofs));
    const cv::Mat picture = cv::imread(proof, cv::IMREAD_COLOR);
    EXPECT_EQ(picture.size(), cv::Size(640, 480)) << proof;
  }
}

// A session recorded on site replays at a desk to the same events.
TEST_F(LiveTest, ACaptureReplaysToTheSameEvents) {
  testing::TempDir dir;
  const std::string capture = (dir.path() / "capture").string();
  // The box stays in view long enough for a slow (sanitized, loaded) build
  // that measures only a few frames a second to settle its reading.
  const CliRun live =
      run_with("sim", "box=350x250x150,camera-height=1100,yaw=40,noise=1,placed=0.2,removed=3.2",
               {"--frames", "120", "--events", "--json", "--capture", capture});
  ASSERT_EQ(live.status, 0) << live.err;
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path() / "capture" / "depth")) {
    EXPECT_EQ(entry.file_size(), 640u * 480u * 2u) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 120u);

  const std::string camera = "replay:" + capture;
  const CliRun replay = run_with(camera.c_str(), "", {"--frames", "120", "--events", "--json"});
  ASSERT_EQ(replay.status, 0) << replay.err;
  const auto recorded = lines_of(live.out);
  const auto replayed = lines_of(replay.out);
  ASSERT_EQ(recorded.size(), 3u) << live.out;
  ASSERT_EQ(replayed.size(), recorded.size()) << replay.out;
  for (std::size_t i = 0; i < recorded.size(); ++i) {
    const auto a = nlohmann::json::parse(recorded[i]);
    const auto b = nlohmann::json::parse(replayed[i]);
    EXPECT_EQ(a["event"], b["event"]) << replayed[i];
    EXPECT_EQ(a["track_id"], b["track_id"]) << replayed[i];
    for (const char* key : {"length_mm", "width_mm", "height_mm"}) {
      if (a.contains(key)) {
        EXPECT_NEAR(a[key].get<double>(), b[key].get<double>(), 0.5) << key;
      }
    }
  }
}

TEST_F(LiveTest, EventsRefuseTheStationEngineAndAProofWithoutEvents) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"--events", "--engine", "station"}, "--events: needs the precise engine"},
      {{"--proof", "somewhere"}, "--proof: needs --events"},
  };
  for (const auto& [args, message] : cases) {
    const CliRun r = run_with("sim", "", args);
    EXPECT_EQ(r.status, 2) << message;
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
}

}  // namespace
}  // namespace boxdim
