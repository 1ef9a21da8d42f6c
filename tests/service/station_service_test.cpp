// The station service on the virtual camera with a history whose disk is
// full: each measured box still goes out to the listeners (without an id),
// the problem is said once and shown in the status, and measuring goes on.
#include "service/station_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "cli/temp_dir.h"
#include "virtual_camera/device.h"
#include "virtual_camera/virtual_clock.h"

namespace boxdim::service {
namespace {

TEST(StationService, AFullHistoryIsReportedOnceAndMeasuringGoesOn) {
  unsetenv("BOXDIM_CAMERA");
  setenv("BOXDIM_SCENE", "placed=0.1,removed=0.8,every=1.2,seed=4", 1);
  testing::TempDir dir;
  MeasurementHistory history(dir.file("data"), 8);
  MeasurementRecord filler;
  for (int i = 0; i < 5000; ++i) {
    try {
      history.add(filler, {});
    } catch (const HistoryError&) {
      break;
    }
  }
  const std::int64_t stored = history.count();
  EventHub hub;
  std::ostringstream log;
  int measured = 0;
  {
    StationOptions options;
    options.engine = "precise";
    options.clock_us = [] { return std::int64_t{1795421702000000}; };
    // The scene moves on one frame period per poll, as the measuring loop
    // polls once per frame: each box stays in view for as many frames
    // however slowly this build measures (a sanitized build took so long
    // per frame on the steady clock that no box was ever measured).
    std::atomic<std::int64_t> polls{0};
    virtual_camera::set_clock([&polls] {
      using FramePeriods =
          std::chrono::duration<std::int64_t, std::ratio<1, virtual_camera::kFramesPerSecond>>;
      return std::chrono::steady_clock::time_point(
          std::chrono::ceil<std::chrono::steady_clock::duration>(FramePeriods(polls.fetch_add(1))));
    });
    StationService station(options, history, hub, log);
    // Until two boxes were measured (and stored or not), or for as many
    // frames as four placements take, should measuring never say so.
    station.run([&] {
      const ServiceStatus now = station.status();
      return now.measured_events >= 2 || now.frames_measured >= 150;
    });
    virtual_camera::set_clock(nullptr);
    const ServiceStatus status = station.status();
    EXPECT_EQ(status.history_problem,
              dir.file("data/history.sqlite3") + ": database or disk is full");
    EXPECT_TRUE(status.camera_problem.empty()) << status.camera_problem;
    EXPECT_GT(status.frames_measured, 30) << "measuring went on";
    measured = static_cast<int>(status.measured_events);
    // Measuring has stopped: a second later the camera runs at no rate.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ASSERT_EQ(station.status().cameras.size(), 1u);
    EXPECT_EQ(station.status().cameras[0].frames_per_second, 0.0);
  }
  unsetenv("BOXDIM_SCENE");
  std::vector<HubEvent> events;
  ASSERT_EQ(hub.next(0, std::chrono::milliseconds(1), events), EventHub::Wait::kEvents);
  int told = 0;
  for (const HubEvent& event : events) {
    if (event.name != "measured") continue;
    ++told;
    const nlohmann::json data = nlohmann::json::parse(event.data);
    EXPECT_TRUE(data["id"].is_null()) << event.data;
    EXPECT_NEAR(data["length_mm"].get<double>(), 400.0, 5.0) << event.data;
  }
  EXPECT_EQ(told, measured);
  EXPECT_GE(told, 2);
  EXPECT_EQ(log.str(), "boxdim-cli serve: history: " + dir.file("data/history.sqlite3") +
                           ": database or disk is full\n")
      << "once, not once per box";
  EXPECT_EQ(history.count(), stored) << "what it held stays";
}

}  // namespace
}  // namespace boxdim::service
