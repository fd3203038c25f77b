#include "host/inspect/usage.h"

#include <algorithm>

namespace qdt::host {

std::vector<TableUsage> UsageOf(const RecordSource &source) {
  std::vector<TableUsage> all;
  for (const TableLayout &table : source.layout().tables()) {
    const tbm::TableView *view = source.View(table);
    if (view == nullptr) continue;
    all.push_back({&table, view->EntryNum(), view->shape().capacity, view->StorageBytes()});
  }
  std::ranges::stable_sort(all, [](const TableUsage &a, const TableUsage &b) {
    return uint64_t{a.entries} * b.capacity > uint64_t{b.entries} * a.capacity;
  });
  return all;
}

}  // namespace qdt::host
