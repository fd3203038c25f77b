#ifndef TESTS_INSPECT_LAB_ARENA_H_
#define TESTS_INSPECT_LAB_ARENA_H_

#include <functional>
#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/record/record_source.h"
#include "host/scenario/scenario.h"
#include "host/tbm/table_writer.h"
#include "platform/tbm.h"

namespace qdt::host {

// An engine's arena of the built-in layouts, filled by a scenario, whose engine is this process.
class LabArena {
 public:
  // `change` may leave out tables or shape them differently.
  LabArena(std::string path, const std::string &scenario, const std::function<void(ArenaPlan *)> &change = {})
      : path_(std::move(path)) {
    ArenaPlan plan = Layout::BuiltIn().Plan("/nowhere");
    if (change) change(&plan);
    arena_ = Arena::Create(path_, plan);
    writer_ = std::make_unique<TableWriter>(arena_.get());
    Scenario::FromText("s.yaml", scenario, Layout::BuiltIn()).Fill(arena_.get(), writer_.get());
    arena_->Publish();
  }
  ~LabArena() { arena_->Retire(); }

  Arena *arena() const { return arena_.get(); }
  TableWriter *writer() const { return writer_.get(); }

  // As tools see it.
  std::unique_ptr<RecordSource> Source() const { return RecordSource::OfEngine(path_, Layout::BuiltIn()); }

  // The record of an entry, null where there is none; changes that are made in place are at once there.
  uint8_t *Record(std::string_view table, const void *key) const {
    const TableSpec &spec = Layout::BuiltIn().FindTable(table)->spec;
    Arena::SetCurrent(arena_.get());
    void *entry = nullptr;
    const int32_t status = TbmTblSearch(0, spec.id, key, &entry);
    Arena::SetCurrent(nullptr);
    return status == 0 ? static_cast<uint8_t *>(entry) - spec.searchOffset : nullptr;
  }

 private:
  std::string path_;
  std::unique_ptr<Arena> arena_;
  std::unique_ptr<TableWriter> writer_;
};

}  // namespace qdt::host

#endif  // TESTS_INSPECT_LAB_ARENA_H_
