#include <sched.h>
#include <sys/mount.h>

#include <atomic>
#include <cstring>
#include <random>
#include <set>

#include "host/arena/arena_layout.h"
#include "host/tbm/table_view.h"
#include "tests/host/host_fixture.h"
#include "tests/host/shared_memory.h"

// Longest-prefix match in an engine's route tables, by other processes, while a route moves between prefix
// lengths.
namespace qdt::host {
namespace {

constexpr int64_t kSearches = 500000;
constexpr int64_t kCover = -50;  // what an answer of a route shows that may not be one

struct Progress {
  std::atomic<int64_t> begun;  // the last move that the engine has begun
  std::atomic<int64_t> done;   // and the last that it has finished
  std::atomic<int> readers;
};

class RouteTableTest : public HostTest, public ::testing::WithParamInterface<uint32_t> {
 protected:
  uint32_t table() const { return GetParam(); }
  uint32_t bits() const { return table() == kRoute4Table ? 32 : 128; }

  // A route to the first `length` bits of 10.1.2.3 or of an IPv6 address.
  RouteKey6 Key(uint32_t length) const {
    RouteKey6 key = {
        static_cast<uint16_t>(length), 0, {10, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 17}};
    for (uint32_t bit = length; bit < 128; ++bit)
      key.address[bit / 8] &= static_cast<uint8_t>(~(0x80 >> bit % 8));
    return key;
  }
  int32_t Insert(uint32_t length, int64_t id) {
    const RouteKey6 key = Key(length);
    const int64_t record[2] = {id, 0};
    return writer_->Insert(table(), &key, record, nullptr);
  }
  int32_t Remove(uint32_t length) {
    const RouteKey6 key = Key(length);
    return writer_->Remove(table(), &key);
  }

  // The id of the answer, or the status. What a search delivers does not change any more.
  int64_t MatchKey(const RouteKey6 &key) const {
    void *entry = nullptr;
    const int32_t status = TbmTblMatch(0, table(), &key, &entry);
    return status == 0 ? *static_cast<int64_t *>(entry) : status;
  }
  int64_t Match() const {
    RouteKey6 key = Key(bits());
    key.length = 0;
    return MatchKey(key);
  }
  // The destination with one bit changed, for each of its bits.
  void MatchBeside() const {
    for (uint32_t bit = 0; bit < bits(); ++bit) {
      RouteKey6 key = Key(bits());
      key.address[bit / 8] ^= 0x80 >> bit % 8;
      MatchKey(key);
    }
  }

  // Routes all over the family, in two VPNs whose roots lie apart.
  RouteKey6 OtherKey(int64_t number) const {
    RouteKey6 key = {static_cast<uint16_t>(bits()), static_cast<uint16_t>(number % 2 * 5000), {}};
    const uint32_t word = static_cast<uint32_t>(number) * 0x9e3779b1;
    std::memcpy(key.address, &word, sizeof(word));
    return key;
  }
  int32_t InsertOther(int64_t number) {
    const RouteKey6 key = OtherKey(number);
    const int64_t record[2] = {number, 0};
    return writer_->Insert(table(), &key, record, nullptr);
  }
  int64_t CountByWalk() const {
    int64_t count = 0;
    const auto add = [](void *, void *context) -> int32_t {
      ++*static_cast<int64_t *>(context);
      return 0;
    };
    EXPECT_EQ(TbmTblTrav(0, table(), add, &count), 0);
    return count;
  }

  // Ends the engine and takes its file system away.
  struct FullFileSystem {
    explicit FullFileSystem(RouteTableTest *test) : test_(*test) {}
    ~FullFileSystem() {
      test_.Stop();
      umount2(test_.dir_.c_str(), MNT_DETACH);
    }
    RouteTableTest &test_;
  };

  // The default route, and the moving one at `length`.
  void StartRoutes() {
    Start();
    ASSERT_EQ(Insert(0, kCover), 0);
    ASSERT_EQ(Insert(length_ = 24, 1), 0);
    progress_->begun = 1;
    progress_->done = 1;
  }
  // The new one in before the old one leaves; never to length 0, where the default route is.
  void Move() {
    uint32_t next = length_;
    while (next == length_) next = 1 + random_() % bits();
    progress_->begun = progress_->done + 1;
    failures_ += Insert(next, progress_->begun) != 0;
    failures_ += Remove(length_) != 0;
    length_ = next;
    progress_->done = progress_->begun.load();
  }

  std::string SearchOn() const {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    int64_t last = 0;
    for (int64_t i = 0; i < kSearches; ++i) {
      const int64_t least = std::max(progress_->done.load(), last);
      last = Match();
      if (last < least || last > progress_->begun) {
        return std::to_string(last) + " between " + std::to_string(least) + " and " +
               std::to_string(progress_->begun.load());
      }
    }
    return "good";
  }

  const SharedMemory<Progress> progress_;
  std::mt19937 random_{1};
  uint32_t length_ = 0;
  int failures_ = 0;
};

TEST_P(RouteTableTest, ReaderProcessesSeeEachMoveWhole) {
  StartRoutes();
  progress_->readers = 2;
  const auto read = [&] {
    const std::string said = SearchOn();
    --progress_->readers;
    return said;
  };
  Child first(&engine_, read);
  Child second(&engine_, read);
  while (progress_->readers != 0) Move();
  EXPECT_EQ(first.Wait(), "good");
  EXPECT_EQ(second.Wait(), "good");
  EXPECT_EQ(failures_, 0);
  EXPECT_GT(progress_->done, 1000);
}

TEST_P(RouteTableTest, WhatAKilledEngineLeftAnswers) {
  for (int round = 0; round < 50; ++round) {
    progress_->done = 0;
    Child engine(nullptr, [&]() -> std::string {
      StartRoutes();
      for (;;) Move();
    });
    while (progress_->done < 2 + static_cast<int64_t>(random_() % 2000)) sched_yield();
    engine.Kill();
    EXPECT_EQ(engine.Wait(), "signal 9");
    const int64_t done = progress_->done;
    ASSERT_EQ(InChild(nullptr,
                      [&]() -> std::string {
                        const auto arena = Arena::Attach(path_, Arena::Access::kSnapshot);
                        Arena::SetCurrent(arena.get());
                        const int64_t answer = Match();
                        return answer == done || answer == done + 1 ? "good" : std::to_string(answer);
                      }),
              "good")
        << "round " << round;
  }
}

// Many damaged words at once, in a saved arena.
TEST_P(RouteTableTest, DamagedRoutesNeverCrashAReader) {
  StartRoutes();
  for (uint32_t length = 1; length <= bits(); ++length) {
    if (length == length_) continue;
    ASSERT_EQ(Insert(length, length), 0);
  }
  tbm::TableView view;
  ASSERT_EQ(tbm::TableView::OpenCurrent(0, table(), &view), 0);
  const uint64_t routes = view.shape().routesOffset;
  const uint64_t blocks = reinterpret_cast<const tbm::RouteHead *>(view.RouteArea())->used;
  const std::string copy = Snapshot();
  Stop();
  EXPECT_EQ(InChild(nullptr,
                    [&]() -> std::string {
                      const auto arena = AttachToDamage(copy);
                      char *const base = reinterpret_cast<char *>(arena->header());
                      if (Match() != bits()) return "the copy is not good";
                      for (int round = 0; round < 200; ++round) {
                        std::vector<std::pair<uint64_t *, uint64_t>> good;
                        for (int i = 0; i < 30; ++i) {
                          const uint64_t place =
                              random_() % 8 != 0
                                  ? tbm::kRouteBlocksOffset + random_() % (blocks - tbm::kRouteBlocksOffset)
                                  : random_() % 2 * tbm::kRouteHeadBytes + random_() % 24;
                          auto *word = reinterpret_cast<uint64_t *>(base + routes + place / 8 * 8);
                          good.emplace_back(word, *word);
                          *word = random_() % 2 != 0 ? random_() | uint64_t{random_()} << 32
                                                     : *word ^ uint64_t { 1 } << random_() % 64;
                        }
                        MatchBeside();
                        for (auto it = good.rbegin(); it != good.rend(); ++it) *it->first = it->second;
                      }
                      return Match() == bits() ? "survived" : "not mended";
                    }),
            "survived");
}

// Wherever the file system becomes full: what was refused left nothing behind, and what was taken is there.
TEST_P(RouteTableTest, AFullFileSystemRefusesWholeRoutes) {
  constexpr uint32_t kRoutes = 1000;  // what the table holds
  std::set<int32_t> statuses;
  for (uint32_t room = 96; room <= 800; room += 8) {
    const std::string size = "size=" + std::to_string(room) + "k";
    if (mount("tmpfs", dir_.c_str(), "tmpfs", 0, size.c_str()) != 0)
      GTEST_SKIP() << "no permission to mount a file system";
    const FullFileSystem there(this);
    if (ErrorOf([this] { Start(); }) != "no error") continue;
    int32_t status = 0;
    int64_t routes = 0;
    while (routes < kRoutes && (status = InsertOther(routes)) == 0) ++routes;
    statuses.insert(status);
    uint32_t bytes = 0, again = 0;
    EXPECT_EQ(TbmTblMemStat(0, table(), &bytes), 0);
    // As often as one likes.
    for (int i = 0; i < 3 && status != 0; ++i) EXPECT_EQ(InsertOther(routes), -3) << size;
    EXPECT_EQ(TbmTblMemStat(0, table(), &again), 0);
    EXPECT_EQ(again, bytes) << size;
    uint32_t count = 0;
    EXPECT_EQ(TbmTblEntryNum(0, table(), &count), 0);
    EXPECT_EQ(count, routes);
    EXPECT_EQ(CountByWalk(), routes);
    for (int64_t i = 0; i <= routes && i < kRoutes; ++i) {
      RouteKey6 key = OtherKey(i);
      void *found;
      EXPECT_EQ(TbmTblSearch(0, table(), &key, &found), i < routes ? 0 : -7) << i << " of " << size;
      key.length = 0;
      EXPECT_EQ(MatchKey(key), i < routes ? i : -7) << i << " of " << size;
    }
    for (int64_t i = 0; i < routes; ++i) {
      const RouteKey6 key = OtherKey(i);
      EXPECT_EQ(writer_->Remove(table(), &key), 0) << i << " of " << size;
    }
    // Where there is room again all goes on.
    ASSERT_EQ(mount("tmpfs", dir_.c_str(), "tmpfs", MS_REMOUNT, "size=64m"), 0);
    for (int64_t i = 0; i < kRoutes; ++i) ASSERT_EQ(InsertOther(i), 0) << i << " of " << size;
    EXPECT_EQ(CountByWalk(), kRoutes);
  }
  EXPECT_EQ(statuses, (std::set<int32_t>{0, -3}));
}

INSTANTIATE_TEST_SUITE_P(Families, RouteTableTest, ::testing::Values(kRoute4Table, kRoute6Table),
                         [](const auto &table) { return table.param == kRoute4Table ? "Ipv4" : "Ipv6"; });

}  // namespace
}  // namespace qdt::host
