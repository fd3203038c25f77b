#include "host/web/lost_pages.h"

#include <setjmp.h>
#include <signal.h>

#include <utility>

namespace qdt::host {
namespace {

thread_local sigjmp_buf *t_back = nullptr;
struct sigaction g_before;

void Leave(int signal, siginfo_t *, void *) {
  if (t_back != nullptr) siglongjmp(*t_back, 1);
  // Not ours: it ends the process, as it would have.
  sigaction(signal, &g_before, nullptr);
}

}  // namespace

void WatchLostPages() {
  struct sigaction action = {};
  action.sa_sigaction = Leave;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGBUS, &action, &g_before);
}

bool Survive(const std::function<void()> &read) {
  sigjmp_buf back;
  sigjmp_buf *const outer = std::exchange(t_back, &back);
  struct Restore {
    sigjmp_buf *outer;
    ~Restore() { t_back = outer; }
  } const restore{outer};
  if (sigsetjmp(back, 1) != 0) return false;
  read();
  return true;
}

}  // namespace qdt::host
