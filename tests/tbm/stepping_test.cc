#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cctype>

#include "tests/host/amount.h"
#include "tests/host/shared_memory.h"
#include "tests/tbm/contest.h"

// Two processes seldom meet within a few instructions. Here one of them advances instruction by instruction,
// and the other does all that it does between any two of them.
namespace qdt::host {
namespace {

// In memory that both processes share.
struct Shared {
  std::atomic<uint32_t> done;  // how often the reader has looked
};

class SteppingTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    sched_getaffinity(0, sizeof(before_), &before_);
  }
  ~SteppingTest() override { sched_setaffinity(0, sizeof(before_), &before_); }

  // On one processor the two take turns ten times as fast.
  void ShareOneProcessor(pid_t other) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof(one), &one);
    sched_setaffinity(other, sizeof(one), &one);
  }

  // Waits for the traced process's next stop; false when it has ended.
  static bool Stopped(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status);
  }
  static bool Step(pid_t pid) {
    return ptrace(PTRACE_SINGLESTEP, pid, nullptr, nullptr) == 0 && Stopped(pid);
  }

  static bool LetTrace() { return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0; }

  const SharedMemory<Shared> shared_;
  cpu_set_t before_;
};

// The writer changes every table all the time, and a reader, who never waits for it, looks at all of them
// after each of its instructions. It may as well have been killed there.
TEST_F(SteppingTest, WriterStoppedAtEveryInstruction) {
  const uint64_t steps = Amount("QDT_PROOF_STEPS", 20000);
  Child writer(nullptr, [&]() -> std::string {
    Start(Contest::Plan());
    Contest contest;
    if (!LetTrace()) return "no permission to trace a process";
    for (uint64_t number = 2;; ++number) {
      if (contest.Change(number) != 0) return "a change failed";
    }
  });
  if (!Stopped(writer.pid())) GTEST_SKIP() << "no permission to trace a process";
  ShareOneProcessor(writer.pid());
  const auto client = Arena::Attach(path_, Arena::Access::kLive);
  Arena::SetCurrent(client.get());
  const Contest contest;
  const std::vector<Contest::Look> &looks = Contest::Looks();
  for (uint64_t step = 0; step < steps; ++step) {
    ASSERT_TRUE(Step(writer.pid())) << "step " << step;
    for (const Contest::Look &look : looks) {
      ASSERT_EQ((contest.*look.look)(), "") << look.name << ", step " << step;
    }
  }
  writer.Kill();
  EXPECT_EQ(writer.Wait(), "signal 9");
}

class ReaderSteppingTest : public SteppingTest, public ::testing::WithParamInterface<Contest::Look> {};

// The reader looks at a table once for each of its instructions: it is stopped there, all entries are
// changed, and it goes on.
TEST_P(ReaderSteppingTest, OvertakenAtEveryInstruction) {
  const uint64_t most = Amount("QDT_PROOF_INSTRUCTIONS", 600);
  Start(Contest::Plan());
  Contest contest;
  Child reader(&engine_, [&]() -> std::string {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    const Contest here;
    (here.*GetParam().look)();  // what is done once only is over
    if (!LetTrace()) return "no permission to trace a process";
    for (;;) {
      const std::string wrong = (here.*GetParam().look)();
      if (!wrong.empty()) return wrong;
      ++shared_->done;
      raise(SIGSTOP);
    }
  });
  if (!Stopped(reader.pid())) GTEST_SKIP() << "no permission to trace a process";
  ShareOneProcessor(reader.pid());
  uint64_t number = 2;
  for (uint64_t instruction = 1; instruction < most; ++instruction) {
    const uint32_t before = shared_->done;
    for (uint32_t step = 0; step < instruction && shared_->done == before; ++step) {
      ASSERT_TRUE(Step(reader.pid())) << reader.Wait();
    }
    if (shared_->done != before) break;  // every instruction has been looked at
    // Every other time so often that a log of the order is filled and overwritten.
    for (uint32_t times = instruction % 2 == 0 ? 1 : 60; times > 0; --times)
      ASSERT_EQ(contest.Change(number++), 0);
    ASSERT_EQ(ptrace(PTRACE_CONT, reader.pid(), nullptr, nullptr), 0);
    if (!Stopped(reader.pid())) FAIL() << "stopped at instruction " << instruction << ": " << reader.Wait();
    ASSERT_EQ(shared_->done, before + 1);
    ASSERT_EQ(contest.Restore(), 0);
  }
  reader.Kill();
  EXPECT_EQ(reader.Wait(), "signal 9");
}

INSTANTIATE_TEST_SUITE_P(Looks, ReaderSteppingTest, ::testing::ValuesIn(Contest::Looks()),
                         [](const auto &look) {
                           std::string name;
                           for (const char *at = look.param.name; *at != 0; ++at) {
                             if (std::isalpha(static_cast<unsigned char>(*at)) != 0) name += *at;
                           }
                           return name;
                         });

}  // namespace
}  // namespace qdt::host
