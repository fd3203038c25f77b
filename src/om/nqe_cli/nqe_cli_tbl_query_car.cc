#include <cstring>

#include "platform/engine.h"
#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/crc32c.h"
#include "src/om/common/processor_timer.h"
#include "src/om/common/section.h"
#include "src/om/engine/car.h"
#include "src/om/engine/security.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the rate limiters and of what they are used for.
namespace qdt {
namespace {

// A stored rate (an amount per timer tick with 32 fraction bits) in units a millisecond. A product that needs
// more than 64 bits loses its upper ones, as in the engine.
uint64_t PerMillisecond(uint64_t rate) { return rate * (TimerFrequency() / 1000) >> 32; }

uint64_t PacketsPerSecond(const CarEntry &e) { return e.committedBurst >> 32; }

void PrintCarConfiguration(Text &text, const CarEntry &e) {
  text.Print<"CarCfg:\n">();
  Section<19> s(text);
  s.Line<"PktNumOrPktLen">(e.packetMode);
  s.Line<"CirOffset">(e.cirOffset);
  s.Line<"CarType">(e.type);
  s.Line<"SpinLock.locked", "%d">(e.lockHeld);
  s.Line<"SpinLock.pid", "%d">(e.lockOwner);
  s.Line<"SpinLock.lockId", "%d">(e.lockId);
  s.Line<"Timestamp", "%lu">(e.timestamp);
  s.Line<"Tc", "%lu">(e.committedTokens);
  s.Line<"TpTe", "%lu">(e.peakTokens);
  s.Line<"Cir", "%lu">(e.committedRate);
  s.Line<"Cbs", "%lu">(e.committedBurst);
  s.Line<"Pir", "%lu">(e.peakRate);
  s.Line<"PbsEbs", "%lu">(e.peakBurst);
}

// The limits as they were configured.
void PrintUserLimits(Text &text, const CarEntry &e) {
  text.Print<
      "  CtrlCir            :  %lu\n"
      "  CtrlCbs            :  %lu\n"
      "  CtrlPir            :  %lu\n"
      "  CtrlPbsEbs         :  %lu\n"
      "  CirOffset          :  %u\n"
      "  PirOffset          :  %u\n">(PerMillisecond(e.committedRate), e.configuredCommittedBurst,
                                      PerMillisecond(e.peakRate), e.configuredPeakBurst, e.cirOffset,
                                      e.pirOffset);
}

void PrintPacketLimit(Text &text, const CarEntry &e) {
  text.Print<"  Pps                :  %lu\n">(PacketsPerSecond(e));
}

void PrintCarAction(Text &text, const CarEntry &e) {
  text.Print<
      "CarAction:\n"
      "  GreenActionPermit  :  %u\n"
      "  YellowActionPermit :  %u\n"
      "  RedActionPermit    :  %u\n">(e.permitGreen, e.permitYellow, e.permitRed);
}

void PrintCarStatistics(Text &text, const CarEntry &e) {
  text.Print<
      "CarStat:\n"
      "  PassStatPkt        :  %ld\n"
      "  PassStatByte       :  %ld\n"
      "  DropStatPkt        :  %ld\n"
      "  DropStatByte       :  %ld\n">(e.passedPackets, e.passedBytes, e.droppedPackets, e.droppedBytes);
}

// Whole CPCAR records. They are printed only when the table manager can count them, though no view shows the
// count.
template <typename Record>
int32_t FormatCpcars(char *out, uint32_t room, const void *record, int32_t recordLen,
                     void (*print)(Text &, const Record &)) {
  if (!IsWhole<Record>(record, recordLen)) return QDT_TBL_DATA_SIZE;
  uint32_t count = 0;
  if (TbmTblEntryNum(kEngineInstance, kTableCpcar, &count) != 0) return QDT_TBL_FORMAT;
  return FormatEach<Record>(out, room, record, recordLen, print);
}

// Which of the per-MAC rate limits the packets of a station count against.
uint32_t MacCarSlot(const MacAddress &mac) { return Crc32c(mac, sizeof(mac)) % kMacCarSlots; }

// What the engine answers for a name that is no host protocol's.
constexpr uint32_t kUnknownProtocol = 254;

}  // namespace
}  // namespace qdt

using qdt::CarEntry;
using qdt::CpcarEntry;
using qdt::CpcarKey;
using qdt::CpcarPortEntry;
using qdt::HsecGlobalCfg;
using qdt::SessionCpcarEntry;
using qdt::ToText;

NQE_TABLE_SEARCH(Car) { return search.FindOne<CarEntry>(qdt::kTableCar, search.key2); }

NQE_TABLE_FORMAT_ONE(Car, CarEntry) {
  qdt::PrintCarConfiguration(text, e);
  if (e.packetMode) {
    qdt::PrintPacketLimit(text, e);
  } else {
    qdt::PrintUserLimits(text, e);
  }
  qdt::PrintCarAction(text, e);
  qdt::PrintCarStatistics(text, e);
}

QDT_TABLE_PIECE_AT(NqeTableFormatCarCfg) {
  return qdt::FormatPieceAt(out, room, offset, entry, qdt::PrintCarConfiguration);
}

QDT_TABLE_PIECE_AT(NqeTableFormatUsrCarCfg) {
  return qdt::FormatPieceAt(out, room, offset, entry, qdt::PrintUserLimits);
}

QDT_TABLE_PIECE_AT(NqeTableFormatCpcarCfg) {
  return qdt::FormatPieceAt(out, room, offset, entry, qdt::PrintPacketLimit);
}

QDT_TABLE_PIECE_AT(NqeTableFormatCarAction) {
  return qdt::FormatPieceAt(out, room, offset, entry, qdt::PrintCarAction);
}

QDT_TABLE_PIECE_AT(NqeTableFormatCarStat) {
  return qdt::FormatPieceAt(out, room, offset, entry, qdt::PrintCarStatistics);
}

// The protocol is key2, or the one that key1 names.
NQE_TABLE_SEARCH(CpcarPro) {
  if (search.loopNum != 0) return search.NextOf<CpcarEntry>(qdt::kTableCpcar);
  uint32_t protocol = search.key2;
  if (std::strcmp(search.key1, "0") != 0) {
    protocol = QdtGetProIdByName(search.key1);
    if (protocol == qdt::kUnknownProtocol) return QDT_TBL_FAIL;
  }
  const CpcarKey key = {static_cast<uint16_t>(protocol), static_cast<uint16_t>(search.key3)};
  return search.FindOne<CpcarEntry>(qdt::kTableCpcar, key);
}

NQE_TABLE_FORMAT(FormatCpcars, CpcarPro, CpcarEntry) {
  text.Print<
      "  HostProType     :  %hu\n"
      "  HostProName     :  %s\n"
      "  Wireless        :  %hu\n"
      "  Priority        :  %u\n"
      "  CarId           :  %u\n"
      "  TotalCarPassPkt :  %d\n"
      "  TotalCarDropPkt :  %d\n\n">(e.key.protocol, QdtGetNameByProId(e.key.protocol), e.key.wireless,
                                     e.priority, e.carId, static_cast<int32_t>(e.passedPackets),
                                     static_cast<int32_t>(e.droppedPackets));
}

NQE_TABLE_FORMAT(FormatCpcars, CpcarPps, CpcarEntry) {
  void *entry = nullptr;
  const int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableCar, &e.carId, &entry);
  if (code != 0) return text.Fail(code);
  if (entry == nullptr) return text.Fail(QDT_TBL_MEMORY);
  text.Print<
      "  HostProType    :  %u\n"
      "  HostProName    :  %s\n"
      "  Wireless       :  %u\n"
      "  Pps            :  %lu\n\n">(e.key.protocol, QdtGetNameByProId(e.key.protocol), e.key.wireless,
                                     qdt::PacketsPerSecond(*static_cast<const CarEntry *>(entry)));
}

NQE_TABLE_SEARCH(MacCarId) {
  qdt::MacAddress mac;
  if (QdtCliStr2Mac(search.key1, mac, sizeof(mac)) != 0) return QDT_TBL_UNSUPPORTED;
  constexpr uint32_t kKey = 0;
  void *entry = nullptr;
  const int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableHsecGlobalCfg, &kKey, &entry);
  if (code != 0) return code;
  if (entry == nullptr) return QDT_TBL_MEMORY;
  const uint16_t &carId = static_cast<const HsecGlobalCfg *>(entry)->macCarId[qdt::MacCarSlot(mac)];
  return search.Deliver(&carId, sizeof(carId));
}

NQE_TABLE_FORMAT_ONE(MacCarId, uint16_t) { text.Print<"  CarId       :  %d\n">(e); }

NQE_TABLE_SEARCH(SessCpcar) { return search.NextOf<SessionCpcarEntry>(qdt::kTableSessionCpcar); }

NQE_TABLE_FORMAT_WHOLE(SessCpcar, SessionCpcarEntry) {
  text.Print<
      "  Sip      :  %s\n"
      "  Dip      :  %s\n"
      "  Sport    :  %u\n"
      "  Dport    :  %u\n"
      "  Protocol :  %u\n"
      "  CarId    :  %d\n\n">(ToText(e.sourceAddress).c_str(), ToText(e.destinationAddress).c_str(),
                              e.sourcePort, e.destinationPort, e.protocol, static_cast<int32_t>(e.carId));
}

NQE_TABLE_SEARCH(CpcarPortMap) { return search.NextOf<CpcarPortEntry>(qdt::kTableCpcarPort); }

NQE_TABLE_FORMAT_WHOLE(CpcarPortMap, CpcarPortEntry) {
  text.Print<
      "  PortId       :  %u\n"
      "  Protocol     :  %u\n"
      "  isSrc        :  %u\n"
      "  hostType     :  %u\n\n">(e.port, e.protocol, e.isSource, e.hostProtocol);
}
