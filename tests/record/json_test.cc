#include "host/record/record_json.h"

#include "host/layout/value_text.h"

#include "tests/record/things.h"

namespace qdt::host {
namespace {

class JsonTest : public ThingsTest {
 protected:
  // The fields of the entry that has this index.
  std::string Record(uint32_t index, std::string_view fields) const {
    const std::string condition = "index=" + std::to_string(index);
    std::string line = List(RecordFormat::kJsonLines, Request("things", {condition}), fields);
    if (line.ends_with('\n')) line.pop_back();
    return line;
  }
  // Overwrites bytes of the entry's record.
  void Poke(uint32_t index, uint32_t offset, uint64_t value, uint32_t size = 8) {
    void *place = Address(0, {0x50000, index});
    ASSERT_NE(place, nullptr);
    const TableSpec &spec = ThingsLayout().Table(0).spec;
    std::vector<uint8_t> record(static_cast<uint8_t *>(place),
                                static_cast<uint8_t *>(place) + spec.StoredSize());
    std::memcpy(record.data() + offset, &value, size);
    ASSERT_EQ(arena_.writer().Update(0, place, record.data()), 0);
  }
  static std::string Hex(const void *address) {
    char text[kValueRoom];
    return {text, WriteHex(reinterpret_cast<uint64_t>(address), text)};
  }
};

TEST_F(JsonTest, WholeRecord) {
  Load(R"(
other: [{group: 1, number: 2}]
things:
  - {index: 7, byte: 255, signed_byte: -128, flag: 1, some_bits: 9, word: 4294967295, signed_word: -2147483648,
     long: 18446744073709551615, signed_long: -9223372036854775808, ip: 192.0.2.7, ip_net: 198.51.100.7,
     ip6: "2001:db8::7", ip6_words: "2001:db8:0:1::7", mac: 02:00:5e:00:53:0a, count: 2, name: lab,
     numbers: [65535], pairs: [{low: 1}, {on: 1, ports: [7, 8]}], inner: {value: 3}, peer: {group: 1, number: 2},
     next: {other: {group: 1, number: 2}}, peers: [0, {index: 7}], seen: 4294967295, made: 4294967295,
     part6: {b: 18446744073709551615}, tail: {}}
)");
  std::string line = Record(7, "");
  // The time since the clocks began.
  const std::string before = line.substr(0, line.find("\"seen\":"));
  const std::string behind = line.substr(line.find("\"part6\":"));
  EXPECT_EQ(
      before,
      R"({"index":7,"byte":255,"signed_byte":-128,"flag":true,"some_bits":9,"word":4294967295,)"
      R"("signed_word":-2147483648,"long":18446744073709551615,"signed_long":-9223372036854775808,)"
      R"("ip":"192.0.2.7","ip_net":"198.51.100.7","ip6":"2001:db8::7","ip6_words":"2001:db8:0:1::7",)"
      R"("mac":"02:00:5e:00:53:0a","count":2,"name":"lab","numbers":[65535,0],)"
      R"("pairs":[{"low":1,"on":false,"ports":[]},{"low":0,"on":true,"ports":[7,8]}],"inner":{"value":3},)"
      R"("peer":{"group":1,"number":2},"next":{"other":{"group":1,"number":2}},"peers":[null,{"index":7}],)");
  EXPECT_EQ(behind, R"("part6":{"b":18446744073709551615},"tail":{"c":0}})");
}

TEST_F(JsonTest, RecordOfZeros) {
  Load("things: [{index: 0}]");
  EXPECT_EQ(
      Record(0, "index,byte,flag,ip,ip6,mac,name,numbers,pairs,inner,peer,next,peers,seen"),
      R"({"index":0,"byte":0,"flag":false,"ip":"0.0.0.0","ip6":"::","mac":"00:00:00:00:00:00","name":"",)"
      R"("numbers":[],"pairs":[],"inner":{"value":0},"peer":null,"next":null,"peers":[],"seen":0})");
}

TEST_F(JsonTest, ChosenFields) {
  Load("things: [{index: 1, numbers: [1, 2, 3], pairs: [{low: 5}, {low: 6, on: 1}]}]");
  EXPECT_EQ(Record(1, "numbers[1],index"), R"({"numbers[1]":2,"index":1})");
  EXPECT_EQ(Record(1, "pairs.low"), R"({"pairs":[{"low":5},{"low":6}]})");
  EXPECT_EQ(Record(1, "pairs[1].on"), R"({"pairs[1]":{"on":true}})");
  EXPECT_EQ(Record(1, "tail"), "{}");
}

TEST_F(JsonTest, ArraysEndWithTheirLastValueOrTheirCount) {
  Load(R"(
things:
  - {index: 1, numbers: [0, 5]}
  - {index: 2, numbers: [1], count: 3}
  - {index: 3, numbers: [1, 0, 7], count: 1}
  - {index: 4, numbers: [1], count: 4}
)");
  EXPECT_EQ(Record(1, "numbers"), R"({"numbers":[0,5]})");
  EXPECT_EQ(Record(2, "numbers"), R"({"numbers":[1,0,0]})");
  EXPECT_EQ(Record(3, "numbers"), R"({"numbers":[1,0,7]})");
  EXPECT_EQ(Record(4, "numbers"), R"({"numbers":[1]})");  // more than the array has counts nothing
}

TEST_F(JsonTest, ReferencesOfEachKind) {
  Load(R"(
other: [{group: 1, number: 2}]
things:
  - {index: 1, peer: {stale: {}}, next: {things: {stale: {}}}, peers: [{index: 1}, {stale: {}}, 0x5]}
  - {index: 2, peer: 0xffffffffffffffff, next: {things: {index: 1}}}
  - {index: 3}
)");
  const auto source = arena_.Source();
  const auto address = [&](std::string_view path) {
    return Hex(reinterpret_cast<void *>(
        ThingsLayout().Table(0).At(path).Get(static_cast<uint8_t *>(Address(0, {0x50000, 1})))));
  };
  EXPECT_EQ(Record(1, "peer,next,peers"), R"({"peer":{"stale":")" + address("peer") +
                                              R"("},"next":{"things":{"stale":")" + address("next") +
                                              R"("}},"peers":[{"index":1},{"stale":")" + address("peers[1]") +
                                              R"("},"0x5"]})");
  EXPECT_EQ(Record(2, "peer,next"), R"({"peer":"0xffffffffffffffff","next":{"things":{"index":1}}})");
  // An address beside an entry's own, and one of a table that the field does not lead to.
  const uint64_t other = reinterpret_cast<uint64_t>(Address(1, {1, 2}));
  Poke(3, 120, other + 1);
  EXPECT_EQ(Record(3, "peer"), R"({"peer":")" + Hex(reinterpret_cast<void *>(other + 1)) + "\"}");
  Poke(3, 120, other);
  EXPECT_EQ(Record(3, "peer"), R"({"peer":{"group":1,"number":2}})");
  Poke(3, 120, reinterpret_cast<uint64_t>(Address(0, {0x50000, 1})));
  EXPECT_EQ(Record(3, "peer"), R"({"peer":")" + Hex(Address(0, {0x50000, 1})) + "\"}");
}

TEST_F(JsonTest, RecordsThatSayAnotherThingThanTheirKey) {
  Load("things: [{index: 4294967295, record: {index: 3}}, {index: 3}]");
  EXPECT_EQ(Record(UINT32_MAX, "index,byte"), R"({"index":4294967295,"byte":0,"record":{"index":3}})");
  EXPECT_EQ(Record(UINT32_MAX, "byte"), R"({"byte":0})");
  EXPECT_EQ(Record(3, "index"), R"({"index":3})");
  Load("owner: [{kind: 65536, number: 1}]\nowned: [{kind: 65536, number: 1, place: 0, record: {kind: 0}}]");
  EXPECT_EQ(List(RecordFormat::kJsonLines, Request("owned", {})),
            R"({"kind":65536,"number":1,"place":0,"word":0,"record":{"kind":0}})"
            "\n");
}

TEST_F(JsonTest, VariantsByTheirKey) {
  Load(R"(
owner: [{kind: 0, number: 1}, {kind: 1, number: 1}, {kind: 2, number: 1}, {kind: 3, number: 1}]
owned:
  - {kind: 0, number: 1, place: 0, near: {low: 1, high: 2}}
  - {kind: 1, number: 1, place: 0, far: {a: 3}}
  - {kind: 2, number: 1, place: 0}
  - {kind: 3, number: 1, place: 0, far: {a: 5, b: 6}}
)");
  EXPECT_EQ(List(RecordFormat::kJsonLines, Request("owned", {})),
            R"({"kind":0,"number":1,"place":0,"word":0,"near":{"low":1,"high":2}}
{"kind":1,"number":1,"place":0,"word":0,"far":{"a":3,"b":0}}
{"kind":2,"number":1,"place":0,"word":0}
{"kind":3,"number":1,"place":0,"word":0,"far":{"a":5,"b":6},"both":{"a":393221,"rest":0}}
)");
}

TEST_F(JsonTest, AttachedPartsAndStrayedPointers) {
  Load(R"(
things:
  - {index: 1, part: {a: 1, ip: 10.0.0.1}, tail: {c: 2}}
  - {index: 2, flag: 1, part6: {b: 3}}
  - {index: 3, part: {stale: 0x77}}
  - {index: 4, flag: 1, part: {stale: 0x77}}
  - {index: 5}
)");
  EXPECT_EQ(Record(1, "part,part6,tail"), R"({"part":{"a":1,"ip":"10.0.0.1"},"tail":{"c":2}})");
  EXPECT_EQ(Record(2, "part,part6,tail"), R"({"part6":{"b":3}})");
  EXPECT_EQ(Record(3, "part,part6"), R"({"part":{"stale":"0x77"}})");
  EXPECT_EQ(Record(4, "part,part6"), R"({"part6":{"stale":"0x77"}})");
  EXPECT_EQ(Record(5, "part,part6,tail"), "{}");
  // Of another entry's part.
  const uint64_t strange = reinterpret_cast<uint64_t>(Address(0, {0x50000, 1})) + 192;
  Poke(5, 168, strange);
  EXPECT_EQ(Record(5, "part"), R"({"part":{"stale":")" + Hex(reinterpret_cast<void *>(strange)) + "\"}}");
}

TEST_F(JsonTest, TextsAreEscapedTwice) {
  Load(
      R"(things: [{index: 1, name: '\\"/é'}, {index: 2, name: '\x00A\x1b'}, {index: 3, name: '\x1b\xff\x7f\x0aé!'}])");
  EXPECT_EQ(Record(1, "name"), R"({"name":"\\\\\"/é"})");
  EXPECT_EQ(Record(2, "name"), R"({"name":""})");
  EXPECT_EQ(Record(3, "name"), R"({"name":"\\x1b\\xff\\x7f\\x0aé!"})");
}

TEST_F(JsonTest, KeysOfTextsAndAddresses) {
  Load(R"(
named:
  - {name: 'a"\x01', where: 192.0.2.1, value: 18446744073709551615}
  - {name: eightchr, where: "2001:db8::1"}
  - {name: '', where: 02:00:5e:00:53:01}
)");
  EXPECT_EQ(List(RecordFormat::kJsonLines, Request("named", {})),
            R"({"name":"a\"\\x01","where":"192.0.2.1","value":18446744073709551615}
{"name":"eightchr","where":"2001:db8::1","value":0}
{"name":"","where":"02:00:5e:00:53:01","value":0}
)");
}

TEST_F(JsonTest, Document) {
  Load("list: [{owner: 1, value: 5}, {owner: 1, value: 6}, {owner: 2, value: 7}]");
  ListRequest request = Request("list", {});
  EXPECT_EQ(
      List(RecordFormat::kJson, request),
      R"({"table":"list","id":2,"records":[{"owner":1,"value":5},{"owner":1,"value":6},{"owner":2,"value":7}],)"
      R"("count":3,"truncated":false})"
      "\n");
  request.limit = 1;
  EXPECT_EQ(List(RecordFormat::kJson, request),
            R"({"table":"list","id":2,"records":[{"owner":1,"value":5}],"count":1,"truncated":true})"
            "\n");
  request.limit = 0;
  EXPECT_EQ(List(RecordFormat::kJson, request),
            R"({"table":"list","id":2,"records":[],"count":0,"truncated":true})"
            "\n");
  EXPECT_EQ(List(RecordFormat::kJson, Request("other", {})),
            R"({"table":"other","id":1,"records":[],"count":0,"truncated":false})"
            "\n");
}

TEST_F(JsonTest, LinesSayThatTheyAreCut) {
  Load("list: [{owner: 1, value: 5}, {owner: 1, value: 6}]");
  ListRequest request = Request("list", {});
  request.limit = 1;
  EXPECT_EQ(List(RecordFormat::kJsonLines, request), R"({"owner":1,"value":5}
{"truncated":true,"count":1}
)");
}

TEST_F(JsonTest, Regions) {
  const RegionLayout &region = *ThingsLayout().FindRegion("TIMES");
  const RecordShape shape = RecordShape::Whole(region);
  const auto source = arena_.Source();
  const uint8_t bytes[16] = {7, 0, 2, 0, 0, 0, 9};
  StringOut out;
  JsonWriter json(out);
  WriteJson(&json, RecordBytes(*source, bytes, region.fields), shape);
  EXPECT_EQ(out.Take(), R"({"tcp":7,"used":2,"apps":[{"ttl":9},{"ttl":0}]})");
}

TEST(JsonWriterTest, PlainTextsOfAnyLength) {
  StringOut out;
  JsonWriter json(out);
  json.StartArray();
  std::string wanted = "[";
  for (const size_t size : {0u, 1u, 4093u, 4094u, 4095u, 70000u, 65536u}) {
    json.PlainText(std::string(size, 'x'));
    json.PlainNumber([](char *at) { return WriteHex(UINT64_MAX, at); });
    wanted += (wanted.size() > 1 ? ",\"" : "\"") + std::string(size, 'x') + "\",0xffffffffffffffff";
  }
  json.EndArray();
  EXPECT_EQ(out.Take(), wanted + "]");
}

}  // namespace
}  // namespace qdt::host
