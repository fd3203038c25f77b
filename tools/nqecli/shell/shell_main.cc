// nqecli-shell: the shell that nqecli opens without words on a terminal.

#include <unistd.h>

#include <string>
#include <vector>

#include "host/base/arguments.h"
#include "host/base/host_error.h"
#include "tools/nqecli/output/output.h"
#include "tools/nqecli/shell/shell.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

ExitCode Run(host::Arguments arguments) {
  Place place;
  std::string first;
  while (!arguments.empty()) {
    if (!TakePlace(&arguments, &place) && !arguments.TakeValue("--again", &first))
      throw HostError("unknown word " + host::Quoted(std::string(arguments.front())) + "; see nqecli --help");
  }
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)
    throw HostError("the shell takes a terminal; try nqecli --help");
  TakeEnvironment(&place);
  try {
    Shell(place).Run(first);
    return kAnswered;
  } catch (const StartAgain &again) {
    WriteError("the engine is another one now");
    std::vector<std::string> words{"nqecli-shell", "--again=" + again.line};
    if (!place.arena.empty()) words.push_back("--arena=" + place.arena);
    for (const std::string &user : place.trusted) words.push_back("--trust=" + user);
    std::vector<char *> pointers;
    for (std::string &word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execv("/proc/self/exe", pointers.data());
    throw host::HostError("cannot start again");
  }
}

}  // namespace
}  // namespace qdt::nqecli

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
// libedit copies the names of added functions and never gives the copies back; nothing else here copies so.
extern "C" const char *__lsan_default_suppressions() { return "leak:wcsdup\n"; }
#endif
#endif

int main(int argc, char **argv) { return qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Run); }
