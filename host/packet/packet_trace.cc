#include "host/packet/packet_trace.h"

#include <atomic>
#include <cstring>

#include "host/packet/trace_match.h"
#include "host/packet/trace_print.h"
#include "host/regions/shared_counter.h"

namespace qdt::host {
namespace {

constexpr uint8_t kOn = 1;

// Takes one off, unless somebody has set it to 0 meanwhile; whether there was one.
bool TakeOne(uint32_t *counter) {
  const std::atomic_ref<uint32_t> left(*counter);
  uint32_t value = left.load(std::memory_order_relaxed);
  while (value != 0) {
    if (left.compare_exchange_weak(value, value - 1, std::memory_order_relaxed)) return true;
  }
  return false;
}

}  // namespace

bool PacketTrace::On() const {
  return (std::atomic_ref<uint8_t>(block_.switches).load(std::memory_order_acquire) & kOn) != 0;
}

void PacketTrace::SwitchOff() {
  std::atomic_ref<uint32_t>(block_.leftPrints).store(0, std::memory_order_relaxed);
  std::atomic_ref<uint8_t>(block_.switches).fetch_and(static_cast<uint8_t>(~kOn), std::memory_order_relaxed);
  wasOn_ = false;
}

void PacketTrace::BeginTick(Time now) {
  lines_ = 0;
  const bool on = On();
  if (on && !wasOn_) since_ = now;
  wasOn_ = on;
  std::memcpy(&conditions_, &block_, sizeof conditions_);
  if (on && conditions_.timeout != 0 && now - since_ >= std::chrono::seconds(conditions_.timeout))
    SwitchOff();
}

void PacketTrace::Observe(const Packet &packet) {
  if (!wasOn_ || !On() || !MatchesTrace(conditions_, packet)) return;
  Count(packet);
  if (lines_ < kLinesPerTick && TakeOne(&block_.leftPrints)) {
    ++lines_;
    Print(packet);
  }
}

void PacketTrace::Count(const Packet &packet) {
  AddTo(packet.fromControlPlane ? &block_.fromSlowPath : &block_.fromDriver, 1);
  if (packet.fate.end == PacketFate::End::kForwarded) AddTo(&block_.toDriver, 1);
  if (packet.fate.end == PacketFate::End::kToControlPlane) AddTo(&block_.toSlowPath, 1);
}

// Who chose neither place, as the management agent does, sees the lines on the console.
void PacketTrace::Print(const Packet &packet) {
  const std::string line = DescribePacket(packet);
  if (output_.tail) output_.tail(line);
  if (conditions_.printLog != 0) output_.log(line);
  if (conditions_.printConsole != 0 || conditions_.printLog == 0) output_.console(line);
}

}  // namespace qdt::host
