// Pins every intermediate result of whole frames, to the last bit: plane,
// contour, corners, dimensions, pictures and console lines of fixed-seed
// scenes. Speed work must leave these files unchanged; a deliberate change of
// behaviour regenerates them with BOXDIM_UPDATE_GOLDEN=1 and shows in review.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "pipeline/station_pipeline.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

struct GoldenCase {
  const char* name;
  std::vector<SceneParameters> frames;  // measured one after another on one state
};

DepthNoise station_noise() { return {2.0f, 0.2f, 0.005f}; }

SceneParameters scene(float length, float width, float height, float camera, float tilt, float roll,
                      float yaw, bool noisy, std::uint64_t seed) {
  SceneParameters s;
  s.box_length_mm = length;
  s.box_width_mm = width;
  s.box_height_mm = height;
  s.camera_height_mm = camera;
  s.tilt_deg = tilt;
  s.roll_deg = roll;
  s.yaw_deg = yaw;
  if (noisy) s.noise = station_noise();
  s.seed = seed;
  return s;
}

SceneParameters quarter_vga() {
  SceneParameters s = scene(380, 260, 180, 1000, 0, 0, 15, true, 3);
  s.image_width = 320;
  s.image_height = 240;
  s.intrinsics = {253.213f, 253.3025f, 161.509f, 115.583f};
  return s;
}

std::vector<GoldenCase> golden_cases() {
  return {
      {"top_down_clean", {testing::standard_scene()}},
      {"top_down_noisy", {scene(250, 180, 120, 1100, 0, 0, 20, true, 11)}},
      {"tilted_noisy", {scene(420, 310, 220, 1300, 12, -3, 35, true, 5)}},
      {"tilted_back_clean", {scene(500, 350, 300, 1500, -15, 2, 60, false, 1)}},
      {"small_and_far", {scene(150, 90, 60, 1700, 0, 0, 10, true, 9)}},
      {"quarter_vga", {quarter_vga()}},
      // Frames on one state: the plane statistics carry over between them.
      {"camera_sequence",
       {scene(400, 300, 200, 1000, 6, 0, 30, true, 21),
        scene(400, 300, 200, 1000, 6, 0, 30, true, 22),
        scene(400, 300, 200, 1000, 6, 0, 30, true, 23)}},
  };
}

// FNV-1a over bytes.
std::uint64_t fingerprint(const unsigned char* bytes, std::size_t count,
                          std::uint64_t hash = 14695981039346656037ull) {
  for (std::size_t i = 0; i < count; ++i) hash = (hash ^ bytes[i]) * 1099511628211ull;
  return hash;
}

std::uint64_t fingerprint(const cv::Mat& image) {
  std::uint64_t hash = fingerprint(nullptr, 0);
  for (int row = 0; row < image.rows; ++row) {
    hash = fingerprint(image.ptr<unsigned char>(row), image.cols * image.elemSize(), hash);
  }
  return hash;
}

// Nine significant digits give every float back exactly.
std::string num(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

template <typename Point>
void dump_points(std::ostream& out, const char* label, const std::vector<Point>& points) {
  out << label << " " << points.size() << ":";
  for (std::size_t i = 0; i < points.size(); ++i) {
    out << (i % 12 == 0 ? "\n " : "") << " " << num(points[i].x) << "," << num(points[i].y);
  }
  out << "\n";
}

void dump_points(std::ostream& out, const char* label, const std::vector<cv::Point3f>& points) {
  out << label << " " << points.size() << ":";
  for (const cv::Point3f& p : points) out << " " << num(p.x) << "," << num(p.y) << "," << num(p.z);
  out << "\n";
}

void dump_plane(std::ostream& out, const char* label, const PlaneEquation& p) {
  out << label << " " << num(p.a) << " " << num(p.b) << " " << num(p.c) << " " << num(p.d) << "\n";
}

// Console lines as text; bytes outside printable ASCII (the GBK messages) as \xNN.
void dump_lines(std::ostream& out, const char* prefix, const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    out << prefix;
    for (unsigned char ch : line) {
      if (ch >= 0x20 && ch < 0x7f) {
        out << ch;
      } else {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", ch);
        out << escaped;
      }
    }
    out << "\n";
  }
}

void dump_frame(std::ostream& out, const MeasurementState& state, const MeasurementOutcome& outcome,
                const cv::Mat& display, const cv::Mat& output) {
  out << "outcome " << (outcome.ok ? "ok" : outcome.failed_stage) << "\n";
  dump_plane(out, "plane", state.plane);
  dump_plane(out, "last_ransac_equation", state.last_ransac_equation);
  out << "plane_mean_distance " << num(state.plane_mean_distance) << "\n";
  out << "selected_pixels " << state.selected_pixels.size() << " top_plane_pixels "
      << state.top_plane_pixels.size() << "\n";
  dump_points(out, "contour", state.top_rect_contour_points);
  dump_points(out, "corner_points", state.top_rect_corner_points);
  dump_points(out, "coarse_corners", state.coarse_corners);
  dump_points(out, "box_corners", state.box_corners);
  dump_points(out, "corners_3d", state.corners_3d);
  out << "side_lengths";
  for (float side : state.side_lengths) out << " " << num(side);
  out << "\ndimensions " << num(state.dimensions.box_length) << " "
      << num(state.dimensions.box_width) << " " << num(state.dimensions.box_height) << "\n";
  out << "dists " << state.dists.size();
  if (!state.dists.empty()) {
    out << " first " << num(state.dists.front()) << " last " << num(state.dists.back()) << " all "
        << std::hex
        << fingerprint(reinterpret_cast<const unsigned char*>(state.dists.data()),
                       state.dists.size() * sizeof(float))
        << std::dec;
  }
  out << "\n";
  dump_points(out, "bottom_corners", state.bottom_corners);
  dump_points(out, "overlay_bottom_corners", state.overlay_bottom_corners);
  out << "picture " << std::hex << fingerprint(display) << " edges "
      << fingerprint(state.edge_image) << " output " << fingerprint(output) << std::dec << "\n";
}

std::string run_case(const GoldenCase& golden) {
  MeasurementState state;
  std::ostringstream log, errors;
  testing::capture_state(state, log, errors, 1);
  std::ostringstream out;
  for (std::size_t i = 0; i < golden.frames.size(); ++i) {
    const RenderedScene rendered = render_scene(golden.frames[i]);
    state.intrinsics = golden.frames[i].intrinsics;
    const cv::Mat display = testing::load_frame(state, rendered.depth);
    cv::Mat output = display.clone();
    const MeasurementOutcome outcome = measure_frame(state, output);
    out << "frame " << i << "\n";
    dump_frame(out, state, outcome, display, output);
    dump_lines(out, "log| ", log.str());
    dump_lines(out, "err| ", errors.str());
    log.str("");
    errors.str("");
  }
  return out.str();
}

std::string golden_path(const std::string& name) {
  return std::string(BOXDIM_GOLDEN_DIR) + "/" + name + ".txt";
}

class GoldenTest : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenTest, EveryIntermediateResultMatchesThePinnedOne) {
  const GoldenCase& golden = GetParam();
  const std::string actual = run_case(golden);
  const std::string path = golden_path(golden.name);
  if (std::getenv("BOXDIM_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path, std::ios::binary) << actual;
    GTEST_SKIP() << "rewrote " << path;
  }
  std::ifstream file(path, std::ios::binary);
  ASSERT_TRUE(file) << "missing " << path << "; run with BOXDIM_UPDATE_GOLDEN=1 to write it";
  const std::string expected((std::istreambuf_iterator<char>(file)), {});
  std::istringstream want(expected), got(actual);
  std::string want_line, got_line;
  for (int line = 1; std::getline(want, want_line); ++line) {
    ASSERT_TRUE(std::getline(got, got_line)) << path << ":" << line << " missing: " << want_line;
    ASSERT_EQ(got_line, want_line) << path << ":" << line;
  }
  EXPECT_FALSE(std::getline(got, got_line)) << path << " ends early; extra: " << got_line;
}

INSTANTIATE_TEST_SUITE_P(Scenes, GoldenTest, ::testing::ValuesIn(golden_cases()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace boxdim
