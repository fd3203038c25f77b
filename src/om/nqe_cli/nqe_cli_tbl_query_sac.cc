#include <algorithm>
#include <cstddef>
#include <string_view>

#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/log.h"
#include "src/om/common/names.h"
#include "src/om/engine/global.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/sac.h"
#include "src/om/nqe_cli/station_key.h"
#include "src/om/nqe_cli/table_entry.h"
#include "src/om/nqe_cli/table_view.h"

// Views of application control: its profiles, how it numbers applications, and what it counts of them.
namespace qdt {
namespace {

// Empty for what is no action.
const char *ActionName(uint8_t actionType) {
  static constexpr FixedText<20> kNames[] = {"remark-dscp", "remark-dot1p", "deny", "car",
                                             "dynamic-optimization"};
  return actionType >= 1 && actionType <= std::size(kNames) ? kNames[actionType - 1].text : "";
}

std::string_view Name(const char (&name)[32]) { return {name, strnlen(name, sizeof(name))}; }

void LogNoGlobal(const SacInterfaceStatistics &, int32_t code) {
  QDT_LOG_ERROR("[SacStatGloVer] error in Search CAP_TABLE_GLOBAL, ret %d\n", code);
}

void LogNoGlobal(const SacUserStatistics &, int32_t code) {
  QDT_LOG_ERROR("[SacStatGloVer] error in search usf CAP_TABLE_GLOBAL, ret %d\n", code);
}

void PrintSlot(Text &text, uint32_t slot, const SacCount &total, const SacSubCount &sub0,
               const SacSubCount &sub1) {
  text.Print<
      "[%2d]  AppId             :  %u\n"
      "      UpPktStat         :  %d\n"
      "      UpByteStat        :  %ld\n"
      "      DnPktStat         :  %d\n"
      "      DnByteStat        :  %ld\n"
      "      AppId0            :  %u\n"
      "      UpPktStat         :  %d\n"
      "      UpByteStat        :  %d\n"
      "      DnPktStat         :  %d\n"
      "      DnByteStat        :  %d\n"
      "      AppId1            :  %u\n"
      "      UpPktStat         :  %d\n"
      "      UpByteStat        :  %d\n"
      "      DnPktStat         :  %d\n"
      "      DnByteStat        :  %d\n">(
      static_cast<int32_t>(slot), total.appId, total.upPackets, total.upBytes, total.downPackets,
      total.downBytes, sub0.appId, sub0.upPackets, sub0.upBytes, sub0.downPackets, sub0.downBytes, sub1.appId,
      sub1.upPackets, sub1.upBytes, sub1.downPackets, sub1.downBytes);
}

template <uint32_t kSlots>
void PrintStatistics(Text &text, const SacStatistics<kSlots> &e) {
  int64_t globalVersion = 0;
  if (const int32_t code =
          ReadEntry(kTableGlobal, uint32_t{0}, globalVersion, offsetof(GlobalEntry, sacVersion));
      code != 0) {
    LogNoGlobal(e, code);
    return text.Fail();
  }
  text.Print<
      "      AppNum            :  %u\n"
      "      CurRealTimeStat   :  %u\n"
      "      CurStatVersion    :  %ld\n"
      "      LastStatVersion   :  %ld\n"
      "      GlobalStatVersion :  %ld\n">(e.lastSlot, e.realTime, e.version, e.lastVersion, globalVersion);
  const uint32_t end = std::min(e.lastSlot, kSlots - 1) + 1;
  for (uint32_t slot = e.total[0].appId == 0 ? 1 : 0; slot < end && !text.failed(); ++slot) {
    PrintSlot(text, slot, e.total[slot], e.sub0[slot], e.sub1[slot]);
  }
}

}  // namespace
}  // namespace qdt

using qdt::SacAppGroup;
using qdt::SacAppMapping;
using qdt::SacAppReverseMapping;
using qdt::SacInterfaceStatistics;
using qdt::SacPolicyCar;
using qdt::SacPolicyCarKey;
using qdt::SacPriorityMapping;
using qdt::SacProfile;
using qdt::SacProtocolMapping;
using qdt::SacUserEntry;
using qdt::SacUserStatistics;
using qdt::StationKey;

NQE_TABLE_SEARCH(SacProfile) { return search.FindOne<SacProfile>(qdt::kTableSacProfile, search.key2); }

NQE_TABLE_FORMAT_ONE(SacProfile, SacProfile) {
  text.Print<
      "      SacId           :  %u\n"
      "      VapStatEn       :  %u\n"
      "      UsrStatEn       :  %u\n">(e.sacId, e.vapStat, e.userStat);
  for (int32_t slot = 0; slot < qdt::kSacProfileApplications; ++slot) {
    const qdt::SacApplication &app = e.applications[slot];
    if (app.appId == 0) continue;
    text.Print<
        "[%2d]  AppId           :  %u\n"
        "      AppType         :  %u\n"
        "      ActionType      :  %u(%s)\n"
        "      ActionPara      :  %u\n"
        "      ActionIndex     :  %u\n">(slot, app.appId, app.appType, app.actionType,
                                         qdt::ActionName(app.actionType), app.actionParameter,
                                         app.actionIndex);
  }
}

NQE_TABLE_SEARCH(SacPolicyCarid) {
  const SacPolicyCarKey key = {search.key2, static_cast<uint16_t>(search.key3),
                               static_cast<uint16_t>(search.key4)};
  return search.FindOne<SacPolicyCar>(qdt::kTableSacPolicyCar, key);
}

NQE_TABLE_FORMAT_ONE(SacPolicyCarid, SacPolicyCar) {
  text.Print<
      "    SacId        :  %u\n"
      "    AppId        :  %u\n"
      "    AppType      :  %u\n"
      "    CarId        :  %u\n">(e.key.sacId, e.key.appId, e.key.appType, e.carId);
}

NQE_TABLE_SEARCH(SacAppGroup) { return search.FindOne<SacAppGroup>(qdt::kTableSacAppGroup, search.key2); }

NQE_TABLE_FORMAT_ONE(SacAppGroup, SacAppGroup) {
  for (uint32_t word = 0; word < qdt::kSacGroupWords; ++word) {
    text.Print<"bitmap[%2u] : %08x\n">(word, e.bitmap[word]);
  }
}

NQE_TABLE_SEARCH(SacProtocolMapping) {
  return search.FindOne<SacProtocolMapping>(qdt::kTableSacProtocol, search.key2);
}

NQE_TABLE_FORMAT_ONE(SacProtocolMapping, SacProtocolMapping) {
  text.Print<
      "    AppId        :  %u\n"
      "    ClassId      :  %u\n">(e.appId, e.classId);
}

NQE_TABLE_SEARCH(SacAppMapping) {
  return search.FindOne<SacAppMapping>(qdt::kTableSacAppMapping, search.key2);
}

NQE_TABLE_FORMAT_ONE(SacAppMapping, SacAppMapping) {
  text.Print<
      "    AppIndex     :  %u\n"
      "    ClassId      :  %u\n"
      "    AppName      :  %s\n">(e.appIndex, e.classId, qdt::Name(e.name));
}

NQE_TABLE_SEARCH(SacAppRvsMapping) {
  return search.FindOne<SacAppReverseMapping>(qdt::kTableSacAppReverse, search.key2);
}

NQE_TABLE_FORMAT_ONE(SacAppRvsMapping, SacAppReverseMapping) {
  text.Print<
      "    AppId        :  %u\n"
      "    ClassId      :  %u\n"
      "    AppName      :  %s\n">(e.appId, e.classId, qdt::Name(e.name));
}

NQE_TABLE_SEARCH(SacPriorityMapping) {
  return search.FindOne<SacPriorityMapping>(qdt::kTableSacPriority, search.key2);
}

NQE_TABLE_FORMAT_ONE(SacPriorityMapping, SacPriorityMapping) {
  text.Print<"    Priority     :  %u\n">(e.priority);
}

NQE_TABLE_SEARCH(SacIfStat) {
  const qdt::FwdIfIndex index = qdt::FindFwdIf(search.key2);
  if (index.code != 0) return index.code;
  void *entry = nullptr;
  int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableFwdIf, &index.value, &entry);
  if (code != 0) {
    QDT_LOG_INFO("sac search fwdif fail, ret=%d, ctrlIfIdx=%u, fwdIfIdx=%u\n", code, search.key2,
                 index.value);
    return code;
  }
  qdt::ForwardingInterface interface;
  code = qdt::CopyEntry(&interface, entry, sizeof(interface));
  if (code != 0) return code;
  const uint32_t vapIndex = interface.vapIndex;
  code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableSacInterfaceStat, &vapIndex, &entry);
  if (code != 0) {
    QDT_LOG_INFO("sac search if stat fail, ret=%d, ctrlIfIdx=%u, vapIndex=%u\n", code, search.key2, vapIndex);
    return code;
  }
  return search.Deliver(entry, sizeof(SacInterfaceStatistics));
}

NQE_TABLE_FORMAT_ONE(SacIfStat, SacInterfaceStatistics) { qdt::PrintStatistics(text, e); }

// The address is the fourth word of the command, though the usage list shows it in the fifth place.
NQE_TABLE_SEARCH(SacUsfStat) {
  StationKey key;
  if (!qdt::ParseStation(search.key1, key)) return QDT_TBL_UNSUPPORTED;
  void *entry = nullptr;
  const int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableSacUserStat, &key, &entry);
  if (code != 0) {
    const qdt::MacAddress &mac = key.mac;
    QDT_LOG_INFO("sac usf stat search fail, ret=%d, mac(%02x:%02x:%02x:%02x:%02x:%02x)\n", code, mac[0],
                 mac[1], mac[2], mac[3], mac[4], mac[5]);
    return code;
  }
  return search.Deliver(entry, sizeof(SacUserEntry));
}

NQE_TABLE_FORMAT_ONE(SacUsfStat, SacUserEntry) { qdt::PrintStatistics(text, e.statistics); }

QDT_TABLE_PIECE(NqeTableFormatSacStatForIf) {
  return qdt::FormatPiece<SacInterfaceStatistics, qdt::PrintStatistics>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableFormatSacStatForUsf) {
  return qdt::FormatPiece<SacUserStatistics, qdt::PrintStatistics>(out, room, entry);
}
