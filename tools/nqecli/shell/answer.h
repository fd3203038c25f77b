#ifndef TOOLS_NQECLI_SHELL_ANSWER_H_
#define TOOLS_NQECLI_SHELL_ANSWER_H_

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/fd.h"
#include "tools/nqecli/output/output.h"
#include "tools/nqecli/shell/filters.h"

namespace qdt::nqecli {

// Whether Ctrl-C was pressed since it was last taken back. The handler stays for the process.
void CatchInterrupts();
bool Interrupted();
void ForgetInterrupt();

// What the shell runs its pager with; empty: answers go to the terminal as they are. That is $PAGER, or less
// where it is installed; none on a terminal that cannot move its cursor.
std::string PagerCommand();

// One answer on its way to the terminal: through filters, then to the screen, or to the pager once it is
// longer than the screen. Ctrl-C ends it.
class Answer : public OutputSink {
 public:
  Answer(const std::vector<std::vector<std::string>> &filters, std::string pager);
  ~Answer();
  Answer(const Answer &) = delete;
  Answer &operator=(const Answer &) = delete;

  void Write(std::string_view text) override;
  bool IsTerminal() const override { return filters_.empty(); }
  // Lets filters tell what they tell at the end, and waits for the pager. Throws as Write.
  void Finish();

 private:
  void Through(size_t step, std::string_view line);
  void Show(std::string_view line);
  void StartPager();
  void Put(std::string_view text);

  std::vector<std::unique_ptr<LineFilter>> filters_;
  const std::string pager_;
  std::string open_;  // a line without its end
  std::string held_;  // what fits the screen, while it may be all
  size_t rows_ = 0;   // of the screen that it takes
  size_t screenRows_ = 0, screenColumns_ = 0;
  bool isHeld_ = false;
  host::UniqueFd toPager_;
  pid_t pagerProcess_ = -1;
};

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SHELL_ANSWER_H_
