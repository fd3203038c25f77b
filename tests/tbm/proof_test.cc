#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>

#include "host/arena/arena_layout.h"
#include "host/tbm/table_view.h"
#include "tests/host/amount.h"
#include "tests/host/shared_memory.h"
#include "tests/tbm/contest.h"

// Processes at full speed, processes that are killed, clients that write at random, and damaged arenas. How
// much of it is done can be raised: QDT_PROOF_READS, QDT_PROOF_KILLS, QDT_PROOF_ROUNDS.
namespace qdt::host {
namespace {

constexpr uint32_t kReaders = 4;

struct Shared {
  std::atomic<uint64_t> looks[kReaders];
  std::atomic<bool> over;
};

class ProofTest : public HostTest {
 protected:
  // Looks at everything in turns, as a client, until it has looked `looks` times or all is over.
  std::string LookOn(uint32_t reader, uint64_t looks) {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    const Contest contest;
    for (uint64_t i = 0; i < looks && !shared_->over; ++i) {
      const Contest::Look &look = Contest::Looks()[(i + reader) % Contest::Looks().size()];
      const std::string wrong = (contest.*look.look)();
      if (!wrong.empty()) return std::string(look.name) + ": " + wrong;
      ++shared_->looks[reader];
    }
    return "good";
  }

  uint64_t Looks() const {
    uint64_t looks = 0;
    for (const auto &one : shared_->looks) looks += one;
    return looks;
  }

  const SharedMemory<Shared> shared_;
};

// Each look reads about five entries.
TEST_F(ProofTest, FourReadersAgainstAWriterAtFullSpeed) {
  const uint64_t looks = Amount("QDT_PROOF_READS", 2'000'000) / kReaders / 5 + 1;
  Start(Contest::Plan());
  Contest contest;
  std::vector<Child> readers;
  for (uint32_t i = 0; i < kReaders; ++i)
    readers.emplace_back(&engine_, [this, i, looks] { return LookOn(i, looks); });
  uint64_t number = 2;
  for (bool reading = true; reading; ++number) {
    ASSERT_EQ(contest.Change(number), 0);
    // A reader ends when it has looked often enough, or has found something wrong.
    if (number % 1000 == 0)
      reading = !std::ranges::all_of(readers, [](const Child &reader) { return reader.Ended(); });
  }
  shared_->over = true;
  for (Child &reader : readers) EXPECT_EQ(reader.Wait(), "good");
  EXPECT_EQ(Looks(), looks * kReaders) << "changes: " << number;
}

// Clients that are attached, and those that open what is left as a snapshot, find everything whole.
TEST_F(ProofTest, WhatAKilledWriterLeavesIsWhole) {
  const uint64_t kills = Amount("QDT_PROOF_KILLS", 40);
  std::mt19937 random(3);
  for (uint64_t kill = 0; kill < kills; ++kill) {
    shared_->over = false;
    Child writer(nullptr, [&]() -> std::string {
      Start(Contest::Plan());
      Contest contest;
      shared_->over = true;
      for (uint64_t number = 2;; ++number) {
        if (contest.Change(number) != 0) return "a change failed";
      }
    });
    while (!shared_->over) usleep(100);
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    const Contest contest;
    usleep(random() % 2000);
    writer.Kill();
    ASSERT_EQ(writer.Wait(), "signal 9");
    for (const Contest::Look &look : Contest::Looks())
      ASSERT_EQ((contest.*look.look)(), "") << look.name << ", kill " << kill;
    Arena::SetCurrent(nullptr);
    ASSERT_EQ(InChild(nullptr,
                      [&]() -> std::string {
                        const_cast<std::unique_ptr<Arena> &>(client).reset();
                        const auto arena = Arena::Attach(path_, Arena::Access::kSnapshot);
                        Arena::SetCurrent(arena.get());
                        const Contest left;
                        for (const Contest::Look &look : Contest::Looks()) {
                          const std::string wrong = (left.*look.look)();
                          if (!wrong.empty()) return std::string(look.name) + ": " + wrong;
                        }
                        return "good";
                      }),
              "good")
        << "kill " << kill;
  }
}

// A client that stores at random, wherever its mapping takes it, changes aging times and regions alone. The
// engine goes on, and so do others.
TEST_F(ProofTest, ClientsThatStoreAtRandomHarmNobody) {
  const uint64_t rounds = Amount("QDT_PROOF_ROUNDS", 300);
  Start(Contest::Plan());
  Contest contest;
  for (uint32_t key = 0; key < 100; ++key) Add(kSessionTable, key, key);
  Child vandal(&engine_, [&]() -> std::string {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    client->OpenTail();
    const ArenaHeader &header = *client->header();
    std::mt19937_64 random(7);
    char *const base = reinterpret_cast<char *>(client->header());
    while (!shared_->over) {
      // Records (its own) and the tail: all others fault (TableTest.ClientsStoresReachNobody).
      const uint64_t from = random() % 2 == 0 ? header.recordsOffset : header.tailOffset;
      const uint64_t place = from + random() % (header.totalSize - from - 8);
      uint64_t word = random() % 4 == 0 ? random() % 1000 : random();
      std::memcpy(base + place, &word, sizeof(word));
      if (random() % 1000 == 0) client->DropCopies();
    }
    return "over";
  });
  Child reader(&engine_, [this] { return LookOn(0, UINT64_MAX); });
  const auto countSessions = [](void *entry, void *context) -> int32_t {
    Record record;
    std::memcpy(&record, entry, sizeof(record));
    if (record.Whole() && (record.aging == 0 || record.aging == 300)) ++*static_cast<uint32_t *>(context);
    return -9;
  };
  for (uint64_t round = 0; round < rounds; ++round) {
    for (uint64_t i = 0; i < 100; ++i) ASSERT_EQ(contest.Change(2 + round * 100 + i), 0);
    uint32_t sessions = 0;
    ASSERT_EQ(TbmTblTrav(0, kSessionTable, countSessions, &sessions), 0);
    ASSERT_EQ(sessions, 100u);
    ASSERT_EQ(contest.WalkBuckets(), "");
  }
  shared_->over = true;
  EXPECT_EQ(vandal.Wait(), "over");
  EXPECT_EQ(reader.Wait(), "good");
}

// Every word that readers follow, one after the other, with what breaks most: an arena that a program has
// spoiled.
class DamageTest : public ProofTest {
 protected:
  // The words of the tables' states, heads with keys, buckets, logs, and of what is in use of route indexes.
  std::vector<uint64_t *> Words() const {
    std::vector<uint64_t *> words;
    const auto add = [&words](void *begin, size_t size) {
      for (size_t at = 0; at + 8 <= size; at += 8)
        words.push_back(reinterpret_cast<uint64_t *>(static_cast<char *>(begin) + at));
    };
    for (const uint32_t id :
         {kUniqueTable, kManyTable, kServerMapTable, kRoute4Table, kRoute6Table, kRuleTable, kGroupTable}) {
      tbm::TableView view;
      EXPECT_EQ(tbm::TableView::Open(engine_.get(), id, &view), 0);
      add(&view.state(), sizeof(view.state()));
      add(view.Index(), tbm::SpareOffset(view.shape()));
      add(view.HeadAt(1), 5 * view.shape().headSize);
      add(view.Log(0), 10 * sizeof(tbm::LogEntry));
      for (uint32_t ref = 1; ref <= 5; ++ref) add(view.SlotAt(ref), sizeof(tbm::Slot));
      if (tbm::RoutesSize(view.shape()) == 0) continue;
      const auto &head = *reinterpret_cast<const tbm::RouteHead *>(view.RouteArea());
      add(view.RouteArea(), offsetof(tbm::RouteHead, used));
      add(view.RouteArea() + tbm::kRouteHeadBytes, sizeof(tbm::RouteRef) * 2);
      add(view.RouteArea() + tbm::kRouteBlocksOffset, head.used - tbm::kRouteBlocksOffset);
    }
    return words;
  }
};

constexpr uint64_t kBad[] = {0, ~uint64_t{0}, 1, 0x0000000100000001, 0x4141414141414141, 0x0000000500000005};

TEST_F(DamageTest, LiveArenasDamagedAtEveryWord) {
  Start(Contest::Plan());
  Contest contest;
  std::vector<uint64_t *> words = Words();
  // A client that is attached while one word after the other is damaged and mended.
  int gate[2], done[2];
  ASSERT_EQ(pipe(gate), 0);
  ASSERT_EQ(pipe(done), 0);
  Child reader(&engine_, [&]() -> std::string {
    close(gate[1]);
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    const Contest here;
    char byte;
    while (read(gate[0], &byte, 1) == 1) {
      for (const Contest::Look &look : Contest::Looks()) (here.*look.look)();
      if (write(done[1], &byte, 1) != 1) return "no pipe";
    }
    return "survived";
  });
  close(done[1]);
  for (uint64_t *word : words) {
    for (const uint64_t bad : kBad) {
      const uint64_t good = std::exchange(*word, bad);
      char byte = 'x';
      ASSERT_EQ(write(gate[1], &byte, 1), 1);
      if (read(done[0], &byte, 1) != 1) FAIL() << "word " << word << ", " << bad << ": " << reader.Wait();
      *word = good;
    }
  }
  close(gate[1]);
  EXPECT_EQ(reader.Wait(), "survived");
  close(gate[0]);
  close(done[0]);
  EXPECT_EQ(contest.Change(2), 0);
}

TEST_F(DamageTest, SavedArenasDamagedAtEveryWord) {
  Start(Contest::Plan());
  const Contest contest;
  const std::vector<uint64_t *> words = Words();
  const std::string copy = Snapshot();
  std::vector<uint64_t> offsets;
  for (const uint64_t *word : words)
    offsets.push_back(reinterpret_cast<uint64_t>(word) - reinterpret_cast<uint64_t>(engine_->header()));
  Stop();
  // One word at a time; a version that is odd puts the spare in the record's place, in this process.
  EXPECT_EQ(InChild(nullptr,
                    [&]() -> std::string {
                      const auto arena = AttachToDamage(copy);
                      char *const base = reinterpret_cast<char *>(arena->header());
                      const Contest here;
                      for (const uint64_t offset : offsets) {
                        auto *word = reinterpret_cast<uint64_t *>(base + offset);
                        for (const uint64_t bad : kBad) {
                          const uint64_t good = std::exchange(*word, bad);
                          for (const Contest::Look &look : Contest::Looks()) (here.*look.look)();
                          *word = good;
                        }
                      }
                      return "survived";
                    }),
            "survived");
}

}  // namespace
}  // namespace qdt::host
