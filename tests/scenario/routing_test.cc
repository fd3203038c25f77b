#include <arpa/inet.h>

#include <map>
#include <vector>

#include "tests/scenario/fill_fixture.h"

// The engine's forwarding tables, as the layouts and the table manager keep them.
namespace qdt::host {
namespace {

std::string BuiltInError(const std::string &text) {
  return ErrorOf([&] { Scenario::FromText("s.yaml", text, Layout::BuiltIn()); });
}

class RoutingTest : public FillTest {
 protected:
  // re_index of the longest match, or the status.
  template <size_t Size>
  static int64_t Match(uint32_t table, uint16_t vpn, int family, const char *address) {
    struct {
      uint16_t length = 0;
      uint16_t vpn;
      uint8_t destination[Size];
    } key;
    key.vpn = vpn;
    EXPECT_EQ(inet_pton(family, address, key.destination), 1);
    void *entry = nullptr;
    const int32_t status = TbmTblMatch(0, table, &key, &entry);
    return status != 0 ? status : Layout::BuiltIn().Table(table).At("re_index").Get(entry);
  }
  static int64_t Match4(uint16_t vpn, const char *address) { return Match<4>(1, vpn, AF_INET, address); }
  static int64_t Match6(uint16_t vpn, const char *address) { return Match<16>(5, vpn, AF_INET6, address); }

  // The values of `field` in a walk over the entries of `key`, or over all; batches of two.
  static std::vector<uint64_t> Walk(uint32_t table, const void *key, const char *field) {
    const TableLayout &layout = Layout::BuiltIn().Table(table);
    const FieldRef ref = layout.At(field);
    std::vector<uint64_t> values;
    std::vector<char> batch(layout.spec.recordSize * 2);
    TbmTravContext context;
    TbmTblTravContextInit(&context);
    int32_t status = 1;
    while (status == 1) {
      uint32_t bytes = batch.size();
      status = key != nullptr ? TbmTblTravNextByKey(0, table, key, &context, batch.data(), &bytes)
                              : TbmTblTravNext(0, table, &context, batch.data(), &bytes);
      EXPECT_EQ(bytes, TbmTblTravContextCnt(&context) * layout.spec.recordSize);
      for (uint32_t at = 0; at < bytes; at += layout.spec.recordSize) {
        values.push_back(ref.Get(batch.data() + at));
      }
    }
    EXPECT_EQ(status, 0);
    return values;
  }
};

using Values = std::vector<uint64_t>;

TEST_F(RoutingTest, LongestPrefixWinsInItsVpn) {
  const Layout &layout = Layout::BuiltIn();
  Fill(layout, Scenario::FromText("s.yaml", R"(
fib:
  - {prefix: 24, vpn: 0, destination: 192.0.2.0, re_index: 24}
  - {prefix: 0, vpn: 0, destination: 0.0.0.0, re_index: 100}
  - {prefix: 32, vpn: 0, destination: 192.0.2.129, re_index: 32}
  - {prefix: 25, vpn: 0, destination: 192.0.2.128, re_index: 25}
  - {prefix: 25, vpn: 9, destination: 192.0.2.128, re_index: 925}
ipv6_fib:
  - {prefix: 32, vpn: 0, destination: "2001:db8::", re_index: 32}
  - {prefix: 64, vpn: 0, destination: "2001:db8:0:10::", re_index: 64}
  - {prefix: 128, vpn: 0, destination: "2001:db8:0:10::1", re_index: 128}
  - {prefix: 0, vpn: 9, destination: "::", re_index: 900}
)",
                                  layout));
  EXPECT_EQ(Match4(0, "192.0.2.129"), 32);
  EXPECT_EQ(Match4(0, "192.0.2.130"), 25);
  EXPECT_EQ(Match4(0, "192.0.2.127"), 24);
  EXPECT_EQ(Match4(0, "203.0.113.1"), 100);
  EXPECT_EQ(Match4(9, "192.0.2.129"), 925);
  EXPECT_EQ(Match4(9, "192.0.2.127"), -7);
  EXPECT_EQ(Match6(0, "2001:db8:0:10::1"), 128);
  EXPECT_EQ(Match6(0, "2001:db8:0:10::2"), 64);
  EXPECT_EQ(Match6(0, "2001:db8:0:11::1"), 32);
  EXPECT_EQ(Match6(0, "2001:db9::1"), -7);
  EXPECT_EQ(Match6(9, "2001:db9::1"), 900);
}

TEST_F(RoutingTest, CampusRoutesLeadToWhatTheyAreBoundTo) {
  const Layout &layout = Layout::BuiltIn();
  Fill(layout, Scenario::Load(QDT_SOURCE_DIR "/examples/campus.yaml", layout));
  EXPECT_EQ(Match4(0, "192.0.2.42"), 10);     // staff
  EXPECT_EQ(Match4(0, "192.0.2.177"), 60);    // cameras
  EXPECT_EQ(Match4(0, "203.0.113.200"), 4);   // the next hop that was replaced
  EXPECT_EQ(Match4(0, "198.51.100.200"), 1);  // the default route
  EXPECT_EQ(Match4(1, "192.0.2.42"), 2);      // of management
  EXPECT_EQ(Match4(2, "192.0.2.42"), -7);
  EXPECT_EQ(Match6(0, "2001:db8:0:20::b7"), 20);
  EXPECT_EQ(Match6(0, "2001:db8:8::1"), 4);

  const auto bound = [](uint32_t length, uint32_t destination) {
    return Pointer(Find(1, {length, htonl(destination)}) + 8);
  };
  EXPECT_EQ(bound(0, 0), Find(3, {1}));
  EXPECT_EQ(bound(26, 0xc0000240), Find(2, {20}));
  EXPECT_EQ(bound(24, 0xcb007100), Find(3, {2}));
  EXPECT_NE(bound(25, 0xcb007180), Find(2, {2}));
  EXPECT_NE(bound(25, 0xcb007180), nullptr);
  EXPECT_EQ(bound(28, 0xc00002d0), nullptr);
  EXPECT_EQ(Pointer(Find(2, {1}) + 576), Find(29, {2}));
  EXPECT_EQ(Pointer(Find(2, {1}) + 584), Find(29, {3}));
}

// Several entries a key: the walk by key shows those of the key, in order, and nothing else.
TEST_F(RoutingTest, KeyedWalksKeepToTheirKey) {
  const Layout &layout = Layout::BuiltIn();
  Fill(layout, Scenario::Load(QDT_SOURCE_DIR "/examples/campus.yaml", layout));
  const uint32_t printer[] = {0, 0xc0000292};       // host order
  const uint32_t router[] = {1 << 16, 0xc6336403};  // VPN 1
  EXPECT_EQ(Walk(57, printer, "create_time"), (Values{86401, 86403, 86405}));
  EXPECT_EQ(Walk(57, router, "create_time"), Values{86406});
  EXPECT_EQ(Walk(57, nullptr, "create_time"), (Values{86401, 86403, 86405, 86404, 86405, 86406}));
  const uint32_t printer6[] = {0, 0x20010db8, 0x40, 0, 0x17};
  const uint32_t router6[] = {1 << 16, 0x20010db8, 0x99, 0, 3};
  EXPECT_EQ(Walk(89, printer6, "create_time"), (Values{86501, 86503, 86505}));
  EXPECT_EQ(Walk(89, router6, "create_time"), (Values{86504, 86505}));
  const uint32_t nobody6[] = {0, 0x20010db8, 0x99, 0, 3};
  EXPECT_EQ(Walk(89, nobody6, "create_time"), Values{});
  const uint32_t staff = 501;
  EXPECT_EQ(Walk(15, &staff, "address"), (Values{0xc0000201, 0xc0000202}));
  const uint32_t staff6 = 601;
  EXPECT_EQ(Walk(17, &staff6, "prefix"), (Values{64, 10}));
}

TEST_F(RoutingTest, AddressesStandAsTheEngineKeepsThem) {
  const Layout &layout = Layout::BuiltIn();
  const Scenario scenario = Scenario::FromText("s.yaml", R"(
fib: [{prefix: 24, vpn: 258, destination: 192.0.2.0}]
arp: [{vpn: 258, next_hop: 192.0.2.1}]
nd: [{vpn: 258, next_hop: "2001:db8:1:2::a0b0"}]
ipv6_fib: [{prefix: 48, vpn: 258, destination: "2001:db8:1::"}]
nd_miss_cache: [{vpn: 258, next_hop: "2001:db8::1", source: "2001:db8::2", destination: "2001:db8::3"}]
nat_arp_pool_section: [{start: 203.0.113.16}]
nat_arp_host: [{start: 203.0.113.16}]
)",
                                               layout);
  EXPECT_EQ(Hex(scenario.FindTable(1)->key(0)), "18000201 c0000200");
  EXPECT_EQ(Hex(scenario.FindTable(4)->key(0)), "00000201 010200c0");
  EXPECT_EQ(Hex(scenario.FindTable(8)->key(0)), "00000201 b80d0120 02000100 00000000 b0a00000");
  EXPECT_EQ(Hex(scenario.FindTable(5)->key(0)), "30000201 20010db8 00010000 00000000 00000000");
  EXPECT_EQ(Hex(scenario.FindTable(23)->key(0)), "00000500 107100cb");
  EXPECT_EQ(Hex(scenario.FindTable(44)->key(0)), "00000200 107100cb");
  const auto miss = scenario.FindTable(89)->record(0);
  EXPECT_EQ(Hex(miss.subspan(4, 16)), "b80d0120 00000000 00000000 01000000");
  EXPECT_EQ(Hex(miss.subspan(40, 32)),
            "20010db8 00000000 00000000 00000002 20010db8 00000000 00000000 00000003");
}

TEST_F(RoutingTest, ModuleTableHasTheSizeThatItsDescriptorTells) {
  const Layout &layout = Layout::BuiltIn();
  Fill(layout, Scenario::FromText("s.yaml", "mod_info: [{module_id: 9, name: nat}]", layout));
  EXPECT_EQ(g_tbmGlobalInfo->tables[74].dataSize, 32u);
  char entry[4 + 32];
  uint32_t bytes = sizeof entry;
  TbmTravContext context;
  TbmTblTravContextInit(&context);
  EXPECT_EQ(TbmTblTravNext(0, 74, &context, entry, &bytes), 0);
  EXPECT_EQ(bytes, sizeof entry);
  EXPECT_EQ(entry[0], 9);
  EXPECT_STREQ(entry + 4, "nat");
}

TEST(RouteErrorTest, BitsBehindThePrefixHaveALine) {
  EXPECT_EQ(BuiltInError("fib:\n  - {prefix: 24, vpn: 0, destination: 192.0.2.77}"),
            "s.yaml:2: fib: 192.0.2.77 has bits behind its prefix of 24 bits (write 192.0.2.0)");
  EXPECT_EQ(BuiltInError("fib:\n  - {prefix: 0, vpn: 0, destination: 128.0.0.0}"),
            "s.yaml:2: fib: 128.0.0.0 has bits behind its prefix of 0 bits (write 0.0.0.0)");
  EXPECT_EQ(BuiltInError("fib: [{prefix: 33, vpn: 0, destination: 192.0.2.0}]"),
            "s.yaml:1: fib: a prefix of 33 bits (the address has 32)");
  EXPECT_EQ(
      BuiltInError("ipv6_fib:\n\n  - {prefix: 63, vpn: 0, destination: \"2001:db8:0:11::\"}"),
      "s.yaml:3: ipv6_fib: 2001:db8:0:11:: has bits behind its prefix of 63 bits (write 2001:db8:0:10::)");
  EXPECT_EQ(BuiltInError("ipv6_fib: [{prefix: 129, vpn: 0, destination: \"::\"}]"),
            "s.yaml:1: ipv6_fib: a prefix of 129 bits (the address has 128)");
  EXPECT_EQ(
      BuiltInError("fib:\n  - {repeat: 3, prefix: 31, vpn: 0, destination: {from: 192.0.2.0, step: 1}}"),
      "s.yaml:2: fib: 192.0.2.1 has bits behind its prefix of 31 bits (write 192.0.2.0)");
}

TEST(RouteErrorTest, AReferenceNamesItsTable) {
  const std::string route = "fib:\n  - {prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: ";
  const std::string wrong =
      "s.yaml:2: fib.next_hop: not a reference that names its table (write {nhp: {KEY FIELD: VALUE, ...}} or "
      "{nhp_group: {KEY FIELD: VALUE, ...}})";
  EXPECT_EQ(BuiltInError(route + "{index: 1}}"), wrong);
  EXPECT_EQ(BuiltInError(route + "{stale: {nhp: {index: 1}}}}"), wrong);
  EXPECT_EQ(BuiltInError(route + "{arp: {index: 1}}}"), wrong);
  EXPECT_EQ(BuiltInError(route + "{nhp: 1}}"), wrong);
  EXPECT_EQ(BuiltInError(route + "{nhp: {index: 1}, nhp_group: {index: 1}}}"), wrong);
  EXPECT_EQ(BuiltInError(route + "{}}"), wrong);
  EXPECT_EQ(BuiltInError(route + "{nhp_group: {index: 1}}}"),
            "s.yaml:2: fib.next_hop.nhp_group: nhp_group has no entry {index: 1} (add it, or write 0)");
  EXPECT_EQ(BuiltInError(route + "{nhp: {stale: 1}}}"),
            "s.yaml:2: fib.next_hop.nhp: not a stale reference (write {stale: {KEY FIELD: VALUE, ...}})");
  EXPECT_EQ(BuiltInError(route + "{nhp: {number: 1}}}"),
            "s.yaml:2: fib.next_hop.nhp.number: no such field (nqecli fields nhp lists them)");
}

TEST(NatPolicyTest, RulesAreKnownAsEntries) {
  const std::string rule =
      R"({name: 'a', source: '192.0.2.0/24', service: ' it''s {x}: [#&*!|>%@`", ', action: 'no-nat', hits: '0x10'})";
  const Scenario read = Scenario::FromText("s.yaml", "nat_policy: [" + rule + "]", Layout::BuiltIn());
  EXPECT_EQ(read.natPolicy().at(0).entry, rule);
  EXPECT_NE(read.natPolicy().at(0).text.find("  Service      :   it's {x}: [#&*!|>%@`\", \n"),
            std::string::npos)
      << read.natPolicy().at(0).text;
}

TEST(NatPolicyErrorTest, EveryMistakeHasALine) {
  const std::map<std::string, std::string> mistakes = {
      {"{}", "s.yaml:1: nat_policy: not a list of rules (write - {name: ...})"},
      {"[5]", "s.yaml:1: nat_policy: a rule that is not a mapping (write {name: ..., action: ...})"},
      {"[{action: no-nat}]", "s.yaml:1: nat_policy.name: missing (every rule has one)"},
      {"[{name: a}]", "s.yaml:1: nat_policy.action: missing (every rule has one)"},
      {"[{name: a, action: drop}]",
       "s.yaml:1: nat_policy.action: \"drop\" is no action (source-nat or no-nat)"},
      {"[{name: a b, action: no-nat}]",
       "s.yaml:1: nat_policy.name: \"a b\" is not one word of at most 63 characters, without quotation "
       "marks"},
      {"[{name: \"it's\", action: no-nat}]",
       "s.yaml:1: nat_policy.name: \"it's\" is not one word of at most 63 characters, without quotation "
       "marks"},
      {"[{name: a, action: no-nat, source: 192.0.2.0}]",
       "s.yaml:1: nat_policy.source: \"192.0.2.0\" is not a prefix (such as 192.0.2.0/24, no bits behind it) "
       "or any"},
      {"[{name: a, action: no-nat, source: 192.0.2.1/24}]",
       "s.yaml:1: nat_policy.source: \"192.0.2.1/24\" is not a prefix (such as 192.0.2.0/24, no bits behind "
       "it) or "
       "any"},
      {"[{name: a, action: no-nat, destination: 192.0.2.0/33}]",
       "s.yaml:1: nat_policy.destination: \"192.0.2.0/33\" is not a prefix (such as 192.0.2.0/24, no bits "
       "behind "
       "it) or any"},
      {"[{name: a, action: no-nat, hits: many}]",
       "s.yaml:1: nat_policy.hits: \"many\" is not a number (decimal or 0x...)"},
      {"[{name: a, action: no-nat, hits: [1]}]", "s.yaml:1: nat_policy.hits: not a single value"},
      {R"([{name: a, action: no-nat, service: "tcp\n80"}])",
       "s.yaml:1: nat_policy.service: \"tcp?80\" has control characters (write one line of text)"},
      {"[{name: a, action: no-nat, sauce: any}]",
       "s.yaml:1: nat_policy.sauce: no such property (did you mean source?)"},
      {"\n  - {name: a, action: no-nat}\n  - {name: a, action: no-nat}",
       "s.yaml:3: nat_policy.name: \"a\" is a rule already (rename one)"},
  };
  for (const auto &[rules, error] : mistakes) {
    EXPECT_EQ(BuiltInError("nat_policy: " + rules), error) << rules;
  }
  EXPECT_EQ(BuiltInError("nat_polcy: []"), "s.yaml:1: nat_polcy: no such table (did you mean nat_policy?)");
  EXPECT_EQ(BuiltInError("nat_policy:"), "no error");
}

TEST(RouteLayoutTest, KeysOfRoutesNeedRoomForTheAddress) {
  static const std::string filler = FillerTables(1);
  EXPECT_EQ(ErrorOf([] {
              ReadLayouts({{"r.yaml",
                            "tables:\n  r: {id: 0, name: CAP_TABLE_R, key_size: 19, record_size: 16, "
                            "lookup: prefix6, capacity: 8}\n"},
                           {"filler.yaml", filler}});
            }),
            "r.yaml:2: r.key_size: too small for routes (20 at least)");
}

}  // namespace
}  // namespace qdt::host
