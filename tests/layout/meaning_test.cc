// What the built-in layouts say of their tables, regions and fields, from which schemas, searches and checks
// are made.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"

namespace qdt::host {
namespace {

using Visit = std::function<void(const std::string &path, const Field &field, const FieldSet &beside)>;

void ForEachField(const std::string &path, const FieldSet &fields, const Visit &visit) {
  for (const Field &field : fields.all()) {
    const std::string name = path + "." + std::string(field.name);
    visit(name, field, fields);
    ForEachField(name, field.fields, visit);
  }
}

// Calls `visit` with each field of all keys, records, regions and views, structures before what is in them.
void ForEachField(const Visit &visit) {
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    ForEachField(std::string(table.shortName) + ".key", table.key, visit);
    ForEachField(std::string(table.shortName), table.fields, visit);
  }
  for (const RegionLayout &region : Layout::BuiltIn().regions())
    ForEachField(std::string(region.spec.name), region.fields, visit);
  for (const ViewLayout &view : Layout::BuiltIn().views())
    ForEachField(std::string(view.name), view.fields, visit);
}

// "arp.fwd_if_index" and such; structures are named like values.
const Field &FieldAt(std::string_view wanted) {
  static const Field none;
  const Field *found = &none;
  ForEachField([&](const std::string &path, const Field &field, const FieldSet &) {
    if (path == wanted) found = &field;
  });
  EXPECT_NE(found, &none) << wanted << " is not there";
  return *found;
}

// One line that does not end in a full stop, and without blanks around it.
bool IsMeaning(std::string_view about) {
  return !about.empty() && about.front() != ' ' && about.back() != ' ' && about.back() != '.' &&
         about.find('\n') == about.npos;
}

std::vector<const Field *> FreeKeyFields(std::string_view tableName) {
  const TableLayout *table = Layout::BuiltIn().FindTable(tableName);
  std::vector<const Field *> fields;
  if (table == nullptr) return fields;
  for (const Field &field : table->key.all()) {
    if (!field.constant) fields.push_back(&field);
  }
  return fields;
}

TEST(MeaningTest, TablesAndRegionsSayWhatTheyHold) {
  EXPECT_EQ(Layout::BuiltIn().tables().size(), 109u);
  for (const TableLayout &table : Layout::BuiltIn().tables())
    EXPECT_TRUE(IsMeaning(table.about))
        << table.place << ": " << table.shortName << ": \"" << table.about << '"';
  EXPECT_GT(Layout::BuiltIn().regions().size(), 0u);
  for (const RegionLayout &region : Layout::BuiltIn().regions())
    EXPECT_TRUE(IsMeaning(region.about))
        << region.place << ": " << region.spec.name << ": \"" << region.about << '"';
  for (const ViewLayout &view : Layout::BuiltIn().views()) {
    EXPECT_TRUE(view.fields.empty() || IsMeaning(view.about))
        << view.place << ": " << view.name << ": \"" << view.about << '"';
  }
}

TEST(MeaningTest, FieldsAndStructuresSayWhatTheyMean) {
  uint32_t count = 0;
  ForEachField([&](const std::string &path, const Field &field, const FieldSet &) {
    EXPECT_TRUE(IsMeaning(field.about)) << path << ": \"" << field.about << '"';
    ++count;
  });
  EXPECT_GT(count, 1200u);
}

// A key's field and the record's field of the same name are filled from one value, and so lead to one table.
TEST(MeaningTest, KeysAgreeWithTheirRecords) {
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    for (const Field &key : table.key.all()) {
      const Field *twin = table.fields.Find(key.name);
      if (twin == nullptr) continue;
      EXPECT_EQ(key.leadsTo, twin->leadsTo) << table.shortName << "." << key.name;
      EXPECT_EQ(key.mustLead, twin->mustLead) << table.shortName << "." << key.name;
      EXPECT_EQ(key.unit, twin->unit) << table.shortName << "." << key.name;
    }
  }
}

// A number leads to the one entry whose key it is; that key itself leads nowhere.
TEST(MeaningTest, NumbersLeadToTablesOfOneNumber) {
  ForEachField([](const std::string &path, const Field &field, const FieldSet &) {
    if (field.leadsTo.empty()) return;
    EXPECT_EQ(FormOf(field.ref.kind), ValueForm::kNumber) << path;
    const std::vector<const Field *> key = FreeKeyFields(field.leadsTo);
    ASSERT_EQ(key.size(), 1u) << path << " leads to " << field.leadsTo;
    EXPECT_EQ(FormOf(key[0]->ref.kind), ValueForm::kNumber) << path << " leads to " << field.leadsTo;
    EXPECT_NE(path, std::string(field.leadsTo) + ".key." + std::string(key[0]->name));
  });
}

// As many fields stand beside a reference as each table that it can lead to has in its key.
TEST(MeaningTest, ReferencesAgreeWithWholeKeys) {
  ForEachField([](const std::string &path, const Field &field, const FieldSet &beside) {
    if (field.agreesWith.empty()) return;
    for (const std::string_view target : field.targets) {
      const std::vector<const Field *> key = FreeKeyFields(target);
      ASSERT_EQ(key.size(), field.agreesWith.size()) << path << " to " << target;
      for (size_t i = 0; i < key.size(); ++i) {
        const Field *says = beside.Find(field.agreesWith[i]);
        ASSERT_NE(says, nullptr) << path;
        EXPECT_EQ(FormOf(says->ref.kind), FormOf(key[i]->ref.kind)) << path << " with " << says->name;
      }
    }
  });
}

// No array is counted by two numbers.
TEST(MeaningTest, ArraysAreCountedOnce) {
  std::vector<std::string> counted;
  ForEachField([&](const std::string &path, const Field &field, const FieldSet &) {
    if (field.counts.empty()) return;
    counted.push_back(path.substr(0, path.rfind('.') + 1) + std::string(field.counts));
  });
  std::ranges::sort(counted);
  EXPECT_EQ(std::ranges::adjacent_find(counted), counted.end());
  const std::vector<std::string> expected = {"PKT_TRACE_CTX_PTR.stations",
                                             "buf_cache_stat.tasks",
                                             "capwap_tunnel.encap_data",
                                             "eaplog_info.items",
                                             "fwdif.l1_services",
                                             "fwdif.l3_services",
                                             "ipv6_nhp.fwdifs",
                                             "ipv6_nhp_group.nhp_indexes",
                                             "ipv6_nhp_group.primary_nhp_indexes",
                                             "nhp.encap_data",
                                             "nhp.fwdifs",
                                             "nhp.l1_services",
                                             "nhp.l3_services",
                                             "nhp_group.nhp_indexes",
                                             "nhp_group.primary_nhp_indexes",
                                             "trunk.members"};
  EXPECT_EQ(counted, expected);
}

TEST(MeaningTest, CountersAndClocks) {
  const Field &bytes = FieldAt("fwdif.counters.in_bytes");
  EXPECT_EQ(bytes.role, FieldRole::kCounter);
  EXPECT_EQ(bytes.unit, "bytes");
  EXPECT_EQ(bytes.about, "bytes received");

  const Field &dropped = FieldAt("cpcar_pro.drop_packets");
  EXPECT_EQ(dropped.role, FieldRole::kCounter);
  EXPECT_EQ(dropped.unit, "packets");
  EXPECT_EQ(dropped.clearedBy, "cpcar");
  EXPECT_EQ(dropped.about, "packets that were dropped");

  const Field &created = FieldAt("arp_miss_cache.create_time");
  EXPECT_EQ(created.role, FieldRole::kClock);
  EXPECT_EQ(created.unit, "s");
  EXPECT_EQ(created.about, "time since when the packet waits, seconds of the monotonic clock");

  const Field &aging = FieldAt("session.aging_time");
  EXPECT_EQ(aging.role, FieldRole::kState);
  EXPECT_EQ(aging.unit, "s");
}

TEST(MeaningTest, WhereNumbersLead) {
  const Field &mapped = FieldAt("ctrlif_map_fwdif.fwd_if_index");
  EXPECT_EQ(mapped.leadsTo, "fwdif");
  EXPECT_TRUE(mapped.mustLead);

  const Field &ingress = FieldAt("session.ingress");
  EXPECT_EQ(ingress.leadsTo, "fwdif");
  EXPECT_FALSE(ingress.mustLead);

  EXPECT_EQ(FieldAt("arp.ctrl_if_index").leadsTo, "ctrlif_map_fwdif");
  EXPECT_EQ(FieldAt("fwdif.flow_if_index").leadsTo, "flowif_map_fwdif");
  EXPECT_EQ(FieldAt("usf_user.peer_id").leadsTo, "usf_map_fwdif");
  EXPECT_EQ(FieldAt("vlan_bitmap.key.if_index").leadsTo, "fwdif");
  EXPECT_EQ(FieldAt("nhp_group.nhp_indexes").leadsTo, "nhp");
  EXPECT_EQ(FieldAt("hsec_global_cfg.mac_car_ids").leadsTo, "car");
  EXPECT_EQ(FieldAt("sac_profile.applications.app_id").leadsTo, "sac_app_mapping");
  EXPECT_EQ(FieldAt("PKT_TRACE_CTX_PTR.src_fwd_if_index").leadsTo, "fwdif");
  EXPECT_EQ(FieldAt("fwdif.if_index").leadsTo, "");
}

TEST(MeaningTest, WhatReferencesAgreeWith) {
  using Names = std::vector<std::string_view>;
  const auto agrees = [](std::string_view path) {
    const auto names = FieldAt(path).agreesWith;
    return Names(names.begin(), names.end());
  };
  EXPECT_EQ(agrees("fwdif.l1_services.acl_group"), (Names{"acl_group_type", "acl_group_id"}));
  EXPECT_EQ(agrees("nhp.l1_services.acl_group"), (Names{"acl_group_type", "acl_group_id"}));
  EXPECT_EQ(agrees("nhp.l3_services.fwdif"), Names{"fwd_if_index"});
  EXPECT_EQ(agrees("fib.next_hop"), Names{"nhp_index"});
  EXPECT_EQ(agrees("nhp_group.primary_next_hops"), Names{"primary_nhp_indexes"});
  // Layer-3 services of interfaces name a group that the engine need not have bound.
  EXPECT_EQ(agrees("fwdif.l3_services.acl_group"), Names{});
}

TEST(MeaningTest, WhatIsSaidOfWholes) {
  EXPECT_EQ(Layout::BuiltIn().FindTable("arp")->about, "IPv4 neighbours and their MAC addresses");
  EXPECT_EQ(Layout::BuiltIn().FindTable("gre_tunnel")->about, "GRE tunnels");
  EXPECT_EQ(Layout::BuiltIn().FindRegion("IP_REASS_CTX_PTR")->about,
            "IPv4 packets that wait for their fragments");
  EXPECT_EQ(FieldAt("session.positive6").about, "Key of the initiator's packets, IPv6");
  EXPECT_EQ(FieldAt("acl_rule.l2_ipv4.mask.ipv4").about, "IPv4 and layer-4 fields");
  EXPECT_EQ(FieldAt("dhcp_snooping_bind.protocol").about,
            "how the address was obtained, 0 DHCP, 1 DHCPv6, above neighbour discovery");
}

}  // namespace
}  // namespace qdt::host
