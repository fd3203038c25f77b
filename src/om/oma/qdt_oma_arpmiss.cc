#include "src/om/oma/miss_cache.h"

// Packets that wait for an ARP answer.
namespace qdt::miss_cache {
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
  static constexpr auto kGetData = QdtGetArpMissData;
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

}  // namespace
}  // namespace qdt::miss_cache

using qdt::miss_cache::ArpMiss;

int32_t QdtOmaArpmissProc(AgentRequest request) {
  return qdt::miss_cache::ListMisses<ArpMiss>(request, QDT_HERE);
}

int32_t QdtGetArpMissData(void **snapshot, uint32_t *bytes, const char *nextHop) {
  return qdt::miss_cache::GetMissData<ArpMiss>(snapshot, bytes, nextHop, QDT_HERE);
}

int32_t QdtPrintArpMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count) {
  return qdt::miss_cache::PrintMissInfo<ArpMiss>(text, capacity, entries, count);
}

int32_t QdtPrintArpMissHdr(char *text, uint32_t capacity, const void *first, uint32_t groupNumber,
                           uint32_t groupSize) {
  return qdt::miss_cache::PrintGroupHeader<ArpMiss>(text, capacity, first, groupNumber, groupSize);
}

int32_t QdtPrintSingleNhpArpMissInfo(char *text, uint32_t capacity, const void *first, uint32_t groupSize) {
  return qdt::miss_cache::PrintGroup<ArpMiss>(text, capacity, first, groupSize);
}
