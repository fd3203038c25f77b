#include "src/om/nqe_cli/nqe_cli_pkt_trace.h"

#include <cstring>

#include "src/om/common/address.h"
#include "src/om/common/log.h"
#include "src/om/common/record_copy.h"
#include "src/om/common/rows.h"
#include "src/om/common/trace_block.h"
#include "src/om/nqe_cli/command_words.h"

// The packet-trace command: what selects an operation, and what shows the block.
namespace qdt {
namespace {

TraceBlock g_block;

// The engine writes the block while it is shown: all that one show tells is from one copy.
PacketTraceBlock CopyOfBlock() { return CopyOf<PacketTraceBlock>(g_block.get()); }

struct NumberLine {
  const char *label;
  uint32_t value;
};

template <size_t N>
void PrintNumbers(OutputBuffer *out, const NumberLine (&lines)[N]) {
  for (const NumberLine &line : lines) QdtCliPrintf(out, "\n %-25s: %u", line.label, line.value);
}

void PrintMac(OutputBuffer *out, const char *label, const MacAddress &mac) {
  QdtCliPrintf(out, "\n %-25s: %s", label, ToText(mac).c_str());
}

// Eight groups with all their digits, not the short form of inet_ntop.
void PrintAddressV6(OutputBuffer *out, const char *label, const uint8_t (&address)[16]) {
  QdtCliPrintf(out, "\n%s", label);
  for (int i = 0; i < 16; i += 2)
    QdtCliPrintf(out, "%s%02x%02x", i == 0 ? "" : ":", address[i], address[i + 1]);
}

void PrintConditions(OutputBuffer *out, const PacketTraceConditions &c) {
  QdtCliPrintf(out, "\n %-25s: 0x%016llx", "Condition", static_cast<unsigned long long>(c.mask));
  PrintNumbers(out, {{"Timeout", c.timeout},
                     {"NotFlag", c.notFlag},
                     {"InnerFlag", c.inner},
                     {"EapKeyFlag", c.eapKey},
                     {"CapwapKaFlag", c.capwapKeepalive},
                     {"PppoeKaFlag", c.pppoeKeepalive},
                     {"fromCpFlag", c.fromControlPlane},
                     {"CapwapFrag", c.capwapFragment},
                     {"SrcFwdifindex", c.sourceFwdIf},
                     {"DstFwdifindex", c.destinationFwdIf}});
  QdtCliPrintf(out, "\n %-25s: (%u, %u)", "PktLenRange", c.minLength, c.maxLength);
  PrintMac(out, "Smac", c.sourceMac);
  PrintMac(out, "Dmac", c.destinationMac);
  QdtCliPrintf(out, "\n %-25s: 0x%x", "EthType", c.etherType);
  PrintNumbers(out, {{"Vlan", c.vlanId}, {"tcpFlag", c.tcpFlags}});
  QdtCliPrintf(out, "\n %-25s: 0x%x", "SrcIp", c.sourceAddress);
  QdtCliPrintf(out, "\n %-25s: 0x%x", "DstIp", c.destinationAddress);
  PrintNumbers(out, {{"IpProtocol", c.protocol}, {"IpType", c.ipType}, {"IcmpType", c.icmpType}});
  QdtCliPrintf(out, "\n %-25s: %s", "DiscardType", DiscardTypeName(c.discardType));
  PrintAddressV6(out, " IPV6 SrcIP: ", c.sourceAddressV6);
  PrintAddressV6(out, " IPV6 DstIP: ", c.destinationAddressV6);
}

void PrintL4Conditions(OutputBuffer *out, const PacketTraceConditions &c) {
  QdtCliPrintf(
      out,
      "\n TcpUdpSrcPort            : %hu\n TcpUdpDstPort            : %hu\n CapwapAllFragment        : %hhu",
      c.sourcePort, c.destinationPort, c.capwapFragment);
}

struct Operation {
  const char *name;
  void (*run)(OutputBuffer *out);
};
constexpr Operation kOperations[] = {
    {"enable", PktTraceEnable},       {"disable", PktTraceDisable}, {"show", PktTraceShow},
    {"counter", PktTraceShowCounter}, {"clear", PktTraceClear},
};
constexpr auto kOperationNames = Column<kOperations, &Operation::name>();

}  // namespace

PacketTraceBlock &CommandTraceBlock() { return *g_block; }

}  // namespace qdt

using qdt::CommandTraceBlock;
using qdt::PacketTraceBlock;

int32_t VrxPktTraceCmdRun(OutputBuffer *out, int32_t wordCount, char **words) {
  qdt::EmptyAnswer(out);
  if (PktTraceAttach() != 0) {
    QdtCliPrintf(out, "packet trace OsaSmmap failed \n");
    return -1;
  }
  return CliCmdPktTrace(out, wordCount, words);
}

int32_t PktTraceAttach() {
  if (qdt::g_block.Attach()) return 0;
  QDT_LOG_ERROR("Packet trace create smmap failed.\n");
  return -1;
}

int32_t CliCmdPktTrace(OutputBuffer *out, int32_t wordCount, char **words) {
  const char *const word = wordCount >= 2 && wordCount <= 4 ? words[1] : "";
  if (std::strcmp(word, "set") == 0 && wordCount > 2)
    return PktTraceSet(out, words[2], wordCount > 3 ? words[3] : nullptr);
  const size_t operation = qdt::IndexOf(qdt::kOperationNames, word);
  if (operation == std::size(qdt::kOperations)) {
    CliCmdPktTraceHelp(out);
  } else {
    qdt::CallOf<qdt::kOperations, &qdt::Operation::run>(operation, out);
  }
  return 0;
}

void CliCmdPktTraceHelp(OutputBuffer *out) {
  QdtCliPrintf(out,
               "nqecli pkt_trace enable \n"
               "nqecli pkt_trace disable \n"
               "nqecli pkt_trace show \n"
               "nqecli pkt_trace counter \n"
               "nqecli pkt_trace clear \n");
  qdt::PrintSetterHelp(out);
}

void PktTraceEnable(OutputBuffer *out) {
  CommandTraceBlock().on.packets = 1;
  QdtCliPrintf(out, "packet trace set enable OK");
}

void PktTraceDisable(OutputBuffer *out) {
  CommandTraceBlock().leftPrints = 0;
  CommandTraceBlock().on.packets = 0;
  QdtCliPrintf(out, "packet trace set disable OK");
}

void PktTraceClear(OutputBuffer *out) {
  qdt::ClearPacketTrace(CommandTraceBlock());
  QdtCliPrintf(out, "packet trace clear condition OK");
}

void PktTraceShow(OutputBuffer *out) {
  const PacketTraceBlock block = qdt::CopyOfBlock();
  QdtCliPrintf(out,
               "\n Packet Trace Condition Info\n=====================================================\n");
  QdtCliPrintf(out, " %-25s: %u", "DebugFlag", block.on.packets);
  qdt::PrintNumbers(out, {{"LeftPrintNum", block.leftPrints},
                          {"ToolCheck", block.print.toolCheck},
                          {"PrintConsole", block.print.toConsole},
                          {"Print2Log", block.print.toLog},
                          {"PrintLen", block.print.length}});
  if (block.conditions.mask == 0) {
    QdtCliPrintf(out, "\n Condition                : 0");
  } else {
    qdt::PrintConditions(out, block.conditions);
    qdt::PrintL4Conditions(out, block.conditions);
  }
  QdtCliPrintf(out, "\n=====================================================\n");
}

void PktTraceShowCondition(OutputBuffer *out) { qdt::PrintConditions(out, qdt::CopyOfBlock().conditions); }

void PktTraceShowL4Condition(OutputBuffer *out) {
  qdt::PrintL4Conditions(out, qdt::CopyOfBlock().conditions);
}

void PktTraceShowCounter(OutputBuffer *out) {
  const PacketTraceBlock block = qdt::CopyOfBlock();
  QdtCliPrintf(out, "\n Packet Trace Counter\n=====================================================\n");
  const qdt::NumberLine lines[] = {{"Packets from driver number", block.fromDriver},
                                   {"Packets to driver number", block.toDriver},
                                   {"Packets from RLK number", block.fromSlowPath},
                                   {"Packets to RLK number", block.toSlowPath}};
  for (const qdt::NumberLine &line : lines) QdtCliPrintf(out, " %-32s: %u\n", line.label, line.value);
}
