#ifndef HOST_PACKET_FORWARDING_H_
#define HOST_PACKET_FORWARDING_H_

#include <chrono>
#include <cstdint>
#include <optional>

#include "host/headers/parse.h"
#include "host/packet/flow_index.h"
#include "host/packet/local_addresses.h"
#include "host/packet/route_lookup.h"
#include "host/packet/traffic_packet.h"

namespace qdt::host {

// Where a packet was captured.
struct CapturePoint {
  enum class Direction : uint8_t {
    kIn,
    kOut,     // leaves by the interface
    kUnknown  // told by the packet's addresses
  };

  uint32_t fwdIf = 0;  // forwarding interface; 0: told by the packet's addresses
  Direction direction = Direction::kUnknown;
};

// Tells what the engine does with a captured packet, by the engine's own tables: interfaces, sessions, the
// MAC table, routes, next hops and neighbours. docs/packets.md has the steps.
class Forwarding : public PacketLookup {
 public:
  // Throws HostError when `layout` lacks a table or field that packets are looked up in.
  Forwarding(const Layout &layout, uint32_t cores);

  // Before each batch: takes in what has changed.
  void Refresh(std::chrono::steady_clock::time_point now);

  // The packet with all that the path and the trace look at, but for what is looked up when it comes to that
  // stage. `length` is that on the wire. This outlives the packet.
  Packet Decide(const ParsedPacket &parsed, const CapturePoint &point, uint32_t length) const;
  void LookUp(Packet *packet) const override;

 private:
  struct Interface {
    bool exists = false, down = false;
    uint32_t bridge = 0;
    uint16_t vlan = 0, vpn = 0, vpn6 = 0;
  };

  Interface FindInterface(uint32_t index) const;
  CapturePoint Locate(const ParsedPacket &parsed, CapturePoint point) const;
  void Leave(uint32_t index, Packet *packet) const;
  void Arrive(const ParsedPacket &parsed, Packet *packet) const;
  bool IsFaulty(const ParsedPacket &parsed) const;
  bool Bridge(const Interface &in, Packet *packet) const;
  const void *FindMac(uint32_t bridge, uint16_t vlan, const PacketMac &mac) const;
  std::optional<uint16_t> CauseOf(const Packet &packet) const;
  void Route(const PacketHeaders &headers, const Interface &in, Packet *packet) const;
  void SendTo(uint32_t index, Packet *packet) const;

  uint32_t cores_;
  LocalAddresses addresses_;
  FlowIndex flows_;
  RouteLookup routes4_, routes6_;

  uint32_t interfaces_ = 0, macs_ = 0, macKeySize_ = 0;  // tables
  FieldRef down_, bridge_, pvid_, vpn_, vpn6_;
  FieldRef macBridge_, macVlan_, mac_, macLocal_, macDrop_, macPort_;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_FORWARDING_H_
