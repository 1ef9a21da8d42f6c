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
  std::int64_t sequence = 0;  // from 1, one more for each event published
  std::string name;           // "placed", "measured", "removed"
  std::string data;           // its JSON
};

class EventHub {
 public:
  explicit EventHub(std::size_t kept = 1024) : kept_(kept) {}

  void publish(std::string name, std::string data);
  // Wakes every listener for good: the service is stopping.
  void close();

  enum class Wait { kEvents, kTimeout, kLost, kClosed };
  // The events after `after` (a sequence number; 0 before the first),
  // waiting up to `timeout` for one to come. kLost when some of them have
  // left the ring already.
  Wait next(std::int64_t after, std::chrono::milliseconds timeout, std::vector<HubEvent>& events);

  std::int64_t last_sequence() const;
  int listeners() const;
  // A listener announces itself while it listens (for the status page).
  void add_listener(int delta);

 private:
  const std::size_t kept_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<HubEvent> ring_;
  std::int64_t last_ = 0;
  int listeners_ = 0;
  bool closed_ = false;
};

}  // namespace boxdim::service
