#include "host/engine/engine.h"

#include <time.h>

#include "host/engine/reassembly.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

// Clears some values of the entries of one table.
struct TableClearing {
  const TableLayout &table;
  const std::vector<FieldRef> cleared;
  TableWriter &writer;
  uint32_t entries = 0;
};

int32_t ClearEntry(void *entry, void *context) {
  constexpr int32_t kGoOn = -9;
  auto &clearing = *static_cast<TableClearing *>(context);
  const TableSpec &spec = clearing.table.spec;
  auto *bytes = static_cast<uint8_t *>(entry);
  std::vector<uint8_t> record(bytes, bytes + spec.StoredSize());
  for (const FieldRef &field : clearing.cleared) field.Set(record.data(), 0);
  clearing.writer.Update(spec.id, bytes + spec.searchOffset, record.data());
  ++clearing.entries;
  return kGoOn;
}

// What times are counted in.
uint64_t UptimeSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec);
}

ArenaPlan PlanFor(const EngineOptions &options, const Layout &layout) {
  ArenaPlan plan = layout.Plan(options.socket);
  if (const RegionLayout *region = layout.FindRegion(kStatisticsRegion); region != nullptr) {
    throw HostError(std::string(region->place) + ": " + std::string(region->spec.name) +
                    ": the engine has a region of this name itself (rename it)");
  }
  plan.regions.push_back(StatisticsSpec(options.cores));
  Measurement::Plan(&plan, options.cores);
  return plan;
}

}  // namespace

Engine::Engine(const EngineOptions &options, const Layout &layout, Filler *filler)
    : options_(options),
      layout_(layout),
      filler_(*filler),
      arena_(Arena::Create(options.arena, PlanFor(options, layout))),
      statistics_(*arena_),
      measurement_(*arena_, options.cores),
      writer_(arena_.get()),
      aging_(layout, &writer_, filler) {
  Arena::SetCurrent(arena_.get());
  filler_.Fill(Target());
  StartReassembly(layout, arena_.get());
}

Engine::~Engine() {
  Retire();
  Arena::SetCurrent(nullptr);
}

void Engine::Publish() {
  arena_->Publish();
  published_ = true;
}

void Engine::Retire() {
  if (published_) arena_->Retire();
  published_ = false;
}

FillTarget Engine::Target() { return {layout_, *arena_, writer_, statistics_, natPolicy_}; }

void Engine::Follow() { filler_.Follow(Target()); }

uint32_t Engine::Clear(std::string_view word) {
  uint32_t entries = 0;
  for (const TableLayout &table : layout_.tables()) {
    TableClearing clearing{table, table.ClearedBy(word), writer_};
    if (clearing.cleared.empty()) continue;
    TbmTblTrav(0, table.spec.id, ClearEntry, &clearing);
    entries += clearing.entries;
  }
  return entries;
}

uint32_t Engine::Age() { return aging_.Run(UptimeSeconds()); }
uint32_t Engine::AgeServerMaps() { return aging_.RunTable(kServerMapTable, UptimeSeconds()); }
bool Engine::AgeStep() { return aging_.Step(UptimeSeconds()); }

std::chrono::seconds Engine::Uptime() const {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started_);
}

TableUse CountEntries() {
  TableUse use;
  for (uint32_t id = 0; id < g_tbmGlobalInfo->tableCount; ++id) {
    uint32_t count = 0;
    if (TbmTblEntryNum(0, id, &count) != 0 || count == 0) continue;
    ++use.tables;
    use.entries += count;
  }
  return use;
}

}  // namespace qdt::host
