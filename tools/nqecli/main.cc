// nqecli: asks a running engine, or a saved copy of its arena, through the diagnostics library.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/base/arguments.h"
#include "host/library/entry_points.h"
#include "tools/nqecli/attach.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/companion.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {
namespace {

using host::Arguments;
using host::HostError;
using host::Quoted;

std::string Help() {
  std::string text =
      "usage: nqecli [OPTIONS] COMMAND [WORDS...]\n"
      "       nqecli [OPTIONS]     a shell, on a terminal\n"
      "\n"
      "Asks a running forwarding engine, or a saved copy of its arena.\n"
      "\n";
  for (const host::EntryPoint &entry : host::EntryPoints())
    AddHelpLine(&text, std::string(entry.name) + " WORDS...", entry.help);
  for (const Command &command : Commands()) AddHelpLine(&text, command.usage, command.help);
  text += "\n" + PlaceHelp();
  AddHelpLine(&text, "--help, --version", "this text; version and how the tool was built");
  text +=
      "\n"
      "Options stand before or behind the command, but before the words of diag, pkt_trace, pmc and perf.\n"
      "nqecli COMMAND --help tells more of a command.\n"
      "\n"
      "exit codes: 0 an answer, 1 the query failed, 2 bad usage or no engine\n";
  return text;
}

// An option of the command that is still to come, with its value.
void TakeEarly(Arguments *arguments, std::vector<char *> *early) {
  const auto take = [&] {
    early->push_back(arguments->rest().front());
    arguments->Take(arguments->front());
  };
  take();
  if (OptionHasValue(early->back()) && !arguments->empty()) take();
}

ExitCode Run(Arguments arguments) {
  Place place;
  std::vector<char *> early;
  while (arguments.AtOption()) {
    if (arguments.Take("--help")) return Print(Help());
    if (arguments.Take("--version")) return Print("nqecli " + host::BuildInfo(QDT_STATIC_LINK));
    if (!TakePlace(&arguments, &place)) TakeEarly(&arguments, &early);
  }
  const bool takesThem = !arguments.empty() && host::FindEntryPoint(arguments.front()) == nullptr;
  if (!early.empty() && !takesThem)
    throw HostError("unknown option " + Quoted(early.front()) + "; try --help");
  if (arguments.empty() && isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0)
    RunCompanion(place, "nqecli-shell", "libedit-dev", {});
  if (arguments.empty()) throw HostError("no command; try --help");
  early.insert(early.begin(), arguments.rest().front());
  early.insert(early.end(), arguments.rest().begin() + 1, arguments.rest().end());
  return RunCommand(place, early);
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) {
  const int code = qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Run);
  if (QDT_STATIC_LINK == 0) return code;
  // What is left to be taken down is memory, and that the system does sooner.
  std::fflush(nullptr);
  std::quick_exit(code);
}
