#ifndef TOOLS_NQECLI_SHELL_SHELL_H_
#define TOOLS_NQECLI_SHELL_SHELL_H_

#include <string>
#include <string_view>

#include "tools/nqecli/attach.h"
#include "tools/nqecli/shell/filters.h"
#include "tools/nqecli/shell/history.h"
#include "tools/nqecli/shell/line_editor.h"

namespace qdt::nqecli {

// Another engine runs where the one was that this process knows; only a new process can ask it.
struct StartAgain {
  std::string line;  // what was to be run
};

// Reads commands and runs them, most of them in this process, which keeps its attachment.
class Shell {
 public:
  explicit Shell(const Place &place);

  // Until its end is asked for. `first` is run before anything is read. Throws StartAgain.
  void Run(const std::string &first);

 private:
  void Greet() const;
  bool RunLine(const std::string &line);
  void RunCommandLine(const std::string &line);
  Following Follow(std::string_view upToCursor) const;

  const Place place_;
  HistoryFile file_;
  LineEditor editor_;
};

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SHELL_SHELL_H_
