// Part of programs whose lines are counted (-DQDT_COVERAGE=ON), put before the C library's functions by the
// linker's --wrap. Counters are written by what exit() runs: who leaves in another way has them written here.
#include <linux/prctl.h>

extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int code);
[[noreturn]] void __real_quick_exit(int code);
int __real_prctl(int option, unsigned long a, unsigned long b, unsigned long c, unsigned long d);

[[noreturn]] void __wrap__exit(int code) {
  __gcov_dump();
  __real__exit(code);
}

[[noreturn]] void __wrap__Exit(int code) { __wrap__exit(code); }

[[noreturn]] void __wrap_quick_exit(int code) {
  __gcov_dump();
  __real_quick_exit(code);
}

// Behind a filter of system calls no file could be opened any more: it is made, and not put in force.
int __wrap_prctl(int option, unsigned long a, unsigned long b, unsigned long c, unsigned long d) {
  return option == PR_SET_SECCOMP ? 0 : __real_prctl(option, a, b, c, d);
}
}
