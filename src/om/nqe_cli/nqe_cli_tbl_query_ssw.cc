#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/section.h"
#include "src/om/engine/switching.h"
#include "src/om/nqe_cli/address_pair.h"
#include "src/om/nqe_cli/bit.h"
#include "src/om/nqe_cli/table_entry.h"
#include "src/om/nqe_cli/table_view.h"

// Views of layer-2 switching: VLANs, MAC addresses, ports, and the lists that frames are replicated to.
using qdt::Address;
using qdt::CauseEntry;
using qdt::DummyMulticastRoute;
using qdt::FindFwdIf;
using qdt::GlobalBroadcastEntry;
using qdt::MacEntry;
using qdt::MacKey;
using qdt::MulticastEntry;
using qdt::MulticastKey;
using qdt::MulticastUserEntry;
using qdt::MulticastUserKey;
using qdt::PortInstanceEntry;
using qdt::PortInstanceKey;
using qdt::PortIsolateEntry;
using qdt::PortIsolateKey;
using qdt::PortTagEntry;
using qdt::VlanBitmapEntry;
using qdt::VlanEntry;
using qdt::VlanKey;
using qdt::VlanListEntry;
using qdt::VlanListKey;

NQE_TABLE_SEARCH(Vlan) {
  const VlanKey key = {static_cast<uint16_t>(search.key3), static_cast<uint16_t>(search.key2)};
  return search.FindOne<VlanEntry>(qdt::kTableVlan, key);
}

NQE_TABLE_FORMAT_ONE(Vlan, VlanEntry) {
  qdt::Section<17> s(text);
  s.Line<"VlanId">(e.vlanId);
  s.Line<"MacLearnEn">(e.macLearn);
  s.Line<"BcLimitEn">(e.broadcastLimit);
  s.Line<"MissUcAct">(e.unknownUnicastAction);
  s.Line<"MacLimitEn">(e.macLimit);
  s.Line<"MacLimitFull">(e.macLimitFull);
  s.Line<"MacLimitAct">(e.macLimitAction);
  s.Line<"MacLimitAlarmEn">(e.macLimitAlarm);
  s.Line<"RoamUserExistFlag">(e.roamedUsers);
  s.Line<"ArpReplyEnable">(e.arpReply);
  s.Line<"IgmpsnpEnable">(e.igmpSnooping);
  s.Line<"DhcpEnable">(e.dhcp);
  s.Line<"BcMid">(e.broadcastListId);
  s.Line<"StatId">(e.statId);
  s.Line<"MacLimitNum">(e.macLimitNum);
  s.Line<"CurMacNum">(e.currentMacNum);
  s.Line<"VlanIfIdx">(e.ifIndex);
  s.Line<"InstanceId">(e.instanceId);
}

NQE_TABLE_SEARCH(VlanBitmap) {
  const qdt::FwdIfIndex index = FindFwdIf(search.key2);
  if (index.code != 0) return index.code;
  return search.FindOne<VlanBitmapEntry>(qdt::kTableVlanBitmap, index.value);
}

void toBinary(char *buffer, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    // Eight bits at once, each in a character of its own, the highest first.
    uint64_t bits = uint64_t{value >> shift & 0xFF} * 0x0101010101010101 & 0x0102040810204080;
    bits = ((bits + 0x7F7F7F7F7F7F7F7F) >> 7 & 0x0101010101010101) + 0x3030303030303030;
    std::memcpy(buffer, &bits, sizeof(bits));
    buffer[8] = ' ';
    buffer += 9;
  }
  *buffer = '\0';
}

// Two words a line. The pieces have a code of their own.
static void PrintBitmap(qdt::Text &text, const uint32_t (&words)[qdt::kVlanBitmapWords]) {
  for (uint32_t i = 0; i < qdt::kVlanBitmapWords; ++i) {
    char bits[QDT_BINARY_SIZE];
    toBinary(bits, words[i]);
    const std::string_view digits(bits, sizeof(bits) - 1);
    if (i % 2 == 0) {
      text.Print<"    %s  ">(digits);
    } else {
      text.Print<"%s\n">(digits);
    }
  }
  if (text.failed()) text.Fail(QDT_TBL_FAIL);
}

static void PrintMemberBitmap(qdt::Text &text, const VlanBitmapEntry &e) {
  text.Print<"  Bitmap   :\n">();
  PrintBitmap(text, e.member);
}

static void PrintUntaggedBitmap(qdt::Text &text, const VlanBitmapEntry &e) {
  text.Print<"  UntagBitmap   :\n">();
  PrintBitmap(text, e.untagged);
}

NQE_TABLE_FORMAT_ONE(VlanBitmap, VlanBitmapEntry) {
  text.Print<"  IfIndex  :  %d\n">(e.fwdIfIndex);
  PrintMemberBitmap(text, e);
  PrintUntaggedBitmap(text, e);
  if (text.failed()) text.Fail();  // the view's code, in place of the pieces'
}

QDT_TABLE_PIECE(NqeTableVlanBitmapParseBitmap) {
  return qdt::FormatPiece<qdt::VlanBitmapEntry, PrintMemberBitmap>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableVlanBitmapParseUntagBitmap) {
  return qdt::FormatPiece<qdt::VlanBitmapEntry, PrintUntaggedBitmap>(out, room, entry);
}

// The key of the lists of VLAN `key3`; `key2` stands before it, for broadcasts a bridge id.
static VlanListKey VlanListKeyOf(const qdt::Search &search) {
  return {static_cast<uint16_t>(search.key2), static_cast<uint16_t>(search.key3)};
}

static void PrintBroadcastPort(qdt::Text &text, uint32_t fwdIfIndex) {
  text.Print<"  OutFwdIfIndex  :  %u\n">(fwdIfIndex);
}

NQE_TABLE_SEARCH(SswBoardcast) {
  return search.NextOfKey<VlanListEntry>(qdt::kTableBroadcast, VlanListKeyOf(search));
}

NQE_TABLE_FORMAT_EACH(SswBoardcast, VlanListEntry) { PrintBroadcastPort(text, e.fwdIfIndex); }

NQE_TABLE_SEARCH(SswGlobalBoardcast) {
  return search.NextOfKey<GlobalBroadcastEntry>(qdt::kTableGlobalBroadcast, uint32_t{0});
}

NQE_TABLE_FORMAT_EACH(SswGlobalBoardcast, GlobalBroadcastEntry) { PrintBroadcastPort(text, e.fwdIfIndex); }

NQE_TABLE_SEARCH(MacInfo) {
  if (search.loopNum != 0) return search.NextOf<MacEntry>(qdt::kTableMac);
  MacKey key = {search.key2, static_cast<uint16_t>(search.key3), {}};
  if (QdtCliStr2Mac(search.key1, key.mac, sizeof(key.mac)) != 0) return QDT_TBL_UNSUPPORTED;
  return search.FindOne<MacEntry>(qdt::kTableMac, key);
}

NQE_TABLE_FORMAT_EACH(MacInfo, MacEntry) {
  text.Print<
      "  BrId        :  %u\n"
      "  VlanId      :  %u\n"
      "  Mac         :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  Static      :  %u\n"
      "  Drop        :  %u\n"
      "  Local       :  %u\n"
      "  Security    :  %u\n"
      "  Roam        :  %u\n"
      "  Aging       :  %u\n"
      "  OutIfIndex  :  %u\n"
      "  DefaultBit  :  %u\n\n">(e.key.bridgeId, e.key.vlanId, qdt::Mac(e.key.mac), e.isStatic, e.drop,
                                 e.local, e.security, e.roam, e.aging, e.outIfIndex, e.isDefault);
}

NQE_TABLE_SEARCH(PortTag) {
  constexpr size_t kRoomPerEntry = 12;  // in the buffer; an entry takes 8 of them
  if (search.loopNum != 0) return search.NextOf<PortTagEntry, kRoomPerEntry>(qdt::kTablePortTag);
  return search.FindOne<PortTagEntry>(qdt::kTablePortTag, search.key2);
}

NQE_TABLE_FORMAT_EACH(PortTag, PortTagEntry) {
  text.Print<"  PortId       :  %u\n  PortEncType  :  %u\n\n">(e.portId, e.encapsulation);
}

NQE_TABLE_SEARCH(PortIsolate) {
  const qdt::FwdIfIndex source = FindFwdIf(search.key2);
  if (source.code != 0) return source.code;
  const qdt::FwdIfIndex destination = FindFwdIf(search.key3);
  if (destination.code != 0) return destination.code;
  const PortIsolateKey key = {source.value, destination.value};
  return search.FindOne<PortIsolateEntry>(qdt::kTablePortIsolate, key);
}

NQE_TABLE_FORMAT_ONE(PortIsolate, PortIsolateEntry) {
  text.Print<"  SrcFwdIfIndex    :  %u\n  DstFwdIfIndex    :  %u\n  PortIsolateEn    :  %u\n">(
      e.key.source, e.key.destination, e.enabled);
}

static void PrintMulticastPort(qdt::Text &text, uint32_t fwdIfIndex) {
  text.Print<"  FwdIfIdx  :  %u\n">(fwdIfIndex);
}

NQE_TABLE_SEARCH(SswMcRoutePortElb) {
  return search.NextOfKey<VlanListEntry>(qdt::kTableMcRoutePort, VlanListKeyOf(search));
}

NQE_TABLE_FORMAT_EACH(SswMcRoutePortElb, VlanListEntry) { PrintMulticastPort(text, e.fwdIfIndex); }

NQE_TABLE_SEARCH(SswExcludeMcElb) {
  return search.NextOfKey<VlanListEntry>(qdt::kTableExcludedMulticast, VlanListKeyOf(search));
}

NQE_TABLE_FORMAT_EACH(SswExcludeMcElb, VlanListEntry) { PrintMulticastPort(text, e.fwdIfIndex); }

NQE_TABLE_SEARCH(SswMcElb) {
  if (search.loopNum == 0) return QDT_TBL_INVALID_INPUT;
  MulticastKey key = {VlanListKeyOf(search), {}};
  if (!qdt::ParseAddressPair(search.key1, key.address.group, key.address.source)) return QDT_TBL_FAIL;
  return search.NextOfKey<MulticastEntry>(qdt::kTableMulticast, key);
}

NQE_TABLE_FORMAT_EACH(SswMcElb, MulticastEntry) { PrintMulticastPort(text, e.fwdIfIndex); }

NQE_TABLE_SEARCH(SswMc2UcElb) {
  if (search.loopNum == 0) return QDT_TBL_INVALID_INPUT;
  const qdt::FwdIfIndex index = FindFwdIf(search.key4);
  if (index.code != 0) return QDT_TBL_RAW_DATA;
  MulticastUserKey key = {VlanListKeyOf(search), index.value, {}};
  if (!qdt::ParseAddressPair(search.key1, key.address.group, key.address.source)) return QDT_TBL_FAIL;
  return search.NextOfKey<MulticastUserEntry>(qdt::kTableMulticastUser, key);
}

NQE_TABLE_FORMAT_EACH(SswMc2UcElb, MulticastUserEntry) {
  text.Print<"  UsrMac  :  %02x:%02x:%02x:%02x:%02x:%02x\n">(qdt::Mac(e.user));
}

NQE_TABLE_SEARCH(PortInstState) {
  if (search.loopNum != 0) return search.NextOf<PortInstanceEntry>(qdt::kTablePortInstance);
  const qdt::FwdIfIndex index = FindFwdIf(search.key4);
  if (index.code != 0) return index.code;
  const PortInstanceKey key = {static_cast<uint16_t>(search.key2), static_cast<uint16_t>(search.key3),
                               index.value};
  return search.FindOne<PortInstanceEntry>(qdt::kTablePortInstance, key);
}

NQE_TABLE_FORMAT_EACH(PortInstState, PortInstanceEntry) {
  text.Print<
      "  BrId         :  %u\n"
      "  InstId       :  %u\n"
      "  FwdIfIdx     :  %u\n"
      "  State        :  %u\n\n">(e.key.bridgeId, e.key.instanceId, e.key.fwdIfIndex, e.state);
}

NQE_TABLE_SEARCH(MFibDummy) { return search.NextOf<DummyMulticastRoute>(qdt::kTableDummyMulticastRoute); }

NQE_TABLE_FORMAT_EACH(MFibDummy, DummyMulticastRoute) {
  text.Print<
      "  BrId         :  %u\n"
      "  VlanId       :  %u\n"
      "  SrcIp        :  %s\n"
      "  GroupIp      :  %s\n"
      "  Aging        :  %u\n\n">(e.bridgeId, e.vlanId, Address(e.source), Address(e.group), e.aging);
}

NQE_TABLE_SEARCH(Cause) { return search.NextOf<CauseEntry>(qdt::kTableCause); }

NQE_TABLE_FORMAT_EACH(Cause, CauseEntry) {
  text.Print<"  CpCauseId       :  %u\n  CauseIdx        :  %u\n  PktCount        :  %u\n\n">(
      e.cpCauseId, e.causeIndex, e.packets);
}
