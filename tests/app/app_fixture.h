// Base fixture of the program's tests: a fresh scripted SDK and display, the
// program's lines captured, and the process-wide objects back at their start.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "app/globals.h"
#include "app/session.h"
#include "app/shell.h"
#include "fake_corvane_sdk.h"
#include "fake_display.h"
#include "support/scratch_working_directory.h"

namespace boxdim::testing {

class AppTest : public ::testing::Test {
 protected:
  AppTest() {
    reset_fake_sdk();
    g_stream_types.clear();
    g_frame_counts.clear();
    g_fps.clear();
    g_save_enabled.clear();
    g_toggle_p.clear();
    g_toggle_q.clear();
    g_mouse_x = -1;
    g_mouse_y = -1;
    g_fps_tick = false;
    g_measurement_state = MeasurementState{};
    g_measurement_state.seams.log = &out;
    g_measurement_state.seams.error_log = &errors;
    g_measurement_state.seams.seed_clock = [] { return std::time_t{1}; };
    g_interface->SetIntrinsics(0, 0, 0, 0);
  }
  ~AppTest() override { g_measurement_state.seams = MeasurementSeams(); }

  // A session over the fake's devices, as start-up leaves it, nothing open.
  Session session_of_fake() {
    Session session(shell);
    for (const FakeDevice& device : fake_sdk().devices) session.devices.push_back(device.info);
    session.reset_device_arrays();
    return session;
  }

  FakeSdk& sdk() { return fake_sdk(); }

  FakeDisplay screen;
  std::ostringstream out;
  std::ostringstream errors;
  Shell shell{screen, out};
};

namespace {

// Parameterised cases carry a `name`: it names the test and stands for the
// case in failure messages.
struct CaseName {
  template <typename Case>
  std::string operator()(const ::testing::TestParamInfo<Case>& info) const {
    return info.param.name;
  }
};

template <typename Case,
          typename = std::enable_if_t<std::is_same_v<decltype(Case::name), const char*>>>
std::ostream& operator<<(std::ostream& os, const Case& c) {
  return os << c.name;
}

}  // namespace

// The whole content of a file; empty when it cannot be read.
inline std::string file_bytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The files in `folder`.
inline std::vector<std::filesystem::path> files_in(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  return files;
}

}  // namespace boxdim::testing
