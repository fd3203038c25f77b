#include "platform/tbm.h"

#include <algorithm>
#include <cstring>

#include "host/arena/arena.h"
#include "host/tbm/deliver.h"
#include "host/tbm/observer.h"
#include "host/tbm/status.h"
#include "host/tbm/visit.h"
#include "host/tbm/walk.h"

namespace qdt::host::tbm {

namespace {

// What a key of the ARP-miss cache stands for when nothing stands under it: false when that is nothing else.
bool ExchangeWords(const TableView &view, uint32_t table, const void *key, uint32_t (&exchanged)[2]) {
  uint32_t words[2];
  if (table != kArpMissTable || view.shape().keySize != sizeof(words)) return false;
  std::memcpy(words, key, sizeof(words));
  exchanged[0] = words[1];
  exchanged[1] = words[0];
  return words[1] == 0;
}

// Distinguishes the walks of one arena: a context that began one cannot go on with another.
uint64_t MakeWalkId(uint32_t table, const TableKey *key) {
  return uint64_t{table} << 33 | (key == nullptr ? 0 : uint64_t{1} << 32 | key->hash);
}

// The key that a walk asked for with `key` goes by: the one that it began with.
TableKey KeyToWalk(const TableView &view, uint32_t table, const void *key, const TbmTravContext &ctx) {
  const TableKey told = view.KeyOf(key);
  uint32_t words[2];
  if (!ExchangeWords(view, table, key, words)) return told;
  const TableKey exchanged = view.KeyOf(words);
  Cursor cursor;
  std::memcpy(&cursor, ctx.opaque, sizeof(cursor));
  if (cursor.begun) return cursor.walk == MakeWalkId(table, &exchanged) ? exchanged : told;
  Place found;
  return view.Find(told, &found) == kTbmNotFound ? exchanged : told;
}

// Puts a fresh cursor before the first entry; false when the cursor belongs to another walk.
bool Resume(Cursor *cursor, const TableView &view, uint64_t walk) {
  const uint64_t arena = Arena::Current()->header()->identity;
  if (cursor->begun) return cursor->arena == arena && cursor->walk == walk;
  *cursor = {};
  cursor->begun = true;
  cursor->arena = arena;
  cursor->walk = walk;
  cursor->endSerial = view.state().lastSerial.load(std::memory_order_acquire);
  return true;
}

// Fills `buffer` with the next `room` entries at most. kTbmMore when a further entry lives behind them.
template <typename Order>
int32_t FillBatch(const TableView &view, Order order, Cursor *cursor, char *buffer, uint32_t room) {
  const uint32_t size = view.shape().recordSize;
  for (uint64_t gone = 0;;) {
    const Place before = cursor->last;
    const Step step = order.Next(&cursor->last);
    if (step == Step::kLost) return kTbmWalkLost;
    if (step == Step::kEnd || cursor->last.serial > cursor->endSerial) {
      cursor->finished = true;
      return kTbmOk;
    }
    if (cursor->count == room) {
      cursor->last = before;
      return kTbmMore;
    }
    const TableView::Copied copied = view.Copy(cursor->last, buffer, size);
    if (copied == TableView::Copied::kRestless) return kTbmWalkLost;
    if (copied == TableView::Copied::kGone) {
      if (!IsNewlyGone(cursor->last, &gone)) return kTbmWalkLost;
      cursor->last = before;
      continue;
    }
    NoteDelivered(view, cursor->last);
    cursor->deletionTold = false;
    buffer += size;
    ++cursor->count;
  }
}

template <typename Order>
int32_t NextBatch(const TableView &view, const Order &order, uint64_t walk, TbmTravContext *ctx, void *buffer,
                  uint32_t *bytes) {
  const uint32_t room = *bytes / view.shape().recordSize;
  if (room == 0) return kTbmBadParam;
  *bytes = 0;
  // By value: the context is the caller's array of words.
  Cursor cursor;
  std::memcpy(&cursor, ctx->opaque, sizeof(cursor));
  cursor.count = 0;
  int32_t status = kTbmOk;
  if (!Resume(&cursor, view, walk)) {
    status = kTbmWalkLost;
  } else if (!cursor.finished) {
    if (cursor.last.serial != 0 && !cursor.deletionTold && !view.Lives(cursor.last)) {
      cursor.deletionTold = true;
      status = kTbmCursorDeleted;
    } else {
      status = FillBatch(view, order, &cursor, static_cast<char *>(buffer), room);
      if (status == kTbmWalkLost) cursor.count = 0;
      view.Mark(buffer, cursor.count);
    }
  }
  *bytes = cursor.count * view.shape().recordSize;
  std::memcpy(ctx->opaque, &cursor, sizeof(cursor));
  return status;
}

}  // namespace

}  // namespace qdt::host::tbm

using namespace qdt::host::tbm;  // the table manager's C interface follows

int32_t TbmTblSearch(uint32_t instance, uint32_t table, const void *key, void **entry) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (key == nullptr || entry == nullptr) return kTbmBadParam;
  const auto find = [&view, entry](const void *wanted) {
    const TableKey tableKey = view.KeyOf(wanted);
    return DeliverFound(
        view, [&](Place *found) { return view.Find(tableKey, found); }, entry);
  };
  const int32_t found = find(key);
  uint32_t words[2];
  return found != kTbmNotFound || !ExchangeWords(view, table, key, words) ? found : find(words);
}

int32_t TbmTblMatch(uint32_t instance, uint32_t table, const void *key, void **entry) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (PrefixAddressSize(view.shape()) == 0) return kTbmNotSupported;
  if (key == nullptr || entry == nullptr) return kTbmBadParam;
  return DeliverFound(
      view, [&](Place *found) { return view.Match(key, found); }, entry);
}

int32_t TbmTblTrav(uint32_t instance, uint32_t table, TbmTravCallback callback, void *context) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (callback == nullptr) return kTbmBadParam;
  const uint64_t end = view.state().lastSerial.load(std::memory_order_acquire);
  const int32_t visited = Visit(view, TableOrder(view), end, callback, context);
  return visited == kTbmStop ? kTbmOk : visited;
}

void TbmTblTravContextInit(TbmTravContext *ctx) {
  if (ctx != nullptr) *ctx = {};
}

int32_t TbmTblTravNext(uint32_t instance, uint32_t table, TbmTravContext *ctx, void *buffer,
                       uint32_t *bytes) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (ctx == nullptr || buffer == nullptr || bytes == nullptr) return kTbmBadParam;
  return NextBatch(view, TableRun(view), MakeWalkId(table, nullptr), ctx, buffer, bytes);
}

int32_t TbmTblTravNextByKey(uint32_t instance, uint32_t table, const void *key, TbmTravContext *ctx,
                            void *buffer, uint32_t *bytes) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (key == nullptr || ctx == nullptr || buffer == nullptr || bytes == nullptr) return kTbmBadParam;
  const TableKey tableKey = KeyToWalk(view, table, key, *ctx);
  return NextBatch(view, ChainOrder(view, tableKey), MakeWalkId(table, &tableKey), ctx, buffer, bytes);
}

uint32_t TbmTblTravContextCnt(const TbmTravContext *ctx) {
  if (ctx == nullptr) return 0;
  Cursor cursor;
  std::memcpy(&cursor, ctx->opaque, sizeof(cursor));
  return cursor.count;
}

int32_t TbmTblEntryNum(uint32_t instance, uint32_t table, uint32_t *count) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (count == nullptr) return kTbmBadParam;
  *count = view.EntryNum();
  return kTbmOk;
}

uint32_t TbmTblGetSpec(uint32_t instance, uint32_t table) {
  TableView view;
  return TableView::OpenCurrent(instance, table, &view) == kTbmOk ? view.shape().capacity : 0;
}

int32_t TbmTblMemStat(uint32_t instance, uint32_t table, uint32_t *bytes) {
  TableView view;
  const int32_t status = TableView::OpenCurrent(instance, table, &view);
  if (status != kTbmOk) return status;
  if (bytes == nullptr) return kTbmBadParam;
  *bytes = static_cast<uint32_t>(std::min<uint64_t>(view.StorageBytes(), UINT32_MAX));
  return kTbmOk;
}
