#include "tools/nqecli/watch/watch_child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>

#include "host/base/fd.h"
#include "tools/nqecli/companion.h"

namespace qdt::nqecli {
namespace {

using host::SystemError;

constexpr int kCannotRun = 127;

[[noreturn]] void BecomeCommand(const char *tool, char *const *words, const AnswerText &out,
                                const AnswerText &err, const sigset_t &signals, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kCannotRun);  // it ended before it could be said
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  const int nothing = open("/dev/null", O_RDONLY);
  if (dup2(nothing, STDIN_FILENO) >= 0 && dup2(out.fd(), STDOUT_FILENO) >= 0 &&
      dup2(err.fd(), STDERR_FILENO) >= 0) {
    execv(tool, words);
  }
  _exit(kCannotRun);
}

}  // namespace

Interrupt::Interrupt() {
  signal(SIGCHLD, SIG_DFL);  // or nobody could wait for a child
  sigemptyset(&waited_);
  for (const int number : {SIGINT, SIGCHLD}) sigaddset(&waited_, number);
  sigprocmask(SIG_BLOCK, &waited_, &before_);
}

Interrupt::~Interrupt() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

bool Interrupt::Within(double seconds) {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  double whole = 0;
  const double part = std::modf(seconds > 0 ? seconds : 0, &whole);
  timespec left = {static_cast<time_t>(whole), static_cast<long>(part * 1e9)};
  // Another signal, such as one that continues a stopped process, makes the wait a little shorter.
  return sigtimedwait(&interrupt, nullptr, &left) == SIGINT;
}

bool Interrupt::BeforeChild() {
  int number;
  do {
    number = sigwaitinfo(&waited_, nullptr);
  } while (number < 0 && errno == EINTR);
  return number == SIGINT;
}

bool RunChild(const std::vector<std::string> &words, Interrupt *interrupt, ChildAnswer *answer) {
  std::vector<char *> pointers;
  for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
  pointers.push_back(nullptr);
  // By its name: the shell, which watches as well, is another program.
  const std::string tool = PathOf("nqecli");
  const auto out = std::make_shared<AnswerText>();
  const AnswerText err;
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) throw SystemError("cannot run the command");
  if (child == 0) BecomeCommand(tool.c_str(), pointers.data(), *out, err, interrupt->before(), parent);

  bool interrupted = false;
  int status = 0;
  // A signal of an earlier child may still be there.
  while (waitpid(child, &status, interrupted ? 0 : WNOHANG) == 0) {
    interrupted = interrupt->BeforeChild();
    if (interrupted) kill(child, SIGKILL);
  }
  if (interrupted) return false;
  answer->out = out;
  answer->err = err.All();
  answer->code = WIFEXITED(status) ? WEXITSTATUS(status) : kCannotRun;
  if (answer->code == kCannotRun && answer->err.empty())
    throw host::HostError(WIFSIGNALED(status)
                              ? "the command was ended by signal " + std::to_string(WTERMSIG(status))
                              : "cannot run the command: " + tool + " does not start");
  return true;
}

}  // namespace qdt::nqecli
