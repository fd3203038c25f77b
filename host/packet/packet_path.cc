#include "host/packet/packet_path.h"

#include "qdt/stats.h"

namespace qdt::host {
namespace {

// Numbers of the counters that the stages move.
enum Counter : uint32_t {
  kArpMissPunt = 5,
  kEapLogKey = 48,
  kIpReceived = 462,
  kIcmpReceived = 463,
  kUdpReceived = 479,
  kTcpReceived = 480,
  kAclMatched = 482,
  kAclNotMatched = 483,
  kAclPermitted = 485,
  kReceivedFromDriver = 493,
  kDnsReceived = 496,
  kPppoeReceived = 497,
  kArpReceived = 498,
  kNdReceived = 499,
  kIpv6Received = 500,
  kIcmp6Received = 501,
  kCauseIdReceived = 524,
  kIpv4Transmitted = 541,
  kIcmpTransmitted = 542,
  kUdpTransmitted = 543,
  kTcpTransmitted = 544,
  kCapwapTransmitted = 545,
  kFragmentsTransmitted = 553,
  kIpv6Transmitted = 559,
  kIcmp6Transmitted = 560,
};

constexpr uint16_t kDnsPort = 53;
constexpr uint16_t kReasonArpMiss = 1;

bool IsNeighbourDiscovery(const PacketHeaders &headers) {
  constexpr uint8_t kRouterSolicit = 133;
  constexpr uint8_t kRedirect = 137;
  return headers.IsIpv6() && headers.IsIcmp() && headers.icmpType >= kRouterSolicit &&
         headers.icmpType <= kRedirect;
}

const PathTask &LookupTask(const PacketHeaders &headers) {
  if (headers.IsIpv4()) return kTaskRoute4;
  return headers.IsIpv6() ? kTaskRoute6 : kTaskBridge;
}

}  // namespace

constexpr PacketPath::Stage PacketPath::kStages[] = {
    {PathStage::kReceive, kTaskReceive, &PacketPath::Receive},
    {PathStage::kClassify, kTaskClassify, &PacketPath::Classify},
    {PathStage::kLimit, kTaskLimit, &PacketPath::Limit},
    {PathStage::kAcl, kTaskFilter, &PacketPath::Acl},
    {PathStage::kLookup, kTaskSelect, &PacketPath::Lookup},
    {PathStage::kForward, kTaskForward, &PacketPath::Forward},
    {PathStage::kTransmit, kTaskTransmit, &PacketPath::Transmit},
};

void PacketPath::Process(const Packet &packet) {
  measurement_.BeginPacket(packet.core);
  Walk(packet);
  measurement_.EndPacket();
}

void PacketPath::Walk(const Packet &packet) {
  for (const Stage &stage : kStages) {
    measurement_.Enter(stage.task);
    if (stage.stage == PathStage::kLookup) measurement_.Enter(LookupTask(packet.headers));
    if (packet.Discarded() && packet.fate.stage == stage.stage) return Discard(packet);
    (this->*stage.run)(packet);
    if (stage.stage == PathStage::kForward && packet.fate.end == PacketFate::End::kToControlPlane)
      return measurement_.Enter(kTaskToHost);
  }
}

void PacketPath::Receive(const Packet &packet) {
  interfaces_.Count(packet.sourceFwdIf, InterfaceCounters::Direction::kIn, packet);
  if (!packet.fromControlPlane) Count(packet, kReceivedFromDriver);
  if (packet.causeId != 0) Count(packet, kCauseIdReceived);
}

void PacketPath::Classify(const Packet &packet) {
  const PacketHeaders &headers = packet.headers;
  if (headers.etherType == kEtherArp) return Count(packet, kArpReceived);
  if (headers.etherType == kEtherPppoeSession) return Count(packet, kPppoeReceived);
  if (headers.IsIpv6()) Count(packet, kIpv6Received);
  if (headers.IsIpv4()) Count(packet, kIpReceived);
  if (headers.IsIcmp()) Count(packet, headers.IsIpv6() ? kIcmp6Received : kIcmpReceived);
  if (headers.IsTcp()) Count(packet, kTcpReceived);
  if (headers.IsUdp()) Count(packet, kUdpReceived);
  if (headers.IsUdp() && headers.destinationPort == kDnsPort) Count(packet, kDnsReceived);
  if (IsNeighbourDiscovery(headers)) Count(packet, kNdReceived);
}

// A rate limit shows only in what it discards.
void PacketPath::Limit(const Packet &) {}

void PacketPath::Acl(const Packet &packet) {
  if (!packet.headers.IsTcp()) return Count(packet, kAclNotMatched);
  Count(packet, kAclMatched);
  Count(packet, kAclPermitted);
}

// A destination that is found moves no counter of its own.
void PacketPath::Lookup(const Packet &) {}

void PacketPath::Forward(const Packet &packet) {
  if (packet.kind == PacketKind::kEapKey) Count(packet, kEapLogKey);
}

void PacketPath::Transmit(const Packet &packet) {
  const PacketHeaders &headers = packet.headers;
  interfaces_.Count(packet.destinationFwdIf, InterfaceCounters::Direction::kOut, packet);
  if (headers.IsIpv4()) Count(packet, kIpv4Transmitted);
  if (headers.IsIpv6()) Count(packet, kIpv6Transmitted);
  if (headers.IsIcmp()) Count(packet, headers.IsIpv6() ? kIcmp6Transmitted : kIcmpTransmitted);
  if (headers.IsTcp()) Count(packet, kTcpTransmitted);
  if (headers.IsUdp()) Count(packet, kUdpTransmitted);
  if (headers.IsFragment()) Count(packet, kFragmentsTransmitted);
  if (packet.inner) Count(packet, kCapwapTransmitted);
}

void PacketPath::Discard(const Packet &packet) {
  measurement_.Enter(kTaskRelease);
  const PacketFate &fate = packet.fate;
  Count(packet, QDT_STAT_DISCARD + fate.discardReason);
  if (fate.discardReason == kReasonArpMiss) Count(packet, kArpMissPunt);
  if (fate.errorStatistic != 0) Count(packet, fate.errorStatistic);
  if (fate.limitedProtocol != 0) Count(packet, QDT_STAT_CAR + fate.limitedProtocol);
}

}  // namespace qdt::host
