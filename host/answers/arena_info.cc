#include "host/answers/documents.h"

#include "host/arena/arena_layout.h"
#include "host/base/time_text.h"
#include "host/tbm/status.h"
#include "host/tbm/table_view.h"

namespace qdt::host {

ArenaInfo CountEntries(Arena *arena) {
  ArenaInfo info{*arena};
  for (uint32_t id = 0; id < kTableCount; ++id) {
    tbm::TableView view;
    if (tbm::TableView::Open(arena, id, &view) != tbm::kTbmOk) continue;
    const uint32_t count = view.EntryNum();
    info.entries += count;
    if (count != 0) ++info.tables;
  }
  return info;
}

bool ArenaInfo::IsCopy() const { return header().savedTime != 0; }

void WriteArenaInfo(JsonWriter *json, const ArenaInfo &info, std::string_view file) {
  const ArenaHeader &header = info.header();
  const auto text = [json](std::string_view name, std::string_view value) {
    JsonKey(json, name);
    JsonEscaped(json, value);
  };
  const auto time = [&text](std::string_view name, uint64_t nanoseconds) {
    text(name, UtcText(nanoseconds));
  };
  json->StartObject();
  text("file", file);
  text("kind", info.IsCopy() ? "snapshot" : info.IsRunning() ? "running" : "left");
  if (info.IsCopy()) time("saved", header.savedTime);
  text("version", header.program);
  JsonKey(json, "engine");
  json->StartObject();
  JsonKey(json, "pid");
  json->Uint64(header.enginePid);
  time("started", header.startTime);
  if (header.arenaPath[0] != 0) text("arena", header.arenaPath);
  text("socket", header.socketPath);
  json->EndObject();
  JsonKey(json, "entries");
  json->Uint64(info.entries);
  JsonKey(json, "tables");
  json->Uint(info.tables);
  json->EndObject();
}

}  // namespace qdt::host
