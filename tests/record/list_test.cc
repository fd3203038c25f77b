#include "host/record/list.h"

#include "host/arena/table_layout.h"
#include "tests/record/things.h"

namespace qdt::host {
namespace {

class ListTest : public ThingsTest {
 protected:
  void SetUp() override {
    Load(R"(
owner: [{kind: 0, number: 1}, {kind: 0, number: 2}]
owned:
  - {kind: 0, number: 1, place: 5, word: 1}
  - {kind: 0, number: 2, place: 1, word: 2}
  - {kind: 0, number: 1, place: 2, word: 3}
list: [{owner: 9, value: 3}, {owner: 8, value: 1}, {owner: 9, value: 2}, {owner: 9, value: 3}]
route: [{length: 24, vpn: 0, destination: 192.0.2.0}, {length: 0, vpn: 0, destination: 0.0.0.0}]
things:
  - {index: 4, signed_byte: 3, name: b, mac: 02:00:5e:00:53:04, seen: 5, part: {a: 1}}
  - {index: 2, signed_byte: -3, name: a, mac: 02:00:5e:00:53:02, seen: 500}
  - {index: 9, signed_byte: 0, name: c, mac: 02:00:5e:00:53:09, seen: 50, part: {a: 0}}
  - {index: 1, signed_byte: -3, name: '', mac: 02:00:5e:00:53:01, seen: 5000, part: {stale: 0x77}}
)");
  }

  // Makes the table's order useless: entries are found by their keys alone.
  void DamageOrder(std::string_view table) {
    const auto source = arena_.Source();
    const tbm::TableShape &shape = source->View(*ThingsLayout().FindTable(table))->shape();
    auto *log = reinterpret_cast<tbm::LogEntry *>(reinterpret_cast<char *>(arena_.arena().header()) +
                                                  shape.logOffset);
    for (uint32_t i = 0; i < 2 * shape.logRoom; ++i) {
      if (log[i].ref == 0) continue;
      log[i].ref = 0x7fffffff;
    }
  }

  std::string Sorted(std::string_view sort, uint64_t limit = UINT64_MAX,
                     std::string_view field = "index") const {
    ListRequest request = Request("things", {});
    request.sort = sort;
    request.limit = limit;
    std::string lines = List(RecordFormat::kCsv, request, field);
    std::string values;
    for (size_t at = lines.find('\n') + 1; at < lines.size(); at = lines.find('\n', at) + 1)
      values += (values.empty() ? "" : " ") + lines.substr(at, lines.find('\r', at) - at);
    return values;
  }
};

// The values of `index`, page by page; each page is asked for with the text that the one before ended with.
std::string PagesOf(const RecordSource &source, ListRequest request) {
  std::string pages;
  for (int page = 0; page < 10; ++page) {
    StringOut out;
    const RecordShape shape = RecordShape::Select(*request.table, "index");
    const auto sink = MakeSink(RecordFormat::kJsonLines, &out, {"table", "things", 0}, shape,
                               request.table->fields, 0, nullptr);
    ListResult result;
    RunList(source, request, sink.get(), &result);
    std::string text = out.Take();
    for (size_t at; (at = text.find("{\"index\":")) != text.npos;) {
      text.erase(0, at + 9);
      pages += text.substr(0, text.find('}')) + " ";
    }
    if (!result.truncated) return pages;
    pages += "| ";
    request.behind = ListPosition::Parse(result.last.Text());
    EXPECT_TRUE(request.behind);
  }
  return pages;
}

TEST_F(ListTest, PageByPage) {
  const auto source = arena_.Source();
  ListRequest request = Request("things", {});
  request.limit = 2;
  EXPECT_EQ(PagesOf(*source, request), "4 2 | 9 1 ");
  request.limit = 1;
  EXPECT_EQ(PagesOf(*source, request), "4 | 2 | 9 | 1 ");
  request.sort = "index";
  EXPECT_EQ(PagesOf(*source, request), "1 | 2 | 4 | 9 ");
  request.sort = "-signed_byte";
  EXPECT_EQ(PagesOf(*source, request), "4 | 9 | 2 | 1 ");
  request.sort = "name";
  EXPECT_EQ(PagesOf(*source, request), "1 | 2 | 4 | 9 ");
  request.sort = "-seen";
  EXPECT_EQ(PagesOf(*source, request), "1 | 2 | 9 | 4 ");
  request.sort = "part.a";
  EXPECT_EQ(PagesOf(*source, request), "2 | 9 | 1 | 4 ");
}

TEST_F(ListTest, APageOfAKeysEntries) {
  const auto source = arena_.Source();
  ListRequest request = Request("list", {"owner=9"});
  request.limit = 2;
  const ListResult first = RunList(*source, request, nullptr);
  EXPECT_TRUE(first.truncated);
  request.behind = first.last;
  const ListResult second = RunList(*source, request, nullptr);
  EXPECT_EQ(second.count, 1u);
  EXPECT_FALSE(second.truncated);
}

TEST(ListPositionTest, IsATextOfDigitsAndPoints) {
  EXPECT_EQ((ListPosition{31, 0, ""}.Text()), "1f");
  EXPECT_EQ((ListPosition{1, 0xc000020b, ""}.Text()), "1.c000020b");
  EXPECT_EQ((ListPosition{1, 0, "a\n"}.Text()), "1.0.610a");
  EXPECT_EQ((ListPosition{0, ~WideValue{0}, ""}.Text()), "0.ffffffffffffffffffffffffffffffff");
  const auto read = ListPosition::Parse("1.2.610a");
  ASSERT_TRUE(read);
  EXPECT_TRUE(read->serial == 1 && read->number == 2 && read->text == "a\n");
  for (const char *wrong : {"", ".", "1.", "x", "1.x", "1.2.6", "1.2.6x", "-1", "1 ", "11111111111111111",
                            "1.111111111111111111111111111111111"}) {
    EXPECT_FALSE(ListPosition::Parse(wrong)) << wrong;
  }
}

TEST_F(ListTest, InTheOrderOfInsertion) {
  EXPECT_EQ(Values("things", {}), "4 2 9 1");
  EXPECT_EQ(Values("list", {}, "value"), "3 1 2 3");
}

TEST_F(ListTest, WholeKeysAreLookedUp) {
  for (const std::string_view table : {"things", "owned", "list", "route"}) DamageOrder(table);
  EXPECT_EQ(Values("things", {"index=9"}), "9");
  EXPECT_EQ(Values("things", {"name=c", "index=9"}), "9");
  EXPECT_EQ(Values("things", {"index=9", "name=b"}), "");
  EXPECT_EQ(Values("things", {"index=10"}), "");
  EXPECT_EQ(Values("owned", {"kind=0", "number=1", "place=2"}, "word"), "3");
  EXPECT_EQ(Values("route", {"length=24", "vpn=0", "destination=192.0.2.0"}, "length"), "24");
  EXPECT_EQ(Values("route", {"length=24", "vpn=0", "destination=192.0.2.1"}, "length"), "");
  // All else walks, which the damage shows.
  const std::string astray = "index\r\n#error: the table things of " + directory_.File("arena") +
                             " is damaged (its order leads astray)\r\n!the table things of " +
                             directory_.File("arena") + " is damaged (its order leads astray)";
  EXPECT_EQ(List(RecordFormat::kCsv, Request("things", {"index>=9"}), "index"), astray);
  EXPECT_EQ(List(RecordFormat::kCsv, Request("things", {"name=c"}), "index"), astray);
  EXPECT_EQ(List(RecordFormat::kCsv, Request("things", {}), "index"), astray);
}

TEST_F(ListTest, ListsOfOneKeyAndGroupsAreWalkedAlone) {
  for (const std::string_view table : {"list", "owned"}) DamageOrder(table);
  EXPECT_EQ(Values("list", {"owner=9"}, "value"), "3 2 3");
  EXPECT_EQ(Values("list", {"owner=9", "value=3"}, "value"), "3 3");
  EXPECT_EQ(Values("list", {"owner=7"}, "value"), "");
  EXPECT_EQ(Values("owned", {"kind=0", "number=1"}, "word"), "1 3");
  EXPECT_EQ(Values("owned", {"kind=0", "number=1", "place>2"}, "word"), "1");
  EXPECT_EQ(Values("owned", {"kind=0", "number=3"}, "word"), "");
  EXPECT_NE(List(RecordFormat::kCsv, Request("owned", {"number=1"})).find("leads astray"), std::string::npos);
}

TEST_F(ListTest, WholeKeyTakesAValueForEachField) {
  const TableLayout &route = *ThingsLayout().FindTable("route");
  const auto key = [&](std::initializer_list<std::string_view> where) {
    const auto found = WholeKey(route, Request("route", where).where);
    return found ? Hex(*found) : "none";
  };
  EXPECT_EQ(key({"length=24", "vpn=1", "destination=192.0.2.0"}), "18000100 c0000200");
  EXPECT_EQ(key({"destination=192.0.2.0", "vpn=1", "length=24"}), "18000100 c0000200");
  EXPECT_EQ(key({"length=24", "vpn=1"}), "none");
  EXPECT_EQ(key({"length=24", "vpn>=1", "destination=192.0.2.0"}), "none");
  EXPECT_EQ(key({"length=24", "vpn=1", "destination=192.0.2.0/24"}), "none");
  const auto index = WholeKey(*ThingsLayout().FindTable("things"), Request("things", {"index=7"}).where);
  ASSERT_TRUE(index);
  EXPECT_EQ(Hex(*index), "00000500 07000000");
}

TEST_F(ListTest, Sorting) {
  EXPECT_EQ(Sorted("index"), "1 2 4 9");
  EXPECT_EQ(Sorted("-index"), "9 4 2 1");
  EXPECT_EQ(Sorted("signed_byte"), "2 1 9 4");  // equal ones as they came
  EXPECT_EQ(Sorted("-signed_byte"), "4 9 2 1");
  EXPECT_EQ(Sorted("name"), "1 2 4 9");
  EXPECT_EQ(Sorted("-name"), "9 4 2 1");
  EXPECT_EQ(Sorted("mac"), "1 2 4 9");
  EXPECT_EQ(Sorted("seen"), "4 9 2 1");
  EXPECT_EQ(Sorted("-seen"), "1 2 9 4");
  EXPECT_EQ(Sorted("numbers[1]"), "4 2 9 1");
  EXPECT_EQ(Sorted("part.a"), "2 9 1 4");  // what is not there counts as 0
}

TEST_F(ListTest, AddressesOfSeveralKindsAreSortedKindByKind) {
  Load(R"(
named:
  - {name: a, where: "2001:db8::2", value: 1}
  - {name: b, where: 192.0.2.1, value: 2}
  - {name: c, where: 02:00:5e:00:53:01, value: 3}
  - {name: d, where: 10.0.0.200, value: 4}
  - {name: e, where: "2001:db8::1:1", value: 5}
  - {name: f, where: 00:00:5e:00:53:02, value: 6}
)");
  ListRequest request = Request("named", {});
  request.sort = "where";
  EXPECT_EQ(List(RecordFormat::kCsv, request, "value"), "value\r\n4\r\n2\r\n6\r\n3\r\n1\r\n5\r\n");
  request.sort = "-where";
  request.limit = 2;
  EXPECT_EQ(List(RecordFormat::kCsv, request, "value"), "value\r\n5\r\n1\r\n#truncated behind 2 records\r\n");
}

TEST_F(ListTest, SortingWithALimitKeepsTheFirst) {
  EXPECT_EQ(Sorted("index", 4), "1 2 4 9");
  EXPECT_EQ(Sorted("index", 2), "1 2 #truncated behind 2 records");
  EXPECT_EQ(Sorted("-index", 3), "9 4 2 #truncated behind 3 records");
  EXPECT_EQ(Sorted("signed_byte", 1), "2 #truncated behind 1 records");
  EXPECT_EQ(Sorted("index", 0), "#truncated behind 0 records");
}

TEST_F(ListTest, SortedByThousands) {
  Load("things:\n  - {repeat: 200, index: {from: 1000, step: 1}, word: {from: 5000, step: -7}}\n");
  ListRequest request = Request("things", {"index>=1000"});
  request.sort = "word";
  request.limit = 5;
  EXPECT_EQ(List(RecordFormat::kCsv, request, "index"),
            "index\r\n1199\r\n1198\r\n1197\r\n1196\r\n1195\r\n#truncated behind 5 records\r\n");
}

TEST_F(ListTest, WrongSortFields) {
  const auto refusal = [&](std::string_view sort) {
    ListRequest request = Request("things", {});
    request.sort = sort;
    const std::string answer = List(RecordFormat::kCsv, request, "index");
    return answer.substr(answer.find('!') + 1);
  };
  EXPECT_EQ(refusal("indx"), R"(things has no field "indx" (did you mean index?))");
  EXPECT_EQ(refusal("numbers"), R"(--sort "numbers" is not one value (name an element or field))");
  EXPECT_EQ(refusal("-pairs"), R"(--sort "-pairs" is not one value (name an element or field))");
}

TEST_F(ListTest, CountsAlone) {
  const auto source = arena_.Source();
  ListRequest request = Request("things", {"signed_byte=-3"});
  EXPECT_EQ(RunList(*source, request, nullptr).count, 2u);
  request.limit = 1;
  const ListResult result = RunList(*source, request, nullptr);
  EXPECT_EQ(result.count, 1u);
  EXPECT_TRUE(result.truncated);
}

TEST_F(ListTest, FailuresShowInEachForm) {
  DamageOrder("list");
  const std::string line =
      "the table list of " + directory_.File("arena") + " is damaged (its order leads astray)";
  const ListRequest request = Request("list", {});
  EXPECT_EQ(List(RecordFormat::kJson, request), "{\"table\":\"list\",\"id\":2,\"records\":[\n!" + line);
  EXPECT_EQ(List(RecordFormat::kJsonLines, request), "{\"error\":\"" + line + "\"}\n!" + line);
  EXPECT_EQ(List(RecordFormat::kCsv, request), "owner,value\r\n#error: " + line + "\r\n!" + line);
  EXPECT_EQ(List(RecordFormat::kColumns, request), "error: " + line + "\n!" + line);
  const std::string yaml = List(RecordFormat::kYaml, request);
  EXPECT_EQ(yaml, "list:\n@error: " + line + "\n!" + line);
  // Nobody loads a part for the whole, nor when it failed behind some entries.
  const std::string text = yaml.substr(0, yaml.find('!'));
  for (const std::string &cut : {text, "list:\n  - {owner: 1, value: 2}" + text.substr(text.find('\n'))}) {
    const std::string refusal = ErrorOf([&] { Scenario::FromText("s.yaml", cut, ThingsLayout()); });
    EXPECT_TRUE(refusal.find(": YAML syntax: ") != refusal.npos) << cut << refusal;
  }
}

TEST_F(ListTest, OfTablesThatTheArenaHasNotOrHasOtherwise) {
  EXPECT_EQ(ErrorOf([&] {
              const auto source = arena_.Source();
              EntryReader(*source, *ThingsLayout().FindTable("filler_9"));
            }),
            "this engine has no table filler_9 (\"nqecli usage\" lists those it has)");
  const auto other = RecordSource::OfSnapshot(directory_.File("arena"), Layout::BuiltIn());
  EXPECT_EQ(ErrorOf([&] { EntryReader(*other, Layout::BuiltIn().Table(1)); }),
            "the table " + std::string(Layout::BuiltIn().Table(1).shortName) + " of " +
                directory_.File("arena") +
                " was made with another layout (its engine has nqed --layout; ask with show)");
}

// A live engine's entries come and go under the reader.
TEST_F(ListTest, WalksOfWhatChanges) {
  const auto source = arena_.LiveSource();
  EntryReader reader(*source, *ThingsLayout().FindTable("things"));
  ASSERT_TRUE(reader.Next());
  const tbm::Place first = reader.entry().place;
  const uint32_t keys[][2] = {{0x50000, 4}, {0x50000, 2}, {0x50000, 77}};
  std::vector<uint8_t> record(ThingsLayout().Table(0).spec.StoredSize());
  ASSERT_EQ(arena_.writer().Remove(0, keys[0]), 0);
  ASSERT_EQ(arena_.writer().Remove(0, keys[1]), 0);
  ASSERT_EQ(arena_.writer().Insert(0, keys[2], record.data(), nullptr), 0);
  EXPECT_FALSE(reader.Again(first));
  std::string walked;
  while (reader.Next())
    walked += std::to_string(ThingsLayout().Table(0).key.Find("index")->ref.Get(reader.entry().key)) + " ";
  EXPECT_EQ(walked, "9 1 ");  // what came after the walk began is not part of it
  EXPECT_TRUE(reader.Find(reinterpret_cast<const uint8_t *>(keys[2])));
  EXPECT_TRUE(reader.At(reader.entry().address));
  EXPECT_FALSE(reader.At(reader.entry().address + 1));
}

}  // namespace
}  // namespace qdt::host
