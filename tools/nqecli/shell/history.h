#ifndef TOOLS_NQECLI_SHELL_HISTORY_H_
#define TOOLS_NQECLI_SHELL_HISTORY_H_

#include <string>
#include <vector>

namespace qdt::nqecli {

// What was typed, kept between runs: $XDG_STATE_HOME/nqe/history, else ~/.local/state/nqe/history, a line
// each, readable by its owner alone. Shells that run side by side add to the same file.
class HistoryFile {
 public:
  HistoryFile();

  // The lines of earlier runs, the oldest first. A file that has grown is cut.
  std::vector<std::string> Load();
  // Adds a line. Says once on standard error when that cannot be done.
  void Add(const std::string &line);

 private:
  void Complain(const std::string &why);

  std::string path_;  // empty: there is no place
  bool complained_ = false;
};

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SHELL_HISTORY_H_
