#ifndef HOST_PACKET_TRAFFIC_H_
#define HOST_PACKET_TRAFFIC_H_

#include <chrono>
#include <cstdint>

#include "host/packet/pipeline.h"
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

  // `rate` packets a second, at most kMaxRate. The pipeline outlives this. Throws HostError when the engine
  // has less than two forwarding interfaces.
  Traffic(Engine *engine, uint32_t rate, Pipeline *pipeline);

  // Sends what is due; called every kPeriod.
  void Tick();

 private:
  Pipeline &pipeline_;
  PacketGenerator generator_;
  Pace pace_;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_TRAFFIC_H_
