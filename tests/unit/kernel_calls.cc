#include "tests/unit/kernel_calls.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace qdt::test {

int KernelCalls::refusal = 0;
std::atomic<int> KernelCalls::count = 0;

namespace {

using Syscall = long (*)(long number, ...);

Syscall Real() {
  static const auto real = reinterpret_cast<Syscall>(dlsym(RTLD_NEXT, "syscall"));
  return real;
}

// Counts a call; false when it is to be refused.
bool Enter() {
  ++KernelCalls::count;
  errno = KernelCalls::refusal;
  return KernelCalls::refusal == 0;
}

}  // namespace
}  // namespace qdt::test

// These stand in for the C library's.

// Takes six arguments, as the C library's does, though most calls have fewer.
extern "C" __attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept {
  va_list list;
  va_start(list, number);
  long arguments[6];
  for (long &argument : arguments) argument = va_arg(list, long);
  va_end(list);
  if (number == SYS_writev) ++qdt::test::KernelCalls::count;
  return qdt::test::Real()(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                           arguments[5]);
}

extern "C" ssize_t process_vm_writev(pid_t pid, const iovec *local, unsigned long localCount,
                                     const iovec *remote, unsigned long remoteCount,
                                     unsigned long flags) noexcept {
  if (!qdt::test::Enter()) return -1;
  return qdt::test::Real()(SYS_process_vm_writev, pid, local, localCount, remote, remoteCount, flags);
}

extern "C" ssize_t process_vm_readv(pid_t pid, const iovec *local, unsigned long localCount,
                                    const iovec *remote, unsigned long remoteCount,
                                    unsigned long flags) noexcept {
  if (!qdt::test::Enter()) return -1;
  return qdt::test::Real()(SYS_process_vm_readv, pid, local, localCount, remote, remoteCount, flags);
}
