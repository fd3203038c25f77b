#include "host/tbm/client_writes.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "host/tbm/status.h"

namespace qdt::host::tbm {

namespace {

bool IsClient(const TableView &table) { return table.arena()->role() == Arena::Role::kClient; }

Ends g_ends = Ends::kAskedFor;
// Table, place and serial of the entries ended by the command that runs: one is seen to end more than once.
std::set<std::tuple<const void *, uint32_t, uint64_t>> g_ended;

void AskForEnd(const TableView &table, const Place &place) {
  g_ended.emplace(&table.shape(), place.ref, place.serial);
  if (g_ends == Ends::kCounted) return;
  table.arena()->OpenTail();
  table.Request(place.ref).store(place.serial, std::memory_order_release);
}

// The copy at the record's address is the entry's own when its serial stands before it: another entry's copy
// may be older than the entry that has the slot now.
void TakeWritesOf(const TableView &table) {
  const uint32_t used =
      std::min(table.state().usedSlots.load(std::memory_order_acquire), table.shape().capacity);
  for (uint32_t ref = 1; ref <= used; ++ref) {
    const uint64_t serial = table.LiveSlot(ref)->serial.load(std::memory_order_acquire);
    if (serial == 0 || table.SlotAt(ref)->serial.load(std::memory_order_acquire) != serial) continue;
    if (table.HasEnded(table.Record(ref)) && !table.HasEnded(table.LiveRecord(ref)))
      AskForEnd(table, Place{.serial = serial, .ref = ref});
  }
}

}  // namespace

ClientWrite::ClientWrite(const TableView &table, const Place &place)
    : table_(table),
      place_(place),
      mayEnd_(table.shape().agingSize != 0 && IsClient(table) && !table.HasEnded(table.Record(place.ref))) {}

ClientWrite::~ClientWrite() {
  if (mayEnd_ && table_.HasEnded(table_.Record(place_.ref))) AskForEnd(table_, place_);
}

void SetEnds(Ends ends) { g_ends = ends; }

uint64_t TakeClientWrites() {
  Arena *arena = Arena::Current();
  if (arena == nullptr || arena->role() != Arena::Role::kClient) return 0;
  for (uint32_t id = 0; id < kTableCount; ++id) {
    TableView table;
    const bool defined = TableView::Open(arena, id, &table) == kTbmOk;
    if (defined && table.shape().agingSize != 0 && table.HasIndex()) TakeWritesOf(table);
  }
  arena->NoteCopies();
  arena->DropCopies();
  const uint64_t ended = g_ended.size();
  g_ended.clear();
  return ended;
}

}  // namespace qdt::host::tbm
