#include <algorithm>

#include "host/tbm/status.h"
#include "host/tbm/table_view.h"
#include "host/tbm/visit.h"
#include "platform/tbm.h"

// The engine's one hash map is a table seen by its buckets.
using namespace qdt::host::tbm;  // the table manager's C interface follows
using qdt::host::Arena;

namespace {

int32_t OpenMap(const TbmHashMap *map, TableView *table) {
  if (Arena::Current() == nullptr) return kTbmNotReady;
  if (map == nullptr || map != g_tbmGlobalInfo->serverMaps) return kTbmBadParam;
  return TableView::OpenCurrent(0, qdt::host::kServerMapTable, table);
}

}  // namespace

int32_t TbmHashMapEntryNum(TbmHashMap *map, uint32_t *count) {
  TableView table;
  const int32_t status = OpenMap(map, &table);
  if (status != kTbmOk) return status;
  if (count == nullptr) return kTbmBadParam;
  *count = table.EntryNum();
  return kTbmOk;
}

// Nodes stay in their bucket, so that a walk in several calls shows none twice.
int32_t TbmHashMapTravBuckets(TbmHashMap *map, TbmTravCallback callback, void *context, uint32_t firstBucket,
                              uint32_t bucketCount, uint32_t *nextBucket, uint32_t /*flag*/) {
  TableView table;
  const int32_t status = OpenMap(map, &table);
  if (status != kTbmOk) return status;
  if (callback == nullptr || nextBucket == nullptr) return kTbmBadParam;
  const uint32_t buckets = table.shape().bucketCount;
  const uint32_t first = std::min(firstBucket, buckets);
  const uint32_t end = first + std::min(bucketCount, buckets - first);
  // What is put in meanwhile is not shown.
  const uint64_t lastSerial = table.state().lastSerial.load(std::memory_order_acquire);
  for (uint32_t bucket = first; bucket < end; ++bucket) {
    const ChainOrder chain(table, bucket);
    const int32_t visited = Visit(table, chain, lastSerial, callback, context);
    if (visited == kTbmStop) return kTbmOk;
    if (visited != kTbmOk) return visited;
  }
  *nextBucket = end;
  return end < buckets ? kTbmMore : kTbmOk;
}
