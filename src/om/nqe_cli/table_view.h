#ifndef SRC_OM_NQE_CLI_TABLE_VIEW_H_
#define SRC_OM_NQE_CLI_TABLE_VIEW_H_

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/bounded.h"
#include "src/om/common/owned.h"
#include "src/om/common/text.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/table_ids.h"

// What all table views share. A view is written as two short functions:
//
//   NQE_TABLE_SEARCH(Bridge) { return search.FindOne<BridgeEntry>(kTableBridge, search.key2); }
//
//   NQE_TABLE_FORMAT_ONE(Bridge, BridgeEntry) {
//     text.Print<"  BrId         :  %u\n">(e.bridgeId);
//   }
//
// which define NqeTableSearchBridge and NqeTableFormatBridge with the signatures of qdt/tables.h. The search
// sees its arguments as `search`; the format is called once for each record, with the record as `e` and the
// answer as `text`.
namespace qdt {

// The arguments of one search operation, and the ways in which searches fetch records.
struct Search {
  void **record;
  uint32_t *recordLen;
  TbmTravContext *ctx;
  uint32_t loopNum;
  const char *key1;
  uint32_t key2, key3, key4;
  SourceLine where;

  // Fetches the one entry of `key`, whatever loopNum says.
  template <typename Record, typename Key>
  int32_t FindOne(uint32_t table, const Key &key) const {
    void *entry = nullptr;
    if (const int32_t code = TbmTblSearch(kEngineInstance, table, &key, &entry); code != 0) return code;
    return Deliver(entry, sizeof(Record));
  }

  // Fetches the next batch of at most loopNum records of the table. A lookup by key is not offered.
  template <typename Record, size_t kAllocated = sizeof(Record)>
  int32_t NextOf(uint32_t table) const {
    return NextBatch<Record, kAllocated>([&](void *buffer, uint32_t *bytes) {
      return TbmTblTravNext(kEngineInstance, table, ctx, buffer, bytes);
    });
  }

  // As NextOf, over the records that share `key`.
  template <typename Record, typename Key>
  int32_t NextOfKey(uint32_t table, const Key &key) const {
    return NextBatch<Record>([&](void *buffer, uint32_t *bytes) {
      return TbmTblTravNextByKey(kEngineInstance, table, &key, ctx, buffer, bytes);
    });
  }

  // Has `fetch(buffer, &bytes)` fill a buffer of loopNum records with the next batch. The buffer has
  // kAllocated bytes for each.
  template <typename Record, size_t kAllocated = sizeof(Record), typename Fetch>
  int32_t NextBatch(Fetch fetch) const {
    if (loopNum == 0) return QDT_TBL_INVALID_INPUT;
    if (!Allocate(size_t{loopNum} * kAllocated)) return QDT_TBL_NO_MEMORY;
    uint32_t bytes = loopNum * sizeof(Record);
    const int32_t code = fetch(*record, &bytes);
    if (code == 0 || code == 1) *recordLen = TbmTblTravContextCnt(ctx) * sizeof(Record);
    return code;
  }

  // Fetches the next batch of the addresses of control interface key2: its forwarding interface's entry in
  // `heads` names the key of the list in `addresses`.
  template <typename Record>
  int32_t NextOfPort(uint32_t heads, uint32_t addresses) const {
    if (loopNum == 0) return QDT_TBL_INVALID_INPUT;
    const uint32_t fwdIfIndex = QdtCliGetFwdifIndexByCtrlIndex(key2);
    if (static_cast<int32_t>(fwdIfIndex) < 0) return static_cast<int32_t>(fwdIfIndex);
    void *head = nullptr;
    if (const int32_t code = TbmTblSearch(kEngineInstance, heads, &fwdIfIndex, &head); code != 0) return code;
    if (head == nullptr) return QDT_TBL_MEMORY;
    return NextOfKey<Record>(addresses, static_cast<const PortAddressHead *>(head)->listKey);
  }

  // Whether the whole table is asked for, and not the entries of one key.
  bool AsksForAll() const { return std::strcmp(key1, "all") == 0; }

  // Reads key1, "first:second", as two addresses in host order; false when it is no such pair.
  bool ParseAddressPair(uint32_t &first, uint32_t &second) const {
    char firstText[INET_ADDRSTRLEN], secondText[INET_ADDRSTRLEN];
    if (QdtCliGetIpsSeparatedByColon(key1, firstText, secondText, sizeof(firstText)) != 0) return false;
    first = ntohl(inet_addr(firstText));
    second = ntohl(inet_addr(secondText));
    return true;
  }

  // Copies `size` bytes at `entry` into a new record.
  int32_t Deliver(const void *entry, uint32_t size) const {
    *recordLen = size;
    if (!Allocate(size)) return QDT_TBL_NO_MEMORY;
    return memcpy_s(*record, size, entry, size) == 0 ? 0 : int32_t{QDT_TBL_MEMORY};
  }

  // Gives the record back before its owner would, and leaves it nothing to release.
  void Release() const {
    free_ex(g_mallocHandle, *record);
    *record = nullptr;
  }

  bool Allocate(size_t size) const {
    *record = malloc_ex(g_mallocHandle, where.path, where.line, size);
    return *record != nullptr;
  }
};

// Runs `print` on the one record in the buffer, whose length must be just that.
template <typename Record>
int32_t FormatOne(char *out, uint32_t room, const void *record, int32_t recordLen,
                  void (*print)(Text &, const Record &)) {
  if (record == nullptr || recordLen != static_cast<int32_t>(sizeof(Record))) return QDT_TBL_DATA_SIZE;
  Text text(out, room);
  Record copy;  // the caller's buffer need not be aligned
  std::memcpy(&copy, record, sizeof(copy));
  print(text, copy);
  return text.Result();
}

// Runs `print` on each whole record in the buffer; a partial last one is not looked at.
template <typename Record, typename Print>
int32_t FormatEach(char *out, uint32_t room, const void *record, int32_t recordLen, Print print) {
  if (record == nullptr || recordLen < 1) return QDT_TBL_DATA_SIZE;
  Text text(out, room);
  const auto *bytes = static_cast<const char *>(record);
  for (size_t left = recordLen; left >= sizeof(Record) && !text.failed(); left -= sizeof(Record)) {
    Record copy;
    std::memcpy(&copy, bytes, sizeof(copy));
    print(text, copy);
    bytes += sizeof(Record);
  }
  return text.Result();
}

// Whether the buffer holds records, all of them whole.
template <typename Record>
bool IsWhole(const void *record, int32_t recordLen) {
  return record != nullptr && recordLen > 0 && static_cast<size_t>(recordLen) % sizeof(Record) == 0;
}

// As FormatEach, but a partial last record is refused.
template <typename Record, typename Print>
int32_t FormatWhole(char *out, uint32_t room, const void *record, int32_t recordLen, Print print) {
  if (!IsWhole<Record>(record, recordLen)) return QDT_TBL_DATA_SIZE;
  return FormatEach<Record>(out, room, record, recordLen, print);
}

// Runs `print`, which writes one piece of a view, on the record at `entry`.
template <typename Record>
int32_t FormatPiece(char *out, uint32_t room, const void *entry, void (*print)(Text &, const Record &)) {
  return FormatOne<Record>(out, room, entry, sizeof(Record), print);
}

// As FormatPiece, behind the `offset` bytes of `out` that are in use.
template <typename Record>
int32_t FormatPieceAt(char *out, uint32_t room, uint32_t offset, const void *entry,
                      void (*print)(Text &, const Record &)) {
  if (out == nullptr || offset >= room) return QDT_TBL_FORMAT;
  return FormatPiece(out + offset, room - offset, entry, print);
}

// Runs `print` on the first record in the buffer, of whatever length above 0; what is missing of it counts as
// zero.
template <typename Record>
int32_t FormatFirst(char *out, uint32_t room, const void *record, int32_t recordLen,
                    void (*print)(Text &, const Record &)) {
  if (record == nullptr || recordLen < 1) return QDT_TBL_DATA_SIZE;
  Text text(out, room);
  Record copy{};
  std::memcpy(&copy, record, std::min(sizeof(copy), static_cast<size_t>(recordLen)));
  print(text, copy);
  return text.Result();
}

// Descriptors of the engine's tables by table id; null when the table manager does not list just the tables
// that this library knows.
inline const TbmTableDesc *TableDescriptors() {
  const TbmGlobalInfo *const info = g_tbmGlobalInfo;
  return info == nullptr || info->tableCount != kEngineTables ? nullptr : info->tables;
}

#define NQE_TABLE_SEARCH(view)                                                                \
  static int32_t Search##view(const ::qdt::Search &search);                                   \
  QDT_TABLE_SEARCH(NqeTableSearch##view) {                                                    \
    return Search##view({record, recordLen, ctx, loopNum, key1, key2, key3, key4, QDT_HERE}); \
  }                                                                                           \
  static int32_t Search##view([[maybe_unused]] const ::qdt::Search &search)

#define NQE_TABLE_FORMAT(how, view, Record)                                \
  static void Format##view(::qdt::Text &text, const Record &e);            \
  QDT_TABLE_FORMAT(NqeTableFormat##view) {                                 \
    return ::qdt::how<Record>(out, room, record, recordLen, Format##view); \
  }                                                                        \
  static void Format##view(::qdt::Text &text, const Record &e)

#define NQE_TABLE_FORMAT_ONE(view, Record) NQE_TABLE_FORMAT(FormatOne, view, Record)
#define NQE_TABLE_FORMAT_EACH(view, Record) NQE_TABLE_FORMAT(FormatEach, view, Record)
#define NQE_TABLE_FORMAT_WHOLE(view, Record) NQE_TABLE_FORMAT(FormatWhole, view, Record)
#define NQE_TABLE_FORMAT_FIRST(view, Record) NQE_TABLE_FORMAT(FormatFirst, view, Record)

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_TABLE_VIEW_H_
