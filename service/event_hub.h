// The service's events (placed, measured, removed) handed from the measuring
// side to any number of listeners. Publishing never waits for a listener: the
// hub keeps the latest events in a ring, and each listener reads on from its
// own position; one that falls more than the ring behind has lost events and
// is told so, rather than holding the others up.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace boxdim::service {

struct HubEvent {
  std::int64_t sequence = 0;  // one more for each event published
  std::string name;           // "placed", "measured", "removed"
  std::string data;           // its JSON
};

class EventHub {
 public:
  // The first event gets `first_sequence`. A service gives each run a first
  // sequence above the last run's last one (its start time, say), so that a
  // listener coming back with an earlier run's last id is told it lost
  // events instead of waiting for ids that will never come.
  explicit EventHub(std::size_t kept = 1024, std::int64_t first_sequence = 1)
      : kept_(kept), first_(first_sequence), last_(first_sequence - 1) {}

  void publish(std::string name, std::string data);
  // Wakes every listener for good: the service is stopping.
  void close();

  enum class Wait { kEvents, kTimeout, kLost, kClosed };
  // The events after `after` (a sequence number; first_sequence - 1 before
  // the first), waiting up to `timeout` for one to come. kLost when some of
  // them have left the ring already, or were never this hub's.
  Wait next(std::int64_t after, std::chrono::milliseconds timeout, std::vector<HubEvent>& events);

  // The last event's sequence (first_sequence - 1 before the first), and
  // how many were published.
  std::int64_t last_sequence() const;
  std::int64_t published() const;
  int listeners() const;
  // A listener announces itself while it listens (for the status page).
  void add_listener(int delta);
  // The same, unless `most` listen already: false then, and nothing added.
  bool try_add_listener(int most);

 private:
  const std::size_t kept_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<HubEvent> ring_;
  const std::int64_t first_;
  std::int64_t last_;
  int listeners_ = 0;
  bool closed_ = false;
};

}  // namespace boxdim::service
