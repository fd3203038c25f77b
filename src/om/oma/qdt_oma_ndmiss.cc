#include <algorithm>
#include <string_view>

#include "src/om/oma/miss_cache.h"

// Packets that wait for a neighbour advertisement.
namespace qdt::miss_cache {
namespace {

struct NdMiss {
  using Entry = NdMissEntry;
  static constexpr auto kGetData = QdtGetNdMissData;
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

}  // namespace
}  // namespace qdt::miss_cache

using qdt::miss_cache::NdMiss;

int32_t QdtOmaNdmissProc(AgentRequest request) {
  return qdt::miss_cache::ListMisses<NdMiss>(request, QDT_HERE);
}

int32_t QdtGetNdMissData(void **snapshot, uint32_t *bytes, const char *nextHop) {
  return qdt::miss_cache::GetMissData<NdMiss>(snapshot, bytes, nextHop, QDT_HERE);
}

int32_t QdtPrintNdMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count) {
  return qdt::miss_cache::PrintMissInfo<NdMiss>(text, capacity, entries, count);
}

int32_t QdtPrintNdMissHdr(char *text, uint32_t capacity, const void *first, uint32_t groupNumber,
                          uint32_t groupSize) {
  return qdt::miss_cache::PrintGroupHeader<NdMiss>(text, capacity, first, groupNumber, groupSize);
}

int32_t QdtPrintSingleNhpNdMissInfo(char *text, uint32_t capacity, const void *first, uint32_t groupSize) {
  return qdt::miss_cache::PrintGroup<NdMiss>(text, capacity, first, groupSize);
}
