#ifndef HOST_PACKET_TRAFFIC_GENERATOR_H_
#define HOST_PACKET_TRAFFIC_GENERATOR_H_

#include <cstdint>
#include <vector>

#include "host/packet/traffic_packet.h"

namespace qdt::host {

// A forwarding interface that packets come from and go to.
struct TrafficInterface {
  uint32_t index = 0;
  uint16_t vlan = 0;
};

// Makes a mix of packets as a campus site sees it: ARP, TCP, UDP and ICMP over IPv4 and IPv6, fragments, the
// tunnels and keepalives of access points, wireless keys; a few meet a rate limit, an access list, a missing
// route or an internal failure. The same interfaces and cores give the same packets, one after the other.
class PacketGenerator {
 public:
  // At least two interfaces, at least one core.
  PacketGenerator(std::vector<TrafficInterface> interfaces, uint32_t cores);

  Packet Next();

  // Packets after which every kind of packet has been there as often as the mix says.
  static uint32_t MixSize();

 private:
  std::vector<TrafficInterface> interfaces_;
  uint32_t cores_;
  uint64_t count_ = 0;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_TRAFFIC_GENERATOR_H_
