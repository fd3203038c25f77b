#include <algorithm>
#include <cstring>
#include <string_view>

#include "qdt/tables.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/section.h"
#include "src/om/engine/engine_stat.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the statistics that the engine keeps of itself: buffer caches and timers.
using qdt::PacketCacheStat;
using qdt::TaskCache;
using qdt::TimerStat;

namespace {

// A name that lives in the engine's memory, as far as it can be read. A damaged one may have no end.
class TaskName {
 public:
  explicit TaskName(uint64_t address) {
    while (address != 0 && size_ < sizeof(text_)) {
      // An aligned piece lies in one page, so that an unreadable neighbour does not spoil it.
      const size_t piece = std::min<size_t>(kPiece - address % kPiece, sizeof(text_) - size_);
      if (!qdt::ReadEngineMemory(address, text_ + size_, piece)) return;
      const size_t length = strnlen(text_ + size_, piece);
      size_ += length;
      if (length < piece) return;
      address += piece;
    }
  }

  std::string_view text() const { return {text_, size_}; }

 private:
  static constexpr size_t kPiece = 64;
  static constexpr size_t kLongest = 4095;
  char text_[kLongest];
  size_t size_ = 0;
};

}  // namespace

NQE_TABLE_SEARCH(PktCacheStat) {
  return search.FindOne<PacketCacheStat>(qdt::kTablePacketCache, search.key2);
}

NQE_TABLE_FORMAT_ONE(PktCacheStat, PacketCacheStat) {
  text.Print<"PktCacheStat:\n">();
  qdt::Section<25> s(text);
  s.Line<"HostPktCache", "%lu">(e.host);
  s.Line<"ReassPktCache", "%lu">(e.reassembly);
  s.Line<"CapwapReassOverMaxCache", "%lu">(e.capwapReassemblyOverMax);
  s.Line<"CapwapReassOverFragDrop", "%lu">(e.capwapReassemblyOverFragments);
  s.Line<"CapwapReassOtherDrop", "%lu">(e.capwapReassemblyOtherDrops);
  s.Line<"CapwapReassPktCache", "%lu">(e.capwapReassembly);
  s.Line<"CapwapReassFrags", "%lu">(e.capwapReassemblyFragments);
  s.Line<"CapwapReassPkts", "%lu">(e.capwapReassemblyPackets);
  s.Line<"CapwapFragPkts", "%lu">(e.capwapFragmentedPackets);
  text.Print<"TaskPktCache:\n">();
  for (uint64_t i = 0; i < std::min<uint64_t>(e.taskCount, qdt::kMaxCacheTasks) && !text.failed(); ++i) {
    const TaskCache &task = e.task[i];
    if (task.buffers == 0) continue;
    text.Print<"  TaskName                 :  %s\n  CacheNum                 :  %u\n">(
        TaskName(task.nameAddress).text(), task.buffers);
  }
}

NQE_TABLE_SEARCH(TimerStat) { return search.FindOne<TimerStat>(qdt::kTableTimer, search.key2); }

NQE_TABLE_FORMAT_ONE(TimerStat, TimerStat) {
  text.Print<
      "  NextSchedAt       :  %lu\n"
      "  LastExpired       :  %lu\n"
      "  ExpiredCnt        :  %u\n"
      "  TimerRemainedCnt  :  %u\n"
      "  WorkAddedCnt      :  %u\n"
      "  WorkIgnoredCnt    :  %u\n">(e.nextScheduled, e.lastExpired, e.expired, e.remaining, e.workAdded,
                                     e.workIgnored);
}
