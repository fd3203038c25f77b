#include "host/tbm/acl_rules.h"

#include <array>
#include <cstring>

#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

using Group = std::array<uint32_t, 2>;  // type, id
using RuleBytes = std::array<uint8_t, 256>;

class AclRulesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }

  // Returns what a lookup of the group delivers.
  void *AddGroup(const Group &group) {
    std::array<uint32_t, 10> record = {group[0], group[1]};
    void *address = nullptr;
    EXPECT_EQ(writer_->Insert(kGroupTable, group.data(), record.data(), &address), 0);
    return address;
  }

  // A rule whose action consists of bytes `mark` and whose content consists of bytes `mark` + 1.
  int32_t AddRule(const Group &group, uint32_t priority, uint8_t mark) {
    const AclRuleKey key = {group[0], group[1], priority};
    RuleBytes record;
    std::memset(record.data(), mark, 48);
    std::memset(record.data() + 48, mark + 1, 208);
    return writer_->Insert(kRuleTable, &key, record.data(), nullptr);
  }

  int32_t RemoveRule(const Group &group, uint32_t priority) {
    const AclRuleKey key = {group[0], group[1], priority};
    return writer_->Remove(kRuleTable, &key);
  }

  // The first byte of the action and the last one of the content, or the status.
  static std::string Search(void *group, uint32_t priority) {
    void *action = nullptr;
    void *content = nullptr;
    const int32_t status = TbmAclGroupSearchByPri(group, priority, &action, &content);
    if (status != 0) return std::to_string(status) + (action == nullptr && content == nullptr ? "" : " but");
    return std::to_string(static_cast<uint8_t *>(action)[0]) + " " +
           std::to_string(static_cast<uint8_t *>(content)[207]);
  }

  static std::string Count(uint32_t type, uint32_t id) {
    uint32_t count = 4711;
    const int32_t status = TbmAclGroupActiveRuleNum(type, id, &count);
    return status == 0 ? std::to_string(count) : std::to_string(status) + " " + std::to_string(count);
  }
};

TEST_F(AclRulesTest, FindsRulesByPriority) {
  const Group group = {2, 4001};
  void *address = AddGroup(group);
  EXPECT_EQ(AddRule(group, 5, 50), 0);
  EXPECT_EQ(AddRule(group, 0, 10), 0);
  EXPECT_EQ(AddRule(group, 4294967295, 90), 0);
  EXPECT_EQ(Search(address, 0), "10 11");
  EXPECT_EQ(Search(address, 5), "50 51");
  EXPECT_EQ(Search(address, 4294967295), "90 91");
  EXPECT_EQ(Search(address, 1), "-7");
  EXPECT_EQ(AddRule(group, 5, 51), -5);
  EXPECT_EQ(Search(address, 5), "50 51");
  EXPECT_EQ(RemoveRule(group, 5), 0);
  EXPECT_EQ(Search(address, 5), "-7");
  EXPECT_EQ(Search(address, 0), "10 11");
}

TEST_F(AclRulesTest, TakesTheAddressThatALookupDelivers) {
  const Group group = {0, 3001};
  AddGroup(group);
  EXPECT_EQ(AddRule(group, 3, 30), 0);
  void *found = nullptr;
  ASSERT_EQ(TbmTblSearch(0, kGroupTable, group.data(), &found), 0);
  EXPECT_EQ(Search(found, 3), "30 31");
}

TEST_F(AclRulesTest, AddressesStayWhileOthersComeAndGo) {
  const Group group = {0, 3001};
  void *address = AddGroup(group);
  EXPECT_EQ(AddRule(group, 7, 70), 0);
  void *action = nullptr, *content = nullptr;
  ASSERT_EQ(TbmAclGroupSearchByPri(address, 7, &action, &content), 0);
  EXPECT_EQ(static_cast<char *>(content) - static_cast<char *>(action), 48);
  for (uint32_t i = 100; i < 1100; ++i) EXPECT_EQ(AddRule(group, i, 1), 0);
  for (uint32_t i = 100; i < 1100; ++i) EXPECT_EQ(RemoveRule(group, i), 0);
  void *later = nullptr, *laterContent = nullptr;
  ASSERT_EQ(TbmAclGroupSearchByPri(address, 7, &later, &laterContent), 0);
  EXPECT_EQ(later, action);
  EXPECT_EQ(laterContent, content);
}

TEST_F(AclRulesTest, GroupsOfOneIdOrTypeKeepTheirRulesApart) {
  const Group groups[] = {{0, 1}, {1, 0}, {1, 1}, {0, 0}};
  std::vector<void *> addresses;
  for (uint8_t i = 0; i < 4; ++i) {
    addresses.push_back(AddGroup(groups[i]));
    for (uint32_t priority = 0; priority <= i; ++priority) EXPECT_EQ(AddRule(groups[i], priority, 10 * i), 0);
  }
  EXPECT_EQ(Search(addresses[0], 0), "0 1");
  EXPECT_EQ(Search(addresses[0], 1), "-7");
  EXPECT_EQ(Search(addresses[3], 3), "30 31");
  EXPECT_EQ(Count(0, 1), "1");
  EXPECT_EQ(Count(1, 0), "2");
  EXPECT_EQ(Count(1, 1), "3");
  EXPECT_EQ(Count(0, 0), "4");
}

TEST_F(AclRulesTest, CountsTheRulesOfAGroup) {
  const Group group = {3, 5001};
  EXPECT_EQ(Count(3, 5001), "0");
  for (uint32_t i = 0; i < 1024; ++i) ASSERT_EQ(AddRule(group, i, 1), 0);
  EXPECT_EQ(Count(3, 5001), "1024");
  EXPECT_EQ(RemoveRule(group, 0), 0);
  EXPECT_EQ(RemoveRule(group, 1023), 0);
  EXPECT_EQ(RemoveRule(group, 500), 0);
  EXPECT_EQ(Count(3, 5001), "1021");
  EXPECT_EQ(Count(3, 5002), "0");
  EXPECT_EQ(TbmAclGroupActiveRuleNum(3, 5001, nullptr), -2);
}

TEST_F(AclRulesTest, CountsGroupsAndRules) {
  uint32_t groups = 9, rules = 9;
  EXPECT_EQ(TbmTblAclEntryNum(0, 24, &groups, &rules), 0);
  EXPECT_EQ(groups, 0u);
  EXPECT_EQ(rules, 0u);
  AddGroup({0, 1});
  AddGroup({0, 2});
  EXPECT_EQ(AddRule({0, 1}, 0, 1), 0);
  EXPECT_EQ(AddRule({0, 1}, 1, 1), 0);
  EXPECT_EQ(AddRule({0, 2}, 0, 1), 0);
  EXPECT_EQ(TbmTblAclEntryNum(0, 24, &groups, &rules), 0);
  EXPECT_EQ(groups, 2u);
  EXPECT_EQ(rules, 3u);
  EXPECT_EQ(TbmTblAclEntryNum(0, 24, nullptr, &rules), -2);
  EXPECT_EQ(TbmTblAclEntryNum(0, 24, &groups, nullptr), -2);
  EXPECT_EQ(TbmTblAclEntryNum(1, 24, &groups, &rules), -2);
  EXPECT_EQ(TbmTblAclEntryNum(0, 0, &groups, &rules), -6);
  EXPECT_EQ(TbmTblAclEntryNum(0, 109, &groups, &rules), -6);
}

TEST_F(AclRulesTest, WildGroupAddressesAreNoGroups) {
  const Group group = {0, 1};
  char *address = static_cast<char *>(AddGroup(group));
  EXPECT_EQ(AddRule(group, 0, 10), 0);
  RuleBytes own = {};
  // Beside the entry, its neighbour that was never used, its key, this process's own memory, nowhere.
  for (char *wild : {address - 8, address + 1, address - 1, address + 80, address - 80, address + (1 << 20),
                     reinterpret_cast<char *>(own.data()), reinterpret_cast<char *>(1),
                     reinterpret_cast<char *>(0xdeadbeefdead0000), reinterpret_cast<char *>(UINTPTR_MAX),
                     reinterpret_cast<char *>(engine_->header())}) {
    EXPECT_EQ(Search(wild, 0), "-7") << static_cast<void *>(wild);
  }
  void *out = nullptr;
  EXPECT_EQ(TbmAclGroupSearchByPri(nullptr, 0, &out, &out), -2);
  EXPECT_EQ(TbmAclGroupSearchByPri(address, 0, nullptr, &out), -2);
  EXPECT_EQ(TbmAclGroupSearchByPri(address, 0, &out, nullptr), -2);
  EXPECT_EQ(Search(address, 0), "10 11");
}

TEST_F(AclRulesTest, ARemovedGroupIsNoGroup) {
  const Group group = {0, 1};
  void *address = AddGroup(group);
  EXPECT_EQ(AddRule(group, 0, 10), 0);
  EXPECT_EQ(writer_->Remove(kGroupTable, group.data()), 0);
  EXPECT_EQ(Search(address, 0), "-7");
}

TEST_F(AclRulesTest, ClientsAndSnapshotsAnswerAlike) {
  const Group group = {1, 3601};
  void *address = AddGroup(group);
  EXPECT_EQ(AddRule(group, 4, 40), 0);
  const auto ask = [&](Arena *) {
    return Search(address, 4) + ", " + Search(address, 5) + ", " + Count(1, 3601);
  };
  EXPECT_EQ(AsClient(ask), "40 41, -7, 1");
  const std::string copy = Snapshot();
  EXPECT_EQ(InChild(&engine_,
                    [&] {
                      const auto arena = Arena::Attach(copy, Arena::Access::kSnapshot);
                      Arena::SetCurrent(arena.get());
                      return ask(arena.get());
                    }),
            "40 41, -7, 1");
}

TEST_F(AclRulesTest, ReadersKeepTheirRulesWhileOthersOfTheGroupComeAndGo) {
  const Group group = {0, 1};
  void *address = AddGroup(group);
  for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(AddRule(group, i, static_cast<uint8_t>(10 * i)), 0);
  Child reader(&engine_, [&]() -> std::string {
    const auto client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    for (int round = 0; round < 20000; ++round) {
      if (Search(address, 2) != "20 21") return "lost rule 2: " + Search(address, 2);
      uint32_t count = 0;
      const int32_t status = TbmAclGroupActiveRuleNum(0, 1, &count);
      if (status != 0 || count < 3 || count > 7) return std::to_string(status) + " " + std::to_string(count);
    }
    return "fine";
  });
  for (uint32_t i = 0; i < 400000; ++i) {
    const uint32_t priority = 100 + i % 4;
    if (i >= 4) {
      ASSERT_EQ(RemoveRule(group, priority), 0);
    }
    ASSERT_EQ(AddRule(group, priority, 1), 0);
  }
  EXPECT_EQ(reader.Wait(), "fine");
}

TEST(AclRulesWithoutTablesTest, SaySo) {
  void *out = nullptr;
  uint32_t count;
  EXPECT_EQ(TbmAclGroupSearchByPri(&out, 0, &out, &out), -116);
  EXPECT_EQ(TbmAclGroupActiveRuleNum(0, 0, &count), -116);
  EXPECT_EQ(TbmTblAclEntryNum(0, 24, &count, &count), -116);
}

class OtherRuleTable : public HostTest, public ::testing::WithParamInterface<void (*)(TableSpec *)> {};

TEST_P(OtherRuleTable, IsNotSupported) {
  ArenaPlan plan = TestPlan();
  GetParam()(&plan.tables[kRuleTable]);
  Start(plan);
  void *out = nullptr;
  uint32_t count = 0;
  EXPECT_EQ(TbmAclGroupSearchByPri(&out, 0, &out, &out), -6);
  EXPECT_EQ(TbmAclGroupActiveRuleNum(0, 0, &count), -6);
  EXPECT_EQ(TbmTblAclEntryNum(0, 24, &count, &count), -6);
}

INSTANTIATE_TEST_SUITE_P(Plans, OtherRuleTable,
                         ::testing::Values([](TableSpec *rules) { rules->dataSize = 0; },
                                           [](TableSpec *rules) { rules->keySize = 16; },
                                           [](TableSpec *rules) { rules->groupKeySize = 0; },
                                           [](TableSpec *rules) { rules->recordSize = 255; }));

class GroupKeyTest : public HostTest, public ::testing::WithParamInterface<uint8_t> {};

TEST_P(GroupKeyTest, ThatIsNotTheKeysBeginningInWholeWordsIsRefused) {
  ArenaPlan plan = TestPlan();
  plan.tables[kRuleTable].groupKeySize = GetParam();
  EXPECT_EQ(
      ErrorOf([&] { Arena::Create(path_, plan); }),
      "table 35 (CAP_TABLE_ACL_RULE): the key of its groups must be whole words at its keys' beginning");
}

INSTANTIATE_TEST_SUITE_P(Sizes, GroupKeyTest, ::testing::Values(4, 12, 16));

}  // namespace
}  // namespace qdt::host
