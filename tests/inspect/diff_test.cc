// What two arenas have differently.

#include "host/inspect/diff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/error_of.h"
#include "tests/host/temp_dir.h"
#include "tests/inspect/lab_arena.h"

namespace qdt::host {
namespace {

class DiffTest : public testing::Test {
 protected:
  std::string File(const std::string &name) const { return dir_.File(name); }

  static std::string Compare(const RecordSource &from, const RecordSource &to, const DiffRequest &request) {
    StringOut out;
    const DiffResult result = RunDiff(from, to, request, MakeDiffLines(&out).get());
    const std::string lines = out.Take();
    EXPECT_EQ(result.count, static_cast<uint64_t>(std::ranges::count(lines, '\n')));
    return lines + result.aside;
  }

  std::string Compare(const LabArena &from, const LabArena &to, Volatile volatiles = Volatile::kIgnored) {
    DiffRequest request = DiffRequest::Whole(Layout::BuiltIn());
    request.volatiles = volatiles;
    return Compare(*from.Source(), *to.Source(), request);
  }

  // The lines that tell the second scenario from the first.
  std::string Compare(const std::string &from, const std::string &to,
                      Volatile volatiles = Volatile::kIgnored) {
    const LabArena a(File("a"), from);
    const LabArena b(File("b"), to);
    return Compare(a, b, volatiles);
  }

  std::string Json(const std::string &from, const std::string &to) {
    const LabArena a(File("a"), from);
    const LabArena b(File("b"), to);
    StringOut out;
    RunDiff(*a.Source(), *b.Source(), DiffRequest::Whole(Layout::BuiltIn()), MakeDiffJson(&out).get());
    return out.Take();
  }

  TempDir dir_;
};

TEST_F(DiffTest, EqualArenasHaveNoLines) {
  const std::string scenario =
      "arp: [{next_hop: 192.0.2.7, vpn: 0, dmac: 02:00:5e:00:00:01, valid: 1}]\n"
      "nhp: [{index: 5, next_hop: 192.0.2.7}]\n"
      "fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 5}}}]\n";
  EXPECT_EQ(Compare(scenario, scenario), "");
  EXPECT_EQ(Compare(scenario, scenario, Volatile::kCompared), "");
  EXPECT_EQ(Json(scenario, scenario), "{\"diff\":[],\"count\":0}\n");
}

TEST_F(DiffTest, EntriesComeGoAndChange) {
  const std::string before =
      "arp:\n"
      "  - {next_hop: 192.0.2.7, vpn: 0, dmac: 02:00:5e:00:00:01, valid: 1, vlan_id: 10}\n"
      "  - {next_hop: 192.0.2.8, vpn: 3, dmac: 02:00:5e:00:00:03}\n"
      "fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0}]\n";
  // The same entries in another order are the same.
  const std::string after =
      "arp:\n"
      "  - {next_hop: 192.0.2.8, vpn: 3, dmac: 02:00:5e:00:00:03}\n"
      "  - {next_hop: 192.0.2.9, vpn: 3, dmac: 02:00:5e:00:00:04}\n"
      "  - {next_hop: 192.0.2.7, vpn: 0, dmac: 02:00:5e:00:00:02, vlan_id: 10}\n";
  EXPECT_EQ(Compare(before, after),
            "- fib prefix=24 vpn=0 destination=192.0.2.0\n"
            "~ arp vpn=0 next_hop=192.0.2.7: valid true -> false, dmac 02:00:5e:00:00:01 -> "
            "02:00:5e:00:00:02\n"
            "+ arp vpn=3 next_hop=192.0.2.9\n");
  EXPECT_EQ(Json(before, after),
            "{\"diff\":["
            "{\"table\":\"fib\",\"id\":1,\"change\":\"removed\",\"key\":{\"prefix\":24,\"vpn\":0,"
            "\"destination\":\"192.0.2.0\"}},"
            "{\"table\":\"arp\",\"id\":4,\"change\":\"changed\",\"key\":{\"vpn\":0,\"next_hop\":"
            "\"192.0.2.7\"},\"fields\":{\"valid\":{\"from\":true,\"to\":false},\"dmac\":{\"from\":"
            "\"02:00:5e:00:00:01\",\"to\":\"02:00:5e:00:00:02\"}}},"
            "{\"table\":\"arp\",\"id\":4,\"change\":\"added\",\"key\":{\"vpn\":3,\"next_hop\":"
            "\"192.0.2.9\"}}],\"count\":3}\n");
}

TEST_F(DiffTest, CountersAndTimesOnlyWhenAsked) {
  const std::string before =
      "fwdif: [{if_index: 5, mtu: 1500, counters: [{in_bytes: 7}]}]\n"
      "session: [{index: 1, valid: 1, aging_time: 600, created: 100000}]\n";
  const std::string after =
      "fwdif: [{if_index: 5, mtu: 1500, counters: [{in_bytes: 7}, {}, {in_packets: 9}]}]\n"
      "session: [{index: 1, valid: 1, aging_time: 600, created: 500000}]\n";
  EXPECT_EQ(Compare(before, after), "");
  const std::string lines = Compare(before, after, Volatile::kCompared);
  // A second that has begun between the two shows in another of the session's times, before this one.
  EXPECT_TRUE(
      lines.starts_with("~ fwdif if_index=5: counters[2].in_packets 0 -> 9\n"
                        "~ session index=1: "))
      << lines;
  EXPECT_NE(lines.find("created 10000"), std::string::npos) << lines;
}

TEST_F(DiffTest, ReferencesAreWhatTheyLeadTo) {
  // The next hop stands elsewhere in the other arena.
  const std::string before =
      "nhp: [{index: 5}, {index: 6}]\n"
      "nhp_group: [{index: 7}]\n"
      "fib:\n"
      "  - {prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 5}}}\n"
      "  - {prefix: 24, vpn: 0, destination: 198.51.100.0, next_hop: {nhp: {index: 6}}}\n"
      "  - {prefix: 25, vpn: 0, destination: 198.51.100.0}\n";
  const std::string after =
      "nhp: [{index: 6}, {index: 5}]\n"
      "nhp_group: [{index: 7}]\n"
      "fib:\n"
      "  - {prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 5}}}\n"
      "  - {prefix: 24, vpn: 0, destination: 198.51.100.0, next_hop: {nhp_group: {index: 7}}}\n"
      "  - {prefix: 25, vpn: 0, destination: 198.51.100.0, next_hop: {nhp: {index: 5}}}\n";
  EXPECT_EQ(Compare(before, after),
            "~ fib prefix=24 vpn=0 destination=198.51.100.0: next_hop nhp/6 -> nhp_group/7\n"
            "~ fib prefix=25 vpn=0 destination=198.51.100.0: next_hop none -> nhp/5\n");
}

TEST_F(DiffTest, StaleReferencesAreAlikeWhereverTheyLead) {
  const std::string scenario =
      "nhp: [{index: 4}, {index: 5}, {index: 6}]\n"
      "fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 5}}}]\n";
  const std::string other =
      "nhp: [{index: 5}]\n"
      "fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 5}}}]\n";
  const LabArena a(File("a"), scenario);
  const LabArena b(File("b"), other);
  const uint32_t nhp = Layout::BuiltIn().FindTable("nhp")->spec.id;
  const uint32_t five = 5;
  ASSERT_EQ(a.writer()->Remove(nhp, &five), 0);
  EXPECT_EQ(Compare(a, b),
            "~ fib prefix=24 vpn=0 destination=192.0.2.0: next_hop nhp/stale -> nhp/5\n"
            "- nhp index=4\n"
            "- nhp index=6\n"
            "+ nhp index=5\n");
  ASSERT_EQ(b.writer()->Remove(nhp, &five), 0);
  EXPECT_EQ(Compare(a, b),
            "- nhp index=4\n"
            "- nhp index=6\n");
}

TEST_F(DiffTest, AttachedPartsByPresenceAndContent) {
  const std::string before =
      "session:\n"
      "  - {index: 1, valid: 1, positive: {source: 192.0.2.1, source_port: 5}}\n"
      "  - {index: 2, valid: 1, positive: {source: 192.0.2.1, source_port: 5}}\n"
      "  - {index: 3, valid: 1, is_ipv6: 1, positive6: {source: \"2001:db8::1\"}}\n"
      "  - {index: 4, valid: 1, tcp: {hold_count: 7, cwnd: 9}}\n";
  const std::string after =
      "session:\n"
      "  - {index: 1, valid: 1, positive: {source: 192.0.2.1, source_port: 6}}\n"
      "  - {index: 2, valid: 1}\n"
      "  - {index: 3, valid: 1, is_ipv6: 1, positive6: {source: \"2001:db8::1\"}, sac: {app_id: 3}}\n"
      "  - {index: 4, valid: 1, tcp: {hold_count: 8, cwnd: 9}}\n";
  EXPECT_EQ(Compare(before, after),
            "~ session index=1: positive.source_port 5 -> 6\n"
            "~ session index=2: positive present -> absent\n"
            "~ session index=3: sac absent -> present\n");
  EXPECT_EQ(Json("session: [{index: 2, valid: 1, positive: {source: 192.0.2.1, source_port: 5}}]\n",
                 "session: [{index: 2, valid: 1}]\n"),
            "{\"diff\":[{\"table\":\"session\",\"id\":65,\"change\":\"changed\",\"key\":{\"index\":2},"
            "\"fields\":{\"positive\":{\"from\":{\"source\":\"192.0.2.1\",\"destination\":\"0.0.0.0\","
            "\"source_port\":5,\"destination_port\":0,\"protocol\":0,\"vpn\":0},\"to\":null}}}],"
            "\"count\":1}\n");
}

TEST_F(DiffTest, VariantsOfTheKey) {
  const std::string groups =
      "acl_group:\n"
      "  - {group_type: 2, group_id: 4001, instance_id: 1, data_group_id: 4001, data_group_type: 2}\n"
      "  - {group_type: 0, group_id: 3001, instance_id: 2, data_group_id: 3001, data_group_type: 0}\n";
  EXPECT_EQ(Compare(groups + "acl_rule:\n"
                             "  - {group_type: 2, group_id: 4001, priority: 0, action: {deny: 1},\n"
                             "     l2: {key: {smac: 02:00:5e:10:00:99}}}\n",
                    groups + "acl_rule:\n"
                             "  - {group_type: 2, group_id: 4001, priority: 0, action: {deny: 1},\n"
                             "     l2: {key: {smac: 02:00:5e:10:00:98}}}\n"),
            "~ acl_rule group_type=2 group_id=4001 priority=0: l2.key.smac 02:00:5e:10:00:99 -> "
            "02:00:5e:10:00:98\n");
}

TEST_F(DiffTest, BytesOfNoFieldDoNotCount) {
  const std::string scenario =
      "web_proxy_portal: [{index: 1, port: 80, url: \"http://a\"}]\n"
      "fwdif: [{if_index: 5}]\n";
  const LabArena a(File("a"), scenario);
  const LabArena b(File("b"), scenario);
  const uint32_t one = 1;
  uint8_t *record = b.Record("web_proxy_portal", &one);
  ASSERT_NE(record, nullptr);
  record[4 + 20] = 'x';  // behind the text's NUL
  record[2] = 7;         // between the port and the text
  EXPECT_EQ(Compare(a, b), "");
  record[4 + 8] = 'b';
  record[4 + 9] = '\t';
  EXPECT_EQ(Compare(a, b), "~ web_proxy_portal index=1: url \"http://a\" -> \"http://ab\\x09\"\n");
}

// The record of a next hop does not repeat its key; that of an address of a port does.
TEST_F(DiffTest, WhatARecordSaysBesideItsKey) {
  const std::string scenario = "session: [{index: 3, valid: 1}]\n";
  const LabArena a(File("a"), scenario);
  const LabArena b(File("b"), scenario);
  const uint32_t three = 3;
  b.Record("session", &three)[0] = 4;
  EXPECT_EQ(Compare(a, b), "~ session index=3: record.index 3 -> 4\n");
}

TEST_F(DiffTest, TablesWithSeveralEntriesAKey) {
  const auto list = [](const std::vector<int> &interfaces) {
    std::string text = "ssw_boardcast:\n  - {bridge_id: 1, vlan_id: 9, fwd_if_index: 1}\n";
    for (const int i : interfaces)
      text += "  - {bridge_id: 1, vlan_id: 10, fwd_if_index: " + std::to_string(i) + "}\n";
    return text;
  };
  EXPECT_EQ(Compare(list({1, 2, 3}), list({1, 2, 3})), "");
  EXPECT_EQ(Compare(list({1, 2, 2, 3}), list({2, 3, 1, 2})), "");
  EXPECT_EQ(Compare(list({1, 2, 3, 4}), list({2, 3, 4})), "- ssw_boardcast bridge_id=1 vlan_id=10\n");
  EXPECT_EQ(Compare(list({2, 2}), list({2, 2, 2})), "+ ssw_boardcast bridge_id=1 vlan_id=10\n");
  EXPECT_EQ(Compare(list({1, 2, 3}), list({1, 7, 3})),
            "~ ssw_boardcast bridge_id=1 vlan_id=10: fwd_if_index 2 -> 7\n");
  EXPECT_EQ(Compare(list({}), list({5})), "+ ssw_boardcast bridge_id=1 vlan_id=10\n");
  EXPECT_EQ(Compare(list({5, 6}), list({})),
            "- ssw_boardcast bridge_id=1 vlan_id=10\n- ssw_boardcast bridge_id=1 vlan_id=10\n");
}

// More entries of one key than are held against each other at a time.
TEST_F(DiffTest, ManyEntriesOfOneKey) {
  const std::string head = "ssw_boardcast:\n";
  const std::string odd = "  - {bridge_id: 1, vlan_id: 10, fwd_if_index: 9}\n";
  const std::string many =
      "  - {repeat: 3000, bridge_id: 1, vlan_id: 10, fwd_if_index: {from: 100, step: 1}}\n";
  EXPECT_EQ(Compare(head + many, head + many), "");
  EXPECT_EQ(Compare(head + odd + many, head + many), "- ssw_boardcast bridge_id=1 vlan_id=10\n");
  EXPECT_EQ(Compare(head + many + odd, head + odd + many), "");
  const std::string others =
      "  - {repeat: 3000, bridge_id: 1, vlan_id: 10, fwd_if_index: {from: 9000, step: 1}}\n";
  const std::string lines = Compare(head + many, head + others);
  EXPECT_EQ(std::ranges::count(lines, '\n'), 3000);
  EXPECT_TRUE(lines.starts_with("~ ssw_boardcast bridge_id=1 vlan_id=10: fwd_if_index 100 -> 9000\n"));
  EXPECT_TRUE(lines.ends_with("~ ssw_boardcast bridge_id=1 vlan_id=10: fwd_if_index 3099 -> 11999\n"));
}

TEST_F(DiffTest, Regions) {
  const std::string before =
      "regions:\n"
      "  IPP_SESSION_AGING_TIME: {tcp: 600}\n"
      "  PKT_TRACE_CTX_PTR: {trace_stations: 1, from_driver: 5}\n";
  const std::string after =
      "regions:\n"
      "  IPP_SESSION_AGING_TIME: {tcp: 300, icmp: 7}\n"
      "  APP_SESSION_AGING_TIME: {apps: {2: {ttl: 15}}}\n"
      "  PKT_TRACE_CTX_PTR: {trace_stations: 1, from_driver: 9}\n";
  EXPECT_EQ(Compare(before, after),
            "~ IPP_SESSION_AGING_TIME: tcp 600 -> 300, icmp 0 -> 7\n"
            "~ APP_SESSION_AGING_TIME: apps[2].ttl 0 -> 15\n");
  EXPECT_EQ(Compare(before, before, Volatile::kCompared), "");
  EXPECT_NE(Compare(before, after, Volatile::kCompared).find("~ PKT_TRACE_CTX_PTR: from_driver 5 -> 9\n"),
            std::string::npos);
  EXPECT_EQ(
      Json(before, "regions: {IPP_SESSION_AGING_TIME: {tcp: 1}, PKT_TRACE_CTX_PTR: {trace_stations: 1}}"),
      "{\"diff\":[{\"region\":\"IPP_SESSION_AGING_TIME\",\"change\":\"changed\",\"fields\":{\"tcp\":"
      "{\"from\":600,\"to\":1}}}],\"count\":1}\n");
}

TEST_F(DiffTest, OnlyWhatIsNamed) {
  const LabArena a(File("a"), "arp: [{next_hop: 192.0.2.7, vpn: 0}]\nnhp: [{index: 5}]\n");
  const LabArena b(File("b"), "regions: {IPP_SESSION_AGING_TIME: {tcp: 600}}");
  DiffRequest request;
  request.Add(Layout::BuiltIn(), "nhp");
  request.Add(Layout::BuiltIn(), "IPP_SESSION_AGING_TIME");
  EXPECT_EQ(Compare(*a.Source(), *b.Source(), request),
            "- nhp index=5\n~ IPP_SESSION_AGING_TIME: tcp 0 -> 600\n");
  EXPECT_EQ(ErrorOf([&] { request.Add(Layout::BuiltIn(), "nhpp"); }),
            "unknown table \"nhpp\" (did you mean nhp?)");
  EXPECT_EQ(ErrorOf([&] { request.Add(Layout::BuiltIn(), "FAST_STAT_SSMAP_PTR"); }),
            "nothing is known of the fields of FAST_STAT_SSMAP_PTR, so that it cannot be compared");
}

TEST_F(DiffTest, ATableThatOneLacks) {
  const uint32_t nhp = Layout::BuiltIn().FindTable("nhp")->spec.id;
  const LabArena a(File("a"), "nhp: [{index: 5}]\n");
  const LabArena b(File("b"), "arp: [{next_hop: 192.0.2.7, vpn: 0}]\n", [&](ArenaPlan *plan) {
    plan->tables[nhp].dataSize = 0;
    std::erase_if(plan->regions,
                  [](const RegionSpec &region) { return region.name == "IPP_SESSION_AGING_TIME"; });
  });
  EXPECT_EQ(Compare(a, b), "- nhp index=5\n+ arp vpn=0 next_hop=192.0.2.7\n- IPP_SESSION_AGING_TIME\n" +
                               File("b") + " has no nhp; all that the other has is a difference\n" +
                               File("b") +
                               " has no IPP_SESSION_AGING_TIME; all that the other has is a difference\n");
}

TEST_F(DiffTest, OtherLayoutsAreRefusedBeforeAnythingIsSaid) {
  const uint32_t arp = Layout::BuiltIn().FindTable("arp")->spec.id;
  const LabArena a(File("a"), "fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0}]\n");
  const LabArena wider(File("b"), "{}", [&](ArenaPlan *plan) { plan->tables[arp].recordSize += 8; });
  const LabArena larger(File("c"), "{}", [&](ArenaPlan *plan) {
    for (RegionSpec &region : plan->regions) {
      if (region.name == "IPP_SESSION_AGING_TIME") region.size = 8;
    }
  });
  StringOut out;
  const DiffRequest all = DiffRequest::Whole(Layout::BuiltIn());
  EXPECT_EQ(ErrorOf([&] { RunDiff(*a.Source(), *wider.Source(), all, MakeDiffJson(&out).get()); }),
            "the table arp of " + File("b") +
                " was made with another layout (its engine has nqed --layout; ask with show)");
  EXPECT_EQ(ErrorOf([&] { RunDiff(*a.Source(), *larger.Source(), all, MakeDiffJson(&out).get()); }),
            "the region IPP_SESSION_AGING_TIME of " + File("c") +
                " was made with another layout (its engine has nqed --layout)");
  EXPECT_EQ(out.Take(), "");
}

// A key under which an entry has the structure.
std::vector<uint8_t> KeyWith(const TableLayout &table, const Field *part) {
  std::vector<uint8_t> key(table.spec.keySize);
  for (const Field &field : table.key.all()) {
    if (field.constant) field.ref.Write(key.data(), *field.constant);
  }
  if (part != nullptr && !part->selector.empty())
    table.key.Find(part->selector)->ref.Set(key.data(), part->selectedBy.front());
  return key;
}

// Puts an entry into the arena that has the structure.
void InsertWith(const LabArena &lab, const TableLayout &table, const Field *part, const uint8_t *key,
                std::vector<uint8_t> record) {
  if (part != nullptr && !part->chosenBy.empty())
    table.fields.Find(part->chosenBy)->ref.Set(record.data(), part->chosenValue);
  ASSERT_EQ(lab.writer()->Insert(table.spec.id, key, record.data(), nullptr), 0) << table.shortName;
  if (part == nullptr || part->pointer == 0) return;
  uint8_t *stored = lab.Record(table.shortName, key);
  const uint64_t address = reinterpret_cast<uint64_t>(stored) + part->ref.offset;
  std::memcpy(stored + part->pointer, &address, sizeof(address));
}

// What stands for a field that is all zero and one that has the lowest bit, or the text x.
std::string FromNothingToOne(const FieldRef &ref) {
  switch (FormOf(ref.kind)) {
    case ValueForm::kIpv4:
      return "0.0.0.0 -> 0.0.0.1";
    case ValueForm::kIpv6:
      return ":: -> ::1";
    case ValueForm::kMac:
      return "00:00:00:00:00:00 -> 00:00:00:00:00:01";
    case ValueForm::kText:
      return "\"\" -> \"x\"";
    default:
      return ref.Width() == 1 ? "false -> true" : "0 -> 1";
  }
}

// Every value of every table, one at a time: what is changed is told, by its own name and no other.
TEST_F(DiffTest, EveryFieldOfEveryTable) {
  const LabArena a(File("a"), "{}");
  const LabArena b(File("b"), "{}");
  const auto from = a.Source();
  const auto to = b.Source();
  uint32_t told = 0;
  uint32_t ofParts = 0;
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty()) continue;
    DiffRequest request;
    request.tables = {&table};
    for (const Leaf &leaf : LeavesOf(table)) {
      if (leaf.inKey || leaf.ref.kind == FieldKind::kReference) continue;
      const std::vector<uint8_t> key = KeyWith(table, leaf.part);
      std::vector<uint8_t> record(table.spec.StoredSize());
      InsertWith(a, table, leaf.part, key.data(), record);
      leaf.ref.kind == FieldKind::kText ? leaf.ref.SetText(record.data(), "x")
                                        : leaf.ref.Write(record.data(), 1);
      InsertWith(b, table, leaf.part, key.data(), record);
      const std::string lines = Compare(*from, *to, request);
      const bool isState = leaf.field->role == FieldRole::kState && !IsTimeAgo(leaf.ref.kind);
      const std::string name = std::string(table.shortName) + "." + leaf.path;
      EXPECT_EQ(lines.empty(), !isState) << name << "\n" << lines;
      if (isState) {
        EXPECT_NE(lines.find(" " + leaf.path + " " + FromNothingToOne(leaf.ref)), std::string::npos)
            << name << "\n"
            << lines;
        // Structures of one key may share bytes.
        if (leaf.part == nullptr) {
          EXPECT_EQ(lines.find(", "), std::string::npos) << name << "\n" << lines;
        }
        ++told;
        if (leaf.part != nullptr) ++ofParts;
      }
      ASSERT_EQ(a.writer()->Remove(table.spec.id, key.data()), 0);
      ASSERT_EQ(b.writer()->Remove(table.spec.id, key.data()), 0);
    }
  }
  EXPECT_GT(told, 1000u);
  EXPECT_GT(ofParts, 100u);
}

}  // namespace
}  // namespace qdt::host
