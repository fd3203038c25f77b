#ifndef HOST_LIBRARY_ENTRY_POINTS_H_
#define HOST_LIBRARY_ENTRY_POINTS_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "qdt/cli.h"

namespace qdt::host {

// One of the library's command families, known to the engine and to the command-line tool under the same
// name.
struct EntryPoint {
  const char *name;
  int32_t (*run)(OutputBuffer *out, int32_t wordCount, char **words);
  const char *help;
  const char *examples;   // lines behind the tool's name
  bool onRegion = false;  // takes a shared region of the engine for all that it does, its usage list too
};

std::span<const EntryPoint> EntryPoints();

// Null when there is no such family.
const EntryPoint *FindEntryPoint(std::string_view name);

struct Answer {
  int32_t result = 0;
  std::string_view text;  // good until the next call of RunEntryPoint
};

// Runs a family's command; words[0] is its own name.
Answer RunEntryPoint(const EntryPoint &entry, std::span<char *const> words);

// Whether each line of a family's answer says what was wrong, and none has anything else. The library returns
// success with these.
bool OnlyRefuses(std::string_view answer);

}  // namespace qdt::host

#endif  // HOST_LIBRARY_ENTRY_POINTS_H_
