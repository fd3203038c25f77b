#include "host/base/program.h"

#include <errno.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "host/base/fd.h"

namespace qdt::host {
namespace {

constexpr char kNoMemory[] =
    "there is not enough memory; end other programs, or allow this one more (ulimit -v)";
constexpr int kUnusable = 2;

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

[[noreturn]] void End() {
  if (!MemoryIsShort()) {
    if (g_before != nullptr) g_before();
    std::abort();
  }
  const char *const name = program_invocation_short_name;
  const iovec line[] = {{const_cast<char *>(name), std::strlen(name)},
                        {const_cast<char *>(": "), 2},
                        {const_cast<char *>(kNoMemory), sizeof(kNoMemory) - 1},
                        {const_cast<char *>("\n"), 1}};
  [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, line, std::size(line));
  _exit(kUnusable);
}

}  // namespace

const char *LineOf(const std::exception &error) {
  return dynamic_cast<const std::bad_alloc *>(&error) != nullptr ? kNoMemory : error.what();
}

void BeginProgram() {
  g_before = std::set_terminate(End);
  KeepStandardFds();
}

}  // namespace qdt::host
