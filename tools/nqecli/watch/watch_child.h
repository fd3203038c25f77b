#ifndef TOOLS_NQECLI_WATCH_WATCH_CHILD_H_
#define TOOLS_NQECLI_WATCH_WATCH_CHILD_H_

#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "tools/nqecli/output/answer_text.h"

namespace qdt::nqecli {

// What a command wrote and how it ended.
struct ChildAnswer {
  int code = 0;
  std::shared_ptr<const AnswerText> out;
  std::string err;
};

// Holds back the signal of the terminal's Ctrl-C while it lives, so that it is noticed between two steps.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt &) = delete;
  Interrupt &operator=(const Interrupt &) = delete;

  // Waits; true when it came before the seconds were over.
  bool Within(double seconds);
  // Waits until a child has ended or it came; true for the latter.
  bool BeforeChild();
  const sigset_t &before() const { return before_; }

 private:
  sigset_t waited_;
  sigset_t before_;
};

// Runs the tool with these words, in a process of its own: whatever a command maps and keeps goes
// with it. False when the user interrupted it. Throws HostError when no process can be made.
bool RunChild(const std::vector<std::string> &words, Interrupt *interrupt, ChildAnswer *answer);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_WATCH_WATCH_CHILD_H_
