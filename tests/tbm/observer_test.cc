#include "host/tbm/observer.h"

#include <utility>
#include <vector>

#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

// Table and id of each entry that is delivered, in order.
using Entries = std::vector<std::pair<uint32_t, uint64_t>>;

class ObserverTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }

  static void Note(void *context, uint32_t table, const tbm::Place &place) {
    tbm::TableView view;
    ASSERT_EQ(tbm::TableView::Open(Arena::Current(), table, &view), 0);
    ASSERT_TRUE(view.Lives(place));
    static_cast<Entries *>(context)->emplace_back(
        table, reinterpret_cast<const Record *>(view.Record(place.ref))->id);
  }

  Entries seen_;
  const tbm::Observer observer_{Note, &seen_};
};

TEST_F(ObserverTest, SearchesTellWhatTheyFind) {
  Add(kUniqueTable, 1, 11);
  Add(kUniqueTable, 2, 12);
  const tbm::Observing observing(observer_);
  void *entry = nullptr;
  const uint32_t second = 2, missing = 3;
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &second, &entry), 0);
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &missing, &entry), -7);
  EXPECT_EQ(seen_, (Entries{{kUniqueTable, 12}}));
}

TEST_F(ObserverTest, BatchesTellTheirEntriesInOrder) {
  for (uint64_t id = 1; id <= 5; ++id) Add(kManyTable, 7, id);
  const tbm::Observing observing(observer_);
  int32_t status = 0;
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  EXPECT_EQ(Batch(kManyTable, &ctx, 3, &status), (std::vector<uint64_t>{1, 2, 3}));
  EXPECT_EQ(seen_, (Entries{{kManyTable, 1}, {kManyTable, 2}, {kManyTable, 3}}));
  seen_.clear();
  const uint32_t key = 7;
  EXPECT_EQ(Walk(kManyTable, 2, &status, &key), (std::vector<uint64_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(seen_.size(), 5u);
}

TEST_F(ObserverTest, AWalkTellsAnEntryBeforeItsCallback) {
  for (uint64_t id = 1; id <= 3; ++id) Add(kManyTable, 7, id);
  const tbm::Observing observing(observer_);
  const auto stopAtSecond = [](void *entry, void *context) -> int32_t {
    const auto &seen = *static_cast<Entries *>(context);
    EXPECT_EQ(seen.back().second, static_cast<const Record *>(entry)->id);
    return seen.size() == 2 ? -10 : -9;
  };
  EXPECT_EQ(TbmTblTrav(0, kManyTable, stopAtSecond, &seen_), 0);
  EXPECT_EQ(seen_, (Entries{{kManyTable, 1}, {kManyTable, 2}}));
}

TEST_F(ObserverTest, NobodyIsToldAfterItsEnd) {
  Add(kUniqueTable, 1, 11);
  { const tbm::Observing observing(observer_); }
  void *entry = nullptr;
  const uint32_t key = 1;
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &key, &entry), 0);
  EXPECT_TRUE(seen_.empty());
}

}  // namespace
}  // namespace qdt::host
