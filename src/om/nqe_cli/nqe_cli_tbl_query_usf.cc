#include <arpa/inet.h>

#include <cstring>
#include <string_view>

#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/record_copy.h"
#include "src/om/engine/user.h"
#include "src/om/nqe_cli/format_piece_at.h"
#include "src/om/nqe_cli/station_key.h"
#include "src/om/nqe_cli/table_view.h"
#include "src/om/nqe_cli/usf_eap_text.h"
#include "src/om/nqe_cli/usf_user_text.h"

// Views of the wireless users: their services, addresses, roaming, portals and EAP exchanges.
using qdt::Address;
using qdt::EapLogEntry;
using qdt::LocalManagementUser;
using qdt::ProxyPortalEntry;
using qdt::StationKey;
using qdt::UserCounters;
using qdt::UserTraffic;
using qdt::UsfMacIpEntry;
using qdt::UsfMacIpKey;
using qdt::UsfRoamEntry;
using qdt::UsfRoamStation;
using qdt::UsfStatEntry;
using qdt::UsfUserRecord;
using qdt::VapStation;
using qdt::VapStationKey;

// Fetches the entry of the station whose MAC address key1 is.
template <typename Record>
static int32_t FindStation(const qdt::Search &search, uint32_t table) {
  StationKey key;
  if (!qdt::ParseStation(search.key1, key)) return QDT_TBL_UNSUPPORTED;
  return search.FindOne<Record>(table, key);
}

NQE_TABLE_SEARCH(UsfUser) { return FindStation<UsfUserRecord>(search, qdt::kTableUsfUser); }

NQE_TABLE_FORMAT_ONE(UsfUser, UsfUserRecord) {
  qdt::PrintUserServices(text, e);
  qdt::PrintUserParameters(text, e);
  qdt::PrintUserFloodCars(text, e);
  qdt::PrintUserAuthentication(text, e);
  qdt::PrintUserCounters(text, e);
  qdt::PrintLearntAddress(text, e);
}

QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserSvc) {
  return qdt::FormatPieceAt<qdt::UsfUserRecord, qdt::PrintUserServices>(out, room, offset, entry);
}

QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserSvcParam1) {
  return qdt::FormatPieceAt<qdt::UsfUserRecord, qdt::PrintUserParameters>(out, room, offset, entry);
}

QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserSvcParam2) {
  return qdt::FormatPieceAt<qdt::UsfUserRecord, qdt::PrintUserFloodCars>(out, room, offset, entry);
}

QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserAuth) {
  return qdt::FormatPieceAt<qdt::UsfUserRecord, qdt::PrintUserAuthentication>(out, room, offset, entry);
}

QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserStat) {
  return qdt::FormatPieceAt<qdt::UsfUserRecord, qdt::PrintUserCounters>(out, room, offset, entry);
}

QDT_TABLE_PIECE_AT(NqeTableFormmatUsfUserIpLearn) {
  return qdt::FormatPieceAt<qdt::UsfUserRecord, qdt::PrintLearntAddress>(out, room, offset, entry);
}

QDT_TABLE_PIECE_AT(NqeTableShowFormatUsfStat) {
  return qdt::FormatPieceAt<qdt::UserTraffic, qdt::PrintUserTraffic>(out, room, offset, entry);
}

void NqeTableAddUsfStat(void *sum, const void *block) {
  auto total = qdt::CopyOf<UserCounters>(sum);  // neither needs to be aligned
  total += qdt::CopyOf<UserCounters>(block);
  std::memcpy(sum, &total, sizeof(total));
}

NQE_TABLE_SEARCH(UsfStat) { return search.FindOne<UsfStatEntry>(qdt::kTableUsfStat, search.key2); }

static void PrintStation(qdt::Text &text, const qdt::MacAddress &mac) {
  text.Print<"  StaMac   :  %02x:%02x:%02x:%02x:%02x:%02x\n">(qdt::Mac(mac));
}

NQE_TABLE_FORMAT_ONE(UsfStat, UsfStatEntry) { PrintStation(text, e.mac); }

// What key2 says of key1 in a query of addresses.
enum MacIpQuery : uint32_t { kByIpv4 = qdt::kUsfIpv4, kByIpv6 = qdt::kUsfIpv6, kByMac = 2 };

NQE_TABLE_SEARCH(UsfMacIp) {
  UsfMacIpKey key = {{}, static_cast<uint16_t>(search.key2), 0};
  switch (search.key2) {
    case kByIpv4: {
      const uint32_t address = ntohl(inet_addr(search.key1));
      std::memcpy(key.address, &address, sizeof(address));
      break;
    }
    case kByIpv6: {
      const qdt::Ipv6Bytes address = qdt::ParseIpv6(search.key1);
      std::memcpy(key.address, address.bytes, sizeof(key.address));
      break;
    }
    case kByMac:
      if (QdtCliStr2Mac(search.key1, key.address, sizeof(qdt::MacAddress)) != 0) return QDT_TBL_UNSUPPORTED;
      key.type = static_cast<uint16_t>(search.key3);
      break;
    default:
      return QDT_TBL_INVALID_INPUT;
  }
  return search.FindOne<UsfMacIpEntry>(qdt::kTableUsfMacIp, key);
}

NQE_TABLE_FORMAT_ONE(UsfMacIp, UsfMacIpEntry) {
  text.Print<
      "  IpType     :  %u\n"
      "  LearnMode  :  %u\n"
      "  MacData    :  %02x%02x-%02x%02x-%02x%02x\n"
      "  Ipv4Data   :  %s\n"
      "  Ipv6Data   :  %s\n">(e.ipType, e.learnMode, e.mac[0], e.mac[1], e.mac[2], e.mac[3], e.mac[4],
                              e.mac[5], Address(e.ipv4Address), Address(e.ipv6Address));
}

NQE_TABLE_SEARCH(UsfLocalMngUser) {
  const uint32_t address = ntohl(inet_addr(search.key1));
  return search.FindOne<LocalManagementUser>(qdt::kTableLocalManagementUser, address);
}

NQE_TABLE_FORMAT_ONE(UsfLocalMngUser, LocalManagementUser) {
  text.Print<
      "  MngUserIpv4Addr  :  %s\n"
      "  FwdIfIndex       :  %u\n"
      "  VlanId           :  %u\n"
      "  LocalMngSrcMac   :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  LocalMngDstMac   :  %02x:%02x:%02x:%02x:%02x:%02x\n">(
      Address(e.address), e.fwdIfIndex, e.vlanId, qdt::Mac(e.sourceMac), qdt::Mac(e.destinationMac));
}

NQE_TABLE_SEARCH(UsfRoam) { return FindStation<UsfRoamEntry>(search, qdt::kTableUsfRoam); }

NQE_TABLE_FORMAT_ONE(UsfRoam, UsfRoamEntry) {
  text.Print<
      "  RoamRole         :  %u\n"
      "  InterIsolate     :  %u\n"
      "  InnerIsolate     :  %u\n"
      "  UserIsolate      :  %u\n"
      "  TunnelDstRole    :  %u\n"
      "  UsrGroupId       :  %u\n"
      "  HomeVapFwdif     :  %u\n"
      "  TunnelId         :  %u\n">(e.role, e.interIsolate, e.innerIsolate, e.userIsolate, e.tunnelPeerRole,
                                    e.userGroupId, e.homeVapFwdIf, e.tunnelId);
}

NQE_TABLE_SEARCH(UsfRoamAp2StaElb) { return search.NextOf<UsfRoamStation>(qdt::kTableUsfRoamStation); }

// The address stands behind the empty line that ends a station's lines.
NQE_TABLE_FORMAT_EACH(UsfRoamAp2StaElb, UsfRoamStation) {
  text.Print<
      "  VlanId       : %u\n"
      "  IPType       : %u\n"
      "  UserMac      : %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  HapMac       : %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  UserIsolate  : %u\n\n">(e.vlanId, e.hasIpv4, qdt::Mac(e.user), qdt::Mac(e.homeAccessPoint),
                                 e.userIsolate);
  if (e.hasIpv4) text.Print<"  Ipv4         : 0x%x\n">(e.ipv4Address);
}

// One batch is all that is ever shown of the ports, whatever is asked for.
NQE_TABLE_SEARCH(UsfPortalHttpPort) {
  constexpr uint32_t kMaxPorts = 8;
  uint32_t bytes = kMaxPorts * sizeof(uint32_t);
  *search.record =
      calloc_ex(g_mallocHandle, search.where.path, search.where.line, kMaxPorts, sizeof(uint32_t));
  if (*search.record == nullptr) return QDT_TBL_NO_MEMORY;
  const int32_t code =
      TbmTblTravNext(qdt::kEngineInstance, qdt::kTablePortalPort, search.ctx, *search.record, &bytes);
  if (code != 0 && code != 1) return code;
  *search.recordLen = TbmTblTravContextCnt(search.ctx) * sizeof(uint32_t);
  return 0;
}

NQE_TABLE_FORMAT_EACH(UsfPortalHttpPort, uint32_t) { text.Print<"  Port    :  %u\n">(e); }

NQE_TABLE_SEARCH(ProxyPortal) {
  return search.FindOne<ProxyPortalEntry>(qdt::kTableProxyPortal, search.key2);
}

NQE_TABLE_FORMAT_ONE(ProxyPortal, ProxyPortalEntry) {
  const std::string_view url(e.url, strnlen(e.url, sizeof(e.url)));
  text.Print<"  ProxyPort  :  %u\n  Url        :  %s\n">(e.proxyPort, url);
}

// An interface that is not mapped is no failure: nothing is found under the code that takes its index' place.
NQE_TABLE_SEARCH(Vap2Sta) {
  const VapStationKey key = {QdtCliGetFwdifIndexByCtrlIndex(search.key2), static_cast<uint16_t>(search.key3),
                             0};
  return search.NextOfKey<VapStation>(qdt::kTableVapStation, key);
}

NQE_TABLE_FORMAT_EACH(Vap2Sta, VapStation) { PrintStation(text, e.mac); }

NQE_TABLE_SEARCH(EapLogInfo) { return FindStation<EapLogEntry>(search, qdt::kTableEapLog); }

NQE_TABLE_FORMAT_ONE(EapLogInfo, EapLogEntry) { qdt::PrintEapLog(text, e); }
