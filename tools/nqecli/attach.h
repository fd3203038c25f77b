#ifndef TOOLS_NQECLI_ATTACH_H_
#define TOOLS_NQECLI_ATTACH_H_

#include <string>

#include "host/arena/arena.h"
#include "host/base/arguments.h"

namespace qdt::nqecli {

// Which arena a tool works on: at most one of the two is given.
struct Place {
  std::string arena;     // of a running engine; empty: the default one
  std::string snapshot;  // a saved copy
  bool fromEnvironment = false;

  bool saved() const { return !snapshot.empty(); }
};

// Takes --arena PATH or --snapshot FILE when it stands next. Throws HostError when both were given.
bool TakePlace(host::Arguments *arguments, Place *place);

// Where nothing was given, takes the place from NQE_ARENA or NQE_SNAPSHOT. Throws HostError when both are
// set.
void TakeEnvironment(Place *place);

// The help text's lines for these options.
std::string PlaceHelp();

// The engine's arena, or a saved one, as what this process works on; its engine is what the library's
// services reach. It lasts as long as the process, whose end takes the mapping along. Throws HostError.
host::Arena &Attach(const Place &place);

// "  USAGE   HELP\n", with the help in the column that the tools use.
void AddHelpLine(std::string *text, std::string usage, const std::string &help);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_ATTACH_H_
