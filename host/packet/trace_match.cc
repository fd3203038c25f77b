#include "host/packet/trace_match.h"

#include <algorithm>
#include <cstring>

namespace qdt::host {
namespace {

// Conditions on headers look at those that the trace is about: the packet's, or those inside its tunnel.
struct Judged {
  const TraceBlock &block;
  const Packet &packet;
  const PacketHeaders &headers;

  bool Flag(TraceFlag flag) const { return (block.flags & flag) != 0; }
  bool Ports() const { return (headers.IsTcp() || headers.IsUdp()) && headers.HasLayer4(); }
  bool FragmentAt(bool first) const {
    return headers.IsIpv4() && headers.IsFragment() && (headers.fragmentOffset == 0) == first;
  }
};

template <typename Field, typename Value>
bool Same(const Field &field, const Value &value) {
  return std::memcmp(&field, value.data(), sizeof field) == 0;
}

// Without an upper bound all lengths from the lower one on are meant.
bool Length(const Judged &j) {
  return j.packet.length >= j.block.minLength &&
         (j.block.maxLength == 0 || j.packet.length <= j.block.maxLength);
}

// The commands write the interface of either side to the first of the two fields.
bool DestinationFwdIf(const Judged &j) {
  const uint32_t wanted = j.block.destinationFwdIf != 0 ? j.block.destinationFwdIf : j.block.sourceFwdIf;
  return j.packet.destinationFwdIf == wanted;
}

bool DiscardType(const Judged &j) {
  return j.packet.Discarded() &&
         (j.block.discardType == kTraceAnyDiscard || j.packet.fate.discardReason == j.block.discardType);
}

// Keepalives, fragments, or else the channel whose port the condition names.
bool Capwap(const Judged &j) {
  const bool keepalive = j.Flag(kTraceCapwapKeepalive);
  const bool fragment = j.Flag(kTraceCapwapFragment);
  if (keepalive || fragment) {
    return (keepalive && j.packet.kind == PacketKind::kCapwapKeepalive) ||
           (fragment && j.packet.kind == PacketKind::kCapwapFragment);
  }
  const PacketHeaders &headers = j.packet.headers;
  const uint16_t port = j.block.sourcePort;
  return headers.IsUdp() && (port == kCapwapControlPort || port == kCapwapDataPort) &&
         (headers.sourcePort == port || headers.destinationPort == port);
}

// All flags that the condition names are set; one that names none means packets without any.
bool TcpFlags(const Judged &j) {
  if (!j.headers.IsTcp() || !j.headers.HasLayer4()) return false;
  const uint8_t wanted = j.block.tcpFlags;
  return wanted == 0 ? j.headers.tcpFlags == 0 : (j.headers.tcpFlags & wanted) == wanted;
}

struct Rule {
  TraceBit bit;
  bool (*holds)(const Judged &j);
};

constexpr Rule kRules[] = {
    {TraceBit::kLength, Length},
    {TraceBit::kSourceFwdIf, [](const Judged &j) { return j.packet.sourceFwdIf == j.block.sourceFwdIf; }},
    {TraceBit::kDestinationFwdIf, DestinationFwdIf},
    {TraceBit::kFromControlPlane,
     [](const Judged &j) { return j.packet.fromControlPlane == j.Flag(kTraceFromControlPlane); }},
    {TraceBit::kDiscardType, DiscardType},
    {TraceBit::kVlan, [](const Judged &j) { return j.headers.vlan == j.block.vlan; }},
    {TraceBit::kSourceMac, [](const Judged &j) { return Same(j.block.sourceMac, j.headers.sourceMac); }},
    {TraceBit::kDestinationMac,
     [](const Judged &j) { return Same(j.block.destinationMac, j.headers.destinationMac); }},
    {TraceBit::kEtherType, [](const Judged &j) { return j.headers.etherType == j.block.etherType; }},
    {TraceBit::kEapKey,
     [](const Judged &j) { return (j.packet.kind == PacketKind::kEapKey) == j.Flag(kTraceEapKey); }},
    {TraceBit::kSourceIpv4,
     [](const Judged &j) {
       return j.headers.IsIpv4() && j.headers.HasLayer3() && Same(j.block.sourceIpv4, j.headers.source);
     }},
    {TraceBit::kDestinationIpv4,
     [](const Judged &j) {
       return j.headers.IsIpv4() && j.headers.HasLayer3() &&
              Same(j.block.destinationIpv4, j.headers.destination);
     }},
    {TraceBit::kProtocol,
     [](const Judged &j) {
       return j.headers.IsIp() && j.headers.HasLayer3() && j.headers.protocol == j.block.protocol;
     }},
    {TraceBit::kCapwap, Capwap},
    {TraceBit::kSourcePort,
     [](const Judged &j) { return j.Ports() && j.headers.sourcePort == j.block.sourcePort; }},
    {TraceBit::kDestinationPort,
     [](const Judged &j) { return j.Ports() && j.headers.destinationPort == j.block.destinationPort; }},
    {TraceBit::kIpFragment, [](const Judged &j) { return j.headers.IsFragment(); }},
    // Frames of the radios are whole when they reach the simulated path.
    {TraceBit::kWirelessFragment, [](const Judged &) { return false; }},
    {TraceBit::kNotFragment,
     [](const Judged &j) { return j.headers.IsIpv4() && j.headers.HasLayer3() && !j.headers.IsFragment(); }},
    {TraceBit::kFirstFragment, [](const Judged &j) { return j.FragmentAt(true); }},
    {TraceBit::kNotFirstFragment, [](const Judged &j) { return j.FragmentAt(false); }},
    {TraceBit::kLastFragment,
     [](const Judged &j) { return j.FragmentAt(false) && !j.headers.moreFragments; }},
    {TraceBit::kTcpFlags, TcpFlags},
    {TraceBit::kSourceIpv6,
     [](const Judged &j) {
       return j.headers.IsIpv6() && j.headers.HasLayer3() && Same(j.block.sourceIpv6, j.headers.source);
     }},
    {TraceBit::kDestinationIpv6,
     [](const Judged &j) {
       return j.headers.IsIpv6() && j.headers.HasLayer3() &&
              Same(j.block.destinationIpv6, j.headers.destination);
     }},
    {TraceBit::kIpType,
     [](const Judged &j) { return j.block.ipType == 0 ? j.headers.IsIpv4() : j.headers.IsIpv6(); }},
    {TraceBit::kIcmpType,
     [](const Judged &j) {
       return j.headers.IsIcmp() && j.headers.HasLayer4() && j.headers.icmpType == j.block.icmpType;
     }},
    {TraceBit::kPppoeKeepalive,
     [](const Judged &j) {
       return (j.packet.kind == PacketKind::kPppoeKeepalive) == j.Flag(kTracePppoeKeepalive);
     }},
    {TraceBit::kCauseId, [](const Judged &j) { return j.packet.causeId == j.block.causeId; }},
};

}  // namespace

bool MatchesTrace(const TraceBlock &conditions, const Packet &packet) {
  const bool inner = (conditions.flags & kTraceInner) != 0 && packet.inner.has_value();
  const Judged judged{conditions, packet, inner ? *packet.inner : packet.headers};
  const bool all = std::all_of(std::begin(kRules), std::end(kRules), [&](const Rule &rule) {
    return (conditions.mask >> static_cast<uint8_t>(rule.bit) & 1) == 0 || rule.holds(judged);
  });
  return all != judged.Flag(kTraceNot);
}

}  // namespace qdt::host
