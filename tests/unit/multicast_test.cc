#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of the lists that broadcasts and multicasts are replicated to, and of the groups that nobody joined.
namespace qdt::test {
namespace {

constexpr uint32_t kCtrlIfMap = 11, kBroadcast = 42, kGlobalBroadcast = 76, kRoutePort = 77, kGroup = 78,
                   kExcluded = 79, kUser = 80, kDummy = 97;

// A list of the entries of one key.
struct List {
  std::string id;
  uint32_t table;
  TableSearch search;
  TableFormat format;
  Bytes key;
  std::string keyHex;  // as the search must ask for it
  std::vector<Record> entries;
  std::vector<std::string> texts;
  std::string key1;
  uint32_t key2, key3, key4;
};

class MulticastTest : public ViewTest {
 protected:
  // Three entries among those of other keys.
  void Fill(const List &list) {
    Bytes other = list.key;
    other.back() ^= 1;
    for (const Record &entry : list.entries) {
      platform.AddEntry(list.table, other, Record(entry.bytes().size()).bytes());
      platform.AddEntry(list.table, list.key, entry.bytes());
    }
  }

  std::string Ask(const List &list, const std::string &key1) {
    return Query(list.id, key1, std::to_string(list.key2), std::to_string(list.key3),
                 std::to_string(list.key4));
  }

  // Everything that the lists have in common; key1 is a word that asks for all entries.
  void ExpectList(const List &list) {
    EXPECT_EQ(Ask(list, list.key1), "datasize empty or invalid");
    Fill(list);
    platform.walks.clear();
    EXPECT_EQ(Ask(list, list.key1), Framed(list.texts[0] + list.texts[1] + list.texts[2]));
    const size_t size = list.entries[0].bytes().size();
    EXPECT_EQ(platform.walks, std::vector<std::string>{"by key " + std::to_string(list.table) + " " +
                                                       std::to_string(50 * size) + " " + list.keyHex});
    ExpectWalks(list.search, list.table, list.entries, list.key1.c_str(), list.key2, list.key3, list.key4);
    ExpectFormatsEach(list.format, list.entries[0]);
    ExpectBoundedByRoom(list.format, list.entries[0]);
    EXPECT_EQ(platform.allocations.front().path, "src/om/nqe_cli/nqe_cli_tbl_query_ssw");
  }

  // As ExpectList, for those that a key text does not force to be a list.
  void ExpectCountedList(const List &list) {
    ExpectList(list);
    platform.ClearTable(list.table);
    Fill(list);
    EXPECT_EQ(Ask(list, "num2"), Framed(list.texts[0] + list.texts[1]));
    platform.walks.clear();
    for (const char *key1 : {"0", "ALL", "10.1.0.7:10.1.0.8", "num0", "num101"}) {
      EXPECT_EQ(Ask(list, key1), "invalid input param") << key1;
    }
    EXPECT_TRUE(platform.walks.empty());
  }
};

// An interface of a VLAN's list, behind a key that is not shown.
Record VlanPort(uint32_t fwdIfIndex) { return Record(8).U32(0, 0xEEEEEEEE).U32(4, fwdIfIndex); }

List VlanList(const std::string &id, uint32_t table, TableSearch search, TableFormat format,
              const std::string &label) {
  return {id,
          table,
          search,
          format,
          Key(uint16_t{0x0102}, uint16_t{0x0304}),
          "02010403",
          {VlanPort(3000000004u), VlanPort(0), VlanPort(4294967295u)},
          {label + "3000000004\n", label + "0\n", label + "4294967295\n"},
          "all",
          0xFFFF0102,  // the low 16 bits count
          0xFFFF0304,
          0};
}

TEST_F(MulticastTest, Broadcast) {
  ExpectCountedList(VlanList("22", kBroadcast, NqeTableSearchSswBoardcast, NqeTableFormatSswBoardcast,
                             "  OutFwdIfIndex  :  "));
}

TEST_F(MulticastTest, GlobalBroadcast) {
  List list = VlanList("49", kGlobalBroadcast, NqeTableSearchSswGlobalBoardcast,
                       NqeTableFormatSswGlobalBoardcast, "  OutFwdIfIndex  :  ");
  list.key = Key(uint32_t{0});
  list.keyHex = "00000000";  // whatever the command's keys
  list.entries = {Record(4).U32(0, 3000000004u), Record(4), Record(4).U32(0, 4294967295u)};
  ExpectCountedList(list);
}

TEST_F(MulticastTest, RoutePorts) {
  ExpectCountedList(VlanList("51", kRoutePort, NqeTableSearchSswMcRoutePortElb,
                             NqeTableFormatSswMcRoutePortElb, "  FwdIfIdx  :  "));
}

TEST_F(MulticastTest, ExcludedPorts) {
  ExpectCountedList(VlanList("53", kExcluded, NqeTableSearchSswExcludeMcElb, NqeTableFormatSswExcludeMcElb,
                             "  FwdIfIdx  :  "));
}

TEST_F(MulticastTest, ListsInBatches) {
  std::string all;
  for (uint32_t i = 0; i < 120; ++i) {
    platform.AddEntry(kBroadcast, Key(uint16_t{1}, uint16_t{2}), VlanPort(i).bytes());
    all += "  OutFwdIfIndex  :  " + std::to_string(i) + "\n";
  }
  EXPECT_EQ(Query("22", "all", "1", "2"), Framed(all));
  EXPECT_EQ(platform.walks, std::vector<std::string>(3, "by key 42 400 01000200"));
}

TEST_F(MulticastTest, NothingIsThereForAnotherVlan) {
  platform.AddEntry(kRoutePort, Key(uint16_t{1}, uint16_t{2}), VlanPort(1).bytes());
  EXPECT_EQ(Query("51", "all", "2", "1"), "datasize empty or invalid");
  EXPECT_EQ(Query("51", "all", "1", "3"), "datasize empty or invalid");
}

// Groups and their receivers.

Record GroupPort(uint32_t fwdIfIndex) {
  return Record(16).U64(0, ~uint64_t{0}).U32(8, 0xEEEEEEEE).U32(12, fwdIfIndex);
}

List GroupList() {
  List list = VlanList("52", kGroup, NqeTableSearchSswMcElb, NqeTableFormatSswMcElb, "  FwdIfIdx  :  ");
  list.key = Key(uint16_t{0x0102}, uint16_t{0x0304}, uint32_t{0xE1020304}, uint32_t{0x0A010007});
  list.keyHex = "02010403040302e10700010a";
  list.entries = {GroupPort(3000000004u), GroupPort(0), GroupPort(4294967295u)};
  list.key1 = "225.2.3.4:10.1.0.7";
  return list;
}

TEST_F(MulticastTest, GroupPorts) { ExpectList(GroupList()); }

Record User(uint8_t last) {
  return Record(24)
      .U64(0, ~uint64_t{0})
      .U64(8, ~uint64_t{0})
      .Copy(16, "\xA0\x0B\xC1\x0D\xE2")
      .U8(21, last)
      .U16(22, 0xEEEE);
}

List UserList() {
  List list = GroupList();
  list.id = "54";
  list.table = kUser;
  list.search = NqeTableSearchSswMc2UcElb;
  list.format = NqeTableFormatSswMc2UcElb;
  list.key = Key(uint16_t{0x0102}, uint16_t{0x0304}, uint32_t{0x05060708}, uint32_t{0xE1020304},
                 uint32_t{0x0A010007});
  list.keyHex = "0201040308070605040302e10700010a";
  list.entries = {User(0), User(0x0F), User(0xFF)};
  list.texts = {"  UsrMac  :  a0:0b:c1:0d:e2:00\n", "  UsrMac  :  a0:0b:c1:0d:e2:0f\n",
                "  UsrMac  :  a0:0b:c1:0d:e2:ff\n"};
  list.key4 = 70000;
  return list;
}

TEST_F(MulticastTest, Users) {
  platform.AddEntry(kCtrlIfMap, Key(uint32_t{70000}), Record(16).U32(4, 0x05060708).bytes());
  ExpectList(UserList());
  EXPECT_EQ(platform.searches.front(), "search 11 70110100");
}

TEST_F(MulticastTest, UsersOfAnUnknownInterface) {
  platform.AddEntry(kCtrlIfMap, Key(uint32_t{70000}), Record(16).U32(4, 0x05060708).bytes());
  Fill(UserList());
  List list = UserList();
  list.key4 = 1;
  EXPECT_EQ(Ask(list, list.key1), "format raw data fail");
  EXPECT_EQ(Ask(list, "all"), "format raw data fail");  // the interface comes before the addresses
  EXPECT_TRUE(platform.log.empty());
  platform.FailTable(kCtrlIfMap, -12);
  list.key4 = 70000;
  EXPECT_EQ(Ask(list, list.key1), "format raw data fail");
  EXPECT_TRUE(platform.walks.empty());
}

// The addresses are part of the key, so that no word for a list stands for them.
TEST_F(MulticastTest, KeysThatAreNoAddressPair) {
  platform.AddEntry(kCtrlIfMap, Key(uint32_t{70000}), Record(16).U32(4, 0x05060708).bytes());
  for (const List &list : {GroupList(), UserList()}) {
    Fill(list);
    for (const std::string key1 : {"all", "num5", "0", "", ":", "225.2.3.4", ":10.1.0.7", "225.2.3.4:"}) {
      platform.log.clear();
      EXPECT_EQ(Ask(list, key1), "search fail") << key1;
      EXPECT_EQ(platform.log,
                (std::vector<LogLine>{{3, "[ErrCode: -6]not support this input for " + key1 + "\n"}}));
    }
    for (const auto &[key1, half] : {std::pair{std::string("225.200.300.4000:10.1.0.7"), "ip1"},
                                     {std::string("225.2.3.4:100.101.102.1033"), "ip2"}}) {
      platform.log.clear();
      EXPECT_EQ(Ask(list, key1), "search fail") << key1;
      EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, std::string("[ErrCode: -3]strncpy ") + half +
                                                            " fail for " + key1 + "\n"}}));
    }
    EXPECT_EQ(Ask(list, "num101"), "invalid input param");
  }
  EXPECT_TRUE(platform.walks.empty());
}

// What is no address is all ones, as the C library has it; 15 characters fit.
TEST_F(MulticastTest, HalvesThatAreNoAddresses) {
  platform.AddEntry(kGroup, Key(uint16_t{0}, uint16_t{2}, uint32_t{0xFFFFFFFF}, uint32_t{0}),
                    GroupPort(7).bytes());
  EXPECT_EQ(Query("52", "255.255.255.255:0.0.0.0", "0", "2"), Framed("  FwdIfIdx  :  7\n"));
  EXPECT_EQ(Query("52", "group:0", "0", "2"), Framed("  FwdIfIdx  :  7\n"));
  EXPECT_EQ(Query("52", "1.1.1.1:2:3", "0", "2"), "datasize empty or invalid");
  EXPECT_EQ(platform.walks.back(), "by key 78 800 0000020001010101ffffffff");
}

// These two are walked to their end whatever the key says.
TEST_F(MulticastTest, AlwaysAllReceivers) {
  platform.AddEntry(kCtrlIfMap, Key(uint32_t{70000}), Record(16).U32(4, 0x05060708).bytes());
  for (const List &list : {GroupList(), UserList()}) {
    std::string all;
    for (int i = 0; i < 60; ++i) {
      platform.AddEntry(list.table, list.key, list.entries[0].bytes());
      all += list.texts[0];
    }
    EXPECT_EQ(Ask(list, list.key1), Framed(all));
  }
  EXPECT_EQ(platform.walks, (std::vector<std::string>{"by key 78 800 02010403040302e10700010a",
                                                      "by key 78 800 02010403040302e10700010a",
                                                      "by key 80 1200 0201040308070605040302e10700010a",
                                                      "by key 80 1200 0201040308070605040302e10700010a"}));
}

// Groups that nobody joined.

Record Dummy(uint8_t aging) {
  return Record(16)
      .U16(0, 40000)
      .U16(2, 40002)
      .U32(4, 0x0A010007)
      .U32(8, 0xE1020304)
      .U8(12, aging)
      .U8(13, 0xEE)
      .U16(14, 0xEEEE);
}

std::string DummyText(const std::string &aging) {
  return "  BrId         :  40000\n"
         "  VlanId       :  40002\n"
         "  SrcIp        :  10.1.0.7\n"
         "  GroupIp      :  225.2.3.4\n"
         "  Aging        :  " +
         aging + "\n\n";
}

TEST_F(MulticastTest, DummyRoutes) {
  ExpectLists("75", kDummy, NqeTableSearchMFibDummy, {Dummy(0), Dummy(1), Dummy(255)},
              {DummyText("0"), DummyText("1"), DummyText("255")});
  EXPECT_EQ(platform.walks.front(), "next 97 32");
  ExpectFormatsEach(NqeTableFormatMFibDummy, Dummy(1));
  ExpectBoundedByRoom(NqeTableFormatMFibDummy, Dummy(255));
  EXPECT_EQ(FormatText(NqeTableFormatMFibDummy, Record(16).U32(8, 0xFFFFFFFF)),
            "  BrId         :  0\n  VlanId       :  0\n  SrcIp        :  0.0.0.0\n"
            "  GroupIp      :  255.255.255.255\n  Aging        :  0\n\n");
}

}  // namespace
}  // namespace qdt::test
