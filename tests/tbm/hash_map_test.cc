#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>

#include "tests/host/host_fixture.h"

// The server maps' hash map: a table of 1000 entries seen by its 1024 buckets.
namespace qdt::host {
namespace {

constexpr uint32_t kBuckets = 1024;
constexpr int32_t kGoOn = -9;
constexpr int32_t kStop = -10;

class HashMapTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }

  static TbmHashMap *Map() { return g_tbmGlobalInfo->serverMaps; }

  static int32_t Collect(void *entry, void *context) {
    const uint64_t id = static_cast<const volatile Record *>(entry)->id;
    ++(*static_cast<std::map<uint64_t, int> *>(context))[id];
    return kGoOn;
  }

  // How often each id was shown by a walk in steps of `buckets`.
  static std::map<uint64_t, int> WalkAll(uint32_t buckets, int32_t *status) {
    std::map<uint64_t, int> seen;
    uint32_t bucket = 0;
    do {
      *status = TbmHashMapTravBuckets(Map(), Collect, &seen, bucket, buckets, &bucket, 1);
    } while (*status == 1);
    return seen;
  }
};

TEST_F(HashMapTest, EmptyMap) {
  uint32_t count = 9;
  EXPECT_EQ(TbmHashMapEntryNum(Map(), &count), 0);
  EXPECT_EQ(count, 0u);
  int32_t status;
  EXPECT_TRUE(WalkAll(204, &status).empty());
  EXPECT_EQ(status, 0);
}

TEST_F(HashMapTest, EachNodeOnce) {
  for (uint32_t key = 0; key < 1000; ++key) Add(kServerMapTable, key, key + 1);
  uint32_t count = 0;
  EXPECT_EQ(TbmHashMapEntryNum(Map(), &count), 0);
  EXPECT_EQ(count, 1000u);
  for (const uint32_t buckets : {1u, 204u, 256u, 1023u, 1024u, 5000u, ~0u}) {
    int32_t status;
    const auto seen = WalkAll(buckets, &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(seen.size(), 1000u) << buckets;
    for (const auto &[id, times] : seen) EXPECT_EQ(times, 1) << id;
  }
}

TEST_F(HashMapTest, TellsWhereToGoOn) {
  std::map<uint64_t, int> seen;
  uint32_t next = 7;
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), Collect, &seen, 0, 204, &next, 1), 1);
  EXPECT_EQ(next, 204u);
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), Collect, &seen, 1000, 204, &next, 1), 0);
  EXPECT_EQ(next, kBuckets);
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), Collect, &seen, 820, 204, &next, 1), 0);
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), Collect, &seen, ~0u, ~0u, &next, 1), 0);
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), Collect, &seen, 5, 0, &next, 1), 1);
  EXPECT_EQ(next, 5u);
}

TEST_F(HashMapTest, CallbacksMayStopTheWalk) {
  for (uint32_t key = 0; key < 50; ++key) Add(kServerMapTable, key, key);
  const auto stopAtThird = [](void *, void *context) -> int32_t {
    return ++*static_cast<int *>(context) == 3 ? kStop : kGoOn;
  };
  int calls = 0;
  uint32_t next = 0;
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), stopAtThird, &calls, 0, kBuckets, &next, 1), 0);
  EXPECT_EQ(calls, 3);
}

// What the engine's aging does.
TEST_F(HashMapTest, CallbacksMayRemoveTheirNode) {
  for (uint32_t key = 0; key < 100; ++key) Add(kServerMapTable, key, key);
  const auto removeOdd = [](void *entry, void *context) -> int32_t {
    if (static_cast<Record *>(entry)->id % 2 == 1) {
      EXPECT_EQ(static_cast<TableWriter *>(context)->RemoveEntry(kServerMapTable, entry), 0);
    }
    return kGoOn;
  };
  uint32_t next = 0;
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), removeOdd, writer_.get(), 0, kBuckets, &next, 1), 0);
  int32_t status;
  EXPECT_EQ(WalkAll(204, &status).size(), 50u);
}

TEST_F(HashMapTest, WrongArguments) {
  uint32_t number = 0;
  auto *const other = reinterpret_cast<TbmHashMap *>(&number);
  for (TbmHashMap *map : {static_cast<TbmHashMap *>(nullptr), other}) {
    EXPECT_EQ(TbmHashMapEntryNum(map, &number), -2);
    EXPECT_EQ(TbmHashMapTravBuckets(map, Collect, nullptr, 0, 1, &number, 1), -2);
  }
  EXPECT_EQ(TbmHashMapEntryNum(Map(), nullptr), -2);
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), nullptr, nullptr, 0, 1, &number, 1), -2);
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), Collect, nullptr, 0, 1, nullptr, 1), -2);
  TbmHashMap *const map = Map();
  Arena::SetCurrent(nullptr);
  EXPECT_EQ(TbmHashMapEntryNum(map, &number), -116);
  EXPECT_EQ(TbmHashMapTravBuckets(map, Collect, nullptr, 0, 1, &number, 1), -116);
}

TEST_F(HashMapTest, ClientsAgeNodesOut) {
  Record *const node = static_cast<Record *>(Add(kServerMapTable, 1, 1));
  EXPECT_EQ(AsClient([](Arena *) -> std::string {
              const auto write = [](void *entry, void *) -> int32_t {
                static_cast<Record *>(entry)->aging = 0;
                return kGoOn;
              };
              uint32_t next = 0;
              return std::to_string(TbmHashMapTravBuckets(Map(), write, nullptr, 0, kBuckets, &next, 1));
            }),
            "0");
  const auto look = [](void *entry, void *context) -> int32_t {
    *static_cast<uint32_t *>(context) = static_cast<Record *>(entry)->aging;
    return kGoOn;
  };
  uint32_t next = 0, seen = 300;
  EXPECT_EQ(TbmHashMapTravBuckets(Map(), look, &seen, 0, kBuckets, &next, 1), 0);
  EXPECT_EQ(seen, 0u);
  EXPECT_EQ(node->aging, 0u);
}

// A process that walks the map while nodes come and go: those that stay are shown once each.
TEST_F(HashMapTest, WalksWhileNodesComeAndGo) {
  constexpr uint32_t kLasting = 200;
  constexpr uint32_t kChanging = 400;
  constexpr uint64_t kRounds = 1000;
  auto *const rounds = static_cast<std::atomic<uint64_t> *>(
      mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (uint32_t key = 0; key < kLasting + kChanging; ++key) Add(kServerMapTable, key, key);
  Child reader(&engine_, [&]() -> std::string {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    for (; *rounds < kRounds; ++*rounds) {
      int32_t status;
      const auto seen = WalkAll(1 + *rounds % 300, &status);
      if (status != 0) return "status " + std::to_string(status);
      for (uint64_t id = 0; id < kLasting; ++id) {
        const auto found = seen.find(id);
        if (found == seen.end() || found->second != 1) return "lasting node lost or shown twice";
      }
    }
    return "good";
  });
  std::mt19937 random(6);
  const time_t begun = time(nullptr);
  while (*rounds < kRounds && time(nullptr) < begun + 300) {
    const uint32_t key = kLasting + random() % kChanging;
    ASSERT_EQ(writer_->Remove(kServerMapTable, &key), 0);
    Add(kServerMapTable, key, key);
  }
  if (*rounds < kRounds) reader.Kill();
  EXPECT_EQ(reader.Wait(), "good");
  munmap(rounds, sizeof(uint64_t));
}

}  // namespace
}  // namespace qdt::host
