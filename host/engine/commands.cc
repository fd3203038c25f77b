#include "host/engine/commands.h"

#include <sys/mman.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "host/engine/engine.h"
#include "host/engine/entry_points.h"
#include "host/engine/region_command.h"
#include "host/engine/services.h"
#include "host/engine/words.h"
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
  if (entry->run == nullptr) throw HostError(words[0] + " is not part of this build");
  std::vector<char *> pointers;
  for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
  const Answer answer = RunEntryPoint(*entry, pointers);
  // A query that failed has its message as its answer; only a command without text answers with its code.
  return {answer.text.empty() ? std::min(answer.result, kReplyOk) : kReplyOk, std::string(answer.text), {}};
}

void AppendLine(std::string *text, std::string label, const std::string &value) {
  label.resize(std::max<size_t>(label.size(), 9), ' ');
  *text += label + ' ' + value + '\n';
}

EngineReply Status(Engine &engine, const Words &) {
  std::string text;
  AppendLine(&text, "pid", std::to_string(engine.arena().enginePid()));
  AppendLine(&text, "uptime", std::to_string(engine.Uptime().count()) + " s");
  AppendLine(&text, "arena", engine.options().arena);
  AppendLine(&text, "socket", engine.options().socket);
  AppendLine(&text, "scenario", engine.options().scenario);
  const TableUse use = CountEntries();
  AppendLine(&text, "tables", std::to_string(use.tables) + " in use");
  AppendLine(&text, "entries", std::to_string(use.entries));
  for (uint32_t id = 0; id < g_tbmGlobalInfo->tableCount; ++id) {
    uint32_t count = 0;
    if (TbmTblEntryNum(0, id, &count) != 0 || count == 0) continue;
    AppendLine(&text, "table " + std::to_string(id),
               std::to_string(count) + " of " + std::to_string(TbmTblGetSpec(0, id)) + "  " +
                   g_tbmGlobalInfo->tables[id].name);
  }
  return {kReplyOk, text, {}};
}

EngineReply Snapshot(Engine &engine, const Words &) {
  UniqueFd copy(memfd_create("nqe-snapshot", MFD_CLOEXEC));
  if (!copy.ok()) throw SystemError("cannot make room for a snapshot");
  engine.arena().CopyTo(copy.get());
  return {kReplyOk, "", std::move(copy)};
}

EngineReply Clear(Engine &engine, const Words &words) {
  if (words.size() != 2 || words[1] != kClearedByCpcar)
    throw HostError("clear what? The engine can clear: cpcar");
  const uint32_t entries = engine.Clear(words[1]);
  return {kReplyOk, "cpcar statistics cleared: " + std::to_string(entries) + " entries\n", {}};
}

// The NAT policy's rules are asked for by name; the view of NAT policies sends this line.
EngineReply Nat(Engine &engine, const Words &words) {
  if (words.size() != 4 || words[1] != "query-nat-policy" || words[2] != "ruleName") {
    throw HostError("nat what? The engine answers: nat query-nat-policy ruleName NAME");
  }
  for (const NatPolicyRule &rule : engine.natPolicy()) {
    if (rule.name == words[3]) return {kReplyOk, rule.text, {}};
  }
  throw HostError("the NAT policy has no rule " + Quoted(words[3]));
}

EngineReply Region(Engine &engine, const Words &words) {
  return {kReplyOk, RunRegionCommand(engine, std::span(words).subspan(1)), {}};
}

EngineReply Help(Engine &engine, const Words &words);

constexpr Command kCommands[] = {
    {"clear", "clear cpcar", "clear the statistics of the control-plane rate limits", Clear},
    {"help", "help", "list the engine's commands", Help},
    {"nat", "nat WORDS...", "query-nat-policy ruleName NAME: a rule of the NAT policy", Nat},
    {"region", "region [NAME ...]", "NAME: a shared region's values; NAME VALUE'S-NAME NEW: change one",
     Region},
    {"snapshot", "snapshot", "hand over a consistent copy of the arena as a file", Snapshot},
    {"status", "status", "what this engine is and holds", Status},
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

}  // namespace

EngineReply RunCommandLine(Engine &engine, std::string_view line) {
  const Words words = SplitWords(line);
  if (words.empty()) throw HostError("the command line is empty; \"help\" lists the engine's commands");
  if (FindEntryPoint(words[0]) != nullptr) return RunLibrary(engine, words);
  for (const Command &command : kCommands) {
    if (words[0] == command.name) return command.run(engine, words);
  }
  throw HostError("unknown command " + Quoted(words[0]) + "; \"help\" lists the engine's commands");
}

}  // namespace qdt::host
