#include "host/commands/commands.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <span>
#include <string>
#include <vector>

#include "host/base/command_text.h"
#include "host/base/words.h"
#include "host/commands/egn_command.h"
#include "host/commands/nat_command.h"
#include "host/commands/region_command.h"
#include "host/commands/server_map_command.h"
#include "host/commands/trace_command.h"
#include "host/engine/engine.h"
#include "host/layout/text_marks.h"
#include "host/layout/value_text.h"
#include "host/library/entry_points.h"
#include "host/library/services.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

using Words = std::vector<std::string>;

// One engine command. Its first word selects it; the function gets all words.
struct Command {
  const char *name;
  const char *usage;
  const char *help;
  EngineReply (*run)(Engine &engine, const Words &words);
};

// What a family of the library answers here, with the engine's own tables.
EngineReply RunLibrary(Engine &, const Words &words) {
  const EntryPoint *entry = FindEntryPoint(words[0]);
  std::vector<char *> pointers;
  for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
  const Answer answer = RunEntryPoint(*entry, pointers);
  // A query that failed has its message as its answer; only a command without text answers with its code.
  return {answer.text.empty() ? std::min(answer.result, kReplyOk) : kReplyOk, std::string(answer.text), {}};
}

void AppendLine(std::string *text, std::string label, const std::string &value) {
  label.resize(std::max<size_t>(label.size(), 9), ' ');
  *text += label + ' ';
  AppendEscaped(value, text);  // names of files have any character
  *text += '\n';
}

EngineReply Status(Engine &engine, const Words &) {
  std::string text;
  AppendLine(&text, "pid", std::to_string(engine.arena().enginePid()));
  AppendLine(&text, "uptime", std::to_string(engine.Uptime().count()) + " s");
  AppendLine(&text, "arena", engine.options().arena);
  AppendLine(&text, "socket", engine.options().socket);
  const Filler::Source source = engine.source();
  AppendLine(&text, source.kind, source.name);
  const TableUse use = CountEntries();
  AppendLine(&text, "tables", std::to_string(use.tables) + " in use");
  AppendLine(&text, "entries", std::to_string(use.entries));
  if (engine.refused() != 0)
    AppendLine(&text, "refused", std::to_string(engine.refused()) + " times, as tables were full");
  for (uint32_t id = 0; id < g_tbmGlobalInfo->tableCount; ++id) {
    uint32_t count = 0;
    if (TbmTblEntryNum(0, id, &count) != 0 || count == 0) continue;
    AppendLine(&text, "table " + std::to_string(id),
               std::to_string(count) + " of " + std::to_string(TbmTblGetSpec(0, id)) + "  " +
                   g_tbmGlobalInfo->tables[id].name);
  }
  return {kReplyOk, text, {}};
}

UniqueFd MemoryFile() {
  UniqueFd file(memfd_create("nqe-snapshot", MFD_CLOEXEC));
  if (!file.ok()) throw SystemError("cannot make room for a snapshot");
  return file;
}

// Pages that have changed, by number, and the moment at which that was.
EngineReply ChangedPages(Arena &arena, uint32_t since) {
  const std::string moment = std::to_string(arena.MarkMoment());
  const std::vector<uint32_t> pages = arena.ChangedSince(since);
  UniqueFd list = MemoryFile();
  const size_t bytes = pages.size() * sizeof(pages[0]);
  if (write(list.get(), pages.data(), bytes) != static_cast<ssize_t>(bytes))
    throw SystemError("cannot write the snapshot");
  return {kReplyOk, moment, std::move(list)};
}

// A copy in one go; or one that its reader makes of the engine's file while the engine goes on, for which the
// engine tells what has changed since a moment, and in the end hands over the rest.
EngineReply Snapshot(Engine &engine, const Words &words) {
  Arena &arena = engine.arena();
  uint32_t moment = 0;
  if (words.size() == 1) {
    UniqueFd copy = MemoryFile();
    arena.CopyTo(copy.get());
    Arena::StampCopy(copy.get());
    return {kReplyOk, "", std::move(copy)};
  }
  if (words.size() == 2 && words[1] == "begin") return {kReplyOk, std::to_string(arena.MarkMoment()), {}};
  if (words.size() == 3) {
    const auto [end, error] = std::from_chars(words[2].data(), words[2].data() + words[2].size(), moment);
    if (error == std::errc() && end == words[2].data() + words[2].size()) {
      if (words[1] == "changed") return ChangedPages(arena, moment);
      if (words[1] == "rest") {
        UniqueFd rest = MemoryFile();
        arena.CopyChanged(moment, rest.get());
        return {kReplyOk, "", std::move(rest)};
      }
    }
  }
  throw HostError("snapshot how? (snapshot; or snapshot begin, changed MOMENT, rest MOMENT)");
}

EngineReply RunWords(Engine &engine, const Words &words);

// For who shows the answer to people, who could not tell a text's newline from a line's end.
EngineReply Escaped(Engine &engine, const Words &words) {
  if (words.size() == 1 || words[1] == words[0]) throw HostError("escaped what? (escaped COMMAND WORDS...)");
  const TextMarks marks;
  EngineReply reply = RunWords(engine, {words.begin() + 1, words.end()});
  reply.text = WithoutMarks(std::move(reply.text));
  return reply;
}

EngineReply Clear(Engine &engine, const Words &words) {
  if (words.size() != 2 || words[1] != kClearedByCpcar)
    throw HostError("clear what? The engine can clear: cpcar");
  const uint32_t entries = engine.Clear(words[1]);
  return {kReplyOk, "cpcar statistics cleared: " + std::to_string(entries) + " entries\n", {}};
}

std::span<const std::string> BehindName(const Words &words) { return std::span(words).subspan(1); }

EngineReply Egn(Engine &engine, const Words &words) {
  return {kReplyOk, RunEgnCommand(engine, BehindName(words)), {}};
}

EngineReply Nat(Engine &engine, const Words &words) {
  return {kReplyOk, RunNatCommand(engine.natPolicy(), BehindName(words)), {}};
}

EngineReply PerfMode(Engine &engine, const Words &words) {
  if (words.size() > 2) throw HostError("too many words (perf-mode [on|off])");
  bool &on = engine.switches().performanceMode;
  if (words.size() == 2) on = ReadSwitch(words[0], words[1]);
  return {kReplyOk, "performance mode is " + OnOff(on) + "\n", {}};
}

EngineReply ServerMap(Engine &engine, const Words &words) {
  return {kReplyOk, RunServerMapCommand(engine, BehindName(words)), {}};
}

EngineReply Trace(Engine &engine, const Words &words) {
  return {kReplyOk, RunTraceCommand(&engine.switches(), BehindName(words)), {}};
}

EngineReply TraceTail(Engine &engine, const Words &words) {
  return {kReplyOk, RunTraceTailCommand(engine.switches().traceTail, BehindName(words)), {}};
}

EngineReply Region(Engine &engine, const Words &words) {
  return {kReplyOk, RunRegionCommand(engine, BehindName(words)), {}};
}

EngineReply Help(Engine &engine, const Words &words);

constexpr Command kCommands[] = {
    {"clear", "clear cpcar", "clear the statistics of the control-plane rate limits", Clear},
    {"egn", "egn WORDS...", "application identification: \"egn help\" lists its words", Egn},
    {"escaped", "escaped COMMAND...", "what the command answers, newlines inside texts of records as \\n",
     Escaped},
    {"help", "help", "list the engine's commands", Help},
    {"nat", "nat WORDS...", "query-nat-policy ruleName NAME: a rule; query-nat-address-group-usage [id N]",
     Nat},
    {"perf-mode", "perf-mode [on|off]", "show or switch the performance mode", PerfMode},
    {"region", "region [NAME ...]", "NAME: a shared region's values; NAME VALUE'S-NAME NEW: change one",
     Region},
    {"server-map", "server-map WORDS...",
     "reset-server-map ip ADDRESS: age out the server maps of an address", ServerMap},
    {"snapshot", "snapshot", "hand over a consistent copy of the arena as a file", Snapshot},
    {"status", "status", "what this engine is and holds", Status},
    {"trace-pkt-nqe", "trace-pkt-nqe ...",
     "conditions of the engine's packet trace; alone it lists its words", Trace},
    {"trace-tail", "trace-tail [N]", "lines of the packet trace behind number N, the last one's number first",
     TraceTail},
};

EngineReply Help(Engine &, const Words &) {
  std::string text;
  const auto add = [&text](std::string usage, const char *help) {
    usage.resize(std::max<size_t>(usage.size(), 20), ' ');
    text += "  " + usage + ' ' + help + '\n';
  };
  for (const EntryPoint &entry : EntryPoints()) {
    if (entry.run != nullptr) add(std::string(entry.name) + " WORDS...", entry.help);
  }
  for (const Command &command : kCommands) add(command.usage, command.help);
  return {kReplyOk, text, {}};
}

EngineReply RunWords(Engine &engine, const Words &words) {
  if (FindEntryPoint(words[0]) != nullptr) return RunLibrary(engine, words);
  for (const Command &command : kCommands) {
    if (words[0] == command.name) return command.run(engine, words);
  }
  throw HostError("unknown command " + Quoted(words[0]) + "; \"help\" lists the engine's commands");
}

}  // namespace

EngineReply RunCommandLine(Engine &engine, std::string_view line) {
  const Words words = SplitWords(line);
  if (words.empty()) throw HostError("the command line is empty; \"help\" lists the engine's commands");
  return RunWords(engine, words);
}

}  // namespace qdt::host
