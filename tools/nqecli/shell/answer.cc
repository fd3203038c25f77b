#include "tools/nqecli/shell/answer.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tools/nqecli/output/shown_text.h"

namespace qdt::nqecli {
namespace {

volatile sig_atomic_t g_interrupted = 0;

bool IsInstalled(const char *program) {
  const char *path = std::getenv("PATH");
  std::string_view rest = path == nullptr ? "/usr/bin:/bin" : path;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find(':'), rest.size());
    const std::string file = std::string(rest.substr(0, end)) + '/' + program;
    if (access(file.c_str(), X_OK) == 0) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

}  // namespace

void CatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = [](int) { g_interrupted = 1; };
  sigaction(SIGINT, &action, nullptr);  // without SA_RESTART: what waits is to wake up
}

bool Interrupted() { return g_interrupted != 0; }
void ForgetInterrupt() { g_interrupted = 0; }

std::string PagerCommand() {
  const char *terminal = std::getenv("TERM");
  if (terminal == nullptr || *terminal == 0 || std::strcmp(terminal, "dumb") == 0) return "";
  if (const char *pager = std::getenv("PAGER")) return pager;
  return IsInstalled("less") ? "less" : "";
}

Answer::Answer(const std::vector<std::vector<std::string>> &filters, std::string pager)
    : pager_(std::move(pager)) {
  for (const std::vector<std::string> &words : filters) filters_.push_back(MakeFilter(words));
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) screenRows_ = size.ws_row, screenColumns_ = size.ws_col;
  isHeld_ = !pager_.empty() && screenRows_ > 1 && screenColumns_ != 0;
}

Answer::~Answer() {
  toPager_ = {};
  while (pagerProcess_ > 0 && waitpid(pagerProcess_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void Answer::Write(std::string_view text) {
  while (!text.empty()) {
    if (Interrupted() && pagerProcess_ < 0) throw OutputClosed();
    const size_t end = text.find('\n');
    if (end == text.npos) {
      open_ += text;
      return;
    }
    if (open_.empty()) {
      Through(0, text.substr(0, end + 1));
    } else {
      open_ += text.substr(0, end + 1);
      Through(0, std::exchange(open_, {}));
    }
    text.remove_prefix(end + 1);
  }
}

void Answer::Finish() {
  if (!open_.empty()) Through(0, std::exchange(open_, {}) + '\n');
  for (size_t i = 0; i < filters_.size(); ++i)
    filters_[i]->End([this, i](std::string_view line) { Through(i + 1, line); });
  if (isHeld_) Put(std::exchange(held_, {}));
}

void Answer::Through(size_t step, std::string_view line) {
  if (step == filters_.size()) return Show(line);
  filters_[step]->Line(line, [this, step](std::string_view passed) { Through(step + 1, passed); });
}

// A line takes a row of the screen for each of its widths; bytes are counted, which are never too few.
void Answer::Show(std::string_view line) {
  std::string shown, carry;
  if (!IsHarmless(line, true)) line = shown = ShownText(line, true, &carry);
  if (!isHeld_) return Put(line);
  rows_ += std::max<size_t>(1, (line.size() - 1 + screenColumns_ - 1) / screenColumns_);
  held_ += line;
  if (rows_ < screenRows_) return;
  isHeld_ = false;
  StartPager();
  Put(std::exchange(held_, {}));
}

void Answer::StartPager() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  host::UniqueFd from(ends[0]);
  toPager_ = host::UniqueFd(ends[1]);
  pagerProcess_ = fork();
  if (pagerProcess_ == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(from.get(), STDIN_FILENO);
    execl("/bin/sh", "sh", "-c", pager_.c_str(), nullptr);
    _exit(127);
  }
  if (pagerProcess_ < 0) toPager_ = {};
}

void Answer::Put(std::string_view text) {
  const int fd = toPager_.ok() ? toPager_.get() : STDOUT_FILENO;
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR) {
      throw OutputClosed();  // a pager that was left has shown enough
    } else if (pagerProcess_ < 0 && Interrupted()) {
      throw OutputClosed();
    }
  }
}

}  // namespace qdt::nqecli
