#include "app/main_loop.h"

#include <gtest/gtest.h>

#include <chrono>

#include "app_fixture.h"

namespace boxdim::testing {
namespace {

FakeFrameSet raw_frame_set() {
  FakeFrameSet set;
  set.frames.push_back({Corvane::kFrameRaw, 2, 4});
  set.data.assign(4 * 2 * 2, 1);
  return set;
}

class MainLoopTest : public AppTest {
 protected:
  MainLoopTest() {
    sdk().add_device(1, 1).frame_sets = {raw_frame_set(), raw_frame_set()};
    sdk().add_device(2, 1).frame_sets = {raw_frame_set()};
    session = session_of_fake();
    session.opened[0] = true;  // the second device never started
    g_stream_types[1] = {1, 1};
    g_stream_types[2] = {2, 1};
    screen.windows = {{"raw_1", 1}, {"raw_2", 1}};
  }
  Session session{shell};
};

// The tick comes before the first pass: counting starts again from 0 after it.
TEST_F(MainLoopTest, PollsOpenDevicesOncePerPassUntilEscAndPublishesCountsOnTheTick) {
  g_frame_counts[1].count = 17;
  g_frame_counts[2].count = 4;
  g_fps_tick = true;
  screen.keys = {-1, 'c', 'e', 27, 'a'};
  run_main_loop(session);
  // Stopping leaves the device marked open, so it is still polled.
  EXPECT_EQ(sdk().calls_named("GetLastFrameData"),
            std::vector<std::string>(4, "GetLastFrameData(1)"));
  EXPECT_EQ(screen.shown_in("raw_1").size(), 2u);
  EXPECT_TRUE(screen.shown_in("raw_2").empty());
  EXPECT_EQ(screen.waits, std::vector<int>(4, 30));
  EXPECT_EQ(screen.keys, std::deque<int>{'a'});
  EXPECT_EQ(session.status, FakeSdk::kNoFrame) << "the last poll's status is kept";
  EXPECT_FALSE(g_fps_tick);
  EXPECT_EQ(g_fps[1].count, 17);
  EXPECT_EQ(g_fps[2].count, 4);
  EXPECT_EQ(g_frame_counts[1].count, 2);
  EXPECT_EQ(g_frame_counts[2].count, 0);
}

TEST_F(AppTest, FpsTickerTicksWhileRunningAndStopsWhenCleared) {
  start_fps_ticker(shell);
  EXPECT_TRUE(g_running);
  // A tick comes at the latest a second after the previous one.
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!g_fps_tick && std::chrono::steady_clock::now() < give_up) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  stop_fps_ticker();
  EXPECT_TRUE(g_fps_tick);
  EXPECT_FALSE(g_running);
  EXPECT_FALSE(g_fps_thread.joinable());
  stop_fps_ticker();  // without a thread: nothing to join
}

}  // namespace
}  // namespace boxdim::testing
