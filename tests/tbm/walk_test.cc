#include <chrono>
#include <numeric>

#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

using Ids = std::vector<uint64_t>;

Ids Range(uint64_t first, uint64_t last) {
  Ids ids(last - first + 1);
  std::iota(ids.begin(), ids.end(), first);
  return ids;
}

constexpr uint32_t kKey = 7;

// Both kinds of walk over entries 1 to 10 with the same key cursor rules.
struct Kind {
  const char *name;
  const uint32_t *key;
};

class WalkTest : public HostTest, public ::testing::WithParamInterface<Kind> {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
    TbmTblTravContextInit(&ctx_);
  }

  const uint32_t *WalkKey() const { return GetParam().key; }
  void AddAll(uint64_t first, uint64_t last) {
    for (uint64_t id = first; id <= last; ++id) addresses_.push_back(Add(kManyTable, kKey, id));
  }
  // Entries are named by their ids, from 1 on.
  void Remove(uint64_t id) { EXPECT_EQ(writer_->RemoveEntry(kManyTable, addresses_[id - 1]), 0); }
  Ids Next(uint32_t batch, int32_t *status) { return Batch(kManyTable, &ctx_, batch, status, WalkKey()); }
  Ids All(uint32_t batch, int32_t *status) { return Walk(kManyTable, batch, status, WalkKey()); }

  TbmTravContext ctx_;
  int32_t status_ = 0;
  std::vector<void *> addresses_;
};

TEST_P(WalkTest, EmptyTableEndsAtOnce) {
  EXPECT_EQ(Next(5, &status_), Ids{});
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, BatchesOfEverySizeShowAllInOrder) {
  AddAll(1, 10);
  for (uint32_t batch = 1; batch <= 12; ++batch) {
    EXPECT_EQ(All(batch, &status_), Range(1, 10)) << batch;
    EXPECT_EQ(status_, 0);
  }
}

TEST_P(WalkTest, MoreIsSaidOnlyWhenAFurtherEntryLives) {
  AddAll(1, 10);
  EXPECT_EQ(Next(5, &status_), Range(1, 5));
  EXPECT_EQ(status_, 1);
  EXPECT_EQ(Next(5, &status_), Range(6, 10));
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(Next(5, &status_), Ids{});  // a walk that has ended stays there
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, EntriesInsertedAfterTheStartAreNotShown) {
  AddAll(1, 4);
  EXPECT_EQ(Next(2, &status_), Range(1, 2));
  AddAll(5, 8);
  EXPECT_EQ(Next(2, &status_), Range(3, 4));
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, AnEntryInsertedAgainIsNotShownTwice) {
  AddAll(1, 4);
  EXPECT_EQ(Next(2, &status_), Range(1, 2));
  Remove(1);
  Add(kManyTable, kKey, 1);
  EXPECT_EQ(Next(9, &status_), Range(3, 4));
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, DeletedCursorIsToldOnceAndNothingIsLost) {
  AddAll(1, 10);
  EXPECT_EQ(Next(3, &status_), Range(1, 3));
  Remove(3);
  EXPECT_EQ(Next(3, &status_), Ids{});
  EXPECT_EQ(status_, -11);
  EXPECT_EQ(Next(3, &status_), Range(4, 6));
  EXPECT_EQ(status_, 1);
  EXPECT_EQ(Next(9, &status_), Range(7, 10));
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, DeletedCursorIsToldForEachDeletion) {
  AddAll(1, 6);
  EXPECT_EQ(Next(1, &status_), Range(1, 1));
  Remove(1);
  EXPECT_EQ(Next(1, &status_), Ids{});
  EXPECT_EQ(status_, -11);
  EXPECT_EQ(Next(1, &status_), Range(2, 2));
  Remove(2);
  EXPECT_EQ(Next(1, &status_), Ids{});
  EXPECT_EQ(status_, -11);
  EXPECT_EQ(Next(9, &status_), Range(3, 6));
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, DeletedCursorWhoseSlotIsUsedAgain) {
  AddAll(1, 6);
  EXPECT_EQ(Next(3, &status_), Range(1, 3));
  Remove(3);
  // The table's other slots are taken first; then the cursor's slot holds a new entry.
  for (uint32_t key = 100; key < 100 + 4096 - 5; ++key) Add(kManyTable, key, key);
  EXPECT_EQ(Next(3, &status_), Ids{});
  EXPECT_EQ(status_, -11);
  EXPECT_EQ(Next(3, &status_), Range(4, 6));
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, EverythingFromTheCursorOnDeleted) {
  AddAll(1, 6);
  EXPECT_EQ(Next(3, &status_), Range(1, 3));
  for (uint64_t id = 3; id <= 6; ++id) Remove(id);
  EXPECT_EQ(Next(3, &status_), Ids{});
  EXPECT_EQ(status_, -11);
  EXPECT_EQ(Next(3, &status_), Ids{});
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, DeletionsAwayFromTheCursorGoUnnoticed) {
  AddAll(1, 10);
  EXPECT_EQ(Next(3, &status_), Range(1, 3));
  Remove(1);
  Remove(2);
  Remove(4);
  Remove(7);
  EXPECT_EQ(Next(9, &status_), (Ids{5, 6, 8, 9, 10}));
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, DeletionOfTheLastEntryAfterTheEndGoesUnnoticed) {
  AddAll(1, 3);
  EXPECT_EQ(Next(5, &status_), Range(1, 3));
  EXPECT_EQ(status_, 0);
  Remove(3);
  EXPECT_EQ(Next(5, &status_), Ids{});
  EXPECT_EQ(status_, 0);
}

TEST_P(WalkTest, BufferBelowOneRecordIsRefused) {
  AddAll(1, 1);
  char buffer[sizeof(Record)];
  uint32_t bytes = sizeof(Record) - 1;
  EXPECT_EQ(WalkKey() == nullptr ? TbmTblTravNext(0, kManyTable, &ctx_, buffer, &bytes)
                                 : TbmTblTravNextByKey(0, kManyTable, WalkKey(), &ctx_, buffer, &bytes),
            -2);
}

TEST_P(WalkTest, AnotherWalksContextIsRefused) {
  AddAll(1, 4);
  EXPECT_EQ(Next(2, &status_), Range(1, 2));
  const TbmTravContext begun = ctx_;
  EXPECT_EQ(Batch(kUniqueTable, &ctx_, 2, &status_, WalkKey()), Ids{});
  EXPECT_EQ(status_, -12);
  ctx_ = begun;
  EXPECT_EQ(Batch(kManyTable, &ctx_, 2, &status_, WalkKey() == nullptr ? &kKey : nullptr), Ids{});
  EXPECT_EQ(status_, -12);
  ctx_ = begun;
  Stop();
  path_ += "2";
  Start();  // another engine's arena
  EXPECT_EQ(Next(2, &status_), Ids{});
  EXPECT_EQ(status_, -12);
}

INSTANTIATE_TEST_SUITE_P(Kinds, WalkTest,
                         ::testing::Values(Kind{"WholeTable", nullptr}, Kind{"ByKey", &kKey}),
                         [](const auto &kind) { return kind.param.name; });

class KeyWalkTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }
};

TEST_F(KeyWalkTest, EachKeyShowsItsOwnEntries) {
  // More keys than a few buckets, interleaved, so that chains are shared.
  for (uint64_t id = 0; id < 4096; ++id) Add(kManyTable, static_cast<uint32_t>(id % 512), id);
  for (uint32_t key = 0; key < 512; ++key) {
    int32_t status;
    Ids expected;
    for (uint64_t id = key; id < 4096; id += 512) expected.push_back(id);
    ASSERT_EQ(Walk(kManyTable, 3, &status, &key), expected) << key;
  }
  int32_t status;
  const uint32_t missing = 600;
  EXPECT_EQ(Walk(kManyTable, 3, &status, &missing), Ids{});
  EXPECT_EQ(status, 0);
}

TEST_F(KeyWalkTest, UniqueTablesShowTheOneEntry) {
  Add(kUniqueTable, 1, 10);
  Add(kUniqueTable, 2, 20);
  const uint32_t key = 2;
  int32_t status;
  EXPECT_EQ(Walk(kUniqueTable, 1, &status, &key), Ids{20});
  EXPECT_EQ(status, 0);
}

struct Visits {
  Ids ids;
  uint64_t stopAt = UINT64_MAX;
  std::function<void(void *)> then;
};

int32_t Visit(void *entry, void *context) {
  auto *visits = static_cast<Visits *>(context);
  const uint64_t id = static_cast<Record *>(entry)->id;
  visits->ids.push_back(id);
  if (visits->then) visits->then(entry);
  return id == visits->stopAt ? -10 : -9;
}

TEST_F(KeyWalkTest, CallbackSeesAllUntilItStops) {
  for (uint32_t key = 1; key <= 20; ++key) Add(kUniqueTable, key, key);
  Visits all;
  EXPECT_EQ(TbmTblTrav(0, kUniqueTable, Visit, &all), 0);
  EXPECT_EQ(all.ids, Range(1, 20));
  Visits some;
  some.stopAt = 5;
  EXPECT_EQ(TbmTblTrav(0, kUniqueTable, Visit, &some), 0);
  EXPECT_EQ(some.ids, Range(1, 5));
}

TEST_F(KeyWalkTest, CallbackMayDeleteAndInsert) {
  for (uint32_t key = 1; key <= 20; ++key) Add(kUniqueTable, key, key);
  Visits visits;
  visits.then = [this](void *entry) {
    const uint32_t key = static_cast<uint32_t>(static_cast<Record *>(entry)->id);
    EXPECT_EQ(writer_->RemoveEntry(kUniqueTable, entry), 0);
    Add(kUniqueTable, key + 1000, key + 1000);
  };
  EXPECT_EQ(TbmTblTrav(0, kUniqueTable, Visit, &visits), 0);
  EXPECT_EQ(visits.ids, Range(1, 20));
}

class WalkRemovalTest : public HostTest {};

// Nanoseconds of a walk by key that takes one entry at a time, `gone` of every eight out behind it. All share
// one chain, which is not walked again each time.
double TimeWalk(TableWriter *writer, const std::vector<void *> &entries, uint32_t gone) {
  const uint32_t key = 7;
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  uint64_t shown = 0;
  int32_t status;
  const auto begin = std::chrono::steady_clock::now();
  do {
    Record record;
    uint32_t bytes = sizeof(record);
    status = TbmTblTravNextByKey(0, kManyTable, &key, &ctx, &record, &bytes);
    if (bytes == 0) continue;
    EXPECT_EQ(record.id, shown++);
    if (record.id % 8 < gone) {
      EXPECT_EQ(writer->RemoveEntry(kManyTable, entries[record.id]), 0);
    }
  } while (status == 1 || status == -11);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(shown, entries.size());
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count();
}

TEST_F(WalkRemovalTest, WalksByKeyThatRemoveAreLinear) {
  ArenaPlan plan = TestPlan();
  plan.tables[kManyTable].capacity = 30000;
  for (const uint32_t gone : {1u, 4u, 7u, 8u}) {
    Start(plan);
    std::vector<void *> entries(30000);
    for (uint32_t i = 0; i < entries.size(); ++i) entries[i] = Add(kManyTable, 7, i);
    const double alone = TimeWalk(writer_.get(), entries, 0);
    // From the bucket each time it would be some hundred times as long.
    EXPECT_LT(TimeWalk(writer_.get(), entries, gone), 30 * alone + 5e6) << gone << " of eight";
    Stop();
  }
}

}  // namespace
}  // namespace qdt::host
