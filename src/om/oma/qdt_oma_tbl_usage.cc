#include <cstdint>

#include "platform/engine.h"
#include "platform/omcc.h"
#include "platform/shm.h"
#include "qdt/oma.h"
#include "qdt/stats.h"
#include "src/om/common/log.h"
#include "src/om/common/names.h"
#include "src/om/common/owned.h"
#include "src/om/common/table_descriptor.h"
#include "src/om/common/text.h"
#include "src/om/oma/request.h"
#include "src/om/oma/rule_line.h"

namespace qdt {
namespace {

constexpr uint32_t kUsageRoom = 20480;
constexpr uint32_t kFirstTable = 1;  // table 0 holds the one global record

// Rounded down; 64 bits, since the product of two 32-bit figures needs them.
uint32_t Percent(uint32_t part, uint32_t whole) {
  return whole == 0 ? 0 : static_cast<uint32_t>(uint64_t{part} * 100 / whole);
}

int32_t CountEntries(uint32_t table, uint32_t *used) {
  if (table != kTableAclGroup) return TbmTblEntryNum(kEngineInstance, table, used);
  uint32_t rules = 0;
  return TbmTblAclEntryNum(kEngineInstance, table, used, &rules);
}

bool PrintUsageHead(Text &text) {
  return text.Print<"\n%s\n%-30s %-6s %-6s %-5s(%%) %-10s\n%s">(kRuleLine, "TableName", "Spec", "Used",
                                                                "Usage", "Trapstate", kRuleLine);
}

// The rows up to the first that fails; the bytes written.
uint32_t PrintUsageRows(char *text, uint32_t room) {
  uint32_t written = 0;
  for (uint32_t table = kFirstTable; table < kEngineTables; ++table) {
    const int32_t row = TblUsagePrintUsageInfo(text + written, room - written, table);
    if (row < 0) break;
    written += static_cast<uint32_t>(row);
  }
  return written;
}

// Packets that the engine dropped because buffers ran short, at its four water lines, on all cores.
uint64_t CountNobuffDrops() {
  constexpr uint32_t kFirstWaterLine = QDT_STAT_DISCARD + 176;
  constexpr uint32_t kWaterLines = 4;
  uint64_t drops = 0;
  const int32_t cores = QdtSysStatGetNumRuncs();
  for (int32_t core = 0; core < cores; ++core) {
    const uint64_t *const counters = QdtSysStatGetRuncStat(static_cast<uint32_t>(core));
    if (counters == nullptr) continue;
    for (uint32_t i = 0; i < kWaterLines; ++i) drops += counters[kFirstWaterLine + i];
  }
  return drops;
}

struct FreeDocument {
  void operator()(omcc_doc *document) const { omcc_free_doc(document); }
};

// An answer that is a document with one figure. Its first two leaves say where it was measured: there is one
// slot and one processor.
struct FigureDocument {
  FixedText<7> place[2];
  FixedText<18> figure;
  FixedText<44> missing;  // logged when there is no document
};

constexpr FigureDocument kNobuffDocument = {
    {"slot-id", "cpu-id"}, "packet-drop-nobuff", "QdtOmaPacketDropNobuffProc: doc is null\n"};
constexpr FigureDocument kMemoryDocument = {
    {"cpu-id", "slot-id"}, "fwd-memory-usage", "QdtOmaMemoryUsage: doc is null\n"};

constexpr char kFigurePath[] = "/tavrix-software-fwd:software-fwd/fwd-statistics-infos/fwd-statistics-info";
constexpr int32_t kFigureNode = 2;
constexpr int32_t kFigureFormat = 2;
constexpr uint32_t kFigureRoom = 128;

int32_t FormatFigure(const FigureDocument &layout, const char *value, char **text) {
  const Owned<omcc_doc, FreeDocument> document(omcc_new_doc());
  if (document == nullptr) {
    QDT_LOG_ERROR("%s", layout.missing.text);
    return kFailed;
  }
  omcc_node *const node = omcc_new_node(omcc_doc_root(document.get()), kFigurePath, kFigureNode);
  for (const auto &name : layout.place) {
    if (omcc_new_leaf_str(node, name.text, "0") != 0) return kFailed;  // so does a node that is missing
  }
  if (omcc_new_leaf_str(node, layout.figure.text, value) != 0) {
    QDT_LOG_ERROR("qdt add omcc leaf failed\n");
    return kFailed;
  }
  *text = omcc_format_doc(document.get(), kFigureFormat);
  return kDone;
}

}  // namespace
}  // namespace qdt

using qdt::kDone;
using qdt::kFailed;

int32_t TblUsagePrintUsageInfo(char *text, uint32_t room, uint32_t table) {
  const TbmTableDesc *const descriptor = qdt::FindTableDescriptor(table);
  if (descriptor == nullptr || descriptor->dataSize == 0 || descriptor->enable == 0 || descriptor->spec == 0)
    return 0;
  const char *const name = descriptor->name == nullptr ? "" : descriptor->name;
  uint32_t used = 0;
  if (const int32_t code = qdt::CountEntries(table, &used); code != 0) {
    QDT_LOG_ERROR("Get tbl entry num failed, table: %s, ret: %d\n", name, code);
    return code == QDT_TBL_EMPTY ? 0 : kFailed;
  }
  qdt::Text row(text, room);
  row.Print<"\n%-30s %-6u %-6u %-8u %u">(name, descriptor->spec, used, qdt::Percent(used, descriptor->spec),
                                         descriptor->trapState);
  if (row.failed()) {
    QDT_LOG_ERROR("sprintf_s table: %s failed, ret: %d\n", name, kFailed);
    return kFailed;
  }
  return row.Result();
}

int32_t QdtOmaTblUsageProc(AgentRequest /*request*/) {
  const qdt::OwnedText answer = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kUsageRoom);
  if (answer == nullptr) {
    QDT_LOG_ERROR("malloc buf for tbl usage failed\n");
    return kFailed;
  }
  qdt::Text head(answer.get(), qdt::kUsageRoom);
  if (!qdt::PrintUsageHead(head)) {
    QDT_LOG_ERROR("sprintf_s table uasge start block line failed, ret: %d\n", kFailed);
    return kFailed;
  }
  uint32_t length = head.size();
  length += qdt::PrintUsageRows(answer.get() + length, qdt::kUsageRoom - length);
  qdt::Text end(answer.get() + length, qdt::kUsageRoom - length);
  if (!end.Print<"\n%s">(qdt::kRuleLine)) {
    QDT_LOG_ERROR("sprintf_s table uasge end block line failed, ret: %d\n", kFailed);
    return kFailed;
  }
  return QdtOmSendMsg(answer.get()) == 0 ? kDone : kFailed;
}

int32_t QdtOmaPacketDropNobuffProc(char **document) {
  char value[qdt::kFigureRoom];
  if (qdt::Text text(value, sizeof(value)); !text.Print<"%lu">(qdt::CountNobuffDrops())) {
    QDT_LOG_ERROR("qdt sprintf_s failed\n");
    return kFailed;
  }
  return qdt::FormatFigure(qdt::kNobuffDocument, value, document);
}

int32_t QdtOmaMemoryUsage(char **document) {
  uint16_t partition = 0;
  if (const int32_t code = DHF_ShmPtAttach("OSA_SHM_CST_NAME", &partition); code != 0) {
    // Unlike the other failures this one is told as information.
    QDT_LOG_INFO("Qdt share memory partition attach failed, ret: 0x%X.\n", static_cast<uint32_t>(code));
    return kFailed;
  }
  const uint32_t allocated = DHF_ShmPtAllocedSizeGet(partition);
  char value[qdt::kFigureRoom];
  qdt::Text text(value, sizeof(value));
  if (!text.Print<"%u">(qdt::Percent(allocated, DHF_ShmPtTotalSizeGet(partition)))) {
    QDT_LOG_ERROR("qdt memory usage sprintf_s failed\n");
    return kFailed;
  }
  return qdt::FormatFigure(qdt::kMemoryDocument, value, document);
}
