#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/section.h"
#include "src/om/engine/capwap.h"
#include "src/om/engine/route.h"
#include "src/om/nqe_cli/address_pair.h"
#include "src/om/nqe_cli/table_entry.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the CAPWAP tunnels and of the table that leads arriving packets to them.
using qdt::Address;
using qdt::CapwapDecapEntry;
using qdt::CapwapDecapKey;
using qdt::CapwapTunnelEntry;

static void PrintTunnel(qdt::Text &text, const CapwapTunnelEntry &e) {
  qdt::Section<18> s(text);
  s.Line<"Valid">(e.valid);
  s.Line<"TnlState">(e.state);
  s.Line<"BsAc2AcTnl">(e.acToAc);
  s.Line<"BsServerOrClient">(e.serverOrClient);
  s.Line<"BsEncryptEn">(e.encrypted);
  s.Line<"TnlMtu">(e.mtu);
  s.Line<"TnlIfIndex">(e.ifIndex);
  s.Line<"TnlDtlsIndex">(e.dtlsIndex);
  s.Line<"Sip", "%s">(Address(e.sourceAddress));
  s.Line<"Dip", "%s">(Address(e.destinationAddress));
  s.Line<"Sport">(e.sourcePort);
  s.Line<"Dport">(e.destinationPort);
  s.Line<"CwPreamble">(e.preamble);
  s.Line<"Hlen">(e.headerLength);
  s.Line<"Rid">(e.radioId);
  s.Line<"Wbid">(e.wirelessBinding);
  s.Line<"Tflag">(e.tFlag);
  s.Line<"Fflag">(e.fFlag);
  s.Line<"Lflag">(e.lFlag);
  s.Line<"Wflag">(e.wFlag);
  s.Line<"Mflag">(e.mFlag);
  s.Line<"Kflag">(e.kFlag);
  s.Line<"Encapsize">(e.encapsulationSize);
  s.MacLine<"ApMac">(e.apMac);
}

// Rows of eight bytes in two groups of four.
static void PrintEncapsulation(qdt::Text &text, const CapwapTunnelEntry &e) {
  if (e.encapsulationSize > qdt::kMaxCapwapEncapsulation) return text.Fail();
  if (!text.Print<"  CapwapTunnelEncap:">()) return text.Fail(QDT_TBL_RAW_DATA);
  for (uint8_t i = 0; i < e.encapsulationSize; ++i) {
    const uint8_t byte = e.encapsulation[i];
    if (i % 8 == 0) {
      text.Print<"\n   %02x">(byte);
    } else if (i % 4 == 0) {
      text.Print<"  %02x">(byte);
    } else {
      text.Print<" %02x">(byte);
    }
  }
  text.Print<"\n">();
}

// Whether the route that the fast path uses for the tunnel's destination is the one that is in force.
static void PrintFastPath(qdt::Text &text, const CapwapTunnelEntry &e) {
  constexpr uint16_t kVpn = 0;
  const qdt::FibKey key = {0, kVpn, htonl(e.destinationAddress)};
  const qdt::BoundEntry route = qdt::CheckBoundMatch(qdt::kTableFib, key, e.boundRoute);
  const bool printed = route.same ? text.Print<"  CapwapTunnel-Fast: OK\n">()
                                  : text.Print<"  CapwapTunnel-Fast: Error, ret=%d, vpn=%d, dip=0x%08x\n">(
                                        route.code, kVpn, e.destinationAddress);
  if (!printed) text.Fail(QDT_TBL_RAW_DATA);
}

NQE_TABLE_SEARCH(CapwapTunnel) {
  return search.FindOne<CapwapTunnelEntry>(qdt::kTableCapwapTunnel, search.key2);
}

NQE_TABLE_FORMAT_ONE(CapwapTunnel, CapwapTunnelEntry) {
  PrintTunnel(text, e);
  PrintEncapsulation(text, e);
  if (!text.failed()) PrintFastPath(text, e);
  if (text.failed()) text.Fail();  // the view has one code, whatever the piece's own
}

QDT_TABLE_PIECE(NqeTableCapwapParseFormat) {
  return qdt::FormatPiece<qdt::CapwapTunnelEntry, PrintTunnel>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableCapwapEncapFormat) {
  return qdt::FormatPiece<qdt::CapwapTunnelEntry, PrintEncapsulation>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableCapwapFastFormat) {
  return qdt::FormatPiece<qdt::CapwapTunnelEntry, PrintFastPath>(out, room, entry);
}

NQE_TABLE_SEARCH(CapwapDecap) {
  uint32_t source = 0, destination = 0;
  if (!qdt::ParseAddressPair(search.key1, source, destination)) return QDT_TBL_UNSUPPORTED;
  const CapwapDecapKey key = {source, destination, static_cast<uint16_t>(search.key2), 0};
  return search.FindOne<CapwapDecapEntry>(qdt::kTableCapwapDecap, key);
}

NQE_TABLE_FORMAT_ONE(CapwapDecap, CapwapDecapEntry) {
  text.Print<
      "  Sip       :  %s\n"
      "  Dip       :  %s\n"
      "  Port      :  %u\n"
      "  TunnelId  :  %u\n"
      "  IfIndex   :  %u\n">(Address(e.key.sourceAddress), Address(e.key.destinationAddress), e.key.port,
                             e.tunnelId, e.ifIndex);
}
