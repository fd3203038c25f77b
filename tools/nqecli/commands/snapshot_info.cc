#include "tools/nqecli/commands/snapshot_info.h"

#include <memory>

#include "host/answers/documents.h"
#include "host/arena/arena.h"
#include "host/arena/arena_layout.h"
#include "host/base/time_text.h"
#include "host/layout/value_text.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Arena;
using host::ArenaHeader;
using host::ArenaInfo;

std::string Escaped(std::string_view text) {
  std::string escaped;
  host::AppendEscaped(text, &escaped);
  return escaped;
}

std::string Lines(const ArenaInfo &info, const std::string &file) {
  const ArenaHeader &header = info.header();
  std::string text;
  const auto line = [&](std::string_view name, const std::string &value) {
    text += name;
    text.append(9 - name.size(), ' ');
    text += value;
    text += '\n';
  };
  line("file", Escaped(file));
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

}  // namespace

ExitCode PrintSnapshotInfo(const std::string &file, bool asJson) {
  const auto arena = Arena::Look(file, Arena::Access::kSnapshot);
  const ArenaInfo info = host::CountEntries(arena.get());
  if (!asJson) return Print(Lines(info, file));
  StandardOut out;
  host::JsonWriter json(out);
  json.StartObject();
  host::JsonKey(&json, "snapshot");
  WriteArenaInfo(&json, info, file);
  json.EndObject();
  out.Put('\n');
  out.Spill();
  return kAnswered;
}

}  // namespace qdt::nqecli
