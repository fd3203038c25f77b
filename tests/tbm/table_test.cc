#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <map>

#include "host/arena/arena_layout.h"
#include "host/tbm/table_view.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

class TableTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }

  static void *Find(uint32_t table, const void *key) {
    void *entry = nullptr;
    return TbmTblSearch(0, table, key, &entry) == 0 ? entry : nullptr;
  }

  // The id of the longest match, or the status.
  static int64_t Match(uint32_t table, const void *key) {
    void *entry = nullptr;
    const int32_t status = TbmTblMatch(0, table, key, &entry);
    if (status != 0) return status;
    uint64_t id;
    std::memcpy(&id, entry, sizeof(id));
    return static_cast<int64_t>(id);
  }

  int32_t AddRoute(uint32_t table, const void *key, uint64_t id) {
    const uint64_t record[2] = {id, 0};
    return writer_->Insert(table, key, record, nullptr);
  }
};

int32_t StopAtOnce(void *, void *) { return -10; }

TEST_F(TableTest, EveryOperationRefusesWrongIdsInstancesAndNulls) {
  const uint32_t key = 1;
  const Record record = Record::Make(1);
  Record buffer;
  void *entry;
  uint32_t number = sizeof(buffer);
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  struct Wrong {
    uint32_t instance;
    uint32_t table;
    int32_t status;
  };
  for (const Wrong &wrong : {Wrong{0, 109, -2}, Wrong{0, UINT32_MAX, -2}, Wrong{1, kUniqueTable, -2},
                             Wrong{0, kUndefinedTable, -6}}) {
    EXPECT_EQ(TbmTblSearch(wrong.instance, wrong.table, &key, &entry), wrong.status);
    EXPECT_EQ(TbmTblMatch(wrong.instance, wrong.table, &key, &entry), wrong.status);
    EXPECT_EQ(TbmTblTrav(wrong.instance, wrong.table, StopAtOnce, nullptr), wrong.status);
    EXPECT_EQ(TbmTblTravNext(wrong.instance, wrong.table, &ctx, &buffer, &number), wrong.status);
    EXPECT_EQ(TbmTblTravNextByKey(wrong.instance, wrong.table, &key, &ctx, &buffer, &number), wrong.status);
    EXPECT_EQ(TbmTblEntryNum(wrong.instance, wrong.table, &number), wrong.status);
    EXPECT_EQ(TbmTblMemStat(wrong.instance, wrong.table, &number), wrong.status);
    EXPECT_EQ(TbmTblGetSpec(wrong.instance, wrong.table), 0u);
    if (wrong.instance != 0) continue;
    EXPECT_EQ(writer_->Insert(wrong.table, &key, &record, nullptr), wrong.status);
    EXPECT_EQ(writer_->Remove(wrong.table, &key), wrong.status);
    EXPECT_EQ(writer_->RemoveEntry(wrong.table, &buffer), wrong.status);
    EXPECT_EQ(writer_->Update(wrong.table, &buffer, &record), wrong.status);
  }
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, nullptr, &entry), -2);
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &key, nullptr), -2);
  EXPECT_EQ(TbmTblMatch(0, kRoute4Table, nullptr, &entry), -2);
  EXPECT_EQ(TbmTblMatch(0, kRoute4Table, &key, nullptr), -2);
  EXPECT_EQ(TbmTblTrav(0, kUniqueTable, nullptr, nullptr), -2);
  EXPECT_EQ(TbmTblTravNext(0, kUniqueTable, nullptr, &buffer, &number), -2);
  EXPECT_EQ(TbmTblTravNext(0, kUniqueTable, &ctx, nullptr, &number), -2);
  EXPECT_EQ(TbmTblTravNext(0, kUniqueTable, &ctx, &buffer, nullptr), -2);
  EXPECT_EQ(TbmTblTravNextByKey(0, kUniqueTable, nullptr, &ctx, &buffer, &number), -2);
  EXPECT_EQ(TbmTblEntryNum(0, kUniqueTable, nullptr), -2);
  EXPECT_EQ(TbmTblMemStat(0, kUniqueTable, nullptr), -2);
  EXPECT_EQ(writer_->Insert(kUniqueTable, nullptr, &record, nullptr), -2);
  EXPECT_EQ(writer_->Insert(kUniqueTable, &key, nullptr, nullptr), -2);
  EXPECT_EQ(writer_->Remove(kUniqueTable, nullptr), -2);
  EXPECT_EQ(TbmTblTravContextCnt(nullptr), 0u);
}

TEST_F(TableTest, EveryOperationSaysNotReadyWithoutAnArena) {
  Arena::SetCurrent(nullptr);
  const uint32_t key = 1;
  Record buffer;
  void *entry;
  uint32_t number = sizeof(buffer);
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &key, &entry), -116);
  EXPECT_EQ(TbmTblMatch(0, kRoute4Table, &key, &entry), -116);
  EXPECT_EQ(TbmTblTrav(0, kUniqueTable, StopAtOnce, nullptr), -116);
  EXPECT_EQ(TbmTblTravNext(0, kUniqueTable, &ctx, &buffer, &number), -116);
  EXPECT_EQ(TbmTblTravNextByKey(0, kUniqueTable, &key, &ctx, &buffer, &number), -116);
  EXPECT_EQ(TbmTblEntryNum(0, kUniqueTable, &number), -116);
  EXPECT_EQ(TbmTblMemStat(0, kUniqueTable, &number), -116);
  EXPECT_EQ(TbmTblGetSpec(0, kUniqueTable), 0u);
  EXPECT_EQ(g_tbmGlobalInfo, nullptr);
}

TEST_F(TableTest, SearchDeliversTheEntryAtTheAddressOfItsInsertion) {
  const uint32_t missing = 77;
  void *entry = nullptr;
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &missing, &entry), -7);  // in a table that never held an entry
  std::vector<void *> addresses;
  for (uint32_t key = 100; key < 400; ++key) addresses.push_back(Add(kUniqueTable, key, key));
  for (uint32_t key = 100; key < 400; ++key) {
    ASSERT_EQ(Find(kUniqueTable, &key), addresses[key - 100]);
    EXPECT_EQ(static_cast<Record *>(addresses[key - 100])->id, key);
  }
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &missing, &entry), -7);
}

TEST_F(TableTest, KeyExistsOnceInUniqueTables) {
  Add(kUniqueTable, 5, 1);
  const uint32_t key = 5;
  const Record record = Record::Make(2);
  EXPECT_EQ(writer_->Insert(kUniqueTable, &key, &record, nullptr), -5);
  EXPECT_EQ(static_cast<Record *>(Find(kUniqueTable, &key))->id, 1u);
  uint32_t count = 0;
  EXPECT_EQ(TbmTblEntryNum(0, kUniqueTable, &count), 0);
  EXPECT_EQ(count, 1u);
}

TEST_F(TableTest, RemoveTakesTheEntryAway) {
  for (uint32_t key = 0; key < 100; ++key) Add(kUniqueTable, key, key);
  for (uint32_t key = 0; key < 100; key += 2) EXPECT_EQ(writer_->Remove(kUniqueTable, &key), 0);
  for (uint32_t key = 0; key < 100; ++key)
    EXPECT_EQ(Find(kUniqueTable, &key) != nullptr, key % 2 == 1) << key;
  const uint32_t key = 2;
  EXPECT_EQ(writer_->Remove(kUniqueTable, &key), -7);
  uint32_t count = 0;
  EXPECT_EQ(TbmTblEntryNum(0, kUniqueTable, &count), 0);
  EXPECT_EQ(count, 50u);
  EXPECT_EQ(g_tbmGlobalInfo->tables[kUniqueTable].entryNum, 50u);
}

TEST_F(TableTest, AddressesThatAreNoEntryAreRefused) {
  char *address = static_cast<char *>(Add(kUniqueTable, 1, 1));
  const Record record = Record::Make(2);
  Record foreign;
  EXPECT_EQ(writer_->RemoveEntry(kUniqueTable, address + 8), -7);
  EXPECT_EQ(writer_->RemoveEntry(kUniqueTable, &foreign), -7);
  EXPECT_EQ(writer_->RemoveEntry(kUniqueTable, nullptr), -7);
  EXPECT_EQ(writer_->Update(kUniqueTable, address - 8, &record), -7);
  EXPECT_EQ(writer_->Update(kTinyTable, address, &record), -7);
  EXPECT_EQ(writer_->Update(kUniqueTable, address, nullptr), -2);
  EXPECT_EQ(writer_->Update(kUniqueTable, address, &record), 0);
  EXPECT_EQ(reinterpret_cast<Record *>(address)->id, 2u);
  EXPECT_EQ(writer_->RemoveEntry(kUniqueTable, address), 0);
  EXPECT_EQ(writer_->RemoveEntry(kUniqueTable, address), -7);
  EXPECT_EQ(writer_->Update(kUniqueTable, address, &record), -7);
}

TEST_F(TableTest, GroupTableDeliversTheDataBehindTheKey) {
  const uint32_t key[2] = {3, 9};
  uint32_t record[10] = {3, 9, 10, 11, 12, 13, 14, 15, 16, 17};
  void *address = nullptr;
  ASSERT_EQ(writer_->Insert(kGroupTable, key, record, &address), 0);
  void *entry = nullptr;
  ASSERT_EQ(TbmTblSearch(0, kGroupTable, key, &entry), 0);
  EXPECT_EQ(entry, address);
  EXPECT_EQ(std::memcmp(entry, record + 2, 32), 0);
  uint32_t walked[10] = {};
  uint32_t bytes = sizeof(walked);
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  EXPECT_EQ(TbmTblTravNext(0, kGroupTable, &ctx, walked, &bytes), 0);
  EXPECT_EQ(bytes, 40u);
  EXPECT_EQ(std::memcmp(walked, record, sizeof(record)), 0);
  EXPECT_EQ(writer_->RemoveEntry(kGroupTable, address), 0);
  EXPECT_EQ(TbmTblSearch(0, kGroupTable, key, &entry), -7);
}

TEST_F(TableTest, SizesThatFillNoWordKeepTheirNeighboursWhole) {
  for (uint8_t i = 0; i < 100; ++i) {
    const uint8_t key[6] = {1, 2, 3, 4, 5, i};
    uint8_t record[13];
    std::memset(record, i, sizeof(record));
    ASSERT_EQ(writer_->Insert(kOddTable, key, record, nullptr), 0);
  }
  uint8_t buffer[13 * 100 + 5] = {};
  uint32_t bytes = sizeof(buffer);
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  EXPECT_EQ(TbmTblTravNext(0, kOddTable, &ctx, buffer, &bytes), 0);
  ASSERT_EQ(bytes, 1300u);
  for (uint32_t i = 0; i < 1300; ++i) ASSERT_EQ(buffer[i], i / 13);
  EXPECT_EQ(buffer[1300], 0);
  const uint8_t key[6] = {1, 2, 3, 4, 5, 99};
  EXPECT_EQ(static_cast<uint8_t *>(Find(kOddTable, key))[12], 99);
}

TEST_F(TableTest, FullTableRefusesAndSaysSoOnce) {
  for (uint32_t key = 0; key < 4; ++key) Add(kTinyTable, key, key);
  const Record record = Record::Make(9);
  const uint32_t key = 9;
  EXPECT_EQ(writer_->Insert(kTinyTable, &key, &record, nullptr), -8);
  EXPECT_EQ(writer_->Insert(kTinyTable, &key, &record, nullptr), -8);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"3 table 3 (CAP_TABLE_TINY) is full: 4 entries\n"});
  const uint32_t first = 0;
  EXPECT_EQ(writer_->Remove(kTinyTable, &first), 0);
  Add(kTinyTable, 9, 9);
  EXPECT_EQ(writer_->Insert(kTinyTable, &first, &record, nullptr), -8);
}

TEST_F(TableTest, FreedSlotsComeBackInTheOrderTheyWereFreed) {
  void *addresses[4];
  for (uint32_t key = 0; key < 4; ++key) addresses[key] = Add(kTinyTable, key, key);
  for (const uint32_t key : {2u, 0u, 3u}) EXPECT_EQ(writer_->Remove(kTinyTable, &key), 0);
  EXPECT_EQ(Add(kTinyTable, 10, 10), addresses[2]);
  EXPECT_EQ(Add(kTinyTable, 11, 11), addresses[0]);
  EXPECT_EQ(Add(kTinyTable, 12, 12), addresses[3]);
}

TEST_F(TableTest, AFreedAddressRestsWhileOthersAreLeft) {
  void *freed = Add(kUniqueTable, 0, 0);
  const uint32_t first = 0;
  EXPECT_EQ(writer_->Remove(kUniqueTable, &first), 0);
  for (uint32_t key = 1; key < 500; ++key) EXPECT_NE(Add(kUniqueTable, key, key), freed);
}

TEST_F(TableTest, ManyTableRemovesTheOldestOfAKeyFirst) {
  for (uint64_t id = 1; id <= 3; ++id) Add(kManyTable, 7, id);
  const uint32_t key = 7;
  int32_t status;
  EXPECT_EQ(writer_->Remove(kManyTable, &key), 0);
  EXPECT_EQ(Walk(kManyTable, 10, &status, &key), (std::vector<uint64_t>{2, 3}));
  EXPECT_EQ(static_cast<Record *>(Find(kManyTable, &key))->id, 2u);
  EXPECT_EQ(writer_->Remove(kManyTable, &key), 0);
  EXPECT_EQ(writer_->Remove(kManyTable, &key), 0);
  EXPECT_EQ(writer_->Remove(kManyTable, &key), -7);
}

// The ARP-miss cache answers its own key, (VPN in the upper half, next hop), and the agent's (next hop, 0).
class ArpMissTest : public TableTest {
 protected:
  static constexpr uint32_t kNextHop = 0x0A010007;

  void Put(uint32_t first, uint32_t second, uint64_t id) {
    const uint32_t key[2] = {first, second};
    const Record record = Record::Make(id);
    void *address = nullptr;
    EXPECT_EQ(writer_->Insert(kArpMissTable, key, &record, &address), 0);
  }
  // What a walk and a search of the key find.
  std::vector<uint64_t> Under(uint32_t first, uint32_t second) {
    const uint32_t key[2] = {first, second};
    int32_t status;
    const std::vector<uint64_t> found = Walk(kArpMissTable, 2, &status, key);
    EXPECT_EQ(status, 0);
    void *entry = nullptr;
    EXPECT_EQ(TbmTblSearch(0, kArpMissTable, key, &entry), found.empty() ? -7 : 0);
    if (!found.empty()) {
      EXPECT_EQ(static_cast<Record *>(entry)->id, found.front());
    }
    return found;
  }
};

TEST_F(ArpMissTest, BothKeysFindVpn0) {
  for (uint64_t id = 1; id <= 5; ++id) Put(0, kNextHop, id);
  Put(0, kNextHop + 1, 6);
  Put(7u << 16, kNextHop, 7);  // VPN 7
  EXPECT_EQ(Under(0, kNextHop), (std::vector<uint64_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(Under(kNextHop, 0), (std::vector<uint64_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(Under(kNextHop + 1, 0), std::vector<uint64_t>{6});
  EXPECT_EQ(Under(7u << 16, kNextHop), std::vector<uint64_t>{7});
  EXPECT_EQ(Under(kNextHop + 2, 0), std::vector<uint64_t>{});
  EXPECT_EQ(Under(kNextHop, 7u << 16), std::vector<uint64_t>{});  // only a second word of 0 is exchanged
  EXPECT_EQ(Under(kNextHop, 1), std::vector<uint64_t>{});
}

TEST_F(ArpMissTest, WhatStandsUnderTheKeyItselfGoesFirst) {
  Put(kNextHop, 0, 1);
  Put(0, kNextHop, 2);
  EXPECT_EQ(Under(kNextHop, 0), std::vector<uint64_t>{1});
  EXPECT_EQ(Under(0, kNextHop), std::vector<uint64_t>{2});
}

TEST_F(ArpMissTest, AWalkGoesOnByTheKeyThatItBeganWith) {
  for (uint64_t id = 1; id <= 3; ++id) Put(0, kNextHop, id);
  const uint32_t key[2] = {kNextHop, 0};
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  int32_t status;
  EXPECT_EQ(Batch(kArpMissTable, &ctx, 2, &status, key), (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(status, 1);
  Put(kNextHop, 0, 4);
  EXPECT_EQ(Batch(kArpMissTable, &ctx, 2, &status, key), std::vector<uint64_t>{3});
  EXPECT_EQ(status, 0);
}

TEST_F(ArpMissTest, OtherTablesTakeKeysAsTheyCome) {
  const uint64_t rule = 9;
  const uint32_t key[2] = {0, 5};
  const uint32_t exchanged[2] = {5, 0};
  std::vector<uint8_t> record(40);
  std::memcpy(record.data(), &rule, sizeof(rule));
  void *entry = nullptr;
  EXPECT_EQ(writer_->Insert(kGroupTable, key, record.data(), &entry), 0);
  EXPECT_EQ(TbmTblSearch(0, kGroupTable, key, &entry), 0);
  EXPECT_EQ(TbmTblSearch(0, kGroupTable, exchanged, &entry), -7);
}

TEST_F(TableTest, LongestIpv4PrefixWins) {
  const RouteKey4 routes[] = {{0, 0, {0, 0, 0, 0}},   {8, 0, {10, 0, 0, 0}},   {24, 0, {10, 1, 2, 0}},
                              {32, 0, {10, 1, 2, 3}}, {9, 0, {10, 128, 0, 0}}, {16, 5, {10, 1, 0, 0}}};
  uint64_t id = 1;
  for (const RouteKey4 &route : routes) ASSERT_EQ(AddRoute(kRoute4Table, &route, id++), 0);
  const auto match = [](uint16_t length, uint16_t vpn, uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    const RouteKey4 key = {length, vpn, {a, b, c, d}};
    return Match(kRoute4Table, &key);
  };
  EXPECT_EQ(match(0, 0, 192, 0, 2, 1), 1);
  EXPECT_EQ(match(0, 0, 10, 2, 0, 1), 2);
  EXPECT_EQ(match(0, 0, 10, 1, 2, 4), 3);
  EXPECT_EQ(match(0, 0, 10, 1, 2, 3), 4);
  EXPECT_EQ(match(0, 0, 10, 128, 0, 1), 5);
  EXPECT_EQ(match(8, 0, 10, 1, 2, 3), 4);  // the key's own prefix length is not looked at
  EXPECT_EQ(match(0, 5, 10, 1, 2, 3), 6);
  EXPECT_EQ(match(0, 5, 11, 1, 2, 3), -7);  // no default route in this VPN
  const RouteKey4 host = {32, 0, {10, 1, 2, 3}};
  EXPECT_EQ(writer_->Remove(kRoute4Table, &host), 0);
  EXPECT_EQ(match(0, 0, 10, 1, 2, 3), 3);
  EXPECT_NE(Find(kRoute4Table, &routes[2]), nullptr);
}

TEST_F(TableTest, LongestIpv6PrefixWins) {
  RouteKey6 wide = {0, 0, {}};
  RouteKey6 site = {48, 0, {0x20, 0x01, 0x0d, 0xb8, 0, 1}};
  RouteKey6 host = {128, 0, {0x20, 0x01, 0x0d, 0xb8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}};
  ASSERT_EQ(AddRoute(kRoute6Table, &wide, 1), 0);
  ASSERT_EQ(AddRoute(kRoute6Table, &site, 2), 0);
  ASSERT_EQ(AddRoute(kRoute6Table, &host, 3), 0);
  RouteKey6 key = host;
  key.length = 0;
  EXPECT_EQ(Match(kRoute6Table, &key), 3);
  key.address[15] = 8;
  EXPECT_EQ(Match(kRoute6Table, &key), 2);
  key.address[0] = 0xfe;
  EXPECT_EQ(Match(kRoute6Table, &key), 1);
}

TEST_F(TableTest, MatchNeedsARouteTable) {
  const uint32_t key = 1;
  void *entry;
  EXPECT_EQ(TbmTblMatch(0, kUniqueTable, &key, &entry), -6);
  const RouteKey4 route = {0, 0, {1, 2, 3, 4}};
  EXPECT_EQ(TbmTblMatch(0, kRoute4Table, &route, &entry), -7);  // never held a route
}

TEST_F(TableTest, RoutesWithBitsBehindTheirPrefixAreRefused) {
  const RouteKey4 bits = {24, 0, {10, 1, 2, 3}};
  const RouteKey4 length = {33, 0, {10, 1, 2, 3}};
  const RouteKey6 bits6 = {0, 0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
  EXPECT_EQ(AddRoute(kRoute4Table, &bits, 1), -2);
  EXPECT_EQ(AddRoute(kRoute4Table, &length, 1), -2);
  EXPECT_EQ(AddRoute(kRoute6Table, &bits6, 1), -2);
}

TEST_F(TableTest, GlobalInformationDescribesEveryTable) {
  ASSERT_NE(g_tbmGlobalInfo, nullptr);
  EXPECT_EQ(g_tbmGlobalInfo->tableCount, 109u);
  EXPECT_NE(g_tbmGlobalInfo->serverMaps, nullptr);
  EXPECT_NE(g_tbmGlobalInfo->flowPartition, nullptr);
  const TbmTableDesc &group = g_tbmGlobalInfo->tables[kGroupTable];
  EXPECT_STREQ(group.name, "CAP_TABLE_ACL_GROUP");
  EXPECT_EQ(group.keySize, 8);
  EXPECT_EQ(group.dataSize, 32);
  EXPECT_EQ(group.spec, 64u);
  EXPECT_EQ(group.groupRuleSpec, 512u);
  EXPECT_EQ(group.enable, 1u);
  EXPECT_EQ(group.entryNum, 0u);
  EXPECT_EQ(g_tbmGlobalInfo->tables[kSessionTable].enable, 0u);
  EXPECT_STREQ(g_tbmGlobalInfo->tables[kUndefinedTable].name, "CAP_TABLE_14");
  EXPECT_EQ(g_tbmGlobalInfo->tables[kUndefinedTable].dataSize, 0);
  EXPECT_EQ(TbmTblGetSpec(0, kUniqueTable), 16384u);
}

TEST_F(TableTest, StorageGrowsWithTheEntries) {
  uint32_t bytes = 1;
  EXPECT_EQ(TbmTblMemStat(0, kUniqueTable, &bytes), 0);
  EXPECT_EQ(bytes, 0u);
  Add(kUniqueTable, 1, 1);
  EXPECT_EQ(TbmTblMemStat(0, kUniqueTable, &bytes), 0);
  // Buckets, spare and the gap behind it, the first heads, log entries and records.
  EXPECT_EQ(bytes, 16384u * 8 + 64 + 4096 + 4096 + 16384);
  for (uint32_t key = 2; key <= 16384; ++key) Add(kUniqueTable, key, key);
  EXPECT_EQ(TbmTblMemStat(0, kUniqueTable, &bytes), 0);
  EXPECT_EQ(bytes, 16384u * 8 + 64 + 16384 * (32 + 16 + 72));
}

// Keys that share a bucket here, found by looking; in an arena with another key they fall apart.
TEST_F(TableTest, KeysOfOneBucketShareNoneInAnotherArena) {
  tbm::TableView view;
  ASSERT_EQ(tbm::TableView::OpenCurrent(0, kUniqueTable, &view), 0);
  std::vector<uint32_t> keys;
  for (uint32_t key = 0; keys.size() < 64; ++key) {
    if (view.KeyOf(&key).hash % 16384 == 0) keys.push_back(key);
  }
  Stop();
  Start();
  ASSERT_EQ(tbm::TableView::OpenCurrent(0, kUniqueTable, &view), 0);
  std::map<uint32_t, int> buckets;
  for (const uint32_t key : keys) ++buckets[view.KeyOf(&key).hash % 16384];
  for (const auto &[bucket, count] : buckets) EXPECT_LE(count, 3) << bucket;
}

TEST_F(TableTest, ClientsReadWhatTheEngineWrites) {
  void *address = Add(kUniqueTable, 1, 41);
  EXPECT_EQ(AsClient([&](Arena *client) -> std::string {
              const uint32_t key = 1;
              void *entry = Find(kUniqueTable, &key);
              if (entry != address || static_cast<Record *>(entry)->id != 41) return "wrong entry";
              if (!client->Contains(entry, sizeof(Record))) return "outside";
              return client->EngineAlive() && client->Writable() ? "good" : "not live";
            }),
            "good");
}

// A store into any record stays in the client's own copy; anywhere else before the tail it faults.
TEST_F(TableTest, ClientsStoresReachNobody) {
  auto *session = static_cast<Record *>(Add(kSessionTable, 1, 1));
  auto *other = static_cast<Record *>(Add(kUniqueTable, 1, 1));
  EXPECT_EQ(AsClient([&](Arena *) {
              session->id = 99;
              other->id = 99;
              return std::string("written");
            }),
            "written");
  EXPECT_EQ(session->id, 1u);
  EXPECT_EQ(other->id, 1u);
  for (char *engines :
       {reinterpret_cast<char *>(engine_->header()), reinterpret_cast<char *>(g_tbmGlobalInfo),
        reinterpret_cast<char *>(engine_->header()) + engine_->header()->recordsOffset - 1}) {
    EXPECT_EQ(AsClient([&](Arena *) {
                signal(SIGSEGV, [](int) { _exit(55); });
                *static_cast<volatile char *>(engines) = 99;
                return std::string("written");
              }),
              "exit 55");
  }
}

}  // namespace
}  // namespace qdt::host
