#include "host/agent/measured_state.h"

#include <algorithm>
#include <cstring>

#include "host/measure/measure_regions.h"
#include "host/netconf/xml_text.h"
#include "qdt/pmu.h"

namespace qdt::host {
namespace {

// The rows of a mode's table; none where nothing is counted.
size_t EventsOf(uint32_t mode) {
  if (mode == 0 || mode > QDT_PMU_MODES || evt_define[mode] == nullptr) return 0;
  size_t count = 0;
  while (count < FastStatBlock::kEvents && evt_define[mode][count].event != QDT_PMU_EVENT_END) ++count;
  return count;
}

std::string PointText(const FastStatBlock::Point &point, uint32_t number, uint32_t mode) {
  std::string xml =
      "<point>" + XmlLeaf("point", number) + XmlLeaf("hits", point.hits) + XmlLeaf("packets", point.packets);
  const size_t named = EventsOf(mode);
  for (uint32_t i = 0; i < FastStatBlock::kEvents; ++i) {
    if (i >= named && point.events[i].count == 0) continue;
    xml += "<event>" + XmlLeaf("event", i);
    if (i < named) xml += XmlLeaf("name", evt_define[mode][i].name);
    xml += XmlLeaf("count", point.events[i].count) + "</event>";
  }
  return xml + "</point>";
}

std::string CoreText(const FastStatBlock::Core &core, uint32_t number, uint32_t mode) {
  std::string xml = "<core>" + XmlLeaf("core", number);
  for (uint32_t i = 0; i < FastStatBlock::kPoints; ++i) {
    if (core.points[i].hits != 0) xml += PointText(core.points[i], i, mode);
  }
  return xml + "</core>";
}

std::string ContextText(const TaskTraceBlock &context, uint32_t number) {
  std::string xml = "<context>" + XmlLeaf("context", number) + XmlLeaf("late-batches", context.lateBatches) +
                    XmlLeaf("timely-batches", context.timelyBatches);
  for (uint32_t i = 0; i < TaskTraceBlock::kTasks; ++i) {
    if (context.runs[i] == 0) continue;
    xml += "<task>" + XmlLeaf("task", i) + XmlLeaf("runs", context.runs[i]) +
           XmlLeaf("packets", context.packets[i]) + XmlLeaf("cost", context.eventA[i]) +
           XmlLeaf("hits", context.eventB[i]) + XmlLeaf("most", context.maximum[i]) + "</task>";
  }
  return xml + "</context>";
}

}  // namespace

// The engine counts on while a block is read: each is copied out, so that a record agrees with itself.
void TellMeasurements(const Arena &arena, const std::string &space, const std::string &path,
                      StateSink *sink) {
  uint32_t size = 0;
  const void *region = arena.FindRegion(kFastStatRegion, &size);
  if (region != nullptr && size >= sizeof(FastStatBlock)) {
    FastStatBlock block;
    std::memcpy(&block, region, sizeof block);
    std::string xml = XmlLeaf("mode", block.mode);
    const auto cores =
        static_cast<uint32_t>(std::clamp(block.coreCount, 0, static_cast<int32_t>(FastStatBlock::kCores)));
    for (uint32_t i = 0; i < cores; ++i) xml += CoreText(block.cores[i], i, block.mode);
    sink->Take({space, path + "/points", std::move(xml)});
  }
  region = arena.FindRegion(kTaskTraceRegion, &size);
  if (region == nullptr || size < sizeof(uint64_t)) return;
  uint64_t contexts = 0;
  std::memcpy(&contexts, region, sizeof contexts);
  contexts = std::min<uint64_t>(contexts, (size - sizeof contexts) / sizeof(TaskTraceBlock));
  const auto *next = static_cast<const uint8_t *>(region) + sizeof contexts;
  for (uint32_t i = 0; i < contexts; ++i, next += sizeof(TaskTraceBlock)) {
    TaskTraceBlock context;
    std::memcpy(&context, next, sizeof context);
    sink->Take({space, path + "/scheduler", ContextText(context, i)});
  }
}

}  // namespace qdt::host
