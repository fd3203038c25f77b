#include <sched.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <random>

#include "host/tbm/client_writes.h"
#include "platform/engine.h"
#include "tests/host/host_fixture.h"

// Entries with something attached to them, and the flow partition that names them.
namespace qdt::host {
namespace {

class SessionTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }

  Flow *AddFlow(uint32_t key) {
    const Flow flow = {Record::Make(key), Record::Make(key + 1000000)};
    void *address = nullptr;
    EXPECT_EQ(writer_->Insert(kFlowPartitionTable, &key, &flow, &address), 0);
    return static_cast<Flow *>(address);
  }
  void RemoveFlow(uint32_t key) { EXPECT_EQ(writer_->Remove(kFlowPartitionTable, &key), 0); }

  static TbmFlowPartition *Partition() { return g_tbmGlobalInfo->flowPartition; }
  // The nodes that are not null.
  static std::vector<void *> Nodes() {
    std::vector<void *> nodes(Partition()->nodes, Partition()->nodes + Partition()->nodeCount);
    nodes.erase(std::remove(nodes.begin(), nodes.end(), nullptr), nodes.end());
    return nodes;
  }
};

TEST_F(SessionTest, PartitionHasANodeForEachSlot) {
  ASSERT_NE(Partition(), nullptr);
  EXPECT_EQ(Partition()->nodeCount, 3000u);
  EXPECT_EQ(Partition()->nodes, nullptr);  // takes no storage before the first session
  std::vector<void *> flows;
  for (uint32_t key = 1; key <= 3; ++key) flows.push_back(AddFlow(key));
  EXPECT_EQ(Nodes(), flows);
  RemoveFlow(2);
  EXPECT_EQ(Nodes(), (std::vector<void *>{flows[0], flows[2]}));
  EXPECT_EQ(Partition()->nodes[1], nullptr);
}

TEST_F(SessionTest, PartitionOfAFullTable) {
  for (uint32_t key = 0; key < 3000; ++key) AddFlow(key);
  EXPECT_EQ(Nodes().size(), 3000u);
  const uint32_t key = 3000;
  const Flow flow = {};
  EXPECT_EQ(writer_->Insert(kFlowPartitionTable, &key, &flow, nullptr), -8);
  for (uint32_t gone = 0; gone < 3000; ++gone) RemoveFlow(gone);
  EXPECT_EQ(Nodes().size(), 0u);
}

TEST_F(SessionTest, WalksDeliverTheRecordAlone) {
  Flow *const flow = AddFlow(7);
  int32_t status;
  EXPECT_EQ(Walk(kFlowPartitionTable, 10, &status), std::vector<uint64_t>{7});
  EXPECT_EQ(status, 0);
  const uint32_t key = 7;
  void *found = nullptr;
  EXPECT_EQ(TbmTblSearch(0, kFlowPartitionTable, &key, &found), 0);
  EXPECT_EQ(found, flow);
  EXPECT_EQ(flow->attached.id, 1000007u);
  EXPECT_TRUE(flow->attached.Whole());
}

TEST_F(SessionTest, UpdatesReachWhatIsAttached) {
  Flow *const flow = AddFlow(1);
  Flow *const neighbour = AddFlow(2);
  const Flow changed = {Record::Make(1, 5), Record::Make(9)};
  EXPECT_EQ(writer_->Update(kFlowPartitionTable, flow, &changed), 0);
  EXPECT_EQ(flow->attached.id, 9u);
  EXPECT_TRUE(flow->record.Whole() && flow->attached.Whole());
  EXPECT_EQ(neighbour->record.id, 2u);
}

TEST_F(SessionTest, UndefinedTablesHaveNoPartitionAndNoMap) {
  engine_.reset();
  ArenaPlan plan = TestPlan();
  for (const uint32_t id : {kServerMapTable, kFlowPartitionTable}) {
    plan.tables[id] = TableSpec();
    plan.tables[id].id = id;
  }
  Start(plan);
  EXPECT_EQ(g_tbmGlobalInfo->flowPartition, nullptr);
  EXPECT_EQ(g_tbmGlobalInfo->serverMaps, nullptr);
  EXPECT_EQ(AsClient([](Arena *) -> std::string {
              return g_tbmGlobalInfo->flowPartition == nullptr ? "none" : "there is one";
            }),
            "none");
}

// The aging times that a walk shows, by session.
int32_t CollectAging(void *entry, void *context) {
  const auto *record = static_cast<const Record *>(entry);
  (*static_cast<std::map<uint64_t, uint32_t> *>(context))[record->id] = record->aging;
  return -9;
}

std::map<uint64_t, uint32_t> AgingTimes() {
  std::map<uint64_t, uint32_t> times;
  EXPECT_EQ(TbmTblTrav(0, kFlowPartitionTable, CollectAging, &times), 0);
  return times;
}

// Writes through the partition's nodes, as a reset does.
void EndSession(uint64_t id) {
  for (uint32_t i = 0; i < g_tbmGlobalInfo->flowPartition->nodeCount; ++i) {
    auto *session = static_cast<Flow *>(g_tbmGlobalInfo->flowPartition->nodes[i]);
    if (session != nullptr && session->record.id == id) session->record.aging = 0;
  }
}

TEST_F(SessionTest, ClientsSeeThePartitionAndEndSessions) {
  for (uint32_t key = 1; key <= 3; ++key) AddFlow(key);
  EXPECT_EQ(
      AsClient([](Arena *) -> std::string {
        EndSession(2);
        tbm::TakeClientWrites();
        // At once, before the engine has looked.
        return AgingTimes() == std::map<uint64_t, uint32_t>{{1, 300}, {2, 0}, {3, 300}} ? "ended" : "not";
      }),
      "ended");
  EXPECT_EQ(AgingTimes(), (std::map<uint64_t, uint32_t>{{1, 300}, {2, 0}, {3, 300}}));
}

TEST_F(SessionTest, WhatACommandOfAClientDoesNotTakeStaysItsOwn) {
  AddFlow(1);
  EXPECT_EQ(AsClient([](Arena *) -> std::string {
              EndSession(1);
              return "written";
            }),
            "written");
  EXPECT_EQ(AgingTimes(), (std::map<uint64_t, uint32_t>{{1, 300}}));
}

// A page that a client has written to shows what it was then; what the engine did since is not undone.
TEST_F(SessionTest, OldCopiesEndNobodyElse) {
  for (uint32_t key = 1; key <= 2; ++key) AddFlow(key);
  auto *const gates = static_cast<std::atomic<int> *>(
      mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  Child client(&engine_, [&]() -> std::string {
    const auto arena = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(arena.get());
    EndSession(1);
    EndSession(2);
    *gates = 1;
    while (*gates != 2) sched_yield();
    tbm::TakeClientWrites();
    return "done";
  });
  while (*gates != 1) sched_yield();
  // The slot of session 1 gets another session: all others are taken first.
  RemoveFlow(1);
  for (uint32_t key = 10; key < 10 + 2999; ++key) AddFlow(key);
  *gates = 2;
  EXPECT_EQ(client.Wait(), "done");
  munmap(gates, sizeof(int));
  const std::map<uint64_t, uint32_t> times = AgingTimes();
  EXPECT_EQ(times.size(), 3000u);
  for (const auto &[id, aging] : times) EXPECT_EQ(aging, id == 2 ? 0u : 300u) << id;
}

TEST_F(SessionTest, WhatIsWrittenIntoASnapshotStaysThere) {
  const uint64_t before = AddFlow(4)->record.body[2];
  const std::string copy = Snapshot();
  const auto look = [&] {
    return InChild(&engine_, [&] {
      const auto arena = Arena::Attach(copy, Arena::Access::kSnapshot);
      Arena::SetCurrent(arena.get());
      auto *flow = static_cast<Flow *>(Partition()->nodes[0]);
      return std::to_string(std::exchange(flow->record.body[2], before + 1));
    });
  };
  EXPECT_EQ(look(), std::to_string(before));
  EXPECT_EQ(look(), std::to_string(before));
}

TEST_F(SessionTest, WrongPointersAreRefused) {
  AddFlow(1);
  TbmGlobalInfo *const info = g_tbmGlobalInfo;
  const auto refused = [&] {
    return Attach() == "error: the arena at " + path_ + " has damaged table descriptors (name another file)";
  };
  const TbmGlobalInfo good = *info;
  const TbmFlowPartition partition = *good.flowPartition;
  EXPECT_FALSE(refused());
  info->flowPartition = reinterpret_cast<TbmFlowPartition *>(info);
  EXPECT_TRUE(refused());
  info->flowPartition = nullptr;
  EXPECT_TRUE(refused());
  *info = good;
  info->serverMaps = reinterpret_cast<TbmHashMap *>(0x4141414141414141);
  EXPECT_TRUE(refused());
  *info = good;
  ++good.flowPartition->nodeCount;
  EXPECT_TRUE(refused());
  *good.flowPartition = partition;
  ++good.flowPartition->nodes;
  EXPECT_TRUE(refused());
  *good.flowPartition = partition;
  EXPECT_FALSE(refused());
}

// A process that follows nodes and what is attached to them while sessions come and go.
TEST_F(SessionTest, NodesAreFollowedWhileSessionsComeAndGo) {
  constexpr uint32_t kLasting = 200;
  constexpr uint32_t kChanging = 1000;
  constexpr uint64_t kRounds = 300;
  struct Shared {
    std::atomic<uint64_t> rounds;
    std::atomic<bool> ended;
  };
  auto *const shared = static_cast<Shared *>(
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  // Each record leads to what is attached to it.
  const auto add = [this](uint32_t key, uint32_t number) {
    Flow *const flow = AddFlow(key);
    Flow linked = {Record::Make(number), Record::Make(number)};
    linked.record.body[0] = reinterpret_cast<uint64_t>(&flow->attached);
    EXPECT_EQ(writer_->Update(kFlowPartitionTable, flow, &linked), 0);
  };
  for (uint32_t key = 0; key < kLasting + kChanging; ++key) add(key, key);
  Child reader(&engine_, [&]() -> std::string {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    while (shared->rounds < kRounds) {
      uint32_t lasting = 0;
      for (uint32_t i = 0; i < Partition()->nodeCount; ++i) {
        const auto *node = static_cast<const volatile Flow *>(
            std::atomic_ref<void *>(Partition()->nodes[i]).load(std::memory_order_acquire));
        if (node == nullptr) continue;
        const auto *attached = reinterpret_cast<const volatile Record *>(node->record.body[0]);
        if (attached != &node->attached) continue;  // a new session, not linked yet
        if (node->record.id < kLasting) lasting += attached->id == node->record.id;
      }
      if (lasting != kLasting) return "lasting sessions lost: " + std::to_string(kLasting - lasting);
      ++shared->rounds;
    }
    shared->ended = true;
    return "good";
  });
  std::mt19937 random(5);
  const time_t begun = time(nullptr);
  for (uint32_t number = kLasting; !shared->ended && time(nullptr) < begun + 60; ++number) {
    const uint32_t key = kLasting + random() % kChanging;
    RemoveFlow(key);
    add(key, std::max(number, kLasting));
  }
  if (!shared->ended) reader.Kill();
  EXPECT_EQ(reader.Wait(), "good");
  EXPECT_EQ(shared->rounds, kRounds);
  munmap(shared, sizeof(Shared));
}

// The bytes of sessions as the engine has them.
class SessionStatTest : public HostTest {
 protected:
  struct Parts {
    uint8_t record[192] = {};
    uint8_t key[40] = {};
  };

  void SetUp() override {
    HostTest::SetUp();
    ArenaPlan plan = TestPlan();
    TableSpec &sessions = plan.tables[kFlowPartitionTable];
    sessions.recordSize = sessions.dataSize = 192;
    sessions.attachedSize = 40;
    Start(plan);
  }

  void AddSession(uint8_t flags, uint8_t protocol, uint16_t agingTime = 60, uint32_t nat = 0,
                  bool classified = false) {
    Parts parts;
    const uint32_t key = ++count_;
    void *address = nullptr;
    EXPECT_EQ(writer_->Insert(kFlowPartitionTable, &key, &parts, &address), 0);
    const uint64_t keyAddress = reinterpret_cast<uint64_t>(address) + 192;
    parts.record[8] = flags;
    std::memcpy(parts.record + 10, &agingTime, sizeof(agingTime));
    std::memcpy(parts.record + 16, &nat, sizeof(nat));
    std::memcpy(parts.record + 112, &keyAddress, sizeof(keyAddress));
    if (classified) std::memcpy(parts.record + 168, &keyAddress, sizeof(keyAddress));
    parts.key[(flags & 1) != 0 ? 36 : 12] = protocol;
    EXPECT_EQ(writer_->Update(kFlowPartitionTable, address, &parts), 0);
  }

  uint32_t count_ = 0;
};

TEST_F(SessionStatTest, CountsWhatThereIs) {
  constexpr uint8_t kValid = 0x20;
  constexpr uint8_t kValid6 = 0x21;
  for (int i = 0; i < 100; ++i) AddSession(kValid, 6);
  for (int i = 0; i < 7; ++i) AddSession(kValid6, 17, 0);
  AddSession(kValid, 1, 60, 1);
  AddSession(kValid, 47, 60, 8);
  AddSession(kValid6, 58, 60, 0x80, true);  // a NAT policy alone translates nothing
  AddSession(0, 6, 60, 1, true);            // not in use
  const uint32_t map = 5;
  const Record record = Record::Make(1);
  ASSERT_EQ(writer_->Insert(kServerMapTable, &map, &record, nullptr), 0);
  char text[1000];
  constexpr char kExpected[] =
      "Session statistics:\n"
      "  Sessions            :  110\n"
      "  Capacity            :  3000\n"
      "  Ipv4                :  102\n"
      "  Ipv6                :  8\n"
      "  Tcp                 :  100\n"
      "  Udp                 :  7\n"
      "  Icmp                :  2\n"
      "  Other               :  1\n"
      "  Translated          :  2\n"
      "  Classified          :  1\n"
      "  AgingOut            :  7\n"
      "  ServerMaps          :  1\n";
  EXPECT_EQ(QdtPrintSessStat(text, sizeof(text)), static_cast<int32_t>(sizeof(kExpected) - 1));
  EXPECT_STREQ(text, kExpected);
  EXPECT_GE(QdtPrintSessStat(text, sizeof(kExpected)), 0);
  EXPECT_LT(QdtPrintSessStat(text, sizeof(kExpected) - 1), 0);
  EXPECT_LT(QdtPrintSessStat(text, 0), 0);
  EXPECT_LT(QdtPrintSessStat(nullptr, 100), 0);
}

TEST_F(SessionStatTest, SessionsWhoseKeyLeadsNowhere) {
  Parts parts;
  parts.record[8] = 0x20;
  std::memset(parts.record + 112, 0x41, 8);
  for (uint32_t key = 1; key <= 2; ++key) {
    ASSERT_EQ(writer_->Insert(kFlowPartitionTable, &key, &parts, nullptr), 0);
    std::memset(parts.record + 112, 0, 8);
  }
  char text[1000];
  EXPECT_GT(QdtPrintSessStat(text, sizeof(text)), 0);
  EXPECT_NE(std::string(text).find("  Other               :  2\n"), std::string::npos) << text;
}

TEST_F(SessionStatTest, WithoutAnArena) {
  Arena::SetCurrent(nullptr);
  char text[1000];
  EXPECT_LT(QdtPrintSessStat(text, sizeof(text)), 0);
}

}  // namespace
}  // namespace qdt::host
