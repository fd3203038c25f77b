#ifndef HOST_PACKET_PIPELINE_H_
#define HOST_PACKET_PIPELINE_H_

#include <chrono>
#include <string>
#include <vector>

#include "host/packet/interface_counters.h"
#include "host/packet/packet_path.h"
#include "host/packet/packet_trace.h"

namespace qdt::host {

class Engine;

// What happens to each packet of an engine, wherever it comes from: statistics, measurement, trace.
class Pipeline {
 public:
  // The engine outlives this. Throws HostError when the layouts have no forwarding interfaces or no region
  // for the trace.
  Pipeline(Engine *engine, TraceOutput output);

  // Lasts while a batch of packets goes through: what is there at one time.
  class Batch {
   public:
    explicit Batch(Pipeline *pipeline);
    ~Batch();
    Batch(const Batch &) = delete;
    Batch &operator=(const Batch &) = delete;

    void Process(const Packet &packet);
    std::chrono::steady_clock::duration Spent() const { return std::chrono::steady_clock::now() - begun_; }

   private:
    Pipeline &pipeline_;
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  };

  // The forwarding interfaces that were in use at the start.
  const std::vector<TrafficInterface> &interfaces() const { return interfaces_.interfaces(); }

 private:
  InterfaceCounters interfaces_;
  Measurement &measurement_;
  PacketPath path_;
  PacketTrace trace_;
};

// Writes "nqed: LINE" to standard error, when that takes it at once.
void TellConsole(const std::string &line);

// Standard error, as long as somebody takes the lines, and the system log.
TraceOutput EngineTraceOutput();

}  // namespace qdt::host

#endif  // HOST_PACKET_PIPELINE_H_
