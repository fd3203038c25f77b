#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/oma.h"
#include "src/om/common/address.h"
#include "src/om/common/clock.h"
#include "src/om/common/log.h"
#include "src/om/common/owned.h"
#include "src/om/common/text.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/table_ids.h"
#include "src/om/oma/packet_listing.h"
#include "src/om/oma/request.h"
#include "src/om/oma/rule_line.h"

// Packets that wait for their next hop to be resolved: snapshots of the engine's miss caches, and their
// listing, grouped by next hop.
namespace qdt {
namespace {

// How this listing asks for one next hop of the ARP-miss cache. The diag view of the same table asks with an
// ArpKey: the agent names no VPN, and its key is laid out in its own way.
struct ArpMissSearchKey {
  uint32_t nextHop;
  uint32_t zero;
};
QDT_RECORD_SIZE(ArpMissSearchKey, 8);

struct ArpMiss {
  using Entry = ArpMissEntry;
  static constexpr EngineTable kTable = kTableArpMiss;
  static constexpr char kAllNextHops[] = "0.0.0.0";
  // What a walk of the whole cache returned stays inside.
  static constexpr bool kHandsWalkOn = false;
  static constexpr char kNoMemory[] = "Malloc fail for arp miss cache\n";
  static constexpr char kWalkFailed[] = "[ErrCode: %d]Error in Search CAP_TABLE_ARP_MISS_CACHE\n";
  static constexpr char kSearchFailed[] = "Error in Search arp miss cache, ret: %d\n";
  static constexpr char kEndFailed[] = "sprintf_s end block line for arp miss cache failed, ret: %d\n";
  static constexpr format::Format kHeader =
      "\n%s\nSession           :  %-15u\nVrf               :  %-8u\nNext Hop          :  %-15s\n"
      "Total Cached Pkt  :  %-8u\n%s\n%-5s %-16s %-16s  %-8s  %-8s";
  static constexpr format::Format kRow = "\n%-5u %-16s %-16s  %02u:%02u:%02u  %02u:%02u:%02u";

  static ArpMissSearchKey KeyOf(const char *nextHop) { return {ntohl(inet_addr(nextHop)), 0}; }
  static bool SameNextHop(const Entry &a, const Entry &b) { return a.key.nextHop == b.key.nextHop; }
};

struct NdMiss {
  using Entry = NdMissEntry;
  static constexpr EngineTable kTable = kTableNdMiss;
  static constexpr char kAllNextHops[] = "::";
  // A walk of the whole cache is handed on as it went: 1 when entries were left behind, and after a failure
  // the snapshot is still the caller's to release. Callers of QdtGetNdMissData rely on both.
  static constexpr bool kHandsWalkOn = true;
  static constexpr char kNoMemory[] = "Malloc fail for nd miss cache\n";
  static constexpr char kWalkFailed[] = "[ErrCode: %d]Error in Search CAP_TABLE_ND_MISS_CACHE\n";
  static constexpr char kSearchFailed[] = "Error in Search nd miss cache, ret: %d\n";
  static constexpr char kEndFailed[] = "sprintf_s end block line for nd miss cache failed, ret: %d\n";
  static constexpr format::Format kHeader =
      "\n%s\nSession           :  %-15u\nVrf               :  %-8u\nNext Hop          :  %-46s\n"
      "Total Cached Pkt  :  %-8u\n%s\n%-5s %-46s %-46s  %-8s  %-8s";
  static constexpr format::Format kRow = "\n%-5u %-46s %-46s  %02u:%02u:%02u  %02u:%02u:%02u";

  static NdKey KeyOf(const char *nextHop) {
    NdKey key{};
    ToHostWords(ParseIpv6(nextHop), key.nextHop);
    return key;
  }
  static bool SameNextHop(const Entry &a, const Entry &b) {
    return std::equal(std::begin(a.key.nextHop), std::end(a.key.nextHop), b.key.nextHop);
  }
};

// A walk gives 0 at the table's end and 1 when it left entries behind; all else, read as unsigned, failed.
bool WalkFailed(int32_t code) { return static_cast<uint32_t>(code) > 1; }

void Drop(void **snapshot) {
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
int32_t GetMissData(void **snapshot, uint32_t *bytes, const char *nextHop) {
  const uint32_t room = BytesOf<Miss>(TbmTblGetSpec(kEngineInstance, Miss::kTable));
  const SourceLine where = QDT_HERE;
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

// A copy: callers' entries need not be aligned.
template <typename Miss>
typename Miss::Entry EntryAt(const void *entries, uint32_t index) {
  typename Miss::Entry entry;
  std::memcpy(&entry, AddressOf<Miss>(entries, index), sizeof(entry));
  return entry;
}

template <typename Miss>
int32_t PrintGroupHeader(char *text, uint32_t capacity, const void *first, uint32_t number, uint32_t size) {
  constexpr uint32_t kVrf = 0;  // whatever VPN the entries wait in
  const auto nextHop = ToText(EntryAt<Miss>(first, 0).key.nextHop);
  Text header(text, capacity);
  header.Print<Miss::kHeader>(kRuleLine, number, kVrf, nextHop.c_str(), size, kRuleLine, "Pkt", "SrcIp",
                              "DstIp", "TTL", "LeftTime");
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
  return rows.Print<Miss::kRow>(number, ToText(e.sourceAddress).c_str(), ToText(e.destinationAddress).c_str(),
                                e.ttl / 3600, e.ttl % 3600 / 60, e.ttl % 60, left / 3600, left % 3600 / 60,
                                left % 60);
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
int32_t ListMisses(AgentRequest request) {
  const char *const nextHop = FindText(request, "next-hop");
  void *taken = nullptr;
  uint32_t bytes = 0;
  const int32_t code = GetMissData<Miss>(&taken, &bytes, nextHop == nullptr ? Miss::kAllNextHops : nextHop);
  // A failure leaves nothing to release but the buffer of a failed walk of the ND cache, which stays behind.
  if (WalkFailed(code)) return kFailed;
  const Owned<void> snapshot(taken);
  if (code != kDone) return kFailed;
  if (bytes == 0) return kDone;
  const OwnedText text = AllocatePacketListing(QDT_HERE);
  if (text == nullptr) {
    QDT_LOG_ERROR("malloc buf for tbl usage failed\n");
    return kFailed;
  }
  const uint32_t count = bytes / BytesOf<Miss>(1);
  if (PrintMissInfo<Miss>(text.get(), kPacketListingRoom, snapshot.get(), count) != kDone) return kFailed;
  return QdtOmSendMsg(text.get()) == 0 ? kDone : kFailed;
}

}  // namespace
}  // namespace qdt

using qdt::ArpMiss;
using qdt::NdMiss;

int32_t QdtOmaArpmissProc(AgentRequest request) { return qdt::ListMisses<ArpMiss>(request); }

int32_t QdtOmaNdmissProc(AgentRequest request) { return qdt::ListMisses<NdMiss>(request); }

int32_t QdtGetArpMissData(void **snapshot, uint32_t *bytes, const char *nextHop) {
  return qdt::GetMissData<ArpMiss>(snapshot, bytes, nextHop);
}

int32_t QdtGetNdMissData(void **snapshot, uint32_t *bytes, const char *nextHop) {
  return qdt::GetMissData<NdMiss>(snapshot, bytes, nextHop);
}

int32_t QdtPrintArpMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count) {
  return qdt::PrintMissInfo<ArpMiss>(text, capacity, entries, count);
}

int32_t QdtPrintNdMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count) {
  return qdt::PrintMissInfo<NdMiss>(text, capacity, entries, count);
}

int32_t QdtPrintArpMissHdr(char *text, uint32_t capacity, const void *first, uint32_t groupNumber,
                           uint32_t groupSize) {
  return qdt::PrintGroupHeader<ArpMiss>(text, capacity, first, groupNumber, groupSize);
}

int32_t QdtPrintNdMissHdr(char *text, uint32_t capacity, const void *first, uint32_t groupNumber,
                          uint32_t groupSize) {
  return qdt::PrintGroupHeader<NdMiss>(text, capacity, first, groupNumber, groupSize);
}

int32_t QdtPrintSingleNhpArpMissInfo(char *text, uint32_t capacity, const void *first, uint32_t groupSize) {
  return qdt::PrintGroup<ArpMiss>(text, capacity, first, groupSize);
}

int32_t QdtPrintSingleNhpNdMissInfo(char *text, uint32_t capacity, const void *first, uint32_t groupSize) {
  return qdt::PrintGroup<NdMiss>(text, capacity, first, groupSize);
}
