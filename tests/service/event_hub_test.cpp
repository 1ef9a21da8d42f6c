// The hub hands every event to every listener in order, never waits for a
// slow one, tells a listener that fell behind that it lost events, and wakes
// everyone when it closes.
#include "service/event_hub.h"

#include <gtest/gtest.h>

#include <thread>

namespace boxdim::service {
namespace {

using std::chrono::milliseconds;

TEST(EventHub, ListenersReadOnFromWhereTheyAre) {
  EventHub hub(8);
  std::vector<HubEvent> events;
  EXPECT_EQ(hub.next(0, milliseconds(1), events), EventHub::Wait::kTimeout);
  hub.publish("placed", "{1}");
  hub.publish("measured", "{2}");
  ASSERT_EQ(hub.next(0, milliseconds(1), events), EventHub::Wait::kEvents);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].sequence, 1);
  EXPECT_EQ(events[1].name, "measured");
  ASSERT_EQ(hub.next(1, milliseconds(1), events), EventHub::Wait::kEvents);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].data, "{2}");
  EXPECT_EQ(hub.next(2, milliseconds(1), events), EventHub::Wait::kTimeout);
}

TEST(EventHub, ASlowListenerLosesEventsAndHoldsNoOneUp) {
  EventHub hub(4);
  // A listener that read up to event 1 and then stalled.
  for (int i = 0; i < 1000; ++i) hub.publish("placed", std::to_string(i));
  std::vector<HubEvent> events;
  EXPECT_EQ(hub.next(1, milliseconds(1), events), EventHub::Wait::kLost);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(hub.next(0, milliseconds(1), events), EventHub::Wait::kLost)
      << "one that listened from before the first event";
  // One that kept up still gets the rest.
  ASSERT_EQ(hub.next(997, milliseconds(1), events), EventHub::Wait::kEvents);
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events.back().sequence, 1000);
}

// A run's ids start where its service says; a listener coming back with
// an id of an earlier run (below them) has lost what that run published.
TEST(EventHub, AListenerFromAnEarlierRunIsToldItLostEvents) {
  const std::int64_t first = 1'795'765'773'000'000;
  EventHub hub(8, first);
  std::vector<HubEvent> events;
  EXPECT_EQ(hub.last_sequence(), first - 1);
  EXPECT_EQ(hub.next(first - 1, milliseconds(1), events), EventHub::Wait::kTimeout)
      << "a listener of this run before its first event";
  EXPECT_EQ(hub.next(42, milliseconds(1), events), EventHub::Wait::kLost)
      << "before this run's first event";
  hub.publish("placed", "{}");
  hub.publish("measured", "{}");
  EXPECT_EQ(hub.published(), 2);
  EXPECT_EQ(hub.next(42, milliseconds(1), events), EventHub::Wait::kLost);
  ASSERT_EQ(hub.next(first - 1, milliseconds(1), events), EventHub::Wait::kEvents);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].sequence, first);
  EXPECT_EQ(events[1].sequence, first + 1);
}

TEST(EventHub, APublishWakesAWaitingListenerAndCloseWakesAll) {
  EventHub hub;
  std::vector<HubEvent> got;
  EventHub::Wait first = EventHub::Wait::kTimeout;
  std::thread listener([&] { first = hub.next(0, milliseconds(20000), got); });
  std::this_thread::sleep_for(milliseconds(50));
  hub.publish("removed", "{}");
  listener.join();
  EXPECT_EQ(first, EventHub::Wait::kEvents);
  EventHub::Wait second = EventHub::Wait::kTimeout;
  std::vector<HubEvent> none;
  std::thread closing([&] { second = hub.next(1, milliseconds(20000), none); });
  std::this_thread::sleep_for(milliseconds(50));
  hub.close();
  closing.join();
  EXPECT_EQ(second, EventHub::Wait::kClosed);
}

}  // namespace
}  // namespace boxdim::service
