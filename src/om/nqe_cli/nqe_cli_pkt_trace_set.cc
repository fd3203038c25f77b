#include <arpa/inet.h>

#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

#include "src/om/common/bounded.h"
#include "src/om/common/rows.h"
#include "src/om/common/trace_block.h"
#include "src/om/nqe_cli/nqe_cli_pkt_trace.h"

// The conditions that the packet-trace command sets: one table row each.
namespace qdt {
namespace {

using Block = PacketTraceBlock;
using Conditions = PacketTraceConditions;

// What was read from an argument.
struct Value {
  uint32_t number = 0;
  uint8_t bytes[16] = {};
};

// What an argument is. Without one the value is the least that is allowed.
enum class Argument : uint8_t { kNone, kNumber, kMac, kEtherType, kIpv4, kIpv6, kDiscardType, kIpType };

// How an argument is read, and the code of one that is out of bounds.
struct Check {
  Argument argument;
  uint32_t min, max;
  int32_t code;
};

int32_t ReadNumber(const char *argument, const Check &check, Value &value) {
  uint8_t ok = 0;
  value.number = QdtCliParseUint(argument, &ok);
  if (ok == 0) return QDT_PKT_TRACE_INPUT;
  return value.number < check.min || value.number > check.max ? check.code : 0;
}

int32_t ReadMac(const char *argument, const Check &check, Value &value) {
  char text[sizeof("00:00:00:00:00:00")];  // a longer one is refused, not cut
  if (strcpy_s(text, sizeof(text), argument) != 0) return check.code;
  return QdtCliStr2Mac(text, value.bytes, sizeof(MacAddress)) == 0 ? 0 : check.code;
}

int32_t ReadEtherType(OutputBuffer *out, const char *argument, const Check &check, Value &value) {
  unsigned high = 0, low = 0;
  if (sscanf_s(argument, "0x%02x%02x", &high, &low) != 2) {
    QdtCliPrintf(out, "eth type input in hexadecimal format. eg:0x0806\n");
    return check.code;
  }
  value.number = high * 256 + low;
  return 0;
}

int32_t ReadIpv4(const char *argument, const Check &check, Value &value) {
  unsigned part[4];
  if (sscanf_s(argument, "%u.%u.%u.%u", &part[0], &part[1], &part[2], &part[3]) < 4) return check.code;
  uint32_t address = 0;
  for (const unsigned byte : part) {
    if (byte > 255) return QDT_PKT_TRACE_ADDRESS;
    address = address << 8 | byte;
  }
  value.number = htonl(address);
  return 0;
}

int32_t ReadIpv6(const char *argument, const Check &check, Value &value) {
  char word[46];
  if (sscanf_s(argument, "%45s", word) != 1) return check.code;
  return inet_pton(AF_INET6, word, value.bytes) == 1 ? 0 : check.code;
}

// Names of several words cannot be asked for: only the first is read.
int32_t ReadDiscardType(const char *argument, const Check &check, Value &value) {
  char word[128];
  if (sscanf_s(argument, "%127s", word) != 1) return check.code;
  const std::optional<uint16_t> type = FindDiscardType(word);
  if (!type) return check.code;
  value.number = *type;
  return 0;
}

int32_t ReadIpType(const char *argument, const Check &check, Value &value) {
  const std::string_view word = argument;
  if (word != "ipv4" && word != "ipv6") return check.code;
  value.number = word == "ipv4" ? kTraceIpv4 : kTraceIpv6;
  return 0;
}

int32_t Read(OutputBuffer *out, const char *argument, const Check &check, Value &value) {
  if (check.argument == Argument::kNone) {
    value.number = check.min;
    return 0;
  }
  if (argument == nullptr) return QDT_PKT_TRACE_INPUT;
  switch (check.argument) {
    case Argument::kMac:
      return ReadMac(argument, check, value);
    case Argument::kEtherType:
      return ReadEtherType(out, argument, check, value);
    case Argument::kIpv4:
      return ReadIpv4(argument, check, value);
    case Argument::kIpv6:
      return ReadIpv6(argument, check, value);
    case Argument::kDiscardType:
      return ReadDiscardType(argument, check, value);
    case Argument::kIpType:
      return ReadIpType(argument, check, value);
    default:
      return ReadNumber(argument, check, value);
  }
}

constexpr Check Number(uint32_t min, uint32_t max, int32_t code) {
  return {Argument::kNumber, min, max, code};
}
constexpr Check Other(Argument argument, int32_t code = QDT_PKT_TRACE_INPUT) {
  return {argument, 0, 0, code};
}
constexpr Check Fixed(uint32_t value) { return {Argument::kNone, value, value, 0}; }

constexpr Check kAnyNumber = Number(0, UINT32_MAX, 0);
constexpr Check kSwitch = Number(0, 1, QDT_PKT_TRACE_INPUT);
constexpr Check kMac = Other(Argument::kMac);
constexpr Check kIpv4 = Other(Argument::kIpv4);

// Where a value goes.
using Store = void (*)(Block &block, const Value &value);

template <typename Part, typename Field>
Field &FieldOf(Block &block, Field Part::*field) {
  if constexpr (std::is_same_v<Part, Conditions>) {
    return block.conditions.*field;
  } else {
    return block.print.*field;
  }
}

template <auto kField>
void Put(Block &block, const Value &value) {
  auto &field = FieldOf(block, kField);
  using Field = std::remove_reference_t<decltype(field)>;
  if constexpr (std::is_array_v<Field>) {
    std::memcpy(field, value.bytes, sizeof(field));
  } else {
    field = static_cast<Field>(value.number);  // the low bits of what a number is too wide for
  }
}

// An address tells the packet's IP version ...
template <auto kField>
void PutIpv4(Block &block, const Value &value) {
  Put<kField>(block, value);
  block.conditions.ipType = kTraceIpv4;
}

// ... and an IPv6 address its Ethernet type, although that condition is not set with it.
template <auto kField>
void PutIpv6(Block &block, const Value &value) {
  Put<kField>(block, value);
  block.conditions.etherType = 0x86DD;
  block.conditions.ipType = kTraceIpv6;
}

void PutPrintNumber(Block &block, const Value &value) {
  block.leftPrints = value.number;
  block.print.reserved1 = 0;
}

void PutPorts(Block &block, const Value &value) {
  block.conditions.sourcePort = block.conditions.destinationPort = static_cast<uint16_t>(value.number);
}

// Bits have no address, so each has its function.
void PutInner(Block &block, const Value &value) { block.conditions.inner = value.number & 1; }
void PutFromCp(Block &block, const Value &value) { block.conditions.fromControlPlane = value.number & 1; }
void PutEapKey(Block &block, const Value &) { block.conditions.eapKey = 1; }
void PutCapwapKeepalive(Block &block, const Value &) { block.conditions.capwapKeepalive = 1; }
void PutPppoeKeepalive(Block &block, const Value &) { block.conditions.pppoeKeepalive = 1; }
void PutCapwapFragment(Block &block, const Value &) { block.conditions.capwapFragment = 1; }
void PutNothing(Block &, const Value &) {}

struct Setter {
  const char *keyword;
  const char *help;
  Check check;
  Store store;
  uint64_t mask;
  const char *confirmation;
};

// In the order of the help, whose texts are not always what the checks are. dst_fwdif writes the source
// interface's field: the engine tells the two by their mask bits.
constexpr Setter kSetters[] = {
    {"timeout", "timeout <1-6000>", Number(1, 6000, QDT_PKT_TRACE_RANGE), Put<&Conditions::timeout>, 0,
     "packet trace set timeout ok"},
    {"print_num", "print_num <1-255>", Number(1, 256, QDT_PKT_TRACE_RANGE), PutPrintNumber, 0,
     "packet trace set print num ok"},
    {"print_console", "print_console <0-1>", kSwitch, Put<&PacketTracePrint::toConsole>, 0,
     "packet trace set print console flag ok"},
    {"print_to_log", "print_to_log <0-1>", kSwitch, Put<&PacketTracePrint::toLog>, 0,
     "packet trace set print to log flag ok"},
    {"inner", "inner <0-1>", kSwitch, PutInner, 0, "packet trace set inner flag ok"},
    {"from_cp", "from_cp <0-1>", kSwitch, PutFromCp, kTraceFromControlPlane, "packet trace set from cp ok"},
    {"tool_check", "tool_check <0-1>", kSwitch, Put<&PacketTracePrint::toolCheck>, 0,
     "packet trace set tool check flag ok"},
    {"min_pkt_len", "min_pkt_len <min_pkt_len>", kAnyNumber, Put<&Conditions::minLength>, kTraceLength,
     "packet trace set min_pkt_len ok"},
    {"max_pkt_len", "max_pkt_len <max_pkt_len>", kAnyNumber, Put<&Conditions::maxLength>, kTraceLength,
     "packet trace set max_pkt_len ok"},
    {"src_fwdif", "src_fwdif <src_fwdif>", kAnyNumber, Put<&Conditions::sourceFwdIf>, kTraceSourceFwdIf,
     "packet trace set src fwdif ok"},
    {"dst_fwdif", "dst_fwdif <dst_fwdif>", kAnyNumber, Put<&Conditions::sourceFwdIf>, kTraceDestinationFwdIf,
     "packet trace set dst fwdif ok"},
    {"smac", "smac <xx:xx:xx:xx:xx:xx>", kMac, Put<&Conditions::sourceMac>, kTraceSourceMac,
     "packet trace set smac ok"},
    {"dmac", "dmac <xx:xx:xx:xx:xx:xx>", kMac, Put<&Conditions::destinationMac>, kTraceDestinationMac,
     "packet trace set dmac ok"},
    {"eth_type", "eth_type <eth_type eg:0x0806>", Other(Argument::kEtherType), Put<&Conditions::etherType>,
     kTraceEtherType, "packet trace set eth type ok"},
    {"vlan", "vlan <vlan>", kAnyNumber, Put<&Conditions::vlanId>, kTraceVlan, "packet trace set vlan ok"},
    {"arp", "arp", Fixed(0x0806), Put<&Conditions::etherType>, kTraceEtherType, "packet trace set arp ok"},
    {"eap_key", "eap_key", Fixed(1), PutEapKey, kTraceEapKey, "packet trace set eap key ok"},
    {"sip", "sip <x.x.x.x>", kIpv4, PutIpv4<&Conditions::sourceAddress>, kTraceSourceAddress | kTraceIpType,
     "packet trace set sip ok"},
    {"dip", "dip <x.x.x.x>", kIpv4, PutIpv4<&Conditions::destinationAddress>,
     kTraceDestinationAddress | kTraceIpType, "packet trace set dip ok"},
    {"sip6", "sip6 <sip6>", Other(Argument::kIpv6, QDT_PKT_TRACE_SOURCE_V6),
     PutIpv6<&Conditions::sourceAddressV6>, kTraceSourceAddressV6 | kTraceIpType, "packet trace set sip6 ok"},
    {"dip6", "dip6 <dip6>", Other(Argument::kIpv6, QDT_PKT_TRACE_DESTINATION_V6),
     PutIpv6<&Conditions::destinationAddressV6>, kTraceDestinationAddressV6 | kTraceIpType,
     "packet trace set dip6 ok"},
    {"protocol", "protocol <protocol>", Number(0, 255, QDT_PKT_TRACE_PROTOCOL), Put<&Conditions::protocol>,
     kTraceProtocol, "packet trace set portocol ok"},
    {"not_frag", "not_frag", Fixed(1), PutNothing, kTraceNotFragment, "packet trace set ipv4 not fragment"},
    {"first_frag", "first_frag", Fixed(1), PutNothing, kTraceFirstFragment,
     "packet trace set ipv4 first fragment"},
    {"not_first_frag", "not_first_frag", Fixed(1), PutNothing, kTraceNotFirstFragment,
     "packet trace set ipv4 not first fragment"},
    {"last_frag", "last_frag", Fixed(1), PutNothing, kTraceLastFragment,
     "packet trace set ipv4 last fragment"},
    {"sport", "sport <sport>", Number(0, 65535, QDT_PKT_TRACE_SOURCE_PORT), Put<&Conditions::sourcePort>,
     kTraceSourcePort, "packet trace set sport ok"},
    {"dport", "dport <dport>", Number(0, 65535, QDT_PKT_TRACE_DESTINATION_PORT),
     Put<&Conditions::destinationPort>, kTraceDestinationPort, "packet trace set dport ok"},
    {"icmp", "icmp", Fixed(1), Put<&Conditions::protocol>, kTraceProtocol, "packet trace set icmp ok"},
    {"capwap_ka", "capwap_ka", Fixed(1), PutCapwapKeepalive, kTraceCapwap,
     "packet trace set capwap keepalive ok"},
    {"pppoe_ka", "pppoe_ka", Fixed(1), PutPppoeKeepalive, kTracePppoeKeepalive,
     "packet trace set pppoe keepalive ok"},
    {"tcp_flags", "tcp_flags <1-32>", Number(0, 32, QDT_PKT_TRACE_RANGE), Put<&Conditions::tcpFlags>,
     kTraceTcpFlags, "packet trace set tcp_flag ok"},
    {"ip_type", "ip-type", Other(Argument::kIpType), Put<&Conditions::ipType>, kTraceIpType,
     "packet trace set ipType ok"},
    {"icmp_type", "icmp-type", kAnyNumber, Put<&Conditions::icmpType>, kTraceIcmpType,
     "packet trace set icmpType ok"},
    {"discard_type", "discard_type <eg:arp miss>", Other(Argument::kDiscardType),
     Put<&Conditions::discardType>, kTraceDiscardType, "packet trace set discard type ok"},
    {"cause_id", "cause_id", kAnyNumber, Put<&Conditions::causeId>, kTraceCauseId,
     "packet trace set cause id ok"},
    // Conditions that other programs set; the command has no keyword for them.
    {nullptr, nullptr, Fixed(5246), PutPorts, kTraceCapwap, "packet trace set capwap ctrl ok"},
    {nullptr, nullptr, Fixed(5247), PutPorts, kTraceCapwap, "packet trace set capwap data ok"},
    {nullptr, nullptr, Fixed(1), PutCapwapFragment, kTraceCapwap, "packet trace set capwap fragment ok"},
};
constexpr size_t kCapwapFragment = std::size(kSetters) - 1;
constexpr size_t kCapwapData = kCapwapFragment - 1;
constexpr size_t kCapwapControl = kCapwapData - 1;

constexpr auto kKeywords = Column<kSetters, &Setter::keyword>();
constexpr auto kHelps = Column<kSetters, &Setter::help>();
constexpr auto kChecks = Column<kSetters, &Setter::check>();
constexpr auto kMasks = Column<kSetters, &Setter::mask>();
constexpr auto kConfirmations = Column<kSetters, &Setter::confirmation>();

consteval size_t RowOf(std::string_view keyword) {
  size_t row = 0;
  while (keyword != kSetters[row].keyword) ++row;
  return row;
}

// Runs setter number `setter`. Nothing is written before the argument has been accepted.
int32_t Run(size_t setter, OutputBuffer *out, const char *argument, Block &block) {
  Value value;
  if (const int32_t code = Read(out, argument, kChecks[setter], value); code != 0) return code;
  CallOf<kSetters, &Setter::store>(setter, block, value);
  AddConditions(block, kMasks[setter]);
  QdtCliPrintf(out, "%s", kConfirmations[setter]);
  return 0;
}

// By code, from QDT_PKT_TRACE_INPUT on.
constexpr const char *kMessageList[] = {
    "Error: input error",
    "Error: ip address error",
    "Error: source IPv6 address invalid",
    "Error: destination IPv6 address invalid",
    "Error: source port out of range",
    "Error: destination port out of range",
    "Error: protocol invalid",
    "Error: number out of range",
};
constexpr auto kMessages = PackNames<kMessageList>();

}  // namespace

void PrintSetterHelp(OutputBuffer *out) {
  for (size_t setter = 0; setter < kCapwapControl; ++setter)
    QdtCliPrintf(out, "nqecli pkt_trace set %s \n", kHelps[setter]);
}

}  // namespace qdt

int32_t PktTraceSet(OutputBuffer *out, const char *keyword, const char *argument) {
  const size_t setter = qdt::IndexOf(qdt::kKeywords, keyword);
  if (setter == qdt::kKeywords.size()) {
    QdtCliPrintf(out, "Error: Unsupported pkt trace type.\n");
    return 0;
  }
  const int32_t code = qdt::Run(setter, out, argument, qdt::CommandTraceBlock());
  if (code == 0) return -1;  // the setter's result less one, by which callers know success
  QdtCliPrintf(out, "%s.\n", qdt::kMessages[code - QDT_PKT_TRACE_INPUT]);
  return 0;
}

// The print controls are the block's own, so that the block says all.
#define QDT_PKT_TRACE_SETTER(name, setter)                                                   \
  int32_t name(OutputBuffer *out, const char *, const char *argument, void *block, void *) { \
    return qdt::Run(setter, out, argument, *static_cast<qdt::PacketTraceBlock *>(block));    \
  }

QDT_PKT_TRACE_SETTER(PktTraceSetTimeout, qdt::RowOf("timeout"))
QDT_PKT_TRACE_SETTER(PktTraceSetSip, qdt::RowOf("sip"))
QDT_PKT_TRACE_SETTER(PktTraceSetCapwapCtrl, qdt::kCapwapControl)
QDT_PKT_TRACE_SETTER(PktTraceSetCapwapData, qdt::kCapwapData)
QDT_PKT_TRACE_SETTER(PktTraceSetCapwapFrag, qdt::kCapwapFragment)
