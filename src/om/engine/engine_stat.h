#ifndef SRC_OM_ENGINE_ENGINE_STAT_H_
#define SRC_OM_ENGINE_ENGINE_STAT_H_

#include "src/om/engine/layout.h"

// What the engine counts of itself: its packet-buffer caches, and its timers.
namespace qdt {

constexpr uint32_t kMaxCacheTasks = 128;

// Packet buffers in the cache of one task.
struct TaskCache {
  uint64_t nameAddress;  // of the task's name, a NUL-terminated text
  uint32_t buffers;
  uint32_t reserved12;
};
QDT_RECORD_SIZE(TaskCache, 16);
QDT_FIELD_AT(TaskCache, nameAddress, 0, 8);
QDT_FIELD_AT(TaskCache, buffers, 8, 4);

struct PacketCacheStat {
  uint64_t host;
  uint64_t reassembly;
  uint64_t reserved16;
  uint64_t capwapReassemblyOverMax;
  uint64_t capwapReassemblyOverFragments;
  uint64_t capwapReassemblyOtherDrops;
  uint64_t capwapReassembly;
  uint64_t capwapReassemblyFragments;
  uint64_t capwapReassemblyPackets;
  uint64_t capwapFragmentedPackets;
  uint64_t reserved80[7];
  uint64_t taskCount;
  TaskCache task[kMaxCacheTasks];
};
QDT_RECORD_SIZE(PacketCacheStat, 2192);
QDT_FIELD_AT(PacketCacheStat, host, 0, 8);
QDT_FIELD_AT(PacketCacheStat, reassembly, 8, 8);
QDT_FIELD_AT(PacketCacheStat, capwapReassemblyOverMax, 24, 8);
QDT_FIELD_AT(PacketCacheStat, capwapReassemblyOverFragments, 32, 8);
QDT_FIELD_AT(PacketCacheStat, capwapReassemblyOtherDrops, 40, 8);
QDT_FIELD_AT(PacketCacheStat, capwapReassembly, 48, 8);
QDT_FIELD_AT(PacketCacheStat, capwapReassemblyFragments, 56, 8);
QDT_FIELD_AT(PacketCacheStat, capwapReassemblyPackets, 64, 8);
QDT_FIELD_AT(PacketCacheStat, capwapFragmentedPackets, 72, 8);
QDT_FIELD_AT(PacketCacheStat, taskCount, 136, 8);
QDT_FIELD_AT(PacketCacheStat, task, 144, 2048);

// Times in ticks of the engine's timer.
struct TimerStat {
  uint64_t nextScheduled;
  uint64_t lastExpired;
  uint32_t expired;
  uint32_t remaining;
  uint32_t workAdded;
  uint32_t workIgnored;
};
QDT_RECORD_SIZE(TimerStat, 32);
QDT_FIELD_AT(TimerStat, nextScheduled, 0, 8);
QDT_FIELD_AT(TimerStat, lastExpired, 8, 8);
QDT_FIELD_AT(TimerStat, expired, 16, 4);
QDT_FIELD_AT(TimerStat, remaining, 20, 4);
QDT_FIELD_AT(TimerStat, workAdded, 24, 4);
QDT_FIELD_AT(TimerStat, workIgnored, 28, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_ENGINE_STAT_H_
