#include "src/om/oma/session_filter.h"

#include <arpa/inet.h>

#include <algorithm>
#include <bit>
#include <ctime>
#include <string_view>

#include "src/om/common/address.h"
#include "src/om/common/log.h"
#include "src/om/common/rows.h"
#include "src/om/oma/request.h"

namespace qdt {
namespace {

constexpr uint32_t kDefaultLimit = 10;
constexpr int32_t kQueryMode = 1;

struct Service {
  FixedText<7> name;
  uint32_t id;
};
constexpr Service kServices[] = {{"http", 1},   {"dns", 2},  {"ftp", 3},     {"ras", 4},
                                 {"telnet", 5}, {"rtsp", 6}, {"sip", 9},     {"pptp", 15},
                                 {"https", 47}, {"ssh", 48}, {"dns-tcp", 49}};

// Readers.

FilterValue Number(uint32_t number) { return {{number, 0, 0, 0}}; }

template <auto kParse, typename T>
FilterValue ReadNumber(AgentRequest request, const char *name) {
  T number = 0;
  return Number(kParse(request, name, &number) == 0 ? number : T{0});
}
constexpr auto ReadU8 = ReadNumber<QdtOmaParseU8, uint8_t>;
constexpr auto ReadU16 = ReadNumber<QdtOmaParseU16, uint16_t>;
constexpr auto ReadU32 = ReadNumber<QdtOmaParseU32, uint32_t>;

// The parameter's text; empty when it is absent.
const char *ReadText(AgentRequest request, const char *name) {
  const char *const text = FindText(request, name);
  return text == nullptr ? "" : text;
}

FilterValue ReadAddress(AgentRequest request, const char *name) {
  const char *const text = ReadText(request, name);
  if (QdtOmaGetIpVer(text) == 4) {
    in_addr address{};  // inet_aton reads what inet_addr reads, and tells a broadcast address from no address
    return Number(inet_aton(text, &address) != 0 ? ntohl(address.s_addr) : 0);
  }
  FilterValue value{};
  Ipv6Bytes address;
  if (QdtOmaStrToIp6(text, address.bytes) == 0) ToHostWords(address, value.words);
  return value;
}

FilterValue ReadService(AgentRequest request, const char *name) {
  const std::string_view text = ReadText(request, name);
  const auto *const service = std::find_if(std::begin(kServices), std::end(kServices),
                                           [&](const Service &s) { return s.name == text; });
  return Number(service != std::end(kServices) ? service->id : 0);
}

FilterValue ReadLimit(AgentRequest request, const char *name) {
  uint8_t limit = 0;
  return Number(QdtOmaParseU8(request, name, &limit) == 0 ? limit : kDefaultLimit);
}

FilterValue ReadFlag(AgentRequest request, const char *name) { return Number(QdtOmaGetBool(request, name)); }

FilterValue ReadFeature(AgentRequest request, const char *name) {
  return Number(ReadText(request, name) == std::string_view("sac"));
}

FilterValue ReadType(AgentRequest request, const char *name) {
  return Number(ReadText(request, name) == std::string_view("ipv6") ? kSessionIpv6 : kSessionIpv4);
}

// Comparators.

int32_t ToResult(bool passes) { return passes ? kPasses : kFails; }

// Compares by the session's key; a session without one fails.
template <typename Compare>
int32_t CompareFlow(Candidate &candidate, Compare compare) {
  switch (candidate.Read()) {
    case FlowState::kRead:
      return ToResult(compare(candidate.flow()));
    case FlowState::kAbsent:
      return kFails;
    default:
      return kCannotCompare;
  }
}

// As CompareFlow for ports that count as 0 when the session has no key.
int32_t ComparePortOrZero(Candidate &candidate, uint16_t SessionFlow::*port, uint32_t value) {
  if (candidate.Read() == FlowState::kDamaged) return kCannotCompare;
  return ToResult(candidate.flow().*port == value);
}

// An IPv4 session by what kIpv4 finds, an IPv6 session by its key's address.
template <uint32_t (*kIpv4)(const SessionRecord &, const SessionFlow &), uint32_t (SessionFlow::*kIpv6)[4]>
int32_t CompareAddress(Candidate &candidate, const FilterValue &value) {
  return CompareFlow(candidate, [&](const SessionFlow &flow) {
    if (!candidate.session.isIpv6) return kIpv4(candidate.session, flow) == value.words[0];
    return std::equal(std::begin(flow.*kIpv6), std::end(flow.*kIpv6), value.words);
  });
}

// The same for ports.
template <uint16_t (*kIpv4)(const SessionRecord &, const SessionFlow &), uint16_t SessionFlow::*kIpv6>
int32_t ComparePort(Candidate &candidate, const FilterValue &value) {
  if (candidate.session.isIpv6) return ComparePortOrZero(candidate, kIpv6, value.words[0]);
  return CompareFlow(
      candidate, [&](const SessionFlow &flow) { return kIpv4(candidate.session, flow) == value.words[0]; });
}

// "Global" is what the outside sees of an IPv4 session, "inside" what the inside does. Behind a loopback
// address stands a service of the device itself, which the inside knows by the other address.

bool IsLoopback(uint32_t address) { return address >> 24 == 127; }

uint32_t GlobalDestination(const SessionRecord &, const SessionFlow &flow) { return flow.destination[0]; }

uint16_t GlobalDestinationPort(const SessionRecord &, const SessionFlow &flow) {
  return flow.destinationPort;
}

uint32_t InsideDestination(const SessionRecord &session, const SessionFlow &flow) {
  const uint32_t translated = TranslatedDestination(session, flow);
  return IsLoopback(translated) ? flow.destination[0] : translated;
}

uint32_t InsideSource(const SessionRecord &session, const SessionFlow &flow) {
  return IsLoopback(flow.source[0]) ? TranslatedSource(session, flow) : flow.source[0];
}

int32_t CompareInsideSourcePort(Candidate &candidate, const FilterValue &value) {
  return ComparePortOrZero(candidate, &SessionFlow::sourcePort, value.words[0]);
}

int32_t CompareCreateTime(Candidate &candidate, const FilterValue &value) {
  const uint64_t end = uint64_t{candidate.session.createTime} + uint64_t{value.words[0]} * 60;
  return ToResult(end > static_cast<uint64_t>(std::time(nullptr)));
}

int32_t CompareEgress(Candidate &candidate, const FilterValue &value) {
  return ToResult(candidate.session.egressIfIndex == value.words[0]);
}

int32_t CompareIngress(Candidate &candidate, const FilterValue &value) {
  return ToResult(candidate.session.ingressIfIndex == value.words[0]);
}

int32_t CompareProtocol(Candidate &candidate, const FilterValue &value) {
  return CompareFlow(candidate, [&](const SessionFlow &flow) { return flow.protocol == value.words[0]; });
}

int32_t CompareVpn(Candidate &candidate, const FilterValue &value) {
  return CompareFlow(candidate, [&](const SessionFlow &flow) { return flow.vpn == value.words[0]; });
}

int32_t CompareService(Candidate &candidate, const FilterValue &value) {
  return ToResult(value.words[0] == 0 || candidate.session.serviceId == value.words[0]);
}

int32_t CompareFeature(Candidate &candidate, const FilterValue &) {
  return ToResult(candidate.session.sac != 0);
}

int32_t CompareType(Candidate &candidate, const FilterValue &value) {
  return ToResult(value.words[0] == (candidate.session.isIpv6 ? kSessionIpv6 : kSessionIpv4));
}

int32_t PassAll(Candidate &, const FilterValue &) { return kPasses; }

int32_t PassNextHop(Candidate &, const FilterValue &) {
  QDT_LOG_INFO("Does not support match session by NextHop\n");
  return kPasses;
}

int32_t PassVlanId(Candidate &, const FilterValue &) {
  QDT_LOG_INFO("Does not support match session by VlanId\n");
  return kPasses;
}

constexpr auto kCompareGlobalDestination = CompareAddress<GlobalDestination, &SessionFlow::destination>;
constexpr auto kCompareGlobalSource = CompareAddress<TranslatedSource, &SessionFlow::source>;
constexpr auto kCompareInsideDestination = CompareAddress<InsideDestination, &SessionFlow::destination>;
constexpr auto kCompareInsideSource = CompareAddress<InsideSource, &SessionFlow::source>;
constexpr auto kCompareGlobalDestinationPort =
    ComparePort<GlobalDestinationPort, &SessionFlow::destinationPort>;
constexpr auto kCompareGlobalSourcePort = ComparePort<TranslatedSourcePort, &SessionFlow::sourcePort>;
constexpr auto kCompareInsideDestinationPort =
    ComparePort<TranslatedDestinationPort, &SessionFlow::destinationPort>;

// Who reads a row's parameter.
enum class Use : uint8_t {
  kBoth,         // queries and resets
  kQuery,        // it shapes a query's answer
  kUnsupported,  // nobody
};

struct Row {
  const char *name;  // of the request's parameter
  // Reads the parameter: zero when it is absent or malformed and the row has no default.
  FilterValue (*read)(AgentRequest request, const char *name);
  SessionComparator compare;
  Use use = Use::kBoth;
};

// In the order in which a session is held against them.
constexpr Row kRows[kSessionFilterRows] = {
    {"create-in", ReadU8, CompareCreateTime},
    {"egress-ifindex", ReadU32, CompareEgress},
    {"global-destination-ip", ReadAddress, kCompareGlobalDestination},
    {"global-destination-port", ReadU16, kCompareGlobalDestinationPort},
    {"global-source-ip", ReadAddress, kCompareGlobalSource},
    {"global-source-port", ReadU16, kCompareGlobalSourcePort},
    {"ingress-ifindex", ReadU32, CompareIngress},
    {"inside-destination-ip", ReadAddress, kCompareInsideDestination},
    {"inside-destination-port", ReadU16, kCompareInsideDestinationPort},
    {"inside-source-ip", ReadAddress, kCompareInsideSource},
    {"inside-source-port", ReadU16, CompareInsideSourcePort},
    {"next-hop", ReadU32, PassNextHop, Use::kUnsupported},
    {"protocol", ReadU8, CompareProtocol},
    {"service-id", ReadService, CompareService},
    {"session-number", ReadLimit, PassAll, Use::kQuery},
    {"verbose", ReadFlag, PassAll, Use::kQuery},
    {"vlan-id", ReadU32, PassVlanId, Use::kUnsupported},
    {"vpn-id", ReadU16, CompareVpn},
    {"feature", ReadFeature, CompareFeature},
    {"type", ReadType, CompareType},
};
constexpr auto kNames = Column<kRows, &Row::name>();
constexpr auto kUses = Column<kRows, &Row::use>();

// The rows that a session is held against, a bit for each. A table of sessions is long, and most rows filter
// nothing.
uint32_t g_activeRows;

void FindActiveRows() {
  g_activeRows = 0;
  for (uint32_t i = 0; i < kSessionFilterRows; ++i) {
    if (kUses[i] != Use::kQuery && !g_sessionFilter[i].IsZero()) g_activeRows |= uint32_t{1} << i;
  }
}

}  // namespace

FilterValue g_sessionFilter[kSessionFilterRows];

const char *SessionFilterName(size_t row) { return kNames[row]; }

// With addresses: every session of a table is held against them.
constinit const std::array<SessionComparator, kSessionFilterRows> g_sessionComparators =
    Column<kRows, &Row::compare>();

}  // namespace qdt

int32_t SessionParamValuelClear() {
  for (qdt::FilterValue &value : qdt::g_sessionFilter) value = {};
  qdt::g_sessionFilter[qdt::kFilterType] = qdt::Number(qdt::kSessionIpv4);
  qdt::FindActiveRows();
  return 1;
}

int32_t QuerySessionGetParam(AgentRequest request, int32_t queryMode) {
  for (uint32_t i = 0; i < qdt::kSessionFilterRows; ++i) {
    const qdt::Use use = qdt::kUses[i];
    if (use == qdt::Use::kUnsupported || (use == qdt::Use::kQuery && queryMode != qdt::kQueryMode)) continue;
    qdt::g_sessionFilter[i] = qdt::CallOf<qdt::kRows, &qdt::Row::read>(i, request, qdt::kNames[i]);
  }
  qdt::FindActiveRows();
  return 0;
}

int32_t QuerySessionNodeMatch(const void *record) {
  const auto &session = *static_cast<const qdt::SessionRecord *>(record);
  if (!session.valid || session.state == qdt::kSessionNeverListed ||
      session.agingTime == qdt::kSessionAgeOut) {
    return qdt::kFails;
  }
  qdt::Candidate candidate(session);
  for (uint32_t rows = qdt::g_activeRows; rows != 0; rows &= rows - 1) {
    const auto row = static_cast<size_t>(std::countr_zero(rows));
    const int32_t compared = qdt::g_sessionComparators[row](candidate, qdt::g_sessionFilter[row]);
    if (compared == qdt::kPasses) continue;
    if (compared == qdt::kFails) return qdt::kFails;
    QDT_LOG_ERROR("Query session compare %s failed, ret: %d\n", qdt::kNames[row], compared);
    return -1;
  }
  return 0;
}
