#ifndef HOST_HEADERS_PARSE_H_
#define HOST_HEADERS_PARSE_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/headers/packet_headers.h"

namespace qdt::host {

// What a captured packet begins with.
enum class LinkType : uint8_t {
  kEthernet,
  kCooked,  // Linux cooked capture, version 1: of any interface, without the receiver's address
  kCooked2  // version 2
};

// What makes an engine refuse a packet. A packet that only the capture has cut is without fault.
enum class ParseFault : uint8_t {
  kNone,
  kLink,     // no whole header of the link layer
  kArp,      // not of Ethernet and IPv4, or too short
  kIpv4,     // header too short, or longer than the packet
  kIpv6,     // header or an extension header longer than the packet, or too many of them
  kVersion,  // IPv6's Ethernet type before another version
  kLayer4,   // TCP, UDP or ICMP header longer than the packet
  kPppoe,    // version, or a length that is longer than the packet
  kCapwap,   // header length out of the packet
};

struct ParsedPacket {
  PacketHeaders headers;
  std::optional<PacketHeaders> inner;  // inside CAPWAP or PPPoE
  PacketKind kind = PacketKind::kPlain;
  ParseFault fault = ParseFault::kNone;
  bool outgoing = false;  // a cooked capture says that the machine has sent it
};

// Reads the headers of a packet that had `wire` bytes and of which `captured` stand at `data`. Any bytes may
// stand there: nothing outside of them is read. What the bytes tell is taken as far as they go, also when the
// packet has a fault.
ParsedPacket ParsePacket(LinkType type, const uint8_t *data, size_t captured, size_t wire);

}  // namespace qdt::host

#endif  // HOST_HEADERS_PARSE_H_
