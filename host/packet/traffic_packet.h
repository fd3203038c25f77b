#ifndef HOST_PACKET_TRAFFIC_PACKET_H_
#define HOST_PACKET_TRAFFIC_PACKET_H_

#include <array>
#include <cstdint>
#include <optional>

namespace qdt::host {

using PacketMac = std::array<uint8_t, 6>;
using PacketAddress = std::array<uint8_t, 16>;  // network order; an IPv4 address in the first four bytes

constexpr uint16_t kEtherIpv4 = 0x0800;
constexpr uint16_t kEtherArp = 0x0806;
constexpr uint16_t kEtherIpv6 = 0x86dd;
constexpr uint16_t kEtherPppoeSession = 0x8864;
constexpr uint16_t kEtherEap = 0x888e;

constexpr uint8_t kProtocolIcmp = 1;
constexpr uint8_t kProtocolTcp = 6;
constexpr uint8_t kProtocolUdp = 17;
constexpr uint8_t kProtocolIcmp6 = 58;

constexpr uint16_t kCapwapControlPort = 5246;
constexpr uint16_t kCapwapDataPort = 5247;

// What one set of headers says: of a packet, or of the packet inside its tunnel.
struct PacketHeaders {
  PacketMac sourceMac{};
  PacketMac destinationMac{};
  uint16_t etherType = 0;
  uint16_t vlan = 0;
  PacketAddress source{};
  PacketAddress destination{};
  uint8_t protocol = 0;  // of IP
  uint16_t fragmentOffset = 0;
  bool moreFragments = false;
  uint16_t sourcePort = 0;  // of TCP and UDP
  uint16_t destinationPort = 0;
  uint8_t tcpFlags = 0;
  uint8_t icmpType = 0;

  bool IsIpv4() const { return etherType == kEtherIpv4; }
  bool IsIpv6() const { return etherType == kEtherIpv6; }
  bool IsIcmp() const {
    return (IsIpv4() && protocol == kProtocolIcmp) || (IsIpv6() && protocol == kProtocolIcmp6);
  }
  bool IsTcp() const { return (IsIpv4() || IsIpv6()) && protocol == kProtocolTcp; }
  bool IsUdp() const { return (IsIpv4() || IsIpv6()) && protocol == kProtocolUdp; }
  bool IsFragment() const { return moreFragments || fragmentOffset != 0; }
  // Whether ports, TCP flags and ICMP type are those of this packet: later fragments have none.
  bool HasLayer4() const { return fragmentOffset == 0; }
};

// What a packet is besides its headers.
enum class PacketKind : uint8_t { kPlain, kEapKey, kCapwapKeepalive, kCapwapFragment, kPppoeKeepalive };

// The steps of the simulated path, in their order.
enum class PathStage : uint8_t { kReceive, kClassify, kLimit, kAcl, kLookup, kForward, kTransmit };

// What becomes of a packet, and so which statistics it moves besides those of its protocol.
struct PacketFate {
  enum class End : uint8_t { kForwarded, kToControlPlane, kDiscarded };

  End end = End::kForwarded;
  PathStage stage = PathStage::kTransmit;  // where a discarded packet ends
  uint16_t discardReason = 0;              // of a discarded packet, 1 to 273
  uint16_t errorStatistic = 0;             // number of the error that it met at that stage, or 0
  uint8_t limitedProtocol = 0;             // whose rate limit discarded it, or 0
};

// A simulated packet. It has no bytes: headers, length and fate are all that statistics and traces look at.
struct Packet {
  PacketHeaders headers;
  std::optional<PacketHeaders> inner;  // inside a tunnel
  PacketKind kind = PacketKind::kPlain;
  uint16_t length = 0;
  uint16_t causeId = 0;  // why it is of interest to the control plane, or 0
  bool fromControlPlane = false;
  uint32_t sourceFwdIf = 0;       // 0 for packets of the control plane
  uint32_t destinationFwdIf = 0;  // 0 when it was not found, or is the control plane
  uint32_t core = 0;              // the run context that handles it
  PacketFate fate;

  bool Discarded() const { return fate.end == PacketFate::End::kDiscarded; }
};

}  // namespace qdt::host

#endif  // HOST_PACKET_TRAFFIC_PACKET_H_
