#include "host/nacm/rules.h"

#include <gtest/gtest.h>

#include <string>

#include "host/netconf/xml.h"

namespace qdt::host {
namespace {

constexpr uint8_t kAll = 31;

NacmRule Operation(const char *module, const char *name, bool permits, uint8_t accesses = kAll) {
  return {"r", module, NacmRule::What::kOperation, name, {}, accesses, permits};
}
NacmRule Data(std::vector<NacmStep> path, bool permits) {
  return {"r", "*", NacmRule::What::kData, {}, std::move(path), kAll, permits};
}

TEST(Nacm, DefaultsWithoutRules) {
  const NacmRules none;
  const NacmUser user(none, "alice");
  EXPECT_TRUE(user.MayRun("fwd", "tbl-usage", false));
  EXPECT_FALSE(user.MayRun("fwd", "reset-session", true));
  EXPECT_TRUE(user.MayReceive("fwd", "event", false));
  NacmRules closed;
  closed.execByDefault = closed.readByDefault = false;
  EXPECT_FALSE(NacmUser(closed, "alice").MayRun("fwd", "tbl-usage", false));
  EXPECT_FALSE(NacmUser(closed, "alice").MayReceive("fwd", "event", false));
  NacmRules off;
  off.enabled = false;
  EXPECT_TRUE(NacmUser(off, "alice").MayRun("fwd", "reset-session", true));
}

TEST(Nacm, TheFirstRuleThatFitsDecides) {
  NacmRules rules;
  rules.groups = {{"a", {"alice"}}, {"b", {"bob", "alice"}}};
  rules.lists = {
      {"1", {"a"}, {Operation("fwd", "reset-session", true), Operation("fwd", "*", false)}},
      {"2", {"*"}, {Operation("*", "perf-mode-set", true), Operation("fwd", "tbl-usage", true, 15)}}};
  const NacmUser alice(rules, "alice"), bob(rules, "bob"), eve(rules, "eve");
  EXPECT_TRUE(alice.MayRun("fwd", "reset-session", true));
  EXPECT_FALSE(alice.MayRun("fwd", "perf-mode-set", true));
  EXPECT_FALSE(alice.MayRun("fwd", "tbl-usage", false));
  EXPECT_TRUE(alice.MayRun("other", "perf-mode-set", true));
  EXPECT_FALSE(bob.MayRun("fwd", "reset-session", true));
  EXPECT_TRUE(bob.MayRun("fwd", "perf-mode-set", true));
  EXPECT_FALSE(eve.MayRun("fwd", "perf-mode-set", true)) << "a user of no group has no rules";
  rules.execByDefault = false;
  EXPECT_FALSE(NacmUser(rules, "bob").MayRun("fwd", "tbl-usage", false))
      << "a rule that is not about execution";
}

const NacmUser::Schema kSchema{
    [](std::string_view space) { return std::string(space == "u" ? "fwd" : "other"); },
    [](const XmlElement &node) { return node.name == "secret"; }};

std::string Left(const NacmRules &rules, const char *user, const char *xml) {
  const auto root = ReadXml(xml);
  if (!NacmUser(rules, user).Prune(kSchema, root.get())) return "nothing";
  std::string text;
  AppendXml(*root, "u", &text);
  return text;
}

constexpr char kTree[] =
    "<top xmlns='u'><list><id>1</id><x>a</x></list><list><id>2</id><x>b</x></list><secret>s</secret></top>";

TEST(Nacm, WhatMayNotBeReadIsLeftOut) {
  NacmRules rules;
  EXPECT_EQ(Left(rules, "eve", kTree),
            "<top><list><id>1</id><x>a</x></list><list><id>2</id><x>b</x></list></top>");
  rules.groups = {{"a", {"alice"}}, {"b", {"bob"}}, {"c", {"carol"}}};
  rules.lists = {{"1", {"a"}, {Data({{"fwd", "top", {}}, {"fwd", "list", {{"id", "1"}}}}, false)}},
                 {"2",
                  {"b"},
                  {Data({{"fwd", "top", {}}, {"fwd", "list", {}}, {"fwd", "x", {}}}, false), Data({}, true)}},
                 {"3", {"c"}, {Data({{"fwd", "top", {}}}, false)}}};
  EXPECT_EQ(Left(rules, "alice", kTree), "<top><list><id>2</id><x>b</x></list></top>");
  EXPECT_EQ(Left(rules, "bob", kTree),
            "<top><list><id>1</id></list><list><id>2</id></list><secret>s</secret></top>");
  EXPECT_EQ(Left(rules, "carol", kTree), "nothing");
  EXPECT_TRUE(NacmUser(rules, "alice").LooksInto("fwd"));
  EXPECT_FALSE(NacmUser(rules, "carol").LooksInto("fwd"));
}

}  // namespace
}  // namespace qdt::host
