#include "tools/nqecli/commands/snapshot_info.h"

#include <memory>

#include "host/arena/arena.h"
#include "host/arena/arena_layout.h"
#include "host/base/time_text.h"
#include "host/layout/value_text.h"
#include "host/record/record_json.h"
#include "host/tbm/status.h"
#include "host/tbm/table_view.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Arena;
using host::ArenaHeader;

struct Info {
  explicit Info(const std::string &path) : file(path), arena(Arena::Look(path, Arena::Access::kSnapshot)) {
    for (uint32_t id = 0; id < host::kTableCount; ++id) {
      host::tbm::TableView view;
      if (host::tbm::TableView::Open(arena.get(), id, &view) != host::tbm::kTbmOk) continue;
      const uint32_t count = view.EntryNum();
      entries += count;
      if (count != 0) ++tables;
    }
  }

  const ArenaHeader &header() const { return *arena->header(); }
  bool IsCopy() const { return header().savedTime != 0; }
  // Of an engine's own file.
  bool IsRunning() const { return !IsCopy() && arena->EngineAlive(); }

  std::string file;
  std::unique_ptr<Arena> arena;
  uint64_t entries = 0;
  uint32_t tables = 0;  // that have any
};

std::string Escaped(std::string_view text) {
  std::string escaped;
  host::AppendEscaped(text, &escaped);
  return escaped;
}

std::string Lines(const Info &info) {
  const ArenaHeader &header = info.header();
  std::string text;
  const auto line = [&](std::string_view name, const std::string &value) {
    text += name;
    text.append(9 - name.size(), ' ');
    text += value;
    text += '\n';
  };
  line("file", Escaped(info.file));
  line("kind", info.IsCopy()      ? "snapshot"
               : info.IsRunning() ? "arena of a running engine"
                                  : "arena that an engine has left behind");
  if (info.IsCopy()) line("saved", host::UtcText(header.savedTime));
  line("version", Escaped(header.program));
  line("engine",
       "process " + std::to_string(header.enginePid) + ", started " + host::UtcText(header.startTime));
  line("arena", header.arenaPath[0] == 0 ? "not recorded, its path is too long" : Escaped(header.arenaPath));
  line("socket", Escaped(header.socketPath));
  line("entries", std::to_string(info.entries) + " in " + std::to_string(info.tables) + " tables");
  return text;
}

// {"snapshot": {"file": ..., "kind": "snapshot", "saved": "2026-...", "version": ..., "engine": {"pid": ...,
// "started": ..., "arena": ..., "socket": ...}, "entries": N, "tables": N}}
void WriteJson(const Info &info) {
  const ArenaHeader &header = info.header();
  StandardOut out;
  host::JsonWriter json(out);
  const auto text = [&](std::string_view name, std::string_view value) {
    host::JsonKey(&json, name);
    host::JsonEscaped(&json, value);
  };
  const auto time = [&](std::string_view name, uint64_t nanoseconds) {
    text(name, host::UtcText(nanoseconds));
  };
  json.StartObject();
  host::JsonKey(&json, "snapshot");
  json.StartObject();
  text("file", info.file);
  text("kind", info.IsCopy() ? "snapshot" : info.IsRunning() ? "running" : "left");
  if (info.IsCopy()) time("saved", header.savedTime);
  text("version", header.program);
  host::JsonKey(&json, "engine");
  json.StartObject();
  host::JsonKey(&json, "pid");
  json.Uint64(header.enginePid);
  time("started", header.startTime);
  if (header.arenaPath[0] != 0) text("arena", header.arenaPath);
  text("socket", header.socketPath);
  json.EndObject();
  host::JsonKey(&json, "entries");
  json.Uint64(info.entries);
  host::JsonKey(&json, "tables");
  json.Uint(info.tables);
  json.EndObject();
  json.EndObject();
  out.Put('\n');
  out.Spill();
}

}  // namespace

ExitCode PrintSnapshotInfo(const std::string &file, bool asJson) {
  const Info info(file);
  if (!asJson) return Print(Lines(info));
  WriteJson(info);
  return kAnswered;
}

}  // namespace qdt::nqecli
