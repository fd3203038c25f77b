#ifndef HOST_PACKET_TRAFFIC_H_
#define HOST_PACKET_TRAFFIC_H_

#include <chrono>
#include <cstdint>

#include "host/packet/interface_counters.h"
#include "host/packet/packet_path.h"
#include "host/packet/packet_trace.h"
#include "host/packet/traffic_generator.h"

namespace qdt::host {

class Engine;

// Tells how many packets are due, so that a rate is kept on the average however late a tick comes.
class Pace {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // `rate` packets a second from `start` on.
  Pace(uint32_t rate, Time start) : rate_(rate), start_(start) {}

  // Packets to send now. What an engine that stood still has missed is lost, save a tenth of a second's.
  uint64_t Due(Time now);

 private:
  uint32_t rate_;
  Time start_;
  uint64_t sent_ = 0;  // since start_
};

// Simulated traffic between the engine's forwarding interfaces.
class Traffic {
 public:
  static constexpr uint32_t kMaxRate = 1'000'000;
  static constexpr std::chrono::milliseconds kPeriod{10};

  // `rate` packets a second, at most kMaxRate. The engine outlives this. Throws HostError when the engine has
  // less than two forwarding interfaces, or the layouts no region for the trace.
  Traffic(Engine *engine, uint32_t rate, TraceOutput output);

  // Sends what is due; called every kPeriod.
  void Tick();

 private:
  InterfaceCounters interfaces_;
  PacketGenerator generator_;
  Measurement &measurement_;
  PacketPath path_;
  PacketTrace trace_;
  Pace pace_;
};

// Standard error, as long as somebody takes the lines, and the system log.
TraceOutput EngineTraceOutput();

}  // namespace qdt::host

#endif  // HOST_PACKET_TRAFFIC_H_
