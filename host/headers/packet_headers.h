#ifndef HOST_HEADERS_PACKET_HEADERS_H_
#define HOST_HEADERS_PACKET_HEADERS_H_

#include <array>
#include <cstdint>

namespace qdt::host {

using PacketMac = std::array<uint8_t, 6>;
using PacketAddress = std::array<uint8_t, 16>;  // network order; an IPv4 address in the first four bytes

constexpr uint16_t kEtherIpv4 = 0x0800;
constexpr uint16_t kEtherArp = 0x0806;
constexpr uint16_t kEtherIpv6 = 0x86dd;
constexpr uint16_t kEtherPppoeDiscovery = 0x8863;
constexpr uint16_t kEtherPppoeSession = 0x8864;
constexpr uint16_t kEtherEap = 0x888e;

constexpr uint8_t kProtocolIcmp = 1;
constexpr uint8_t kProtocolTcp = 6;
constexpr uint8_t kProtocolUdp = 17;
constexpr uint8_t kProtocolIcmp6 = 58;

constexpr uint16_t kCapwapControlPort = 5246;
constexpr uint16_t kCapwapDataPort = 5247;

// How much of a packet's headers there is to see: captures cut packets, and lengths may lie.
enum class HeaderDepth : uint8_t { kLink, kNetwork, kTransport };

// What one set of headers says: of a packet, or of the packet inside its tunnel.
struct PacketHeaders {
  PacketMac sourceMac{};
  PacketMac destinationMac{};
  uint16_t etherType = 0;
  uint16_t vlan = 0;       // of the outermost tag
  PacketAddress source{};  // of IP; of ARP the sender's and the target's
  PacketAddress destination{};
  uint8_t protocol = 0;         // of IP, behind IPv6 extension headers
  uint16_t fragmentOffset = 0;  // in bytes
  bool moreFragments = false;
  uint16_t sourcePort = 0;  // of TCP and UDP
  uint16_t destinationPort = 0;
  uint8_t tcpFlags = 0;
  uint8_t icmpType = 0;
  uint8_t icmpCode = 0;
  uint16_t icmpId = 0;        // of echoes
  uint16_t arpOperation = 0;  // 0: not known
  uint8_t hopLimit = 64;      // of IP, its time to live
  HeaderDepth depth = HeaderDepth::kTransport;

  bool IsIpv4() const { return etherType == kEtherIpv4; }
  bool IsIpv6() const { return etherType == kEtherIpv6; }
  bool IsIp() const { return IsIpv4() || IsIpv6(); }
  bool IsIcmp() const {
    return HasLayer3() &&
           ((IsIpv4() && protocol == kProtocolIcmp) || (IsIpv6() && protocol == kProtocolIcmp6));
  }
  bool IsTcp() const { return IsIp() && HasLayer3() && protocol == kProtocolTcp; }
  bool IsUdp() const { return IsIp() && HasLayer3() && protocol == kProtocolUdp; }
  bool IsFragment() const { return moreFragments || fragmentOffset != 0; }
  // Whether addresses and protocol are those of this packet.
  bool HasLayer3() const { return depth >= HeaderDepth::kNetwork; }
  // Whether ports, TCP flags and ICMP type are those of this packet: later fragments have none.
  bool HasLayer4() const { return depth >= HeaderDepth::kTransport && fragmentOffset == 0; }
};

// What a packet is besides its headers.
enum class PacketKind : uint8_t { kPlain, kEapKey, kCapwapKeepalive, kCapwapFragment, kPppoeKeepalive };

}  // namespace qdt::host

#endif  // HOST_HEADERS_PACKET_HEADERS_H_
