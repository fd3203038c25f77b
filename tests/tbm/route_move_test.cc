#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "tests/tbm/route_index_fixture.h"

// Readers of the route index while a route moves between prefix lengths. Each answer has to be one that the
// index gave at some moment between the search's begin and its end: its serial is at least that of the last
// move that was done before the search began, and at most that of the last one that had begun when it ended.
namespace qdt::host::tbm {
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr uint64_t kSearches = 200000;
#else
constexpr uint64_t kSearches = 3000000;
#endif

constexpr uint64_t kSeen = 1000;  // moves that readers must have met

// Memory that processes share.
template <typename T>
class Shared {
 public:
  Shared()
      : value_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                   T{}) {}
  ~Shared() { munmap(value_, sizeof(T)); }
  Shared(const Shared &) = delete;
  Shared &operator=(const Shared &) = delete;
  T *operator->() const { return value_; }

 private:
  T *value_;
};

class RouteMoveTest : public ::testing::TestWithParam<uint32_t> {};

TEST_P(RouteMoveTest, ThreadsSeeEachMoveWhole) {
  IndexArea area(GetParam(), 1000);
  MovingRoute route(&area, 1);
  std::atomic<int64_t> begun{1};
  std::atomic<int64_t> done{1};
  std::atomic<int> reading{2};
  std::atomic<uint64_t> wrong{0};
  std::atomic<uint64_t> seen{0};
  const auto read = [&] {
    int64_t last = 0;
    for (uint64_t i = 0; i < kSearches || seen < kSeen; ++i) {
      const int64_t least = done.load(std::memory_order_acquire);
      const int64_t answer = area.Match(0, route.address());
      const int64_t most = begun.load(std::memory_order_acquire);
      wrong += answer < least || answer > most || answer < last;
      seen += answer != last;
      last = answer;
    }
    --reading;
  };
  std::thread first(read);
  std::thread second(read);
  while (reading != 0) {
    begun.store(static_cast<int64_t>(route.serial()) + 1, std::memory_order_release);
    route.Move();
    done.store(static_cast<int64_t>(route.serial()), std::memory_order_release);
  }
  first.join();
  second.join();
  EXPECT_EQ(wrong, 0u);
}

// What a traced child and its tracer tell each other.
struct Report {
  std::atomic<uint64_t> rounds;  // that the child has finished
  std::atomic<int64_t> answer;
};

// A child that does rounds of something, each of which begins with a stop.
class Traced {
 public:
  explicit Traced(const std::function<void()> &round) : pid_(fork()) {
    if (pid_ == 0) {
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
      for (;;) {
        raise(SIGSTOP);
        round();
      }
    }
    WaitForStop();
  }
  ~Traced() {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
  }
  Traced(const Traced &) = delete;
  Traced &operator=(const Traced &) = delete;

  bool stopped() const { return WIFSTOPPED(status_); }
  void Step() { Resume(PTRACE_SINGLESTEP); }
  // To the next round.
  void Finish() { Resume(PTRACE_CONT); }

 private:
  void WaitForStop() { waitpid(pid_, &status_, WUNTRACED); }
  void Resume(__ptrace_request how) {
    if (ptrace(how, pid_, nullptr, nullptr) == 0) WaitForStop();
  }

  pid_t pid_;
  int status_ = 0;
};

// On one processor two processes take turns ten times as fast; a child stays where it was born.
class OneProcessor {
 public:
  OneProcessor() {
    sched_getaffinity(0, sizeof(before_), &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof(one), &one);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof(before_), &before_); }

 private:
  cpu_set_t before_;
};

// Stops a search behind its instructions in turn, and lets the route move meanwhile: behind every third of
// them, which scripts/prove_tables.sh makes each.
void StopSearchEverywhere(uint32_t addressSize, uint32_t moves) {
  const OneProcessor one;
  IndexArea area(addressSize, 1000, false);
  MovingRoute route(&area, 2);
  Shared<Report> report;
  Traced reader([&] {
    Route found = {};
    const bool any = area.index().Match(0, route.address().data(), &found) == RouteIndex::Found::kRoute;
    report->answer = any ? static_cast<int64_t>(found.serial) : -1;
    ++report->rounds;
  });
  if (!reader.stopped()) GTEST_SKIP() << "no permission to trace a process";
  const char *const every = std::getenv("QDT_PROOF_EVERY");
  const uint64_t stride = every == nullptr ? 3 : std::max(std::strtoull(every, nullptr, 10), 1ull);
  uint64_t stops = 0;
  for (uint64_t at = 0;; at += stride) {
    const uint64_t rounds = report->rounds;
    for (uint64_t i = 0; i < at && report->rounds == rounds; ++i) reader.Step();
    if (report->rounds != rounds) break;
    const int64_t before = static_cast<int64_t>(route.serial());
    for (uint32_t i = 0; i < moves; ++i) route.Move();
    reader.Finish();
    ASSERT_EQ(report->rounds, rounds + 1);
    ASSERT_GE(report->answer, before) << "stopped after " << at << " instructions";
    ASSERT_LE(report->answer, static_cast<int64_t>(route.serial()))
        << "stopped after " << at << " instructions";
    ++stops;
  }
  EXPECT_GT(stops, 100u);
}

TEST_P(RouteMoveTest, SearchStoppedAtAnyInstructionWhileTheRouteMoves) {
  StopSearchEverywhere(GetParam(), 1);
}

// So many moves that what the search stands on is used again.
TEST_P(RouteMoveTest, SearchStoppedAtAnyInstructionWhileAllBlocksAreUsedAgain) {
  StopSearchEverywhere(GetParam(), 2 * kRouteRest);
}

// Whatever the writer has just done, it can be killed there: all searches have their answer.
TEST_P(RouteMoveTest, WriterStoppedAtAnyInstruction) {
  const OneProcessor one;
  IndexArea area(GetParam(), 1000, false);
  MovingRoute route(&area, 3);
  Shared<Report> report;
  const std::function<void()> move = [&] {
    route.Move();
    ++report->rounds;
  };
  // So that the writer takes blocks that were in use before.
  for (uint32_t i = 0; i < 2 * kRouteRest; ++i) route.Move();
  const auto first = static_cast<int64_t>(route.serial());
  Traced writer(move);
  if (!writer.stopped()) GTEST_SKIP() << "no permission to trace a process";
  constexpr uint64_t kMoves = 20;
  int64_t last = first;
  uint64_t stops = 0;
  uint64_t changes = 0;
  while (report->rounds < kMoves) {
    writer.Step();
    ASSERT_TRUE(writer.stopped());
    const int64_t answer = area.Match(0, route.address());
    const auto done = static_cast<int64_t>(report->rounds);
    ASSERT_GE(answer, last) << "move " << done;
    ASSERT_LE(answer, last + 1) << "move " << done;
    ASSERT_GE(answer, first + done);
    changes += answer != last;
    last = answer;
    ++stops;
  }
  EXPECT_EQ(changes, kMoves);
  EXPECT_GT(stops, kMoves * 500);
}

INSTANTIATE_TEST_SUITE_P(Families, RouteMoveTest, ::testing::Values(4, 16),
                         [](const auto &size) { return size.param == 4 ? "Ipv4" : "Ipv6"; });

}  // namespace
}  // namespace qdt::host::tbm
