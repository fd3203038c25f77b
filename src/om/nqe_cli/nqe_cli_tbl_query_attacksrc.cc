#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/engine/security.h"
#include "src/om/nqe_cli/table_view.h"

// Views of host security: the sources of attacks and the global configuration.
using qdt::Address;
using qdt::AttackSourceAddress;
using qdt::AttackSourceData;
using qdt::AttackSourceMac;
using qdt::HsecGlobalCfg;

NQE_TABLE_SEARCH(AttackSmac) { return search.NextOf<AttackSourceMac>(qdt::kTableAttackSourceMac); }

NQE_TABLE_FORMAT_EACH(AttackSmac, AttackSourceMac) {
  text.Print<"  SrcMac  :  %02x:%02x:%02x:%02x:%02x:%02x\n">(qdt::Mac(e.mac));
}

NQE_TABLE_SEARCH(AttackSip) { return search.NextOf<AttackSourceAddress>(qdt::kTableAttackSourceIp); }

NQE_TABLE_FORMAT_EACH(AttackSip, AttackSourceAddress) { text.Print<"  SrcIp  :  %s\n">(Address(e.address)); }

NQE_TABLE_SEARCH(AttackSdata) { return search.NextOf<AttackSourceData>(qdt::kTableAttackSourceData); }

NQE_TABLE_FORMAT_EACH(AttackSdata, AttackSourceData) {
  text.Print<
      "  Ipv4Addr        :  %s\n"
      "  Mac             :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  LastSec         :  %u\n"
      "  LastCount       :  %u\n"
      "  LastAlarmSec    :  %u\n"
      "  MsgPubFlag      :  %u\n"
      "  TotalCount      :  %lu\n"
      "  PenaltyCycleCnt :  %u\n"
      "  AlarmCycleCnt   :  %u\n\n">(Address(e.address), qdt::Mac(e.mac), e.lastSecond, e.lastCount,
                                     e.lastAlarmSecond, e.published, e.totalCount, e.penaltyCycles,
                                     e.alarmCycles);
}

static void PrintAttackSource(qdt::Text &text, const HsecGlobalCfg &e) {
  text.Print<
      "Attack Src:\n"
      "  AlarmEnable       :  %u\n"
      "  PenaltyEnable     :  %u\n"
      "  DefendType        :  %u\n"
      "  AlarmThres        :  %u\n"
      "  PenaltyThres      :  %u\n"
      "  SessCarCauseIdMin :  %u\n"
      "  SessCarCauseIdMax :  %u\n">(e.alarm, e.penalty, e.defendType, e.alarmThreshold, e.penaltyThreshold,
                                     e.sessionCarCauseMin, e.sessionCarCauseMax);
}

static void PrintBlacklist(qdt::Text &text, const HsecGlobalCfg &e) {
  text.Print<
      "Blacklist:\n"
      "  AclGrpType       :  %u\n"
      "  AclGrpId         :  %u\n">(e.blacklistGroupType, e.blacklistGroupId);
}

static void PrintFloodAttack(qdt::Text &text, const HsecGlobalCfg &e) {
  text.Print<
      "Anti Attack:\n"
      "  TcpSyncAtkFlag   :  %u\n"
      "  UdpAtkFlag       :  %u\n"
      "  IcmpAtkFlag      :  %u\n"
      "  AbnormalAtkFlag  :  %u\n"
      "  FragmentAtkFlag  :  %u\n"
      "  TcpSyncAtkCarId  :  %u\n"
      "  IcmpAtkCarId     :  %u\n"
      "  FragmentAtkCarId :  %u\n">(e.tcpSynAttack, e.udpAttack, e.icmpAttack, e.abnormalAttack,
                                    e.fragmentAttack, e.tcpSynCarId, e.icmpCarId, e.fragmentCarId);
}

static void PrintHostCpcar(qdt::Text &text, const HsecGlobalCfg &e) {
  text.Print<
      "Host CpCar:\n"
      "  HostCpCarArpFlag   :  %u\n"
      "  HostCpCarDhcpFlag  :  %u\n"
      "  HostCpCar8021XFlag :  %u\n"
      "  Pps                :  %u\n">(e.hostCpcarArp, e.hostCpcarDhcp, e.hostCpcar8021x, e.hostCpcarPps);
}

static void PrintTotalCpcar(qdt::Text &text, const HsecGlobalCfg &e) {
  text.Print<
      "Total CpCar:\n"
      "  Enable :  %u\n"
      "  CarId  :  %u\n">(e.totalCpcar, e.totalCpcarCarId);
}

NQE_TABLE_SEARCH(HsecGlobalCfg) {
  return search.FindOne<HsecGlobalCfg>(qdt::kTableHsecGlobalCfg, uint32_t{0});
}

NQE_TABLE_FORMAT_ONE(HsecGlobalCfg, HsecGlobalCfg) {
  PrintAttackSource(text, e);
  PrintBlacklist(text, e);
  PrintFloodAttack(text, e);
  PrintHostCpcar(text, e);
  PrintTotalCpcar(text, e);
}

QDT_TABLE_PIECE(NqeTableHsecGlobalAtkSrcCfg) {
  return qdt::FormatPiece<qdt::HsecGlobalCfg, PrintAttackSource>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableHsecGlobalBlacklistCfg) {
  return qdt::FormatPiece<qdt::HsecGlobalCfg, PrintBlacklist>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableHsecGlobalFloodAtkCfg) {
  return qdt::FormatPiece<qdt::HsecGlobalCfg, PrintFloodAttack>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableHsecGlobalHostCpCarCfg) {
  return qdt::FormatPiece<qdt::HsecGlobalCfg, PrintHostCpcar>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableHsecGlobalTotalCpCarCfg) {
  return qdt::FormatPiece<qdt::HsecGlobalCfg, PrintTotalCpcar>(out, room, entry);
}
