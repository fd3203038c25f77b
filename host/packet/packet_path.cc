#include "host/packet/packet_path.h"

#include <span>

#include "qdt/stats.h"

namespace qdt::host {
namespace {

// Numbers of the counters that the stages move.
enum Counter : uint32_t {
  kArpMissPunt = 5,
  kNdMissPunt = 28,
  kEapLogKey = 48,
  kIpReceived = 462,
  kIcmpReceived = 463,
  kRedirectReceived = 473,
  kUnreachableReceived = 474,
  kParameterProblemReceived = 475,
  kTimeExceededReceived = 476,
  kSourceQuenchReceived = 477,
  kUdpReceived = 479,
  kTcpReceived = 480,
  kAclMatched = 482,
  kAclNotMatched = 483,
  kAclPermitted = 485,
  kFtpReceived = 489,
  kPptpReceived = 490,
  kRtspReceived = 491,
  kStpReceived = 492,
  kReceivedFromDriver = 493,
  kSipReceived = 495,
  kDnsReceived = 496,
  kPppoeReceived = 497,
  kArpReceived = 498,
  kNdReceived = 499,
  kIpv6Received = 500,
  kIcmp6Received = 501,
  kUnreachable6Received = 512,
  kTooBig6Received = 513,
  kParameterProblem6Received = 514,
  kTimeExceeded6Received = 515,
  kPppoeDiscoveryReceived = 522,
  kPppoeSessionReceived = 523,
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

constexpr uint16_t kReasonArpMiss = 1;
constexpr uint16_t kReasonNdMiss = 6;

struct CountedType {
  uint8_t type;
  Counter counter;
};
constexpr CountedType kIcmpTypes[] = {{3, kUnreachableReceived},
                                      {4, kSourceQuenchReceived},
                                      {5, kRedirectReceived},
                                      {11, kTimeExceededReceived},
                                      {12, kParameterProblemReceived}};
constexpr CountedType kIcmp6Types[] = {{1, kUnreachable6Received},
                                       {2, kTooBig6Received},
                                       {3, kTimeExceeded6Received},
                                       {4, kParameterProblem6Received}};

// What is told by the port of its server.
struct CountedPort {
  uint8_t protocol;
  uint16_t port;
  Counter counter;
};
constexpr CountedPort kServers[] = {{kProtocolUdp, 53, kDnsReceived},    {kProtocolTcp, 21, kFtpReceived},
                                    {kProtocolTcp, 1723, kPptpReceived}, {kProtocolTcp, 554, kRtspReceived},
                                    {kProtocolTcp, 5060, kSipReceived},  {kProtocolUdp, 5060, kSipReceived}};

// Spanning-tree messages have a length where others have an Ethernet type.
bool IsStp(const PacketHeaders &headers) {
  return headers.etherType < 0x600 && headers.destinationMac == PacketMac{0x01, 0x80, 0xc2};
}

bool IsNeighbourDiscovery(const PacketHeaders &headers) {
  constexpr uint8_t kRouterSolicit = 133;
  constexpr uint8_t kRedirect = 137;
  return headers.IsIpv6() && headers.IsIcmp() && headers.HasLayer4() && headers.icmpType >= kRouterSolicit &&
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

Packet PacketPath::Process(Packet packet) {
  measurement_.BeginPacket(packet.core);
  Walk(&packet);
  measurement_.EndPacket();
  return packet;
}

void PacketPath::Walk(Packet *packet) {
  for (const Stage &stage : kStages) {
    measurement_.Enter(stage.task);
    if (stage.stage == PathStage::kLookup) FindFate(packet);
    if (packet->Discarded() && packet->fate.stage == stage.stage) return Discard(*packet);
    (this->*stage.run)(*packet);
    if (stage.stage == PathStage::kForward && packet->fate.end == PacketFate::End::kToControlPlane)
      return measurement_.Enter(kTaskToHost);
  }
}

void PacketPath::FindFate(Packet *packet) {
  measurement_.Enter(LookupTask(packet->headers));
  if (packet->lookup == nullptr) return;
  packet->lookup->LookUp(packet);
  // Of others it was known as they came.
  if (packet->causeId != 0) Count(*packet, kCauseIdReceived);
}

PacketPath::PacketPath(Statistics *statistics, InterfaceCounters *interfaces, Measurement *measurement,
                       const Filler *filler)
    : statistics_(*statistics), interfaces_(*interfaces), measurement_(*measurement) {
  if (filler == nullptr) return;
  countsInterfaces_ = !filler->CountsInterfaces();
  for (uint32_t i = 0; i < QDT_STAT_COUNTERS; ++i) countedElsewhere_[i] = filler->CountsStatistic(i);
}

void PacketPath::CountAt(uint32_t index, InterfaceCounters::Direction direction, const Packet &packet) {
  if (countsInterfaces_) interfaces_.Count(index, direction, packet);
}

void PacketPath::Receive(const Packet &packet) {
  CountAt(packet.sourceFwdIf, InterfaceCounters::Direction::kIn, packet);
  if (!packet.fromControlPlane) Count(packet, kReceivedFromDriver);
  if (packet.causeId != 0) Count(packet, kCauseIdReceived);
}

void PacketPath::Classify(const Packet &packet) {
  const PacketHeaders &headers = packet.headers;
  if (headers.etherType == kEtherArp) return Count(packet, kArpReceived);
  if (IsStp(headers)) return Count(packet, kStpReceived);
  if (headers.etherType == kEtherPppoeDiscovery || headers.etherType == kEtherPppoeSession) {
    Count(packet, kPppoeReceived);
    return Count(packet,
                 headers.etherType == kEtherPppoeSession ? kPppoeSessionReceived : kPppoeDiscoveryReceived);
  }
  if (headers.IsIpv6()) Count(packet, kIpv6Received);
  if (headers.IsIpv4()) Count(packet, kIpReceived);
  if (headers.IsIcmp()) Count(packet, headers.IsIpv6() ? kIcmp6Received : kIcmpReceived);
  if (headers.IsTcp()) Count(packet, kTcpReceived);
  if (headers.IsUdp()) Count(packet, kUdpReceived);
  if (headers.HasLayer4()) CountLayer4(packet);
}

void PacketPath::CountLayer4(const Packet &packet) {
  const PacketHeaders &headers = packet.headers;
  if (headers.IsTcp() || headers.IsUdp()) {
    for (const CountedPort &server : kServers) {
      if (server.protocol == headers.protocol && server.port == headers.destinationPort)
        Count(packet, server.counter);
    }
  }
  if (headers.IsIcmp()) {
    using Types = std::span<const CountedType>;
    for (const CountedType &type : headers.IsIpv6() ? Types(kIcmp6Types) : Types(kIcmpTypes)) {
      if (type.type == headers.icmpType) Count(packet, type.counter);
    }
  }
  if (IsNeighbourDiscovery(headers)) Count(packet, kNdReceived);
}

// A rate limit shows only in what it discards.
void PacketPath::Limit(const Packet &) {}

// Made-up packets meet made-up access lists.
void PacketPath::Acl(const Packet &packet) {
  if (packet.captured) return;
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
  CountAt(packet.destinationFwdIf, InterfaceCounters::Direction::kOut, packet);
  if (headers.IsIpv4()) Count(packet, kIpv4Transmitted);
  if (headers.IsIpv6()) Count(packet, kIpv6Transmitted);
  if (headers.IsIcmp()) Count(packet, headers.IsIpv6() ? kIcmp6Transmitted : kIcmpTransmitted);
  if (headers.IsTcp()) Count(packet, kTcpTransmitted);
  if (headers.IsUdp()) Count(packet, kUdpTransmitted);
  if (headers.IsFragment()) Count(packet, kFragmentsTransmitted);
  if (packet.inner && headers.IsUdp()) Count(packet, kCapwapTransmitted);
}

void PacketPath::Discard(const Packet &packet) {
  measurement_.Enter(kTaskRelease);
  const PacketFate &fate = packet.fate;
  Count(packet, QDT_STAT_DISCARD + fate.discardReason);
  if (fate.discardReason == kReasonArpMiss) Count(packet, kArpMissPunt);
  if (fate.discardReason == kReasonNdMiss) Count(packet, kNdMissPunt);
  if (fate.errorStatistic != 0) Count(packet, fate.errorStatistic);
  if (fate.limitedProtocol != 0) Count(packet, QDT_STAT_CAR + fate.limitedProtocol);
}

}  // namespace qdt::host
