#ifndef HOST_PACKET_PACKET_PATH_H_
#define HOST_PACKET_PACKET_PATH_H_

#include <bitset>

#include "host/engine/filler.h"
#include "host/measure/measurement.h"
#include "host/packet/interface_counters.h"
#include "host/packet/traffic_packet.h"
#include "host/regions/statistics.h"
#include "qdt/stats.h"

namespace qdt::host {

// The way of a packet through a forwarding core: a short list of stages, each of which moves
// the statistics that it is known by, until the packet's fate ends it.
class PacketPath {
 public:
  struct Stage {
    PathStage stage;
    PathTask task;  // the selector in front of them, where several share a stage
    void (PacketPath::*run)(const Packet &packet);
  };

  // All outlive the path. What `filler` counts itself the path leaves alone; null: it counts all.
  PacketPath(Statistics *statistics, InterfaceCounters *interfaces, Measurement *measurement,
             const Filler *filler = nullptr);

  // Returns the packet with its fate.
  Packet Process(Packet packet);

 private:
  static const Stage kStages[];

  void Walk(Packet *packet);
  void FindFate(Packet *packet);

  void Receive(const Packet &packet);
  void Classify(const Packet &packet);
  void Limit(const Packet &packet);
  void Acl(const Packet &packet);
  void Lookup(const Packet &packet);
  void Forward(const Packet &packet);
  void Transmit(const Packet &packet);

  void CountLayer4(const Packet &packet);
  void CountAt(uint32_t index, InterfaceCounters::Direction direction, const Packet &packet);
  void Count(const Packet &packet, uint32_t counter) {
    if (!countedElsewhere_[counter]) statistics_.Add(packet.core, counter, 1);
  }
  void Discard(const Packet &packet);

  Statistics &statistics_;
  InterfaceCounters &interfaces_;
  Measurement &measurement_;
  bool countsInterfaces_ = true;
  std::bitset<QDT_STAT_COUNTERS> countedElsewhere_;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_PACKET_PATH_H_
