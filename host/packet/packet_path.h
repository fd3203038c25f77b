#ifndef HOST_PACKET_PACKET_PATH_H_
#define HOST_PACKET_PACKET_PATH_H_

#include "host/measure/measurement.h"
#include "host/packet/interface_counters.h"
#include "host/packet/traffic_packet.h"
#include "host/regions/statistics.h"

namespace qdt::host {

// The simulated way of a packet through a forwarding core: a short list of stages, each of which moves
// the statistics that it is known by, until the packet's fate ends it.
class PacketPath {
 public:
  struct Stage {
    PathStage stage;
    PathTask task;  // the selector in front of them, where several share a stage
    void (PacketPath::*run)(const Packet &packet);
  };

  // All outlive the path.
  PacketPath(Statistics *statistics, InterfaceCounters *interfaces, Measurement *measurement)
      : statistics_(*statistics), interfaces_(*interfaces), measurement_(*measurement) {}

  void Process(const Packet &packet);

 private:
  static const Stage kStages[];

  void Walk(const Packet &packet);

  void Receive(const Packet &packet);
  void Classify(const Packet &packet);
  void Limit(const Packet &packet);
  void Acl(const Packet &packet);
  void Lookup(const Packet &packet);
  void Forward(const Packet &packet);
  void Transmit(const Packet &packet);

  void Count(const Packet &packet, uint32_t counter) { statistics_.Add(packet.core, counter, 1); }
  void Discard(const Packet &packet);

  Statistics &statistics_;
  InterfaceCounters &interfaces_;
  Measurement &measurement_;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_PACKET_PATH_H_
