#include "src/om/common/processor_timer.h"

#if defined(__aarch64__)
#include <signal.h>
#include <ucontext.h>
#else
#include <ctime>
#endif

namespace qdt {

#if defined(__aarch64__)
namespace {

struct sigaction g_previousAction;

// Steps over a refused read of the physical counter; anything else is its owner's.
void OnIllegalInstruction(int, siginfo_t *, void *context) {
  constexpr uint32_t kReadPhysicalCounter = 0xD53BE020;  // mrs xN, cntpct_el0; N in the lowest five bits
  mcontext_t &machine = static_cast<ucontext_t *>(context)->uc_mcontext;
  const uint32_t instruction = *reinterpret_cast<const uint32_t *>(machine.pc);
  if ((instruction & ~0x1Fu) == kReadPhysicalCounter) {
    machine.pc += sizeof(instruction);
  } else {
    sigaction(SIGILL, &g_previousAction, nullptr);  // and the instruction is run once more
  }
}

// Whether the kernel lets user space read the physical counter can be learnt only by trying.
bool MayReadPhysicalCounter() {
  struct sigaction action {};
  action.sa_sigaction = OnIllegalInstruction;
  action.sa_flags = SA_SIGINFO;
  if (sigaction(SIGILL, &action, &g_previousAction) != 0) return false;
  uint64_t counter = 0;
  asm volatile("mrs %0, cntpct_el0" : "+r"(counter));
  sigaction(SIGILL, &g_previousAction, nullptr);
  return counter != 0;
}

uint64_t ReadFrequency() {
  uint64_t frequency;
  asm volatile("mrs %0, cntfrq_el0" : "=r"(frequency));
  return frequency;
}

}  // namespace

uint64_t TimerCounter() {
  static const bool physical = MayReadPhysicalCounter();
  uint64_t counter;
  if (physical) {
    asm volatile("isb\n\tmrs %0, cntpct_el0" : "=r"(counter));
  } else {
    asm volatile("isb\n\tmrs %0, cntvct_el0" : "=r"(counter));
  }
  return counter;
}

uint64_t TimerFrequency() {
  static const uint64_t frequency = ReadFrequency();
  return frequency;
}

#else

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

uint64_t TimerCounter() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

uint64_t TimerFrequency() { return kNanosecondsPerSecond; }

#endif

}  // namespace qdt
