#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "qdt/stats.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/record_copy.h"
#include "src/om/common/table_descriptor.h"
#include "src/om/common/trace_block.h"
#include "src/om/engine/arp_simulator.h"
#include "src/om/engine/packet_socket.h"
#include "src/om/engine/packet_trace.h"
#include "src/om/nqe_cli/table_view.h"

// Views of what the engine traces and tests, and of what its tables take.
namespace qdt {
namespace {

// What the format gets of a discard reason.
struct DropReason {
  char name[128];
};

TraceBlock g_traceBlock;

}  // namespace
}  // namespace qdt

using qdt::ArpSimulatorEntry;
using qdt::DropReason;
using qdt::PacketSocketEntry;
using qdt::PacketSocketKey;
using qdt::PacketTraceBlock;

NQE_TABLE_SEARCH(AfPacketListen) {
  if (search.loopNum == 0) return QDT_TBL_INVALID_INPUT;
  unsigned high = 0, low = 0;
  if (qdt::sscanf_s(search.key1, "0x%02x%02x", &high, &low) != 2) return QDT_TBL_FAIL;
  const PacketSocketKey key = {static_cast<uint16_t>(high * 256 + low), 0};
  return search.NextOfKey<PacketSocketEntry>(qdt::kTablePacketSocket, key);
}

NQE_TABLE_FORMAT_EACH(AfPacketListen, PacketSocketEntry) {
  text.Print<
      "  Ethernet protocol  :  0x%x\n"
      "  Fd                 :  %d\n"
      "  IfIndex            :  %u\n\n">(e.protocol, e.fd, e.ifIndex);
}

// The memory is the table manager's, of which the format asks itself.
NQE_TABLE_SEARCH(TbmMemStat) { return 0; }

int32_t NqeTableFormatTbmMemStat(char *out, uint32_t room, const void *, int32_t) {
  const std::span<const TbmTableDesc> tables = qdt::EngineTableDescriptors();
  if (tables.empty()) return QDT_TBL_UNSUPPORTED;
  qdt::Text text(out, room);
  text.Print<
      "---------------------------------------------------------------------------------------------------\n"
      "TableId    TableName                        Enable     Spec        EntryNum     MemorySize(Bytes)  \n"
      "---------------------------------------------------------------------------------------------------"
      "\n">();
  uint32_t total = 0;
  for (uint32_t id = 0; id < tables.size() && !text.failed(); ++id) {
    const TbmTableDesc &table = tables[id];
    uint32_t bytes = 0;
    TbmTblMemStat(qdt::kEngineInstance, id, &bytes);
    text.Print<"  %-9u%-35s%-11d%-13d%-13d%u\n">(id, table.name, static_cast<int32_t>(table.enable),
                                                 static_cast<int32_t>(table.spec),
                                                 static_cast<int32_t>(table.entryNum), bytes);
    total += bytes;
  }
  text.Print<
      "---------------------------------------------------------------------------------------------------\n"
      "Total Table Memory Size: %u (Bytes)\n"
      "---------------------------------------------------------------------------------------------------"
      "\n">(total);
  return text.Result();
}

NQE_TABLE_SEARCH(StationTrace) {
  if (!qdt::g_traceBlock.Attach()) return QDT_TBL_INTERNAL;
  return search.Deliver(qdt::g_traceBlock.get(), sizeof(PacketTraceBlock));
}

QDT_TABLE_PIECE(NqeTableStationTraceParseFormat) {
  if (entry == nullptr) return QDT_TBL_DATA_SIZE;
  const auto e = qdt::CopyOf<PacketTraceBlock>(entry);
  qdt::Text text(out, room);
  text.Print<"  Enable :  %u \n  IsAll  :  %u \n  StaNum :  %u \n">(e.on.stations, e.allStations,
                                                                    e.stationCount);
  if (text.failed()) return text.Result();
  // The count is a signed byte to the engine; stations that do not fit are no failure.
  const int stations = std::min<int>(static_cast<int8_t>(e.stationCount), qdt::kMaxTracedStations);
  for (int i = 0; i < stations; ++i) {
    const qdt::MacAddress &mac = e.stations[i].mac;
    text.Print<"  StaMac :  %02x:%02x:%02x:%02x:%02x:%02x\n">(qdt::Mac(mac));
  }
  return static_cast<int32_t>(text.size());
}

QDT_TABLE_FORMAT(NqeTableFormatStationTrace) {
  if (recordLen != static_cast<int32_t>(sizeof(PacketTraceBlock))) return QDT_TBL_DATA_SIZE;
  return NqeTableStationTraceParseFormat(out, room, record);
}

NQE_TABLE_SEARCH(DropId) {
  if (search.key2 >= QDT_STAT_DISCARD_COUNT) return QDT_TBL_INVALID_INPUT;
  const char *const name = QdtOmaSysStatDescGet()[QDT_STAT_DISCARD + search.key2];
  if (name == nullptr) return QDT_TBL_INVALID_INPUT;
  DropReason reason{};
  std::memcpy(reason.name, name, strnlen(name, sizeof(reason.name)));
  return search.Deliver(&reason, sizeof(reason));
}

NQE_TABLE_FORMAT_ONE(DropIdDesc, DropReason) {
  text.Print<"  Discard Type:  %s\n">(std::string_view(e.name, strnlen(e.name, sizeof(e.name))));
}

NQE_TABLE_SEARCH(ArpSimulator) { return search.NextOf<ArpSimulatorEntry>(qdt::kTableArpSimulator); }

NQE_TABLE_FORMAT_EACH(ArpSimulator, ArpSimulatorEntry) {
  text.Print<
      "  Type             :  %hu\n"
      "  Interval         :  %u\n"
      "  TestTimes        :  %u\n"
      "  VlanId           :  %hu\n"
      "  SrcMac           :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  DstMac           :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  SrcIp            :  %s\n"
      "  DstIp            :  %s\n"
      "  SentTimes        :  %u\n"
      "  Testing          :  %u\n"
      "  TestSendTimeMs   :  %u\n"
      "  TestReplyTimeMs  :  %u\n\n">(
      e.type, e.interval, e.testTimes, e.vlanId, qdt::Mac(e.sourceMac), qdt::Mac(e.destinationMac),
      qdt::Address(e.sourceAddress), qdt::Address(e.destinationAddress), e.sentTimes, e.testing,
      static_cast<uint32_t>(e.sendTimeMs), static_cast<uint32_t>(e.replyTimeMs));
}
