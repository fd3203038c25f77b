#include <cstdlib>
#include <cstring>
#include <optional>
#include <type_traits>

#include "qdt/oma.h"
#include "src/om/common/log.h"
#include "src/om/common/rows.h"
#include "src/om/common/trace_block.h"
#include "src/om/oma/request.h"

// The agent's way to the packet-trace block: a request replaces all of its conditions.
namespace qdt {
namespace {

TraceBlock g_block;

using Block = PacketTraceBlock;
using Conditions = PacketTraceConditions;

// Write the value of a parameter into the block. False without a value that can be used, and then nothing is
// written.
using Write = bool (*)(AgentRequest request, const char *name, Block &block);

template <auto kField>
bool Number(AgentRequest request, const char *name, Block &block) {
  auto &field = block.conditions.*kField;
  uint32_t value = 0;
  if (QdtOmaParseU32(request, name, &value) != 0) return false;
  field = static_cast<std::remove_reference_t<decltype(field)>>(value);
  return true;
}

template <auto kField>
bool Mac(AgentRequest request, const char *name, Block &block) {
  return QdtOmaParseMac(request, name, block.conditions.*kField) == 0;
}

// The agent writes the address in host order.
template <auto kField>
bool Ipv4(AgentRequest request, const char *name, Block &block) {
  const char *const text = FindText(request, name);
  if (text == nullptr || QdtOmaGetIpVer(text) != 4) return false;
  if (QdtOmaStrToIp4(text, &(block.conditions.*kField)) != 0) return false;
  block.conditions.ipType = kTraceIpv4;
  return true;
}

template <auto kField>
bool Ipv6(AgentRequest request, const char *name, Block &block) {
  const char *const text = FindText(request, name);
  if (text == nullptr || QdtOmaGetIpVer(text) != 6) return false;
  if (QdtOmaStrToIp6(text, block.conditions.*kField) != 0) return false;
  block.conditions.ipType = kTraceIpv6;
  return true;
}

bool FromControlPlane(AgentRequest request, const char *name, Block &block) {
  uint8_t flag = 0;
  if (QdtOmaParseBool(request, name, &flag) != 0) return false;
  block.conditions.fromControlPlane = flag & 1;
  return true;
}

bool DiscardType(AgentRequest request, const char *name, Block &block) {
  const char *const text = FindText(request, name);
  if (text == nullptr) return false;
  const std::optional<uint16_t> type = FindDiscardType(text);
  if (!type) {
    QDT_LOG_ERROR("input parse fail, invalid discard-type[%s].\n", text);
    return false;
  }
  block.conditions.discardType = *type;
  return true;
}

bool EtherType(AgentRequest request, const char *name, Block &block) {
  const char *const text = FindText(request, name);
  if (text == nullptr) return false;
  block.conditions.etherType = static_cast<uint16_t>(std::strtol(text, nullptr, 16));
  return true;
}

// The agent's protocol has 16 bits: the upper ones go into the byte behind the field.
bool Protocol(AgentRequest request, const char *name, Block &block) {
  uint16_t value = 0;
  if (QdtOmaParseU16(request, name, &value) != 0) return false;
  block.conditions.protocol = static_cast<uint8_t>(value);
  block.conditions.reserved53 = static_cast<uint8_t>(value >> 8);
  return true;
}

struct Parameter {
  const char *name;
  Write write;
  uint64_t mask;
};
constexpr Parameter kParameters[] = {
    {"packet-from-cp", FromControlPlane, kTraceFromControlPlane},  // "false" is a condition, too
    {"ingress-ifindex", Number<&Conditions::sourceFwdIf>, kTraceSourceFwdIf},
    {"max-packet-len", Number<&Conditions::maxLength>, kTraceLength},
    {"min-packet-len", Number<&Conditions::minLength>, kTraceLength},
    {"cause-id", Number<&Conditions::causeId>, kTraceCauseId},
    {"discard-type", DiscardType, kTraceDiscardType},
    {"source-mac", Mac<&Conditions::sourceMac>, kTraceSourceMac},
    {"destination-mac", Mac<&Conditions::destinationMac>, kTraceDestinationMac},
    {"eth-type", EtherType, kTraceEtherType},
    {"vlan-id", Number<&Conditions::vlanId>, kTraceVlan},
    {"source-ip", Ipv4<&Conditions::sourceAddress>, kTraceSourceAddress | kTraceIpType},
    {"source-ip", Ipv6<&Conditions::sourceAddressV6>, kTraceSourceAddressV6 | kTraceIpType},
    {"destination-ip", Ipv4<&Conditions::destinationAddress>, kTraceDestinationAddress | kTraceIpType},
    {"destination-ip", Ipv6<&Conditions::destinationAddressV6>, kTraceDestinationAddressV6 | kTraceIpType},
    {"protocol", Protocol, kTraceProtocol},
    {"source-port", Number<&Conditions::sourcePort>, kTraceSourcePort},
    {"destination-port", Number<&Conditions::destinationPort>, kTraceDestinationPort},
    {"tcp-flag-value", Number<&Conditions::tcpFlags>, kTraceTcpFlags},
    {"icmp-type", Number<&Conditions::icmpType>, kTraceIcmpType},
};
constexpr auto kParameterNames = Column<kParameters, &Parameter::name>();
constexpr auto kParameterMasks = Column<kParameters, &Parameter::mask>();

// A word of a parameter that is a condition by itself; other words are none. They come behind the addresses,
// whose IP version gives way to the one that "ip-type" names.
struct Word {
  const char *name;
  const char *word;
  void (*write)(Conditions &conditions);
  uint64_t mask;
};
void Nothing(Conditions &) {}
constexpr Word kWords[] = {
    {"ip-type", "ipv4", [](Conditions &c) { c.ipType = kTraceIpv4; }, kTraceIpType},
    {"ip-type", "ipv6", [](Conditions &c) { c.ipType = kTraceIpv6; }, kTraceIpType},
    {"packet-type", "capwap-keepalive", [](Conditions &c) { c.capwapKeepalive = 1; }, kTraceCapwap},
    {"packet-type", "pppoe-keepalive", [](Conditions &c) { c.pppoeKeepalive = 1; }, kTracePppoeKeepalive},
    {"packet-type", "eap-key", [](Conditions &c) { c.eapKey = 1; }, kTraceEapKey},
    {"fragment-type", "not-fragment", Nothing, kTraceNotFragment},
    {"fragment-type", "first-fragment", Nothing, kTraceFirstFragment},
    {"fragment-type", "not-first-fragment", Nothing, kTraceNotFirstFragment},
    {"fragment-type", "last-fragment", Nothing, kTraceLastFragment},
    {"fragment-protocol", "ip", Nothing, kTraceIpFragment},
    {"fragment-protocol", "capwap", [](Conditions &c) { c.capwapFragment = 1; }, kTraceCapwap},
    {"fragment-protocol", "802.11", Nothing, kTraceWirelessFragment},
};
constexpr auto kWordNames = Column<kWords, &Word::name>();
constexpr auto kWordTexts = Column<kWords, &Word::word>();
constexpr auto kWordMasks = Column<kWords, &Word::mask>();

uint8_t Flag(AgentRequest request, const char *name) { return QdtOmaGetBool(request, name) & 1; }

uint32_t NumberOr(AgentRequest request, const char *name, uint32_t absent) {
  uint32_t value = absent;
  QdtOmaParseU32(request, name, &value);
  return value;
}

// What holds for every request, whether its parameter is there or not.
void WriteControls(AgentRequest request, Block &block) {
  constexpr uint32_t kPackets = 5, kTimeout = 300;
  block.on.packets = Flag(request, "enable");
  block.leftPrints = NumberOr(request, "packet-number", kPackets);
  block.conditions.notFlag = Flag(request, "invert");
  block.conditions.inner = Flag(request, "inner");
  block.conditions.maxLength = UINT16_MAX;
  block.conditions.timeout = NumberOr(request, "time-out", kTimeout);
}

void WriteConditions(AgentRequest request, Block &block) {
  for (size_t i = 0; i < kParameterNames.size(); ++i) {
    if (CallOf<kParameters, &Parameter::write>(i, request, kParameterNames[i], block))
      AddConditions(block, kParameterMasks[i]);
  }
  for (size_t i = 0; i < kWordNames.size(); ++i) {
    const char *const text = FindText(request, kWordNames[i]);
    if (text == nullptr || std::strcmp(text, kWordTexts[i]) != 0) continue;
    CallOf<kWords, &Word::write>(i, block.conditions);
    AddConditions(block, kWordMasks[i]);
  }
}

}  // namespace
}  // namespace qdt

void DebugPktClear() {
  if (qdt::g_block.get() != nullptr) qdt::ClearPacketTrace(*qdt::g_block);
}

int32_t QdtOmaDebugPktProc(AgentRequest request) {
  if (!qdt::g_block.Attach()) {
    QDT_LOG_ERROR("attach shm failed\n");
    return -1;
  }
  qdt::PacketTraceBlock &block = *qdt::g_block;
  qdt::ClearPacketTrace(block);
  qdt::WriteControls(request, block);
  qdt::WriteConditions(request, block);
  block.on.chipTransmit = qdt::Flag(request, "chip-tx-trace");
  return 0;
}
