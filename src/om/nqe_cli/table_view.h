#ifndef SRC_OM_NQE_CLI_TABLE_VIEW_H_
#define SRC_OM_NQE_CLI_TABLE_VIEW_H_

#include <cstdint>
#include <cstring>

#include "qdt/tables.h"
#include "src/om/common/bounded.h"
#include "src/om/common/owned.h"
#include "src/om/common/text.h"
#include "src/om/engine/table_ids.h"
#include "src/om/nqe_cli/table_entry.h"

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

// How searches and formats work on records of any kind; what is templates below only names sizes, so that a
// view costs its own lines and not a copy of these.
namespace records {

struct Size {
  uint32_t record;
  uint32_t allocated;  // in the answer's buffer, for each record
};

// Copies the table's entry of `key` into a new record.
int32_t FetchOne(void **record, uint32_t *recordLen, uint32_t table, const void *key, uint32_t size,
                 SourceLine where);

// The same for a key of at most eight bytes.
int32_t FetchByWord(void **record, uint32_t *recordLen, uint32_t table, uint64_t key, uint32_t size,
                    SourceLine where);

// Fetches the next batch of at most loopNum records into a new buffer: of the table, or with a key of those
// that share it.
int32_t FetchNext(void **record, uint32_t *recordLen, TbmTravContext *ctx, uint32_t loopNum, const void *key,
                  uint32_t table, Size size, SourceLine where);

// Copies `size` bytes at `entry` into a new record.
int32_t Deliver(void **record, uint32_t *recordLen, const void *entry, uint32_t size, SourceLine where);

// Reads the lookup key `key` as the bytes that it is.
template <typename Key>
uint64_t Word(const Key &key) {
  uint64_t word = 0;
  std::memcpy(&word, &key, sizeof(key));
  return word;
}

using Print = void (*)(Text &text, const void *record);

// What a view's print function looks like to the functions below.
template <typename Record, void (*kPrint)(Text &, const Record &)>
void Printed(Text &text, const void *record) {
  kPrint(text, *static_cast<const Record *>(record));
}

struct Shape {
  uint32_t size;
  uint32_t alignment;
};

// Records that are not aligned are copied into a buffer of this size; FormatFirst fills up records of at most
// the other.
inline constexpr size_t kLargest = 16384;
inline constexpr size_t kLargestFirst = 2048;

int32_t FormatOne(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape, Print print);
int32_t FormatEach(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape, Print print);
int32_t FormatWhole(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape,
                    Print print);
int32_t FormatFirst(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape,
                    Print print);

template <typename Record>
constexpr Shape ShapeOf() {
  static_assert(sizeof(Record) <= kLargest && alignof(Record) <= alignof(max_align_t));
  return {sizeof(Record), alignof(Record)};
}

}  // namespace records

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
    if constexpr (sizeof(Key) <= sizeof(uint64_t)) {
      return records::FetchByWord(record, recordLen, table, records::Word(key), sizeof(Record), where);
    } else {
      return records::FetchOne(record, recordLen, table, &key, sizeof(Record), where);
    }
  }

  // Fetches the next batch of at most loopNum records of the table, into a buffer of kAllocated bytes for
  // each. A lookup by key is not offered.
  template <typename Record, size_t kAllocated = sizeof(Record)>
  int32_t NextOf(uint32_t table) const {
    return records::FetchNext(record, recordLen, ctx, loopNum, nullptr, table, {sizeof(Record), kAllocated},
                              where);
  }

  // As NextOf, over the records that share `key`.
  template <typename Record, typename Key>
  int32_t NextOfKey(uint32_t table, const Key &key) const {
    return records::FetchNext(record, recordLen, ctx, loopNum, &key, table, {sizeof(Record), sizeof(Record)},
                              where);
  }

  // Copies `size` bytes at `entry` into a new record.
  int32_t Deliver(const void *entry, uint32_t size) const {
    return records::Deliver(record, recordLen, entry, size, where);
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

// Runs kPrint on the one record in the buffer, whose length must be just that.
template <typename Record, void (*kPrint)(Text &, const Record &)>
int32_t FormatOne(char *out, uint32_t room, const void *record, int32_t recordLen) {
  return records::FormatOne(out, room, record, recordLen, records::ShapeOf<Record>(),
                            records::Printed<Record, kPrint>);
}

// Runs kPrint on each whole record in the buffer; a partial last one is not looked at.
template <typename Record, void (*kPrint)(Text &, const Record &)>
int32_t FormatEach(char *out, uint32_t room, const void *record, int32_t recordLen) {
  return records::FormatEach(out, room, record, recordLen, records::ShapeOf<Record>(),
                             records::Printed<Record, kPrint>);
}

// Whether the buffer holds records, all of them whole.
inline bool IsWhole(const void *record, int32_t recordLen, size_t size) {
  return record != nullptr && recordLen > 0 && static_cast<size_t>(recordLen) % size == 0;
}

// As FormatEach, but a partial last record is refused.
template <typename Record, void (*kPrint)(Text &, const Record &)>
int32_t FormatWhole(char *out, uint32_t room, const void *record, int32_t recordLen) {
  return records::FormatWhole(out, room, record, recordLen, records::ShapeOf<Record>(),
                              records::Printed<Record, kPrint>);
}

// Runs kPrint, which writes one piece of a view, on the record at `entry`.
template <typename Record, void (*kPrint)(Text &, const Record &)>
int32_t FormatPiece(char *out, uint32_t room, const void *entry) {
  return FormatOne<Record, kPrint>(out, room, entry, sizeof(Record));
}

// Runs kPrint on the first record in the buffer, of whatever length above 0; what is missing of it counts as
// zero.
template <typename Record, void (*kPrint)(Text &, const Record &)>
int32_t FormatFirst(char *out, uint32_t room, const void *record, int32_t recordLen) {
  static_assert(sizeof(Record) <= records::kLargestFirst);
  return records::FormatFirst(out, room, record, recordLen, records::ShapeOf<Record>(),
                              records::Printed<Record, kPrint>);
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
    return ::qdt::how<Record, Format##view>(out, room, record, recordLen); \
  }                                                                        \
  static void Format##view(::qdt::Text &text, const Record &e)

#define NQE_TABLE_FORMAT_ONE(view, Record) NQE_TABLE_FORMAT(FormatOne, view, Record)
#define NQE_TABLE_FORMAT_EACH(view, Record) NQE_TABLE_FORMAT(FormatEach, view, Record)
#define NQE_TABLE_FORMAT_WHOLE(view, Record) NQE_TABLE_FORMAT(FormatWhole, view, Record)
#define NQE_TABLE_FORMAT_FIRST(view, Record) NQE_TABLE_FORMAT(FormatFirst, view, Record)

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_TABLE_VIEW_H_
