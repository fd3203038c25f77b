#ifndef HOST_AGENT_EVENT_LOG_H_
#define HOST_AGENT_EVENT_LOG_H_

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace qdt::host {

// What has happened, for those who subscribe (RFC 5277) now or want to hear what came before.
struct Event {
  std::chrono::system_clock::time_point time;
  std::string module;  // of the notification, for access control
  std::string name;
  std::string body;  // the notification's element in XML
};

// The last events, numbered from 1 on. It is bounded: a subscriber is a number, not a queue, and who falls
// behind what is kept has missed events.
class EventLog {
 public:
  EventLog(size_t most, size_t bytes) : most_(most), bytes_(bytes) {}

  void Publish(Event event);

  // Number of the next event to come.
  uint64_t end() const { return first_ + events_.size(); }
  // Number of the oldest that is kept.
  uint64_t begin() const { return first_; }
  // The event of this number, which is kept.
  const Event &At(uint64_t number) const { return events_[number - first_]; }
  // The first event that is kept and not older than `time`; end() when there is none.
  uint64_t Since(std::chrono::system_clock::time_point time) const;

 private:
  const size_t most_;
  const size_t bytes_;
  uint64_t first_ = 1;
  size_t held_ = 0;
  std::deque<Event> events_;
};

}  // namespace qdt::host

#endif  // HOST_AGENT_EVENT_LOG_H_
