#include "host/record/record_rows.h"
#include "host/record/record_yaml.h"
#include "tests/record/things.h"

// Lists as CSV, as columns and as scenarios.
namespace qdt::host {
namespace {

class FormsTest : public ThingsTest {
 protected:
  std::string Csv(std::string_view table, std::string_view fields) const {
    return List(RecordFormat::kCsv, Request(table, {}), fields);
  }
  std::string Columns(std::string_view table, std::string_view fields, uint32_t width = 0) {
    aside_.clear();
    return List(RecordFormat::kColumns, Request(table, {}), fields, width, &aside_);
  }
  // Of a scenario what a list writes of it; without its heading.
  std::string Yaml(const std::string &scenario, std::string_view table = "things",
                   std::string_view fields = "") {
    Load(scenario);
    return List(RecordFormat::kYaml, Request(table, {}), fields);
  }

  std::string aside_;
};

TEST_F(FormsTest, CsvQuotesWhatHasCommasQuotesOrLines) {
  Load(R"(
things:
  - {index: 1, name: plain, numbers: [1, 2]}
  - {index: 2, name: 'a,b'}
  - {index: 3, name: 'a"b'}
  - {index: 4, name: 'a\x0d\x0ab'}
  - {index: 5, name: '" "'}
)");
  EXPECT_EQ(Csv("things", "index,name,numbers"),
            "index,name,numbers\r\n"
            "1,plain,\"[1,2]\"\r\n"
            "2,\"a,b\",[]\r\n"
            "3,\"a\"\"b\",[]\r\n"
            "4,a\\x0d\\x0ab,[]\r\n"
            "5,\"\"\" \"\"\",[]\r\n");
}

TEST_F(FormsTest, CsvHasALineForEachRecord) {
  Load("things: [{index: 1}, {index: 2, name: a}, {index: 3}]");
  EXPECT_EQ(Csv("things", "name"), "name\r\n\"\"\r\na\r\n\"\"\r\n");
  EXPECT_EQ(Csv("things", "name,ip"), "name,ip\r\n,0.0.0.0\r\na,0.0.0.0\r\n,0.0.0.0\r\n");
}

TEST_F(FormsTest, CsvHasAColumnForEachValue) {
  Load(R"(
other: [{group: 1, number: 2}]
things:
  - {index: 1, pairs: [{low: 5}], inner: {value: 6}, peer: {group: 1, number: 2}, next: {things: {index: 1}}, part: {a: 1}}
  - {index: 2, flag: 1, peer: {stale: {}}, next: 0x10, part: {stale: 5}}
)");
  EXPECT_EQ(
      Csv("things", "index,flag,pairs,inner,peer,next,peers,part,part6,tail"),
      "index,flag,pairs,inner.value,peer,next,peers,part.a,part.ip,part6.b,tail.c\r\n"
      "1,0,\"[{\"\"low\"\":5,\"\"on\"\":false,\"\"ports\"\":[]}]\",6,other/1/2,things/1,[],1,0.0.0.0,,\r\n"
      "2,1,[],0,other/stale,0x10,[],,,stale,\r\n");
  EXPECT_EQ(Csv("things", "pairs[0].low,numbers[2]"), "pairs[0].low,numbers[2]\r\n5,0\r\n0,0\r\n");
}

TEST_F(FormsTest, CsvSaysThatItIsCut) {
  Load("list: [{owner: 1, value: 5}, {owner: 1, value: 6}]");
  ListRequest request = Request("list", {});
  request.limit = 1;
  EXPECT_EQ(List(RecordFormat::kCsv, request), "owner,value\r\n1,5\r\n#truncated behind 1 records\r\n");
}

TEST_F(FormsTest, ColumnsAreAsWideAsTheirValues) {
  Load(R"(
things:
  - {index: 1, name: lab, ip: 192.0.2.1, long: 18446744073709551615}
  - {index: 200, name: 'éé', ip: 10.0.0.1}
)");
  EXPECT_EQ(Columns("things", "index,name,ip,long"),
            "index  name  ip                         long\n"
            "    1  lab   192.0.2.1  18446744073709551615\n"
            "  200  éé    10.0.0.1                      0\n");
  EXPECT_EQ(aside_, "");
}

TEST_F(FormsTest, ColumnsEndWithTheLine) {
  Load("things: [{index: 1, name: lab, ip: 192.0.2.1}]");
  EXPECT_EQ(Columns("things", "index,name,ip", 22), "index  name  ip\n    1  lab   192.0.2.1\n");
  EXPECT_EQ(aside_, "");
  EXPECT_EQ(Columns("things", "index,name,ip", 21), "index  name\n    1  lab\n");
  EXPECT_EQ(aside_, "1 more columns do not fit the line; choose with --fields, or ask for --json\n");
  // One column is shown in any case.
  EXPECT_EQ(Columns("things", "ip,index,name", 3), "ip\n192.0.2.1\n");
  EXPECT_EQ(aside_, "2 more columns do not fit the line; choose with --fields, or ask for --json\n");
}

TEST_F(FormsTest, ColumnsOfNothing) { EXPECT_EQ(Columns("things", ""), ""); }

TEST_F(FormsTest, ColumnsOfMoreThanAreMeasured) {
  Load("things:\n  - {repeat: 256, index: {from: 1, step: 1}, name: a}\n  - {index: 100000, name: longer}\n");
  const std::string lines = Columns("things", "index,name");
  EXPECT_TRUE(lines.starts_with("index  name\n    1  a\n")) << lines.substr(0, 40);
  EXPECT_TRUE(lines.ends_with("  256  a\n100000  longer\n")) << lines.substr(lines.size() - 40);
}

TEST_F(FormsTest, KeysAsTexts) {
  Load(R"(named: [{name: 'a b', where: 192.0.2.1}])");
  const auto source = arena_.Source();
  EntryReader reader(*source, *ThingsLayout().FindTable("named"));
  ASSERT_TRUE(reader.Next());
  std::string key, named;
  AppendKeyText(reader.table(), reader.entry().key, &key);
  AppendNamedKey(reader.table(), reader.entry().key, &named);
  EXPECT_EQ(key, "a b/192.0.2.1");
  EXPECT_EQ(named, "name=a b where=192.0.2.1");
  Load("things: [{index: 7}]");
  EntryReader things(*source, *ThingsLayout().FindTable("things"));
  ASSERT_TRUE(things.Next());
  key.clear();
  AppendKeyText(things.table(), things.entry().key, &key);
  EXPECT_EQ(key, "7");  // what is always the same is no part of it
}

TEST_F(FormsTest, ScenariosLeaveZerosOut) {
  EXPECT_EQ(Yaml("things: [{index: 0}]", "things", "index,byte,numbers,inner,peer,part"),
            "things:\n  - {index: 0}\n");
  EXPECT_EQ(List(RecordFormat::kYaml, Request("other", {})), "other: []\n");
}

TEST_F(FormsTest, ScenariosSayWhatTheyWereLoadedFrom) {
  const std::string scenario = R"(things:
  - {index: 1, byte: 255, signed_byte: -1, flag: 1, some_bits: 3, word: 7, signed_word: -7, long: 18446744073709551615, signed_long: -9223372036854775808, ip: '192.0.2.1', ip_net: '192.0.2.2', ip6: '2001:db8::1', ip6_words: '::1', mac: '02:00:5e:00:53:01', count: 2, name: 'it''s\\\x01', numbers: [1, 0, 3], pairs: [{low: 1, on: 1, ports: [0, 2]}, {}], inner: {value: 1}, peer: 0x7, next: {things: {index: 1}}, peers: [{index: 1}, {stale: {}}, 0x0], seen: 4294967295, made: 4294967295, part6: {b: 1}, tail: {}}
  - {index: 2, count: 3, numbers: {2: 7}, peers: {2: {index: 1}}, seen: 4294967295, made: 4294967295, part: {stale: 0x77}, record: {index: 3}}
)";
  // As a scenario writes it; the second pair holds nothing, so that it is not written.
  std::string wanted = scenario;
  wanted.replace(wanted.find(", {}]"), 5, "]");
  wanted.replace(wanted.find(", 0x0]"), 6, "]");
  EXPECT_EQ(Yaml(scenario), wanted);
}

TEST_F(FormsTest, ScenariosOfTextsWithBrackets) {
  EXPECT_EQ(Yaml("things: [{index: 1, name: '[{]}: #'}]", "things", "index,name"),
            "things:\n  - {index: 1, name: '\\x5b\\x7b]}: #'}\n");
}

TEST_F(FormsTest, ScenariosSayWhatAKeyCannot) {
  EXPECT_EQ(Yaml(R"(
owner: [{kind: 65536, number: 1}, {kind: 7, number: 1, record: {number: 9}}]
)",
                 "owner"),
            "owner:\n"
            "  - {kind: 65536, number: 1}\n"
            "  - {kind: 7, number: 1, record: {number: 9}}\n");
}

// Of structures in the same bytes one is enough when it says all that the other does.
TEST_F(FormsTest, ScenariosOfVariants) {
  EXPECT_EQ(Yaml(R"(
owner: [{kind: 0, number: 1}, {kind: 1, number: 1}, {kind: 3, number: 1}]
owned:
  - {kind: 0, number: 1, place: 0, near: {high: 2}}
  - {kind: 1, number: 1, place: 0, far: {b: 7}}
  - {kind: 3, number: 1, place: 0, far: {a: 1, b: 2}}
  - {kind: 3, number: 1, place: 1, both: {a: 1}}
  - {kind: 3, number: 1, place: 2, both: {rest: 5}}
  - {kind: 3, number: 1, place: 3, both: {a: 0x01000000}}
  - {kind: 3, number: 1, place: 4}
  - {kind: 3, number: 1, place: 5, far: {a: 1}, both: {a: 0x02000001}}
)",
                 "owned"),
            "owned:\n"
            "  - {kind: 0, number: 1, place: 0, near: {high: 2}}\n"
            "  - {kind: 1, number: 1, place: 0, far: {b: 7}}\n"
            "  - {kind: 3, number: 1, place: 0, both: {a: 131073}}\n"
            "  - {kind: 3, number: 1, place: 1, both: {a: 1}}\n"
            "  - {kind: 3, number: 1, place: 2, both: {rest: 5}}\n"
            "  - {kind: 3, number: 1, place: 3, both: {a: 16777216}}\n"
            "  - {kind: 3, number: 1, place: 4}\n"
            "  - {kind: 3, number: 1, place: 5, both: {a: 33554433}}\n");
  // The built-in layouts have such structures whose fields do not cover each other's.
  const TableLayout &rules = *Layout::BuiltIn().FindTable("acl_rule");
  TestArena built(directory_.File("built"), Layout::BuiltIn());
  Scenario::FromText("s.yaml", R"(
acl_group: [{group_type: 3, group_id: 1}]
acl_rule:
  - {group_type: 3, group_id: 1, priority: 1, ipv6: {key: {destination: "2001:db8::1", is_ipv6: 1}}}
  - {group_type: 3, group_id: 1, priority: 2, l2_ipv4: {key: {l2: {dmac: 02:00:5e:00:53:01}, ipv4: {protocol: 6}}}}
)",
                     Layout::BuiltIn())
      .Fill(&built.arena(), &built.writer());
  const RecordShape shape = RecordShape::Whole(rules);
  StringOut out;
  YamlWriter yaml(&out, shape);
  const auto source = built.Source();
  for (EntryReader reader(*source, rules); reader.Next();) yaml.Record(RecordBytes(*source, reader));
  EXPECT_EQ(out.Take(),
            "{group_type: 3, group_id: 1, priority: 1, ipv6: {key: {destination: '2001:db8::1', is_ipv6: 1}}}"
            "{group_type: 3, group_id: 1, priority: 2, l2_ipv4: {key: {l2: {dmac: '02:00:5e:00:53:01'}, "
            "ipv4: {protocol: "
            "6}}}}");
}

TEST_F(FormsTest, ScenariosCountTheirValues) {
  Load("things: [{index: 1, numbers: [1, 2], next: {things: {stale: {}}}, part: {a: 1}}]");
  const RecordShape shape =
      RecordShape::Select(*ThingsLayout().FindTable("things"), "index,numbers,next,part");
  StringOut out;
  YamlWriter yaml(&out, shape);
  const auto source = arena_.Source();
  EntryReader reader(*source, *ThingsLayout().FindTable("things"));
  ASSERT_TRUE(reader.Next());
  yaml.Record(RecordBytes(*source, reader));
  EXPECT_EQ(out.Take(), "{index: 1, numbers: [1, 2], next: {things: {stale: {}}}, part: {a: 1}}");
  // The entry, four names, 1, a list of two, {things: {stale: {}}} of five, {a: 1} of three.
  EXPECT_EQ(yaml.values(), 1u + 4 + 1 + 3 + 5 + 3);
}

TEST_F(FormsTest, ScenariosSayThatTheyAreCut) {
  Load("list: [{owner: 1, value: 5}, {owner: 1, value: 6}]");
  ListRequest request = Request("list", {});
  request.limit = 1;
  EXPECT_EQ(List(RecordFormat::kYaml, request),
            "list:\n  - {owner: 1, value: 5}\n# truncated behind 1 entries\n");
}

}  // namespace
}  // namespace qdt::host
