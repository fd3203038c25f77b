#include "qdt/tables.h"
#include "src/om/common/log.h"
#include "src/om/common/rows.h"
#include "src/om/engine/priority.h"
#include "src/om/nqe_cli/table_view.h"

// View of the QoS priority maps of one VAP. Each map has a writer for its label and one for its values.
namespace qdt {
namespace {

// What is left of `out` behind its first `position` bytes.
Text TextAt(char *out, uint32_t room, uint32_t position) {
  return position < room && out != nullptr ? Text(out + position, room - position) : Text(nullptr, 0);
}

int32_t WriteHead(char *out, uint32_t room, uint32_t position, const char *label) {
  Text text = TextAt(out, room, position);
  text.Print<"%s">(label);
  return text.Result();
}

// Writes the values on one line; how many of them fit.
size_t PrintMap(Text &text, const uint8_t (&map)[8]) {
  for (size_t i = 0; i < 7; ++i) {
    if (!text.Print<"%d ">(map[i])) return i;
  }
  return text.Print<"%d\n">(map[7]) ? 8 : 7;
}

// As above, eight values on a line, the later lines indented below the first.
size_t PrintMap(Text &text, const uint8_t (&map)[64]) {
  for (size_t i = 0; i < 64; ++i) {
    if (!text.Print<"%d ">(map[i])) return i;
    const bool ends = i % 8 == 7 && i != 63;
    if (ends && !text.Print<"\n                        ">()) return i;
  }
  text.Print<"\n">();
  return 64;
}

// Values that do not fit are left out, with a line in the log: they are no failure of the view.
template <size_t kValues>
int32_t WriteMap(char *out, uint32_t room, uint32_t position, const void *record,
                 const uint8_t (PriorityMaps::*map)[kValues], const char *name) {
  if (record == nullptr) return 0;
  const auto &maps = *static_cast<const PriorityMaps *>(record);
  static_assert(alignof(PriorityMaps) == 1);  // the caller's record need not be aligned
  Text text = TextAt(out, room, position);
  const size_t fit = PrintMap(text, maps.*map);
  if (fit < kValues) {
    QDT_LOG_ERROR("[ErrCode: %d]Error in format data for %s[%d]\n", QDT_TBL_FORMAT, name,
                  static_cast<int>(fit));
  } else if (text.failed()) {
    QDT_LOG_ERROR("[ErrCode: %d]Error in format data for %s\n", QDT_TBL_FORMAT, name);
  }
  return static_cast<int32_t>(text.size());
}

struct MapWriter {
  int32_t (*head)(char *out, uint32_t room, uint32_t position);
  int32_t (*data)(char *out, uint32_t room, uint32_t position, const void *record);
};

// The first line is constant text, its values included: what is stored for it is never shown.
int32_t NoData(char *, uint32_t, uint32_t, const void *) { return 0; }

constexpr MapWriter kWriters[] = {
    {Up2DscpHead, NoData},
    {UpTo8021pHead, UpTo8021pData},
    {P8021p2UpHead, P8021p2UpData},
    {Up2TnlDscpHead, Up2TnlDscpData},
    {DscpTo8021pHead, DscpTo8021pData},
    {Dscp2UpHead, Dscp2UpData},
    {Dscp2TnlDscpHead, Dscp2TnlDscpData},
};

}  // namespace
}  // namespace qdt

using qdt::PriorityMaps;

#define PRIORITY_HEAD(name, label) \
  QDT_PRIORITY_HEAD(name) { return qdt::WriteHead(out, room, position, label); }

PRIORITY_HEAD(Up2DscpHead, "  UP    to  DSCP     :  0 8 16 24 32 40 48 56\n")
PRIORITY_HEAD(UpTo8021pHead, "  UP    to  8021P    :  ")
PRIORITY_HEAD(P8021p2UpHead, "  8021P to  UP       :  ")
PRIORITY_HEAD(Up2TnlDscpHead, "  UP    to  Tnl DSCP :  ")
PRIORITY_HEAD(DscpTo8021pHead, "  DSCP  to  8021P    :  ")
PRIORITY_HEAD(Dscp2UpHead, "  DSCP  to  UP       :  ")
PRIORITY_HEAD(Dscp2TnlDscpHead, "  DSCP  to  Tnl DSCP :  ")

#define PRIORITY_DATA(name, map, logName) \
  QDT_PRIORITY_DATA(name) { return qdt::WriteMap(out, room, position, record, &PriorityMaps::map, logName); }

PRIORITY_DATA(Up2DscpData, upToDscp, "Up2DscpData")
PRIORITY_DATA(UpTo8021pData, upTo8021p, "UpTo8021pData")
PRIORITY_DATA(P8021p2UpData, p8021pToUp, "8021p2UpData")
PRIORITY_DATA(Up2TnlDscpData, upToTunnelDscp, "Up2TnlDscpData")
PRIORITY_DATA(DscpTo8021pData, dscpTo8021p, "dscpTo8021p")
PRIORITY_DATA(Dscp2UpData, dscpToUp, "Dscp2Up")
PRIORITY_DATA(Dscp2TnlDscpData, dscpToTunnelDscp, "Dscp2TnlDscp")

NQE_TABLE_SEARCH(Priority) { return search.FindOne<PriorityMaps>(qdt::kTablePriority, search.key2); }

QDT_TABLE_FORMAT(NqeTableFormatPriority) {
  if (record == nullptr || recordLen != static_cast<int32_t>(sizeof(PriorityMaps))) return QDT_TBL_DATA_SIZE;
  uint32_t position = 0;
  using qdt::MapWriter;
  for (size_t map = 0; map < std::size(qdt::kWriters); ++map) {
    const int32_t head = qdt::CallOf<qdt::kWriters, &MapWriter::head>(map, out, room, position);
    if (head < 0) return QDT_TBL_FORMAT;
    position += static_cast<uint32_t>(head);
    position +=
        static_cast<uint32_t>(qdt::CallOf<qdt::kWriters, &MapWriter::data>(map, out, room, position, record));
  }
  return static_cast<int32_t>(position);
}
