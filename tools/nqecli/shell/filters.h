#ifndef TOOLS_NQECLI_SHELL_FILTERS_H_
#define TOOLS_NQECLI_SHELL_FILTERS_H_

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::nqecli {

// A command line of the shell: the command's words, and what its answer goes through.
struct ShellLine {
  std::vector<std::string> words;
  std::vector<std::vector<std::string>> filters;  // of each its words, not empty
};

// Splits at '|' outside of quotes, then into words. "| json" becomes the command's option where it has one,
// and else stays a filter. Throws HostError.
ShellLine ReadShellLine(std::string_view line);

// Takes whole lines of an answer, with their ends.
using LineSink = std::function<void(std::string_view line)>;

// A step that lines go through. Throws OutputClosed when it wants no more.
class LineFilter {
 public:
  virtual ~LineFilter() = default;
  virtual void Line(std::string_view line, const LineSink &next) = 0;
  virtual void End(const LineSink &) {}
};

// "include PATTERN", "exclude PATTERN", "begin PATTERN" (POSIX extended regular expressions), "count", "head
// [N]"; "json" makes {"answer": "LINE\nLINE"} of the lines, as watch does. Throws HostError.
std::unique_ptr<LineFilter> MakeFilter(const std::vector<std::string> &words);

struct FilterWord {
  std::string_view name;
  std::string_view takes;  // as the help shows it behind the name
  std::string_view about;
  bool onlyFirst = false;  // before other filters
};
// What may stand behind '|'.
extern const std::vector<FilterWord> kFilterWords;

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SHELL_FILTERS_H_
