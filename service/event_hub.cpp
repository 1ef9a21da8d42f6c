#include "service/event_hub.h"

namespace boxdim::service {

void EventHub::publish(std::string name, std::string data) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ring_.push_back(HubEvent{++last_, std::move(name), std::move(data)});
    if (ring_.size() > kept_) ring_.pop_front();
  }
  changed_.notify_all();
}

void EventHub::close() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

EventHub::Wait EventHub::next(std::int64_t after, std::chrono::milliseconds timeout,
                              std::vector<HubEvent>& events) {
  events.clear();
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, timeout, [&] { return closed_ || last_ > after; });
  if (closed_) return Wait::kClosed;
  if (last_ <= after) return Wait::kTimeout;
  const std::int64_t oldest = ring_.empty() ? last_ + 1 : ring_.front().sequence;
  if (after + 1 < oldest) return Wait::kLost;
  for (const HubEvent& event : ring_) {
    if (event.sequence > after) events.push_back(event);
  }
  return Wait::kEvents;
}

std::int64_t EventHub::last_sequence() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return last_;
}

std::int64_t EventHub::published() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return last_ - (first_ - 1);
}

int EventHub::listeners() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return listeners_;
}

bool EventHub::try_add_listener(int most) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (listeners_ >= most) return false;
  ++listeners_;
  return true;
}

void EventHub::add_listener(int delta) {
  const std::lock_guard<std::mutex> lock(mutex_);
  listeners_ += delta;
}

}  // namespace boxdim::service
