#include "host/measure/measurement.h"

namespace qdt::host {
namespace {

FastStatBlock *FindPoints(const Arena &arena) {
  uint32_t size = 0;
  void *const region = arena.FindRegion(kFastStatRegion, &size);
  return size >= sizeof(FastStatBlock) ? static_cast<FastStatBlock *>(region) : nullptr;
}

std::span<TaskTraceBlock> FindRuncs(const Arena &arena, uint32_t cores) {
  uint32_t size = 0;
  void *const region = arena.FindRegion(kTaskTraceRegion, &size);
  return PublishRuncs(region, size, cores);
}

}  // namespace

void Measurement::Plan(ArenaPlan *plan, uint32_t cores) {
  for (RegionSpec &region : plan->regions) {
    if (region.name == kTaskTraceRegion) region.size = TaskTraceSize(cores);
  }
}

Measurement::Measurement(const Arena &arena, uint32_t cores)
    : points_(FindPoints(arena), cores), tasks_(FindRuncs(arena, cores)) {}

void Measurement::BeginPacket(uint32_t core) {
  points_.Begin(core);
  tasks_.Begin(core);
}

void Measurement::Enter(const PathTask &task) {
  points_.Enter(task.point);
  tasks_.Enter(task.id);
}

void Measurement::EndPacket() {
  tasks_.End();
  points_.End();
}

}  // namespace qdt::host
