#ifndef SRC_OM_OMA_MISS_CACHE_H_
#define SRC_OM_OMA_MISS_CACHE_H_

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/oma.h"
#include "src/om/common/address.h"
#include "src/om/common/clock.h"
#include "src/om/common/log.h"
#include "src/om/common/owned.h"
#include "src/om/common/record_copy.h"
#include "src/om/common/text.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/table_ids.h"
#include "src/om/oma/packet_listing.h"
#include "src/om/oma/request.h"
#include "src/om/oma/rule_line.h"

// Packets that wait for their next hop to be resolved: snapshots of the engine's miss caches, and their
// listing, grouped by next hop. What differs between the ARP and the ND cache is stated by a structure for
// each, the parameter Miss of these templates.
namespace qdt::miss_cache {

// A walk gives 0 at the table's end and 1 when it left entries behind; all else, read as unsigned, failed.
inline bool WalkFailed(int32_t code) { return static_cast<uint32_t>(code) > 1; }

inline void Drop(void **snapshot) {
  free_ex(g_mallocHandle, *snapshot);
  *snapshot = nullptr;
}

template <typename Miss>
uint32_t BytesOf(uint32_t entries) {
  return entries * static_cast<uint32_t>(sizeof(typename Miss::Entry));
}

template <typename Miss>
int32_t CopyWholeCache(void **snapshot, uint32_t *bytes, uint32_t room) {
  TbmTravContext context;
  TbmTblTravContextInit(&context);
  const int32_t code = TbmTblTravNext(kEngineInstance, Miss::kTable, &context, *snapshot, &room);
  if (WalkFailed(code)) {
    if (!Miss::kHandsWalkOn) Drop(snapshot);
    QDT_LOG_ERROR(Miss::kWalkFailed, code);
    return code;
  }
  *bytes = BytesOf<Miss>(TbmTblTravContextCnt(&context));
  return Miss::kHandsWalkOn ? code : kDone;
}

template <typename Miss>
int32_t CopyNextHop(void **snapshot, uint32_t *bytes, uint32_t room, const char *nextHop) {
  TbmTravContext context;
  TbmTblTravContextInit(&context);
  const auto key = Miss::KeyOf(nextHop);
  const int32_t code = TbmTblTravNextByKey(kEngineInstance, Miss::kTable, &key, &context, *snapshot, &room);
  if (code != 0) {
    Drop(snapshot);
    QDT_LOG_ERROR(Miss::kSearchFailed, code);
    return kFailed;
  }
  *bytes = BytesOf<Miss>(TbmTblTravContextCnt(&context));
  return kDone;
}

// The buffer has room for all that the table can hold, so that one step of a walk fetches it whole.
template <typename Miss>
int32_t GetMissData(void **snapshot, uint32_t *bytes, const char *nextHop, SourceLine where) {
  const uint32_t room = BytesOf<Miss>(TbmTblGetSpec(kEngineInstance, Miss::kTable));
  *snapshot = malloc_ex(g_mallocHandle, where.path, where.line, room);
  if (*snapshot == nullptr) {
    QDT_LOG_ERROR(Miss::kNoMemory);
    return kFailed;
  }
  if (std::strcmp(nextHop, Miss::kAllNextHops) == 0) return CopyWholeCache<Miss>(snapshot, bytes, room);
  return CopyNextHop<Miss>(snapshot, bytes, room, nextHop);
}

template <typename Miss>
const void *AddressOf(const void *entries, uint32_t index) {
  return static_cast<const char *>(entries) + size_t{index} * sizeof(typename Miss::Entry);
}

template <typename Miss>
typename Miss::Entry EntryAt(const void *entries, uint32_t index) {
  return CopyOf<typename Miss::Entry>(AddressOf<Miss>(entries, index));
}

template <typename Miss>
int32_t PrintGroupHeader(char *text, uint32_t capacity, const void *first, uint32_t number, uint32_t size) {
  constexpr uint32_t kVrf = 0;  // whatever VPN the entries wait in
  const auto entry = EntryAt<Miss>(first, 0);
  Text header(text, capacity);
  header.Print<Miss::kHeader>(kRuleLine, number, kVrf, Address(entry.key.nextHop), size, kRuleLine, "Pkt",
                              "SrcIp", "DstIp", "TTL", "LeftTime");
  return header.failed() ? kFailed : header.Result();
}

// What is left of the time of an entry. Not clamped: a packet that was held too long stands out by a left
// time of many years.
template <typename Entry>
uint32_t LeftTime(const Entry &e, uint32_t now) {
  const auto elapsed = static_cast<int32_t>(now - e.createTime);
  return e.ttl - static_cast<uint32_t>(std::max(elapsed, 0));
}

template <typename Miss>
bool PrintRow(Text &rows, uint32_t number, const typename Miss::Entry &e, uint32_t now) {
  const uint32_t left = LeftTime(e, now);
  return rows.Print<Miss::kRow>(number, Address(e.sourceAddress), Address(e.destinationAddress), e.ttl / 3600,
                                e.ttl % 3600 / 60, e.ttl % 60, left / 3600, left % 3600 / 60, left % 60);
}

template <typename Miss>
int32_t PrintGroup(char *text, uint32_t capacity, const void *first, uint32_t size) {
  const uint32_t now = MonotonicSeconds();
  Text rows(text, capacity == 0 ? 0 : capacity - 1);  // rows keep one byte more free than the rule line does
  for (uint32_t i = 0; i < size; ++i) {
    if (PrintRow<Miss>(rows, i + 1, EntryAt<Miss>(first, i), now)) continue;
    QDT_LOG_ERROR("sprintf_s ip info fail\n");
    return kFailed;
  }
  Text end(text + rows.size(), capacity - rows.size());
  if (!end.Print<"\n%s">(kRuleLine)) {
    QDT_LOG_ERROR(Miss::kEndFailed, kFailed);
    return kFailed;
  }
  return static_cast<int32_t>(rows.size() + end.size());
}

// Entries from the first on that wait for the same next hop, of `count`, which is not 0.
template <typename Miss>
uint32_t CountRun(const void *entries, uint32_t count) {
  const auto first = EntryAt<Miss>(entries, 0);
  uint32_t run = 1;
  while (run < count && Miss::SameNextHop(first, EntryAt<Miss>(entries, run))) ++run;
  return run;
}

// A group is what stands together in the snapshot: a next hop that comes up again gets another group.
template <typename Miss>
int32_t PrintMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count) {
  uint32_t used = 0;
  uint32_t number = 0;
  for (uint32_t done = 0; done < count;) {
    const void *const first = AddressOf<Miss>(entries, done);
    const uint32_t size = CountRun<Miss>(first, count - done);
    const int32_t header = PrintGroupHeader<Miss>(text + used, capacity - used, first, ++number, size);
    if (header < 0) return kFailed;
    used += static_cast<uint32_t>(header);
    const int32_t group = PrintGroup<Miss>(text + used, capacity - used, first, size);
    if (group < 0) return kFailed;
    used += static_cast<uint32_t>(group);
    done += size;
  }
  return kDone;
}

template <typename Miss>
int32_t ListMisses(AgentRequest request, SourceLine where) {
  const char *const nextHop = FindText(request, "next-hop");
  void *taken = nullptr;
  uint32_t bytes = 0;
  const int32_t code = Miss::kGetData(&taken, &bytes, nextHop == nullptr ? Miss::kAllNextHops : nextHop);
  // A failure leaves nothing to release but the buffer of a failed walk of the ND cache, which stays behind.
  if (WalkFailed(code)) return kFailed;
  const Owned<void> snapshot(taken);
  if (code != kDone) return kFailed;
  if (bytes == 0) return kDone;
  const OwnedText text = AllocatePacketListing(where);
  if (text == nullptr) {
    QDT_LOG_ERROR("malloc buf for tbl usage failed\n");
    return kFailed;
  }
  const uint32_t count = bytes / BytesOf<Miss>(1);
  if (PrintMissInfo<Miss>(text.get(), kPacketListingRoom, snapshot.get(), count) != kDone) return kFailed;
  return QdtOmSendMsg(text.get()) == 0 ? kDone : kFailed;
}

}  // namespace qdt::miss_cache

#endif  // SRC_OM_OMA_MISS_CACHE_H_
