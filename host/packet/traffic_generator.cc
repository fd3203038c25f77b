#include "host/packet/traffic_generator.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "qdt/stats.h"

namespace qdt::host {
namespace {

using End = PacketFate::End;

// How packets of one kind look; what differs from packet to packet is filled in.
struct Flow {
  uint32_t weight;  // packets of this kind in one round of the mix
  uint16_t etherType;
  uint8_t protocol = 0;
  uint16_t sourcePort = 0;  // 0: of a client
  uint16_t destinationPort = 0;
  uint16_t length = 64;
  uint8_t tcpFlags = 0;
  uint8_t icmpType = 0;
  uint16_t fragmentOffset = 0;
  bool moreFragments = false;
  PacketKind kind = PacketKind::kPlain;
  bool tunnelled = false;
  bool fromControlPlane = false;
  uint16_t causeId = 0;
  PacketFate fate = {};
};

constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kAck = 0x10;
constexpr uint8_t kPushAck = 0x18;
constexpr uint8_t kFinAck = 0x11;

constexpr uint8_t kEchoReply = 0;
constexpr uint8_t kEcho = 8;
constexpr uint8_t kEcho6 = 128;
constexpr uint8_t kNeighbourSolicit = 135;

constexpr uint16_t kCauseArp = 1;
constexpr uint16_t kCauseNeighbour = 2;
constexpr uint16_t kCauseEap = 8;
constexpr uint16_t kCauseCapwap = 12;
constexpr uint16_t kCausePppoe = 15;

constexpr uint8_t kArpReplyProtocol = 1;

constexpr uint16_t kErrorPacketCopy = 172;

// Drop reasons, as QDT_STAT_DISCARD counts them.
constexpr uint16_t kArpMiss = 1;
constexpr uint16_t kFibMiss = 16;
constexpr uint16_t kTtlExceed = 67;
constexpr uint16_t kInterfaceDown = 73;
constexpr uint16_t kNoSendInterface = 72;
constexpr uint16_t kBadIpHead = 74;
constexpr uint16_t kRateLimit = 128;
constexpr uint16_t kControlPlaneLimit = 131;
constexpr uint16_t kIngressAcl = 138;
constexpr uint16_t kIpv6FibMiss = 17;

constexpr PacketFate kPunted{End::kToControlPlane};

constexpr PacketFate Drop(PathStage stage, uint16_t reason) { return {End::kDiscarded, stage, reason}; }

constexpr Flow Arp(uint32_t weight, PacketFate fate) {
  return {.weight = weight, .etherType = kEtherArp, .causeId = kCauseArp, .fate = fate};
}

constexpr Flow Tcp(uint32_t weight, uint16_t etherType, uint16_t port, uint16_t length, uint8_t flags,
                   PacketFate fate = {}) {
  return {.weight = weight,
          .etherType = etherType,
          .protocol = kProtocolTcp,
          .destinationPort = port,
          .length = length,
          .tcpFlags = flags,
          .fate = fate};
}

constexpr Flow Udp(uint32_t weight, uint16_t etherType, uint16_t port, uint16_t length,
                   PacketFate fate = {}) {
  return {.weight = weight,
          .etherType = etherType,
          .protocol = kProtocolUdp,
          .destinationPort = port,
          .length = length,
          .fate = fate};
}

constexpr Flow Icmp(uint32_t weight, uint16_t length, uint8_t type, bool fromControlPlane) {
  return {.weight = weight,
          .etherType = kEtherIpv4,
          .protocol = kProtocolIcmp,
          .length = length,
          .icmpType = type,
          .fromControlPlane = fromControlPlane};
}

constexpr Flow Icmp6(uint32_t weight, uint16_t length, uint8_t type, uint16_t causeId, PacketFate fate) {
  return {.weight = weight,
          .etherType = kEtherIpv6,
          .protocol = kProtocolIcmp6,
          .length = length,
          .icmpType = type,
          .causeId = causeId,
          .fate = fate};
}

// Ports stand in the first fragment only.
constexpr Flow Fragment(uint32_t weight, uint16_t port, uint16_t length, uint16_t offset, bool more) {
  return {.weight = weight,
          .etherType = kEtherIpv4,
          .protocol = kProtocolUdp,
          .destinationPort = port,
          .length = length,
          .fragmentOffset = offset,
          .moreFragments = more};
}

// A tunnel of an access point.
constexpr Flow Tunnel(uint32_t weight, PacketKind kind) {
  return {.weight = weight,
          .etherType = kEtherIpv4,
          .protocol = kProtocolUdp,
          .sourcePort = kCapwapDataPort,
          .destinationPort = kCapwapDataPort,
          .length = 1514,
          .kind = kind,
          .tunnelled = true};
}

// What access points say to the control plane.
constexpr Flow Capwap(uint32_t weight, uint16_t port, uint16_t length, PacketKind kind) {
  return {.weight = weight,
          .etherType = kEtherIpv4,
          .protocol = kProtocolUdp,
          .sourcePort = port,
          .destinationPort = port,
          .length = length,
          .kind = kind,
          .causeId = kCauseCapwap,
          .fate = kPunted};
}

constexpr Flow OfKind(uint32_t weight, uint16_t etherType, uint16_t length, PacketKind kind,
                      uint16_t causeId) {
  return {.weight = weight,
          .etherType = etherType,
          .length = length,
          .kind = kind,
          .causeId = causeId,
          .fate = kPunted};
}

constexpr Flow kMix[] = {
    Arp(6, kPunted),
    Arp(2, {End::kDiscarded, PathStage::kLimit, kControlPlaneLimit, 0, kArpReplyProtocol}),
    Tcp(30, kEtherIpv4, 443, 1460, kPushAck),
    Tcp(22, kEtherIpv4, 443, 64, kAck),
    Tcp(4, kEtherIpv4, 80, 64, kSyn),
    Tcp(2, kEtherIpv4, 22, 70, kFinAck),
    Udp(10, kEtherIpv4, 53, 86),
    Udp(16, kEtherIpv4, 5004, 214),
    Icmp(6, 98, kEcho, false),
    Icmp(4, 98, kEchoReply, true),
    Fragment(2, 2049, 1514, 0, true),
    Fragment(2, 0, 1514, 1480, true),
    Fragment(2, 0, 322, 2960, false),
    Tcp(14, kEtherIpv6, 443, 1400, kPushAck),
    Udp(6, kEtherIpv6, 443, 1250),
    Icmp6(2, 118, kEcho6, 0, {}),
    Icmp6(2, 86, kNeighbourSolicit, kCauseNeighbour, kPunted),
    Tunnel(8, PacketKind::kPlain),
    Tunnel(1, PacketKind::kCapwapFragment),
    Capwap(1, kCapwapDataPort, 78, PacketKind::kCapwapKeepalive),
    Capwap(1, kCapwapControlPort, 154, PacketKind::kPlain),
    OfKind(1, kEtherEap, 117, PacketKind::kEapKey, kCauseEap),
    OfKind(1, kEtherPppoeSession, 64, PacketKind::kPppoeKeepalive, kCausePppoe),
    // What does not arrive.
    Udp(2, kEtherIpv4, 161, 120, Drop(PathStage::kLookup, kArpMiss)),
    Tcp(1, kEtherIpv4, 8080, 64, kSyn, Drop(PathStage::kLookup, kFibMiss)),
    Tcp(1, kEtherIpv6, 8080, 86, kSyn, Drop(PathStage::kLookup, kIpv6FibMiss)),
    Tcp(3, kEtherIpv4, 23, 64, kSyn, Drop(PathStage::kAcl, kIngressAcl)),
    Udp(1, kEtherIpv4, 443, 1250, Drop(PathStage::kLimit, kRateLimit)),
    Udp(1, kEtherIpv4, 33434, 74, Drop(PathStage::kForward, kTtlExceed)),
    Udp(1, kEtherIpv4, 7, 64, Drop(PathStage::kClassify, kBadIpHead)),
    Udp(1, kEtherIpv4, 5004, 214, Drop(PathStage::kReceive, kInterfaceDown)),
    Udp(1, kEtherIpv4, 1900, 160,
        {End::kDiscarded, PathStage::kTransmit, kNoSendInterface, kErrorPacketCopy, 0}),
};

// Inside the tunnels.
constexpr Flow kInnerFlow = Tcp(0, kEtherIpv4, 443, 0, kPushAck);

// The mix with each flow as often as it weighs.
std::vector<const Flow *> Expand() {
  std::vector<const Flow *> round;
  for (const Flow &flow : kMix) round.insert(round.end(), flow.weight, &flow);
  return round;
}

const std::vector<const Flow *> &Round() {
  static const std::vector<const Flow *> round = Expand();
  return round;
}

// Spreads the packets of one kind over the round: prime, and no divisor of the round's size.
constexpr uint64_t kStride = 61;

// Where a packet goes is known when its destination is found.
bool HasDestination(const PacketFate &fate) {
  return fate.end == End::kForwarded || (fate.end == End::kDiscarded && fate.stage > PathStage::kLookup);
}

// Numbers that differ from packet to packet as if by chance (SplitMix64).
uint64_t Mix(uint64_t value) {
  value += 0x9e3779b97f4a7c15;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
  value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
  return value ^ (value >> 31);
}

constexpr uint32_t kHosts = 20;

PacketMac StationMac(uint32_t host) { return {0x02, 0x00, 0x5e, 0x90, 0x00, static_cast<uint8_t>(host)}; }

// 192.0.2.11 and on to 198.51.100.1 and on, or the same hosts of 2001:db8:0:10::/64 and 2001:db8:0:99::/64.
void SetAddresses(PacketHeaders *headers, uint8_t from, uint8_t to) {
  if (headers->IsIpv4()) {
    headers->source = {192, 0, 2, from};
    headers->destination = {198, 51, 100, to};
  } else if (headers->IsIpv6()) {
    headers->source = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0x10};
    headers->destination = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0x99};
    headers->source[15] = from;
    headers->destination[15] = to;
  }
}

PacketHeaders HeadersOf(const Flow &flow, uint64_t chance, uint16_t vlan) {
  constexpr uint16_t kFirstClientPort = 49152;
  const auto from = static_cast<uint8_t>(chance % kHosts);
  const auto to = static_cast<uint8_t>((chance >> 8) % kHosts);
  PacketHeaders headers;
  headers.sourceMac = StationMac(from + 1);
  headers.destinationMac = flow.etherType == kEtherArp ? PacketMac{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}
                                                       : PacketMac{0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  headers.etherType = flow.etherType;
  headers.vlan = vlan;
  headers.protocol = flow.protocol;
  headers.fragmentOffset = flow.fragmentOffset;
  headers.moreFragments = flow.moreFragments;
  headers.tcpFlags = flow.tcpFlags;
  headers.icmpType = flow.icmpType;
  SetAddresses(&headers, static_cast<uint8_t>(11 + from), static_cast<uint8_t>(1 + to));
  if (flow.destinationPort != 0) {
    headers.sourcePort = flow.sourcePort != 0
                             ? flow.sourcePort
                             : static_cast<uint16_t>(kFirstClientPort + (chance >> 16) % 4096);
    headers.destinationPort = flow.destinationPort;
  }
  return headers;
}

}  // namespace

PacketGenerator::PacketGenerator(std::vector<TrafficInterface> interfaces, uint32_t cores)
    : interfaces_(std::move(interfaces)), cores_(cores) {}

uint32_t PacketGenerator::MixSize() { return static_cast<uint32_t>(Round().size()); }

Packet PacketGenerator::Next() {
  const uint64_t number = count_++;
  const Flow &flow = *Round()[number * kStride % Round().size()];
  const uint64_t chance = Mix(number);
  const size_t in = (chance >> 32) % interfaces_.size();
  const size_t out = (in + 1 + (chance >> 48) % (interfaces_.size() - 1)) % interfaces_.size();
  Packet packet;
  packet.headers = HeadersOf(flow, chance, interfaces_[in].vlan);
  if (flow.tunnelled) packet.inner = HeadersOf(kInnerFlow, Mix(chance), interfaces_[out].vlan);
  packet.kind = flow.kind;
  packet.length = flow.length;
  packet.causeId = flow.causeId;
  packet.fromControlPlane = flow.fromControlPlane;
  packet.sourceFwdIf = flow.fromControlPlane ? 0 : interfaces_[in].index;
  packet.destinationFwdIf = HasDestination(flow.fate) ? interfaces_[out].index : 0;
  // One host's packets stay on one core, so that they stay in order.
  packet.core = static_cast<uint32_t>(chance % kHosts % cores_);
  packet.fate = flow.fate;
  return packet;
}

}  // namespace qdt::host
