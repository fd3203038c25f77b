#include "src/om/nqe_cli/table_view.h"

#include <algorithm>

#include "src/om/nqe_cli/table_entry.h"

namespace qdt::records {
namespace {

bool Allocate(void **record, size_t size, SourceLine where) {
  *record = malloc_ex(g_mallocHandle, where.path, where.line, size);
  return *record != nullptr;
}

bool IsAligned(const void *record, Shape shape) {
  return (reinterpret_cast<uintptr_t>(record) & (shape.alignment - 1)) == 0;
}

// Prints a record from an aligned copy.
[[gnu::noinline]] void PrintCopy(Text &text, const void *record, size_t size, Print print) {
  alignas(max_align_t) char copy[kLargest];
  std::memcpy(copy, record, size);
  print(text, copy);
}

// The caller's buffer need not be aligned, though it nearly always is.
void PrintAt(Text &text, const void *record, Shape shape, Print print) {
  if (IsAligned(record, shape)) return print(text, record);
  PrintCopy(text, record, shape.size, print);
}

}  // namespace

int32_t FetchOne(void **record, uint32_t *recordLen, uint32_t table, const void *key, uint32_t size,
                 SourceLine where) {
  void *entry = nullptr;
  if (const int32_t code = TbmTblSearch(kEngineInstance, table, key, &entry); code != 0) return code;
  return Deliver(record, recordLen, entry, size, where);
}

int32_t FetchByWord(void **record, uint32_t *recordLen, uint32_t table, uint64_t key, uint32_t size,
                    SourceLine where) {
  return FetchOne(record, recordLen, table, &key, size, where);
}

int32_t FetchNext(void **record, uint32_t *recordLen, TbmTravContext *ctx, uint32_t loopNum, const void *key,
                  uint32_t table, Size size, SourceLine where) {
  if (loopNum == 0) return QDT_TBL_INVALID_INPUT;
  if (!Allocate(record, size_t{loopNum} * size.allocated, where)) return QDT_TBL_NO_MEMORY;
  uint32_t bytes = loopNum * size.record;
  const int32_t code = key == nullptr
                           ? TbmTblTravNext(kEngineInstance, table, ctx, *record, &bytes)
                           : TbmTblTravNextByKey(kEngineInstance, table, key, ctx, *record, &bytes);
  if (code == 0 || code == 1) *recordLen = TbmTblTravContextCnt(ctx) * size.record;
  return code;
}

int32_t Deliver(void **record, uint32_t *recordLen, const void *entry, uint32_t size, SourceLine where) {
  *recordLen = size;
  if (!Allocate(record, size, where)) return QDT_TBL_NO_MEMORY;
  return CopyEntry(*record, entry, size);
}

int32_t FormatOne(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape, Print print) {
  if (record == nullptr || recordLen != static_cast<int32_t>(shape.size)) return QDT_TBL_DATA_SIZE;
  Text text(out, room);
  PrintAt(text, record, shape, print);
  return text.Result();
}

int32_t FormatEach(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape,
                   Print print) {
  if (record == nullptr || recordLen < 1) return QDT_TBL_DATA_SIZE;
  Text text(out, room);
  const auto *at = static_cast<const char *>(record);
  for (size_t left = static_cast<uint32_t>(recordLen); left >= shape.size && !text.failed();
       left -= shape.size) {
    PrintAt(text, at, shape, print);
    at += shape.size;
  }
  return text.Result();
}

int32_t FormatWhole(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape,
                    Print print) {
  if (!IsWhole(record, recordLen, shape.size)) return QDT_TBL_DATA_SIZE;
  return FormatEach(out, room, record, recordLen, shape, print);
}

int32_t FormatFirst(char *out, uint32_t room, const void *record, int32_t recordLen, Shape shape,
                    Print print) {
  if (record == nullptr || recordLen < 1) return QDT_TBL_DATA_SIZE;
  const auto size = static_cast<int32_t>(shape.size);
  if (recordLen >= size) return FormatOne(out, room, record, size, shape, print);
  alignas(max_align_t) char whole[kLargestFirst] = {};
  std::memcpy(whole, record, static_cast<size_t>(recordLen));
  return FormatOne(out, room, whole, size, shape, print);
}

}  // namespace qdt::records
