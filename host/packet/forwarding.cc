#include "host/packet/forwarding.h"

#include <utility>

#include "host/base/mix.h"
#include "host/packet/needed_table.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

using End = PacketFate::End;
using Direction = CapturePoint::Direction;

// Why packets are discarded, as QDT_STAT_DISCARD counts them.
enum Reason : uint16_t {
  kArpBad = 4,
  kTtlExceeded = 67,
  kTtl6Exceeded = 68,
  kNoReceiveInterface = 70,
  kNoSendInterface = 72,
  kReceiveInterfaceDown = 73,
  kBadIpv4 = 74,
  kBadCapwap = 93,
  kBlackholeMac = 107,
  kAbnormal = 134,
  kBadPppoe = 156,
  kSendInterfaceDown = 195,
  kEtherTypeUnknown = 224,
  kVersion6 = 238,
  kBadIpv6 = 245,
};

// What is of interest to the control plane.
enum Cause : uint16_t {
  kCauseArp = 1,
  kCauseNeighbour = 2,
  kCauseEap = 8,
  kCauseCapwap = 12,
  kCausePppoe = 15
};

Reason ReasonOf(ParseFault fault) {
  switch (fault) {
    case ParseFault::kNone:
    case ParseFault::kLink:
    case ParseFault::kLayer4:
      break;
    case ParseFault::kArp:
      return kArpBad;
    case ParseFault::kIpv4:
      return kBadIpv4;
    case ParseFault::kIpv6:
      return kBadIpv6;
    case ParseFault::kVersion:
      return kVersion6;
    case ParseFault::kPppoe:
      return kBadPppoe;
    case ParseFault::kCapwap:
      return kBadCapwap;
  }
  return kAbnormal;
}

void Discard(PathStage stage, uint16_t reason, Packet *packet) {
  packet->fate = {End::kDiscarded, stage, reason};
}

void Punt(uint16_t cause, Packet *packet) {
  packet->fate.end = End::kToControlPlane;
  packet->causeId = cause;
}

bool IsGroup(const PacketMac &mac) { return (mac[0] & 1) != 0; }

bool IsNeighbourDiscovery(const PacketHeaders &headers) {
  return headers.IsIpv6() && headers.IsIcmp() && headers.HasLayer4() && headers.icmpType >= 133 &&
         headers.icmpType <= 137;
}

bool IsMulticast(const PacketHeaders &headers) {
  if (headers.IsIpv6()) return headers.destination[0] == 0xff;
  return headers.destination[0] >= 224;  // the broadcast address among them
}

bool IsCapwapSignal(const Packet &packet) {
  const PacketHeaders &headers = packet.headers;
  return headers.IsUdp() && headers.HasLayer4() &&
         (packet.kind == PacketKind::kCapwapKeepalive || headers.destinationPort == kCapwapControlPort ||
          headers.sourcePort == kCapwapControlPort);
}

// The same for both directions of a conversation.
uint64_t FlowHash(const PacketHeaders &headers) {
  const auto mix = [](const auto &bytes) { return MixBytes(bytes.data(), bytes.size()); };
  const uint64_t ends = headers.IsIp() && headers.HasLayer3()
                            ? mix(headers.source) + mix(headers.destination)
                            : mix(headers.sourceMac) + mix(headers.destinationMac);
  return MixWord(ends, headers.protocol);
}

// The flow of the answers.
FlowKey Reverse(const FlowKey &key) {
  constexpr uint16_t kEcho = 8 << 8, kReply = 0, kEcho6 = 128 << 8, kReply6 = 129 << 8;
  FlowKey reverse = key;
  std::swap(reverse.source, reverse.destination);
  if (key.protocol != kProtocolIcmp && key.protocol != kProtocolIcmp6) {
    std::swap(reverse.sourcePort, reverse.destinationPort);
    return reverse;
  }
  for (const auto &[one, other] : {std::pair{kEcho, kReply}, std::pair{kEcho6, kReply6}}) {
    if (key.destinationPort == one) reverse.destinationPort = other;
    if (key.destinationPort == other) reverse.destinationPort = one;
  }
  return reverse;
}

}  // namespace

Forwarding::Forwarding(const Layout &layout, uint32_t cores)
    : cores_(cores),
      addresses_(layout),
      flows_(layout),
      routes4_(layout, RouteLookup::Version::kIpv4),
      routes6_(layout, RouteLookup::Version::kIpv6) {
  const TableLayout &interfaces = NeededTable(layout, "fwdif");
  interfaces_ = interfaces.spec.id;
  down_ = interfaces.At("down");
  bridge_ = interfaces.At("bridge_id");
  pvid_ = interfaces.At("pvid");
  vpn_ = interfaces.At("vpn");
  vpn6_ = interfaces.At("ipv6_vpn");
  const TableLayout &macs = NeededTable(layout, "ssw_macinfo");
  macs_ = macs.spec.id;
  macKeySize_ = macs.spec.keySize;
  macBridge_ = KeyField(macs, "bridge_id");
  macVlan_ = KeyField(macs, "vlan_id");
  mac_ = KeyField(macs, "mac");
  macLocal_ = macs.At("local");
  macDrop_ = macs.At("drop");
  macPort_ = macs.At("out_if_index");
}

void Forwarding::Refresh(std::chrono::steady_clock::time_point now) {
  addresses_.Refresh(now);
  flows_.Refresh();
}

Forwarding::Interface Forwarding::FindInterface(uint32_t index) const {
  void *record = nullptr;
  if (index == 0 || TbmTblSearch(0, interfaces_, &index, &record) != 0) return {};
  return {.exists = true,
          .down = down_.Get(record) != 0,
          .bridge = static_cast<uint32_t>(bridge_.Get(record)),
          .vlan = static_cast<uint16_t>(pvid_.Get(record)),
          .vpn = static_cast<uint16_t>(vpn_.Get(record)),
          .vpn6 = static_cast<uint16_t>(vpn6_.Get(record))};
}

Packet Forwarding::Decide(const ParsedPacket &parsed, const CapturePoint &point, uint32_t length) const {
  Packet packet;
  packet.headers = parsed.headers;
  packet.inner = parsed.inner;
  packet.kind = parsed.kind;
  packet.length = length;
  packet.captured = true;
  packet.core = static_cast<uint32_t>(FlowHash(parsed.headers) % cores_);
  const CapturePoint place = Locate(parsed, point);
  if (place.direction == Direction::kOut) {
    Leave(place.fwdIf, &packet);
  } else {
    packet.sourceFwdIf = place.fwdIf;
    Arrive(parsed, &packet);
  }
  return packet;
}

CapturePoint Forwarding::Locate(const ParsedPacket &parsed, CapturePoint point) const {
  const PacketHeaders &headers = parsed.headers;
  if (parsed.outgoing) point.direction = Direction::kOut;
  const uint32_t sender = addresses_.InterfaceOf(headers.sourceMac);
  if (point.direction == Direction::kUnknown) {
    const bool isSent = sender != 0 && (point.fwdIf == 0 || point.fwdIf == sender);
    point.direction = isSent ? Direction::kOut : Direction::kIn;
  }
  if (point.fwdIf != 0) return point;
  point.fwdIf = sender;
  if (point.direction == Direction::kOut) return point;
  point.fwdIf = addresses_.InterfaceOf(headers.destinationMac);
  const bool hasIpv4 = headers.HasLayer3() && (headers.IsIpv4() || headers.etherType == kEtherArp);
  if (point.fwdIf == 0 && hasIpv4) point.fwdIf = addresses_.InterfaceOfNetwork(headers.source);
  return point;
}

// What leaves is forwarded already; of interest is from where.
void Forwarding::Leave(uint32_t index, Packet *packet) const {
  const PacketHeaders &headers = packet->headers;
  const Interface out = FindInterface(index);
  packet->destinationFwdIf = index;
  // Who has no address yet asks for one, or whether it is free.
  const bool hasAddress = headers.IsIp() && headers.HasLayer3() && headers.source != PacketAddress{};
  bool isOwn = hasAddress ? addresses_.IsOwn(headers, headers.source)
                          : out.bridge == 0 || addresses_.HasMac(headers.sourceMac);
  const std::optional<FlowKey> flow = FlowOf(headers, headers.IsIpv6() ? out.vpn6 : out.vpn);
  const std::optional<FoundSession> back = flow ? flows_.Find(Reverse(*flow)) : std::nullopt;
  if (back) {
    packet->session = back->index;
    // Answers will be translated back to somebody else.
    if (back->newDestination != flow->source) isOwn = false;
    if (!isOwn) packet->sourceFwdIf = back->egress;
  }
  packet->fromControlPlane = isOwn;
  packet->seenBefore = !isOwn;
}

void Forwarding::Arrive(const ParsedPacket &parsed, Packet *packet) const {
  const Interface in = FindInterface(packet->sourceFwdIf);
  if (!in.exists) return Discard(PathStage::kReceive, kNoReceiveInterface, packet);
  if (in.down) return Discard(PathStage::kReceive, kReceiveInterfaceDown, packet);
  if (IsFaulty(parsed)) return Discard(PathStage::kClassify, ReasonOf(parsed.fault), packet);
  packet->lookup = this;
}

void Forwarding::LookUp(Packet *packet) const {
  const PacketHeaders &headers = packet->headers;
  const Interface in = FindInterface(packet->sourceFwdIf);
  if (in.bridge != 0 && Bridge(in, packet)) return;
  if (const std::optional<uint16_t> cause = CauseOf(*packet)) return Punt(*cause, packet);
  const bool isSession = packet->inner && headers.etherType == kEtherPppoeSession;
  const PacketHeaders &routed = isSession ? *packet->inner : headers;
  if (routed.IsIp() && routed.HasLayer3()) return Route(routed, in, packet);
  if (routed.IsIp() || IsGroup(headers.destinationMac)) return Punt(0, packet);
  Discard(PathStage::kLookup, kEtherTypeUnknown, packet);
}

// A tunnel concerns its ends alone, and others may use its ports for something else.
bool Forwarding::IsFaulty(const ParsedPacket &parsed) const {
  if (parsed.fault == ParseFault::kCapwap)
    return addresses_.IsOwn(parsed.headers, parsed.headers.destination);
  return parsed.fault != ParseFault::kNone;
}

// Whether the packet stays in its bridge, whose MAC table has decided on it then.
bool Forwarding::Bridge(const Interface &in, Packet *packet) const {
  const PacketHeaders &headers = packet->headers;
  if (IsGroup(headers.destinationMac) || addresses_.HasMac(headers.destinationMac)) return false;
  // A bridge that does not filter by VLAN knows its stations without one.
  const void *station =
      FindMac(in.bridge, headers.vlan != 0 ? headers.vlan : in.vlan, headers.destinationMac);
  if (station == nullptr) station = FindMac(in.bridge, 0, headers.destinationMac);
  if (station == nullptr) return true;  // to all of its ports
  if (macLocal_.Get(station) != 0) return false;
  if (macDrop_.Get(station) != 0) {
    Discard(PathStage::kLookup, kBlackholeMac, packet);
  } else {
    SendTo(static_cast<uint32_t>(macPort_.Get(station)), packet);
  }
  return true;
}

const void *Forwarding::FindMac(uint32_t bridge, uint16_t vlan, const PacketMac &mac) const {
  std::vector<uint8_t> key(macKeySize_);
  macBridge_.Set(key.data(), bridge);
  macVlan_.Set(key.data(), vlan);
  WideValue number = 0;
  for (const uint8_t byte : mac) number = number << 8 | byte;
  mac_.Write(key.data(), number);
  void *record = nullptr;
  return TbmTblSearch(0, macs_, key.data(), &record) == 0 ? record : nullptr;
}

// Why the control plane wants the packet, wherever it would go.
std::optional<uint16_t> Forwarding::CauseOf(const Packet &packet) const {
  const PacketHeaders &headers = packet.headers;
  if (headers.etherType == kEtherArp) return kCauseArp;
  if (headers.etherType == kEtherEap) return kCauseEap;
  if (headers.etherType == kEtherPppoeDiscovery) return kCausePppoe;
  if (headers.etherType == kEtherPppoeSession && !packet.inner) return kCausePppoe;
  if (!headers.IsIp() || !headers.HasLayer3()) return {};
  const bool isOwn = addresses_.IsOwn(headers, headers.destination);
  if (IsNeighbourDiscovery(headers) && (isOwn || IsMulticast(headers))) return kCauseNeighbour;
  if (isOwn && IsCapwapSignal(packet)) return kCauseCapwap;
  return {};
}

void Forwarding::Route(const PacketHeaders &headers, const Interface &in, Packet *packet) const {
  const bool isIpv6 = headers.IsIpv6();
  const uint16_t vpn = isIpv6 ? in.vpn6 : in.vpn;
  WideValue destination = AddressNumber(headers, headers.destination);
  if (const std::optional<FlowKey> flow = FlowOf(headers, vpn)) {
    if (const std::optional<FoundSession> session = flows_.Find(*flow)) {
      packet->session = session->index;
      destination = session->newDestination;
    }
  }
  if (IsMulticast(headers) || addresses_.IsOwn(isIpv6, destination)) return Punt(0, packet);
  const RouteLookup &routes = isIpv6 ? routes6_ : routes4_;
  const RoutedHop hop = routes.Find(destination, vpn, FlowHash(headers));
  if (hop.discardReason != 0) return Discard(PathStage::kLookup, hop.discardReason, packet);
  SendTo(hop.interface, packet);
  if (headers.hopLimit <= 1) Discard(PathStage::kForward, isIpv6 ? kTtl6Exceeded : kTtlExceeded, packet);
}

void Forwarding::SendTo(uint32_t index, Packet *packet) const {
  const Interface out = FindInterface(index);
  packet->destinationFwdIf = index;
  if (!out.exists) return Discard(PathStage::kTransmit, kNoSendInterface, packet);
  if (out.down) Discard(PathStage::kTransmit, kSendInterfaceDown, packet);
}

}  // namespace qdt::host
