#include "host/layout/layout.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <tuple>

#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

struct Shape {
  uint32_t id;
  const char *shortName;
  uint16_t keySize;
  uint32_t recordSize;
  Lookup lookup;
};

// The engine's tables as its records and keys are described.
constexpr Shape kShapes[] = {
    {0, "global", 4, 14672, Lookup::kUnique},
    {1, "fib", 8, 16, Lookup::kPrefix4},
    {2, "nhp", 4, 608, Lookup::kUnique},
    {3, "nhp_group", 4, 784, Lookup::kUnique},
    {4, "arp", 8, 44, Lookup::kUnique},
    {5, "ipv6_fib", 20, 16, Lookup::kPrefix6},
    {6, "ipv6_nhp", 4, 72, Lookup::kUnique},
    {7, "ipv6_nhp_group", 4, 784, Lookup::kUnique},
    {8, "nd", 20, 56, Lookup::kUnique},
    {11, "ctrlif_map_fwdif", 4, 16, Lookup::kUnique},
    {12, "flowif_map_fwdif", 4, 16, Lookup::kUnique},
    {13, "trunk", 4, 1032, Lookup::kUnique},
    {14, "portip_head", 4, 8, Lookup::kUnique},
    {15, "portip", 4, 20, Lookup::kMany},
    {16, "ipv6_portip_head", 4, 8, Lookup::kUnique},
    {17, "ipv6_portip", 4, 32, Lookup::kMany},
    {22, "vlaninfo", 4, 24, Lookup::kUnique},
    {23, "nat_arp_pool_section", 8, 24, Lookup::kUnique},
    {24, "acl_group", 8, 40, Lookup::kUnique},
    {25, "acl_stat", 12, 208, Lookup::kUnique},
    {26, "ssw_macinfo", 12, 20, Lookup::kUnique},
    {27, "bridgeinfo", 4, 24, Lookup::kUnique},
    {28, "capture_cfg", 4, 64, Lookup::kUnique},
    {29, "fwdif", 4, 1544, Lookup::kUnique},
    {30, "nat_arp_pool_exclude", 8, 24, Lookup::kUnique},
    {35, "acl_rule", 12, 256, Lookup::kUnique},
    {36, "mirr_observe", 4, 8, Lookup::kUnique},
    {37, "attack_sdata", 10, 48, Lookup::kUnique},
    {38, "attack_smac", 6, 16, Lookup::kUnique},
    {39, "attack_sip", 4, 12, Lookup::kUnique},
    {40, "vlan_bitmap", 4, 1028, Lookup::kUnique},
    {41, "port_tag", 4, 8, Lookup::kUnique},
    {42, "ssw_boardcast", 4, 8, Lookup::kMany},
    {43, "port_isolate", 8, 12, Lookup::kUnique},
    {44, "nat_arp_host", 8, 24, Lookup::kUnique},
    {45, "usf_user", 8, 760, Lookup::kUnique},
    {46, "usf_stat", 4, 8, Lookup::kUnique},
    {47, "usf_roam", 8, 32, Lookup::kUnique},
    {48, "usf_roam_ap2sta_elb", 4, 36, Lookup::kMany},
    {51, "http_portal_port", 4, 4, Lookup::kUnique},
    {52, "capwap_decap", 10, 20, Lookup::kUnique},
    {53, "capwap_tunnel", 4, 112, Lookup::kUnique},
    {54, "car", 4, 144, Lookup::kUnique},
    {55, "afpacket_filter", 4, 12, Lookup::kMany},
    {56, "usf_macip", 20, 48, Lookup::kUnique},
    {57, "arp_miss_cache", 8, 32, Lookup::kMany},
    {61, "buf_cache_stat", 4, 2192, Lookup::kUnique},
    {62, "cpcar_pro", 4, 20, Lookup::kUnique},
    {64, "server_map", 20, 60, Lookup::kUnique},
    {65, "session", 4, 192, Lookup::kUnique},
    {68, "hsec_global_cfg", 4, 328, Lookup::kUnique},
    {69, "priority", 4, 224, Lookup::kUnique},
    {70, "local_mng_user", 4, 28, Lookup::kUnique},
    {71, "timer_stat", 4, 32, Lookup::kUnique},
    {72, "arp_dup_mac", 16, 20, Lookup::kUnique},
    {74, "mod_info", 4, 36, Lookup::kUnique},
    {75, "web_proxy_portal", 4, 208, Lookup::kUnique},
    {76, "ssw_global_boardcast", 4, 4, Lookup::kMany},
    {77, "mc_route_port", 4, 8, Lookup::kMany},
    {78, "mc_elb", 12, 16, Lookup::kMany},
    {79, "exclude_mc_elb", 4, 8, Lookup::kMany},
    {80, "mc2uc_elb", 16, 24, Lookup::kMany},
    {81, "vap_to_sta", 8, 16, Lookup::kMany},
    {82, "dhcp_snooping_bind", 28, 44, Lookup::kUnique},
    {83, "cpcar_port_map", 4, 8, Lookup::kUnique},
    {84, "session_cpcar", 13, 24, Lookup::kUnique},
    {85, "usf_map_fwdif", 4, 16, Lookup::kUnique},
    {89, "nd_miss_cache", 20, 72, Lookup::kMany},
    {90, "dns_domain", 128, 136, Lookup::kUnique},
    {92, "sac_app_mapping", 4, 40, Lookup::kUnique},
    {93, "sac_app_rvs_mapping", 4, 40, Lookup::kUnique},
    {94, "sac_app_group", 4, 64, Lookup::kUnique},
    {95, "sac_protocol_mapping", 4, 8, Lookup::kUnique},
    {96, "port_inst_state", 8, 12, Lookup::kUnique},
    {97, "mfib_dummy", 12, 16, Lookup::kUnique},
    {98, "cause", 4, 16, Lookup::kUnique},
    {99, "sac_profile", 4, 392, Lookup::kUnique},
    {101, "sac_priority_mapping", 4, 4, Lookup::kUnique},
    {102, "sac_policy_carid", 8, 12, Lookup::kUnique},
    {103, "sac_if_stat", 4, 16104, Lookup::kUnique},
    {104, "sac_usf_stat", 8, 3472, Lookup::kUnique},
    {107, "eaplog_info", 8, 1632, Lookup::kUnique},
    {108, "arp_simulator", 10, 56, Lookup::kUnique},
};

TEST(BuiltInLayoutTest, TablesHaveTheEnginesShapes) {
  const Layout &layout = Layout::BuiltIn();
  size_t defined = 0;
  for (const TableLayout &table : layout.tables()) defined += table.spec.dataSize != 0;
  EXPECT_EQ(defined, std::size(kShapes));
  for (const Shape &shape : kShapes) {
    const TableLayout &table = layout.Table(shape.id);
    EXPECT_EQ(table.shortName, shape.shortName);
    EXPECT_EQ(table.spec.keySize, shape.keySize) << shape.shortName;
    EXPECT_EQ(table.spec.recordSize, shape.recordSize) << shape.shortName;
    EXPECT_EQ(table.spec.lookup, shape.lookup) << shape.shortName;
    EXPECT_TRUE(table.spec.enabled) << shape.shortName;
    EXPECT_EQ(layout.FindTable(shape.shortName), &table);
  }
  EXPECT_EQ(layout.FindTable("fwdi"), nullptr);
}

TEST(BuiltInLayoutTest, PlanListsAllTablesInOrder) {
  const ArenaPlan plan = Layout::BuiltIn().Plan("/run/nqe.sock");
  ASSERT_EQ(plan.tables.size(), 109u);
  for (uint32_t id = 0; id < plan.tables.size(); ++id) EXPECT_EQ(plan.tables[id].id, id);
  EXPECT_EQ(plan.socketPath, "/run/nqe.sock");
  EXPECT_EQ(plan.tables[0].name, "CAP_TABLE_GLOBAL");
  EXPECT_EQ(plan.tables[8].name, "CAP_TABLE_IPV6_ND");
  EXPECT_EQ(plan.tables[24].name, "CAP_TABLE_ACL_GROUP");
  EXPECT_EQ(plan.tables[57].name, "CAP_TABLE_ARP_MISS_CACHE");
  EXPECT_EQ(plan.tables[89].name, "CAP_TABLE_ND_MISS_CACHE");
  EXPECT_EQ(plan.tables[24].searchOffset, 8u);
  EXPECT_EQ(plan.tables[24].dataSize, 32u);
  EXPECT_EQ(plan.tables[24].groupRuleSpec, 1024u);
  EXPECT_EQ(plan.tables[26].capacity, 16384u);
  EXPECT_EQ(plan.tables[45].capacity, 8192u);
  EXPECT_EQ(plan.tables[65].capacity, 65536u);
  EXPECT_EQ(plan.tables[64].agingOffset, 24u);
  EXPECT_EQ(plan.tables[64].agingSize, 4u);
  EXPECT_EQ(plan.tables[65].agingOffset, 10u);
  EXPECT_EQ(plan.tables[65].agingSize, 2u);
  EXPECT_EQ(plan.tables[65].attachedSize, 184u);
  EXPECT_FALSE(plan.tables[29].ClientWritable());
  EXPECT_EQ(plan.tables[74].recordSize, plan.tables[74].dataSize + 4u);
  EXPECT_EQ(plan.tables[9].dataSize, 0u);
  EXPECT_FALSE(plan.tables[9].enabled);
}

TEST(BuiltInLayoutTest, RegionsHaveTheEnginesSizes) {
  const std::pair<const char *, uint32_t> kRegions[] = {
      {"PKT_TRACE_CTX_PTR", 224},    {"FAST_STAT_SSMAP_PTR", 4392},   {"SCHED_TRACE_SSMAP_PTR", 52104},
      {"IPP_SESSION_AGING_TIME", 6}, {"APP_SESSION_AGING_TIME", 318}, {"IP_REASS_CTX_PTR", 65536},
      {"IP6_REASS_CTX_PTR", 65536},
  };
  const Layout &layout = Layout::BuiltIn();
  EXPECT_EQ(layout.regions().size(), std::size(kRegions));
  for (const auto &[name, size] : kRegions) {
    ASSERT_NE(layout.FindRegion(name), nullptr) << name;
    EXPECT_EQ(layout.FindRegion(name)->spec.size, size) << name;
  }
  EXPECT_EQ(layout.FindRegion("APP_SESSION_AGING_TIME")->At("apps[52].ttl").offset, 316u);
}

TEST(LayoutTest, FindsValuesByPath) {
  const Layout layout = KindsLayout();
  const TableLayout &kinds = layout.Table(0);
  EXPECT_EQ(kinds.At("half").offset, 6u);
  EXPECT_EQ(kinds.At("numbers[2]").offset, 104u);
  EXPECT_EQ(kinds.At("pairs[1].low").offset, 116u);
  EXPECT_EQ(kinds.At("pairs[1].ports[1]").offset, 122u);
  EXPECT_EQ(kinds.At("inner.value").offset, 124u);
  EXPECT_EQ(kinds.At("peers[2]").offset, 152u);
  for (const char *path : {"", "halves", "half[0]", "half.x", "numbers", "numbers[3]", "numbers[",
                           "numbers[x]", "numbers[1]x", "pairs[0]", "pairs[0].low.x", "inner", "inner."}) {
    EXPECT_EQ(ErrorOf([&] { kinds.At(path); }),
              "kinds." + std::string(path) + ": the layout has no such value");
  }
}

struct Wrong {
  const char *text;
  const char *error;
};

class WrongLayoutTest : public testing::TestWithParam<Wrong> {};

TEST_P(WrongLayoutTest, IsRefusedWithOneLine) {
  static const std::string filler = FillerTables(1);
  EXPECT_EQ(ErrorOf([] {
              ReadLayouts({{"a.yaml", GetParam().text}, {"filler.yaml", filler}});
            }),
            GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongLayoutTest,
    testing::Values(
        Wrong{"tabels: {}", "a.yaml:1: tabels: not a section of a layout (tables, regions or views)"},
        Wrong{"tables: []", "a.yaml:1: tables: not a mapping (write NAME: and its properties)"},
        Wrong{"tables:\n  t: 5", "a.yaml:2: t: not a mapping (write PROPERTY: VALUE)"},
        Wrong{"tables:\n  t: {name: CAP_TABLE_T}", "a.yaml:2: t.id: missing, a number from 0 to 108"},
        Wrong{"tables:\n  t: {id: 109, name: CAP_TABLE_T}", "a.yaml:2: t.id: not a number from 0 to 108"},
        Wrong{"tables:\n  t: {id: 0, name: T}", "a.yaml:2: t.name: not a table's name (CAP_TABLE_...)"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T, capacty: 3}",
              "a.yaml:2: t.capacty: no such property (did you mean capacity?)"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T, capacity: 3}",
              "a.yaml:2: t.record_size: missing (a table without it has an id, a name and about only)"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T, key_size: 4, record_size: 8}",
              "a.yaml:2: t.capacity: missing, a number from 1 to 16777216"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T, key_size: 4, record_size: 8, capacity: 1, lookup: "
              "hash}",
              "a.yaml:2: t.lookup: \"hash\" is no way to find entries (unique, many, prefix4 or prefix6)"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T, key_size: 4, record_size: 8, capacity: 1, "
              "client_writable: left, key: {a: 0 u32}, fields: {a: 0 u32}}",
              "a.yaml:2: t.client_writable: \"left\" is not a value of this table (name its aging time)"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T, key_size: 4, record_size: 8, capacity: 1, "
              "client_writable: b, key: {a: 0 u32}, fields: {a: 0 u32, b: 4 u8 bit 1}}",
              "a.yaml:2: t.client_writable: not a whole number at a multiple of its size (u8, u16, u32 or "
              "u64)"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T}\n  u: {id: 0, name: CAP_TABLE_U}",
              "a.yaml:3: u.id: 0 is t already"},
        Wrong{"tables:\n  t: {id: 0, name: CAP_TABLE_T}\n  t: {id: 0, name: CAP_TABLE_T}",
              "a.yaml:3: \"t\" stands twice in one mapping (remove one)"},
        Wrong{"tables:\n  filler_7: {id: 0, name: CAP_TABLE_T}",
              "filler.yaml:8: filler_7: stands at a.yaml:2 already (rename one)"},
        Wrong{"regions: {}", "layouts: table 0 is missing (give all 109 ids)"},
        Wrong{"regions:\n  R: {size: 0}", "a.yaml:2: R.size: not a number from 1 to 16777216"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: 0 u32\n      b: 3 u8",
              "a.yaml:6: R.b: shares bits with a field before it"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: 0 u32 bits 0-7\n      b: 0 u32 bits 7-9",
              "a.yaml:6: R.b: shares bits with a field before it"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: 5 u32",
              "a.yaml:5: R.a: lies outside its 8 bytes"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: 0 u16 x 5",
              "a.yaml:5: R.a: lies outside its 8 bytes"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: {at: 0, count: 3, stride: 4, fields: {b: 0 "
              "u8}}",
              "a.yaml:5: R.a: lies outside its 8 bytes"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: {at: 0, count: 2, stride: 4, fields: {b: 2 "
              "u32}}",
              "a.yaml:5: R.a.b: lies outside its 4 bytes"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: {at: 0, count: 2, fields: {b: 2 u32}}",
              "a.yaml:5: R.a.stride: missing, a number from 1 to 16777216"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: {at: 0}",
              "a.yaml:5: R.a.fields: missing (a structure without fields)"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: [0, u32]",
              "a.yaml:5: R.a: not a field (write OFFSET TYPE)"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      a: 0 u31",
              "a.yaml:5: R.a: \"u31\" is not a kind of field (did you mean u32?)"},
        Wrong{"regions:\n  R:\n    size: 8\n    fields:\n      repeat: 0 u8",
              "a.yaml:5: R.repeat: a word that scenarios keep (rename it)"},
        Wrong{"regions:\n  R: {size: 4, fields: {\n    a: 0 u8,\n    b: 1 u8,\n    record: 2 u8}}",
              "a.yaml:5: R.record: a word that scenarios keep (rename it)"},
        Wrong{"tables:\n  t:\n    {id: 0, name: CAP_TABLE_T, key_size: 4, record_size: 8, capacity: 1, "
              "fields: {a: 0 u32}}",
              "a.yaml:2: t: key and fields belong together (give both or none)"},
        Wrong{"tables:\n  t:\n    id: 0\n    name: CAP_TABLE_T\n    key_size: 4\n    record_size: 8\n"
              "    capacity: 1\n    key:\n      a: 0 u32 x 1\n    fields: {b: 0 u32}",
              "a.yaml:9: t.key.a: not a single value (keys have no arrays, structures or references)"},
        Wrong{"tables:\n  t:\n    id: 0\n    name: CAP_TABLE_T\n    key_size: 4\n    record_size: 8\n"
              "    capacity: 1\n    key:\n      a: 0 u32\n    fields: {a: 0 ipv4}",
              "a.yaml:9: t.key.a: another kind of value than the record's field of this name (rename one)"},
        Wrong{"tables:\n  t:\n    id: 0\n    name: CAP_TABLE_T\n    key_size: 4\n    record_size: 8\n"
              "    capacity: 1\n    key: {a: 0 u32}\n    fields:\n      b: 0 ref u",
              "a.yaml:10: t.b: \"u\" is not a table with one entry a key"},
        Wrong{"regions:\n  \"R\\0\\e[2J\\n\": {size: 1}",
              "a.yaml:2: R??[2J?: \"R??[2J?\" is not a name (1 to 63 letters, digits and underlines)"},
        Wrong{"tables: {t: {id: 0, name: CAP_TABLE_T}\nregions: {}",
              "a.yaml:2: YAML syntax: end of map flow not found (indent with blanks, close every bracket and "
              "quote)"}));

TEST(LayoutTest, ReadsADirectory) {
  namespace fs = std::filesystem;
  const fs::path directory = fs::path(testing::TempDir()) / "qdt_layouts";
  fs::create_directories(directory);
  std::ofstream(directory / "one.yaml") << "tables: {t: {id: 0, name: CAP_TABLE_T}}\n";
  std::ofstream(directory / "two.yaml") << FillerTables(1);
  std::ofstream(directory / "notes.txt") << "not a layout";
  EXPECT_EQ(ReadLayoutDirectory(directory).Table(0).shortName, "t");
  std::ofstream(directory / "two.yaml") << "nonsense";
  EXPECT_EQ(ErrorOf([&] { ReadLayoutDirectory(directory); }),
            (directory / "two.yaml").string() + ":1: not a mapping (write NAME: at the start of a line)");
  fs::remove_all(directory);
  EXPECT_EQ(ErrorOf([&] { ReadLayoutDirectory(directory); }),
            directory.string() + ": No such file or directory (name a readable directory of layout files)");
}

template <typename T>
bool SameWords(std::span<T> a, std::span<T> b) {
  return std::ranges::equal(a, b);
}

bool SameRef(const FieldRef &a, const FieldRef &b) {
  return a.offset == b.offset && a.size == b.size && a.kind == b.kind && a.shift == b.shift &&
         a.bits == b.bits;
}

// Every property of every field, but for the place in the file.
void ExpectSame(const FieldSet &a, const FieldSet &b, const std::string &where) {
  ASSERT_EQ(a.all().size(), b.all().size()) << where;
  for (size_t i = 0; i < a.all().size(); ++i) {
    const Field &x = a.all()[i];
    const Field &y = b.all()[i];
    const std::string path = where + "." + std::string(x.name);
    ASSERT_EQ(x.name, y.name) << where;
    EXPECT_EQ(b.Find(x.name), &y) << path;
    EXPECT_TRUE(SameRef(x.ref, y.ref)) << path;
    EXPECT_TRUE(x.constant == y.constant) << path;
    EXPECT_TRUE(SameWords(x.targets, y.targets) && SameWords(x.selectedBy, y.selectedBy)) << path;
    EXPECT_TRUE(SameWords(x.agreesWith, y.agreesWith)) << path;
    EXPECT_EQ(std::tie(x.count, x.stride, x.clearedBy, x.line, x.pointer, x.chosenBy, x.chosenValue,
                       x.selector, x.elementSize, x.role, x.about, x.unit, x.leadsTo, x.mustLead, x.counts),
              std::tie(y.count, y.stride, y.clearedBy, y.line, y.pointer, y.chosenBy, y.chosenValue,
                       y.selector, y.elementSize, y.role, y.about, y.unit, y.leadsTo, y.mustLead, y.counts))
        << path;
    ExpectSame(x.fields, y.fields, path);
  }
}

// The files of the source tree are what the programs carry.
TEST(LayoutTest, SourceFilesAreTheBuiltInOnes) {
  const Layout layout = ReadLayoutDirectory(QDT_SOURCE_DIR "/host/layout");
  const Layout &compiled = Layout::BuiltIn();
  ASSERT_EQ(layout.tables().size(), compiled.tables().size());
  for (uint32_t id = 0; id < kTableCount; ++id) {
    const TableLayout &table = layout.Table(id);
    const TableLayout &other = compiled.Table(id);
    const TableSpec &spec = table.spec;
    const TableSpec &same = other.spec;
    EXPECT_EQ(std::tie(table.shortName, table.about, table.partOf, spec.id, spec.name, spec.keySize,
                       spec.dataSize, spec.recordSize, spec.searchOffset, spec.attachedSize, spec.capacity),
              std::tie(other.shortName, other.about, other.partOf, same.id, same.name, same.keySize,
                       same.dataSize, same.recordSize, same.searchOffset, same.attachedSize, same.capacity));
    EXPECT_EQ(std::tie(spec.groupRuleSpec, spec.groupKeySize, spec.lookup, spec.enabled, spec.agingOffset,
                       spec.agingSize),
              std::tie(same.groupRuleSpec, same.groupKeySize, same.lookup, same.enabled, same.agingOffset,
                       same.agingSize))
        << table.shortName;
    EXPECT_EQ(compiled.FindTable(table.shortName), &other);
    ExpectSame(table.key, other.key, std::string(table.shortName) + ".key");
    ExpectSame(table.fields, other.fields, std::string(table.shortName));
  }
  ASSERT_EQ(layout.regions().size(), compiled.regions().size());
  for (size_t i = 0; i < layout.regions().size(); ++i) {
    const RegionLayout &region = layout.regions()[i];
    const RegionLayout &other = compiled.regions()[i];
    EXPECT_EQ(std::tie(region.spec.name, region.spec.size, region.spec.clientWritable, region.about),
              std::tie(other.spec.name, other.spec.size, other.spec.clientWritable, other.about));
    ExpectSame(region.fields, other.fields, std::string(region.spec.name));
  }
  ASSERT_EQ(layout.views().size(), compiled.views().size());
  for (size_t i = 0; i < layout.views().size(); ++i) {
    const ViewLayout &view = layout.views()[i];
    const ViewLayout &other = compiled.views()[i];
    EXPECT_EQ(std::tie(view.id, view.name, view.about, view.table, view.region, view.recordSize),
              std::tie(other.id, other.name, other.about, other.table, other.region, other.recordSize));
    EXPECT_EQ(compiled.FindView(view.id), &other);
    ExpectSame(view.fields, other.fields, std::string(view.name));
  }
}

// What a layout says of the meaning of its fields, and what it may not say.
TEST(LayoutTest, ReadsMeanings) {
  const std::string filler = FillerTables(1);
  const auto read = [&](const std::string &fields) {
    const std::string text =
        "tables:\n  t: {id: 0, name: CAP_TABLE_T, about: what it holds, key_size: 4, record_size: 64, "
        "capacity: 4,\n"
        "      key: {index: 0 u32 leads_to t}, fields: {" +
        fields + "}}\n";
    return ReadLayouts({{"a.yaml", text}, {"filler.yaml", filler}});
  };
  const Layout layout = read(
      "n: 0 u8 counts list, list: 4 u32 x 2 counter unit packets -- what came in, to: 16 ref t agrees_with "
      "index, "
      "index: 24 u32 must_lead_to t, when: 28 u32 clock unit s, s: {at: 32, about: some more, fields: {a: 0 "
      "u8}}");
  const TableLayout &table = layout.Table(0);
  EXPECT_EQ(table.about, "what it holds");
  EXPECT_EQ(table.key.Find("index")->leadsTo, "t");
  EXPECT_FALSE(table.key.Find("index")->mustLead);
  EXPECT_EQ(table.fields.Find("n")->counts, "list");
  EXPECT_EQ(table.fields.Find("list")->role, FieldRole::kCounter);
  EXPECT_EQ(table.fields.Find("list")->unit, "packets");
  EXPECT_EQ(table.fields.Find("list")->about, "what came in");
  EXPECT_EQ(table.fields.Find("to")->agreesWith[0], "index");
  EXPECT_TRUE(table.fields.Find("index")->mustLead);
  EXPECT_EQ(table.fields.Find("when")->role, FieldRole::kClock);
  EXPECT_EQ(table.fields.Find("s")->about, "some more");
  EXPECT_EQ(ErrorOf([&] { read("a: 0 u8 counts list"); }),
            "a.yaml:3: t.a: \"list\" is not an array beside it");
  EXPECT_EQ(ErrorOf([&] { read("a: 0 ref t agrees_with index"); }),
            "a.yaml:3: t.a: \"index\" is not a value beside it that could say where it leads");
  EXPECT_EQ(ErrorOf([&] { read("a: 0 u8 leads_to nowhere"); }),
            "a.yaml:3: t.a: \"nowhere\" is not a table with one entry a key");
}

// Values that choose a structure are numbers of 32 bits, each of them.
TEST(LayoutTest, ChoicesAreNumbers) {
  const std::string filler = FillerTables(1);
  const auto error = [&](const std::string &choice) {
    const std::string text =
        "tables:\n  t: {id: 0, name: CAP_TABLE_T, key_size: 4, record_size: 64, capacity: 4,\n"
        "      key: {kind: 0 u32}, fields: {s: {at: 0, variant: \"" +
        choice + "\", fields: {a: 0 u8}}}}\n";
    return ErrorOf([&] { ReadLayouts({{"a.yaml", text}, {"filler.yaml", filler}}); });
  };
  EXPECT_EQ(error("kind 0 4294967295 "), "no error");
  for (const char *wrong : {"", "kind", "kind -1", "kind 0 4294967296", "kind 0 -", "kind 0 +1", "kind 0x1",
                            "kind 1 18446744073709551617"}) {
    EXPECT_EQ(error(wrong),
              "a.yaml:3: t.s.variant: not a choice (write KEYFIELD VALUE, with one value or several)")
        << wrong;
  }
}

}  // namespace
}  // namespace qdt::host
