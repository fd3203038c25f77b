#ifndef TESTS_UNIT_KERNEL_CALLS_H_
#define TESTS_UNIT_KERNEL_CALLS_H_

#include <atomic>

namespace qdt::test {

// The system calls that the library copies engine memory with. They are counted, and a sandbox that refuses
// some of them can be played.
struct KernelCalls {
  static int refusal;             // what the calls that copy between processes fail with; 0: they work
  static std::atomic<int> count;  // all that were made
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_KERNEL_CALLS_H_
