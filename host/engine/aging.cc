#include "host/engine/aging.h"

#include <algorithm>
#include <atomic>
#include <limits>

#include "platform/tbm.h"

namespace qdt::host {
namespace {

// A slice takes a fifth of the time that clients may be kept waiting: some 50 ns a look, some 500 ns a
// removal.
constexpr uint32_t kSliceLooks = 8192;
constexpr uint32_t kSliceRemovals = 1024;

// A piece of the hash map; its buckets hold an entry each on average.
constexpr uint32_t kBuckets = 64;

}  // namespace

bool AgingTable::IsOver(const void *entry, uint64_t uptime) const {
  if (valid && valid->Get(entry) == 0) return false;
  const uint64_t lifetime = agingTime.Get(entry);
  const uint64_t never = ~uint64_t{0} >> (64 - agingTime.Width());
  return lifetime == 0 || (lifetime != never && uptime >= refreshed.Get(entry) + lifetime);
}

Aging::Aging(const Layout &layout, TableWriter *writer) : writer_(*writer) {
  for (const uint32_t id : {kFlowPartitionTable, kServerMapTable}) AddTable(layout.Table(id));
}

void Aging::AddTable(const TableLayout &layout) {
  if (layout.fields.Find("aging_time") == nullptr || layout.fields.Find("refreshed") == nullptr) return;
  AgingTable table{layout.spec, layout.At("aging_time"), layout.At("refreshed"), {}};
  if (layout.fields.Find("valid") != nullptr) table.valid = layout.At("valid");
  tables_.push_back(std::move(table));
}

Aging::Sweep Aging::WholeSweep(uint64_t uptime) {
  constexpr uint32_t kAny = std::numeric_limits<uint32_t>::max();
  return {.uptime = uptime, .looks = kAny, .removals = kAny};
}

uint32_t Aging::Run(uint64_t uptime) {
  Sweep sweep = WholeSweep(uptime);
  GoOn(&sweep);
  return sweep.removed;
}

uint32_t Aging::RunTable(uint32_t id, uint64_t uptime) {
  Sweep sweep = WholeSweep(uptime);
  for (const AgingTable &table : tables_) {
    if (table.spec.id == id) GoOnIn(table, &sweep);
  }
  return sweep.removed;
}

bool Aging::Step(uint64_t uptime) {
  if (!sweep_) sweep_ = Sweep{.uptime = uptime};
  sweep_->looks = kSliceLooks;
  sweep_->removals = kSliceRemovals;
  if (GoOn(&*sweep_)) return true;
  sweep_.reset();
  return false;
}

bool Aging::GoOn(Sweep *sweep) {
  for (; sweep->table < tables_.size(); ++sweep->table, sweep->place = 0) {
    if (GoOnIn(tables_[sweep->table], sweep)) return true;
  }
  return false;
}

bool Aging::GoOnIn(const AgingTable &table, Sweep *sweep) {
  return table.spec.id == kFlowPartitionTable ? GoOnInSessions(table, sweep) : GoOnInServerMaps(table, sweep);
}

// The flow partition has a place for each session that the table can hold, so that the place where a slice
// ended stays the same whatever leaves meanwhile.
bool Aging::GoOnInSessions(const AgingTable &table, Sweep *sweep) {
  TbmFlowPartition *partition = g_tbmGlobalInfo->flowPartition;
  if (partition == nullptr || partition->nodes == nullptr) return false;
  for (; sweep->place < partition->nodeCount; ++sweep->place) {
    if (sweep->IsUsedUp()) return true;
    --sweep->looks;
    void *record = std::atomic_ref<void *>(partition->nodes[sweep->place]).load(std::memory_order_acquire);
    if (record != nullptr) Look(table, record, sweep);
  }
  return false;
}

bool Aging::GoOnInServerMaps(const AgingTable &table, Sweep *sweep) {
  struct Context {
    Aging &aging;
    const AgingTable &table;
    Sweep *sweep;
  } context{*this, table, sweep};
  const auto look = [](void *record, void *opaque) {
    constexpr int32_t kGoOn = -9;
    const auto &at = *static_cast<Context *>(opaque);
    if (at.sweep->looks != 0) --at.sweep->looks;
    at.aging.Look(at.table, record, at.sweep);
    return kGoOn;
  };
  constexpr int32_t kMore = 1;
  int32_t status = kMore;
  while (status == kMore) {
    if (sweep->IsUsedUp()) return true;
    sweep->looks -= std::min(sweep->looks, kBuckets);
    status = TbmHashMapTravBuckets(g_tbmGlobalInfo->serverMaps, look, &context, sweep->place, kBuckets,
                                   &sweep->place, 0);
  }
  return false;
}

void Aging::Look(const AgingTable &table, void *record, Sweep *sweep) {
  if (!table.IsOver(record, sweep->uptime)) return;
  auto *address = static_cast<uint8_t *>(record) + table.spec.searchOffset;
  if (writer_.RemoveEntry(table.spec.id, address) != 0) return;
  ++sweep->removed;
  if (sweep->removals != 0) --sweep->removals;
}

}  // namespace qdt::host
