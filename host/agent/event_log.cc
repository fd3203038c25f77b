#include "host/agent/event_log.h"

#include <utility>

namespace qdt::host {
namespace {

size_t SizeOf(const Event &event) { return sizeof event + event.name.size() + event.body.size(); }

}  // namespace

void EventLog::Publish(Event event) {
  events_.push_back(std::move(event));
  held_ += SizeOf(events_.back());
  while (events_.size() > most_ || (held_ > bytes_ && events_.size() > 1)) {
    held_ -= SizeOf(events_.front());
    events_.pop_front();
    ++first_;
  }
}

uint64_t EventLog::Since(std::chrono::system_clock::time_point time) const {
  uint64_t number = first_;
  while (number < end() && At(number).time < time) ++number;
  return number;
}

}  // namespace qdt::host
