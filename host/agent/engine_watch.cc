#include "host/agent/engine_watch.h"

#include <charconv>

#include "host/agent/engine_state.h"
#include "host/inspect/usage.h"
#include "host/netconf/xml_text.h"
#include "host/session/fields.h"

namespace qdt::host {
namespace {

constexpr size_t kMostFields = 4096;
// Before three fields for each table.
constexpr size_t kFirstFields = 2;

template <typename Number>
bool Read(const std::string &text, Number *number) {
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *number);
  return error == std::errc() && stop == end;
}

}  // namespace

EngineLook EngineLook::Take(const Model &model) {
  EngineLook look;
  const EngineFigures figures = ReadEngineFigures(model);
  look.drops = figures.drops;
  look.memoryPercent = figures.memoryPercent;
  for (const TableUsage &usage : UsageOf(*EngineSource()))
    look.tables.push_back({std::string(usage.table->shortName), usage.entries, usage.capacity});
  return look;
}

std::string EngineLook::Text() const {
  std::string text;
  AppendField(std::to_string(drops), &text);
  AppendField(memoryPercent ? std::to_string(*memoryPercent) : "", &text);
  for (const Level &each : tables) {
    AppendField(each.table, &text);
    AppendField(std::to_string(each.entries), &text);
    AppendField(std::to_string(each.capacity), &text);
  }
  return text;
}

std::optional<EngineLook> EngineLook::Parse(const std::string &text) {
  const auto fields = ReadFields(text, kMostFields);
  if (!fields || fields->size() < kFirstFields || (fields->size() - kFirstFields) % 3 != 0) return {};
  EngineLook look;
  if (!Read((*fields)[0], &look.drops)) return {};
  if (uint32_t percent = 0; Read((*fields)[1], &percent)) look.memoryPercent = percent;
  for (size_t i = kFirstFields; i < fields->size(); i += 3) {
    Level level{(*fields)[i], 0, 0};
    if (!Read((*fields)[i + 1], &level.entries) || !Read((*fields)[i + 2], &level.capacity)) return {};
    look.tables.push_back(std::move(level));
  }
  return look;
}

// What is full stays critical until it is no longer above the threshold, and what has been above it stays
// raised until it is well below: who moves to and fro across a line is told of once.
void EngineWatch::Judge(AlarmType type, const AlarmResource &resource, const std::string &name, uint64_t used,
                        uint64_t room) {
  using enum AlarmSeverity;
  const auto before = alarms_->Standing(type, resource);
  if (used >= room) return alarms_->Raise(type, resource, kCritical, name + " is full");
  if (used * 100 <= room * levels_.clear) {
    return alarms_->Clear(type, resource,
                          name + " is no longer above " + std::to_string(levels_.clear) + " %");
  }
  const bool above = used * 100 > room * levels_.raise;
  if (above && before == kCritical) return;
  if (above || before) {
    alarms_->Raise(type, resource, kMajor,
                   name + " is above " + std::to_string(above ? levels_.raise : levels_.clear) + " %");
  }
}

void EngineWatch::Saw(const EngineLook &look) {
  const AlarmResource engine = AlarmResource::Engine();
  alarms_->Clear(AlarmType::kEngineGone, engine, "an engine can be read");
  for (const EngineLook::Level &each : look.tables) {
    // A table of one entry is full by nature.
    if (each.capacity > 1) {
      Judge(AlarmType::kTableUsage, AlarmResource::Table(each.table), "the table " + each.table, each.entries,
            each.capacity);
    }
  }
  if (look.memoryPercent)
    Judge(AlarmType::kMemoryUsage, engine, "the engine's shared memory", *look.memoryPercent, 100);
  // What was dropped before the first look may be long ago.
  if (drops_ && look.drops > *drops_) {
    alarms_->Raise(AlarmType::kPacketBuffers, engine, AlarmSeverity::kMajor,
                   "packets are dropped for which there is no buffer");
  } else {
    alarms_->Clear(AlarmType::kPacketBuffers, engine, "no more packets are dropped for want of a buffer");
  }
  drops_ = look.drops;
}

void EngineWatch::SawNone(const std::string &why) {
  alarms_->Raise(AlarmType::kEngineGone, AlarmResource::Engine(), AlarmSeverity::kCritical,
                 "no engine can be read: " + XmlText(why));
  for (const AlarmType type : {AlarmType::kTableUsage, AlarmType::kMemoryUsage, AlarmType::kPacketBuffers})
    alarms_->ClearAll(type, "the engine is gone");
  drops_.reset();
}

}  // namespace qdt::host
