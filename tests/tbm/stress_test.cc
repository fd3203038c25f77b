#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <random>

#include "tests/host/host_fixture.h"
#include "tests/host/shared_memory.h"

// A reader process against a writer that never rests.
namespace qdt::host {
namespace {

constexpr uint32_t kChanges = 1000000;   // each takes an entry away and inserts another
constexpr uint64_t kEnoughRounds = 300;  // that the reader must have made before the writer may end

// The entries' names: the changing ones, half of which are there at a time, then those that live throughout.
struct Population {
  uint32_t changing;
  uint32_t lasting;
  uint32_t sharedKeys;  // of the table with several entries a key

  uint32_t names() const { return changing + lasting; }
  bool Lasts(uint32_t name) const { return name >= changing; }
  uint32_t living() const { return changing / 2 + lasting; }
};

constexpr Population kMany = {1024, 200, 8};
constexpr Population kFew = {8, 4, 2};

// In memory that both processes share.
struct Progress {
  std::atomic<bool> done;
  std::atomic<uint64_t> rounds;    // that the reader has finished
  std::atomic<uint64_t> shuffled;  // rounds after which the writer has shuffled its entries
};

// A record's id tells its entry's name in the low half and how many entries came before it in the high half.
uint64_t MakeId(uint64_t number, uint32_t name) { return number << 32 | name; }
uint32_t NameOf(uint64_t id) { return static_cast<uint32_t>(id); }

// Inserts, removes and updates entries of both kinds of table; the entries of a name share fate in both.
class Writer {
 public:
  Writer(Arena *arena, const Population &population)
      : writer_(arena),
        population_(population),
        ids_(population.names()),
        unique_(population.names()),
        many_(population.names()) {
    for (uint32_t name = 0; name < population.names(); ++name) {
      const bool lives = population.Lasts(name) || name % 2 == 0;
      if (lives) Insert(name);
      (population.Lasts(name) ? lasting_ : lives ? present_ : absent_).push_back(name);
    }
  }

  // Inserts all entries again, so that lasting ones stand behind changing ones, where they can be lost.
  void Shuffle() {
    std::vector<uint32_t> names = present_;
    names.insert(names.end(), lasting_.begin(), lasting_.end());
    std::shuffle(names.begin(), names.end(), random_);
    for (const uint32_t name : names) {
      Remove(name);
      Insert(name);
    }
  }

  void Change() {
    uint32_t &leaving = present_[random_() % present_.size()];
    uint32_t &coming = absent_[random_() % absent_.size()];
    Remove(leaving);
    Insert(coming);
    std::swap(leaving, coming);
    const uint32_t lasting = lasting_[random_() % lasting_.size()];
    const Record record = Record::Make(ids_[lasting], random_());
    Check(writer_.Update(kUniqueTable, unique_[lasting], &record));
    Check(writer_.Update(kManyTable, many_[lasting], &record));
  }

  int failures() const { return failures_; }

 private:
  void Insert(uint32_t name) {
    const uint32_t shared = name % population_.sharedKeys;
    ids_[name] = MakeId(++number_, name);
    const Record record = Record::Make(ids_[name], number_);
    Check(writer_.Insert(kUniqueTable, &name, &record, &unique_[name]));
    Check(writer_.Insert(kManyTable, &shared, &record, &many_[name]));
  }
  void Remove(uint32_t name) {
    Check(writer_.Remove(kUniqueTable, &name));
    Check(writer_.RemoveEntry(kManyTable, many_[name]));
  }
  void Check(int32_t status) { failures_ += status != 0; }

  TableWriter writer_;
  const Population population_;
  std::mt19937 random_{1};
  std::vector<uint32_t> lasting_;
  std::vector<uint32_t> present_;
  std::vector<uint32_t> absent_;
  uint64_t number_ = 0;
  int failures_ = 0;
  std::vector<uint64_t> ids_;
  std::vector<void *> unique_;
  std::vector<void *> many_;
};

// Walks whole tables and tells the first thing that is wrong; empty when nothing is.
class Reader {
 public:
  explicit Reader(const Population &population) : population_(population) {}

  std::string Everything() {
    std::string said = WalkOnce(kUniqueTable, nullptr);
    for (uint32_t key = 0; key < population_.sharedKeys && said.empty(); ++key) {
      said = WalkOnce(kManyTable, &key);
    }
    return said.empty() ? SearchAll() : said;
  }

  std::string OneThing() {
    const uint32_t key = random_() % population_.sharedKeys;
    switch (random_() % 3) {
      case 0:
        return WalkOnce(kUniqueTable, nullptr);
      case 1:
        return WalkOnce(kManyTable, &key);
      default:
        return SearchAll();
    }
  }

  uint64_t lastingMissed() const { return lastingMissed_; }

 private:
  std::string WalkOnce(uint32_t table, const uint32_t *key) {
    TbmTravContext ctx;
    TbmTblTravContextInit(&ctx);
    std::vector<bool> seen(population_.names());
    uint64_t last = 0;
    int32_t status;
    do {
      uint32_t bytes = (random_() % std::min(kBatch, population_.names() / 3) + 1) * sizeof(Record);
      status = key == nullptr ? TbmTblTravNext(0, table, &ctx, records_, &bytes)
                              : TbmTblTravNextByKey(0, table, key, &ctx, records_, &bytes);
      for (uint32_t i = 0; i < TbmTblTravContextCnt(&ctx); ++i) {
        const uint64_t id = records_[i].id;
        const std::string wrong = Check(records_[i], last, key, &seen);
        if (!wrong.empty()) return wrong;
        last = id;
      }
    } while (status == 1 || status == -11);
    if (status != 0) return "status " + std::to_string(status);
    for (uint32_t name = population_.changing; name < population_.names(); ++name) {
      if ((key == nullptr || name % population_.sharedKeys == *key) && !seen[name]) ++lastingMissed_;
    }
    return "";
  }

  std::string Check(const Record &record, uint64_t last, const uint32_t *key, std::vector<bool> *seen) const {
    const uint32_t name = NameOf(record.id);
    if (!record.Whole() || name >= seen->size()) return "torn record";
    if (key != nullptr && name % population_.sharedKeys != *key) return "entry of another key";
    if (record.id <= last) return "out of order";
    if ((*seen)[name]) return "shown twice";
    (*seen)[name] = true;
    return "";
  }

  std::string SearchAll() {
    for (uint32_t name = 0; name < population_.names(); ++name) {
      void *entry = nullptr;
      const int32_t status = TbmTblSearch(0, kUniqueTable, &name, &entry);
      if (status != 0 && (status != -7 || population_.Lasts(name)))
        return "search status " + std::to_string(status);
      if (!population_.Lasts(name)) continue;
      // Updates leave a record's id as it is.
      if (NameOf(static_cast<const volatile Record *>(entry)->id) != name) return "wrong entry found";
    }
    return "";
  }

  static constexpr uint32_t kBatch = 50;

  const Population population_;
  Record records_[kBatch];
  std::mt19937 random_{2};
  uint64_t lastingMissed_ = 0;
};

class StressTest : public HostTest {
 protected:
  // With no room to spare a freed slot is used again at once, under the eyes of the reader.
  void StartWith(const Population &population, bool tight) {
    ArenaPlan plan = TestPlan();
    for (const uint32_t table : {kUniqueTable, kManyTable}) {
      if (tight) plan.tables[table].capacity = population.living();
    }
    Start(plan);
  }

  // What a client does and says until `done`.
  std::string ReadOn(const Population &population, const std::function<void()> &ready) {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    Reader checks(population);
    ready();
    while (!progress_->done) {
      const std::string wrong = checks.OneThing();
      if (!wrong.empty()) return wrong;
      if (checks.lastingMissed() != 0) return "lasting entry lost";
      for (const uint64_t round = ++progress_->rounds; progress_->shuffled < round && !progress_->done;) {
        sched_yield();
      }
    }
    return "good";
  }

  // To be called between any two changes: the reader waits for it between its rounds.
  void ShuffleBetweenRounds(Writer *writer) {
    if (progress_->shuffled == progress_->rounds) return;
    writer->Shuffle();
    ++progress_->shuffled;
  }

  const SharedMemory<Progress> progress_;
};

class StressRoomTest : public StressTest, public ::testing::WithParamInterface<bool> {};

TEST_P(StressRoomTest, ReaderAgainstAMillionInsertionsAndRemovals) {
  StartWith(kMany, GetParam());
  Writer writer(engine_.get(), kMany);
  Child reader(&engine_, [&] { return ReadOn(kMany, [] {}); });
  const time_t begun = time(nullptr);
  for (uint32_t i = 0; i < kChanges || (progress_->rounds < kEnoughRounds && time(nullptr) < begun + 60);
       ++i) {
    writer.Change();
    ShuffleBetweenRounds(&writer);
  }
  progress_->done = true;
  EXPECT_EQ(reader.Wait(), "good");
  EXPECT_EQ(writer.failures(), 0);
  EXPECT_GE(progress_->rounds, kEnoughRounds);
}

// Two processes seldom meet within a few instructions. Here the reader advances instruction by instruction,
// and the writer changes its small tables between any two of them.
TEST_P(StressRoomTest, ReaderIsOvertakenBetweenAnyTwoInstructions) {
  constexpr uint32_t kSteps = 100000;
  StartWith(kFew, GetParam());
  Writer writer(engine_.get(), kFew);
  Child reader(&engine_, [&] {
    return ReadOn(kFew, [] {
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
      raise(SIGSTOP);
    });
  });
  int status = 0;
  waitpid(reader.pid(), &status, WUNTRACED);
  if (!WIFSTOPPED(status)) GTEST_SKIP() << "no permission to trace a process";
  // On one processor the two take turns ten times as fast.
  cpu_set_t before;
  cpu_set_t one;
  sched_getaffinity(0, sizeof(before), &before);
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  sched_setaffinity(0, sizeof(one), &one);
  sched_setaffinity(reader.pid(), sizeof(one), &one);
  std::mt19937 random(4);
  for (uint32_t i = 0; i < kSteps && WIFSTOPPED(status); ++i) {
    ASSERT_EQ(ptrace(PTRACE_SINGLESTEP, reader.pid(), nullptr, nullptr), 0);
    waitpid(reader.pid(), &status, 0);
    if (random() % 64 == 0) writer.Change();
    ShuffleBetweenRounds(&writer);
  }
  sched_setaffinity(0, sizeof(before), &before);
  progress_->done = true;
  if (WIFSTOPPED(status)) ptrace(PTRACE_DETACH, reader.pid(), nullptr, nullptr);
  EXPECT_EQ(reader.Wait(), "good");
  EXPECT_EQ(writer.failures(), 0);
}

INSTANTIATE_TEST_SUITE_P(Room, StressRoomTest, ::testing::Values(false, true),
                         [](const auto &tight) { return tight.param ? "Tight" : "Roomy"; });

TEST_F(StressTest, WhatAKilledEngineLeftCanBeRead) {
  std::mt19937 random(3);
  for (int round = 0; round < 25; ++round) {
    progress_->done = false;
    Child engine(nullptr, [&]() -> std::string {
      Start();
      Writer writer(engine_.get(), kMany);
      progress_->done = true;
      for (;;) writer.Change();
    });
    while (!progress_->done) usleep(100);
    usleep(random() % 3000);
    engine.Kill();
    EXPECT_EQ(engine.Wait(), "signal 9");
    ASSERT_EQ(InChild(nullptr,
                      [&]() -> std::string {
                        const auto arena = Arena::Attach(path_, Arena::Access::kSnapshot);
                        Arena::SetCurrent(arena.get());
                        Reader checks(kMany);
                        const std::string wrong = checks.Everything();
                        if (!wrong.empty()) return wrong;
                        // The record that the engine was just writing has no whole state.
                        return checks.lastingMissed() > 1 ? "lasting entries lost" : "good";
                      }),
              "good")
        << "round " << round;
  }
}

}  // namespace
}  // namespace qdt::host
