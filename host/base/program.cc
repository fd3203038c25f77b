#include "host/base/program.h"

#include <errno.h>
#include <signal.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "host/base/fd.h"

namespace qdt::host {
namespace {

constexpr char kNoMemory[] =
    "there is not enough memory; end other programs, or allow this one more (ulimit -v)";
constexpr char kNoBytes[] =
    "the arena was shortened while it was in use, and what stood there is lost (start its engine again)";
constexpr int kUnusable = 2;

const char *g_name = "";
std::terminate_handler g_before = nullptr;

// Whether it is memory for which the program ends. An exception for which there is no memory is none.
bool MemoryIsShort() {
  if (!std::current_exception()) return errno == ENOMEM;
  try {
    throw;
  } catch (const std::bad_alloc &) {
    return true;
  } catch (...) {
    return false;
  }
}

// Takes no memory, and may be called in the middle of anything.
[[noreturn]] void EndWithLine(const char *line) {
  const char *const pieces[] = {g_name, ": ", line, "\n"};
  iovec texts[std::size(pieces)];
  for (size_t i = 0; i < std::size(pieces); ++i)
    texts[i] = {const_cast<char *>(pieces[i]), std::strlen(pieces[i])};
  [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, texts, std::size(texts));
  _exit(kUnusable);
}

[[noreturn]] void End() {
  if (MemoryIsShort()) EndWithLine(kNoMemory);
  if (g_before != nullptr) g_before();
  std::abort();
}

// Of a file that somebody has shortened, the part behind its new end can be mapped and not read.
void OnBusError(int signal, siginfo_t *info, void *) {
  if (info->si_code == BUS_ADRERR) EndWithLine(kNoBytes);
  std::signal(signal, SIG_DFL);  // any other comes again
  if (info->si_code <= 0) std::raise(signal);
}

void CatchBusErrors() {
  struct sigaction action = {};
  action.sa_sigaction = OnBusError;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGBUS, &action, nullptr);
}

}  // namespace

const char *LineOf(const std::exception &error) {
  return dynamic_cast<const std::bad_alloc *>(&error) != nullptr ? kNoMemory : error.what();
}

void BeginProgram(const char *name) {
  g_name = name;
  g_before = std::set_terminate(End);
  CatchBusErrors();
  KeepStandardFds();
}

}  // namespace qdt::host
