#ifndef HOST_PACKET_PACKET_TRACE_H_
#define HOST_PACKET_PACKET_TRACE_H_

#include <chrono>
#include <functional>
#include <string>

#include "host/packet/trace_block.h"
#include "host/packet/traffic_packet.h"

namespace qdt::host {

// Where lines of the trace go.
struct TraceOutput {
  std::function<void(const std::string &line)> console;
  std::function<void(const std::string &line)> log;
  std::function<void(const std::string &line)> tail =
      {};  // gets each line, wherever else it goes; may be empty
};

// The engine's side of the packet trace: counts and prints the packets that match the conditions which others
// write into the shared block meanwhile.
class PacketTrace {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Lines a tick: the engine answers others as well.
  static constexpr uint32_t kLinesPerTick = 64;

  // `block` is the shared region; it outlives this.
  PacketTrace(TraceBlock *block, TraceOutput output) : block_(*block), output_(std::move(output)) {}

  // Takes the conditions that hold for the packets until the next call, and switches the trace off when its
  // time is over.
  void BeginTick(Time now);

  // Looks at a packet whose fate is known.
  void Observe(const Packet &packet);

 private:
  bool On() const;
  void SwitchOff();
  void Count(const Packet &packet);
  void Print(const Packet &packet);

  TraceBlock &block_;
  TraceOutput output_;
  TraceBlock conditions_{};
  bool wasOn_ = false;
  Time since_{};  // when the trace was seen to be on first
  uint32_t lines_ = 0;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_PACKET_TRACE_H_
