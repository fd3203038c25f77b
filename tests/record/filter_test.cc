#include "host/record/filter.h"

#include "tests/record/things.h"

namespace qdt::host {
namespace {

class FilterTest : public ThingsTest {
 protected:
  void SetUp() override {
    Load(R"(
other: [{group: 1, number: 1}, {group: 1, number: 2}]
things:
  - {index: 1, byte: 0, signed_byte: -128, flag: 0, some_bits: 15, word: 7, signed_word: -5, long: 18446744073709551615,
     signed_long: -9223372036854775808, ip: 192.0.2.7, ip_net: 192.0.2.7, ip6: "2001:db8::7", ip6_words: "2001:db8::7",
     mac: 02:00:5e:00:53:01, name: lab-1, numbers: [1, 2, 3], pairs: [{low: 5}], peer: {group: 1, number: 1},
     next: {things: {index: 2}}, seen: 30, made: 30, part: {a: 9, ip: 10.0.0.1}}
  - {index: 2, byte: 5, signed_byte: -1, flag: 1, word: 8, signed_word: 5, long: 18446744073709551614, signed_long: -1,
     ip: 192.0.3.7, ip_net: 192.0.3.7, ip6: "2001:db9::7", ip6_words: "2001:db9::7", mac: 02:00:5e:00:53:02,
     name: lab-2, numbers: [3, 3, 3], pairs: [{low: 1}, {low: 5}], peer: {group: 1, number: 2}, next: {other: {stale: {}}},
     seen: 3000, made: 3000, part6: {b: 9}}
  - {index: 3, byte: 255, signed_byte: 127, name: '\x1b*\\', numbers: [0, 0, 9], peer: {stale: {}}, next: 0x1234, seen: 300,
     made: 300, part: {stale: 0x77}}
)");
  }
  std::string Which(std::string_view condition) const { return Values("things", {condition}); }
};

TEST_F(FilterTest, Numbers) {
  EXPECT_EQ(Which("byte=5"), "2");
  EXPECT_EQ(Which("byte==5"), "2");
  EXPECT_EQ(Which("byte=0x5"), "2");
  EXPECT_EQ(Which("byte!=5"), "1 3");
  EXPECT_EQ(Which("byte<5"), "1");
  EXPECT_EQ(Which("byte<=5"), "1 2");
  EXPECT_EQ(Which("byte>5"), "3");
  EXPECT_EQ(Which("byte>=5"), "2 3");
  EXPECT_EQ(Which("flag=true"), "2");
  EXPECT_EQ(Which("flag=0"), "1 3");
  EXPECT_EQ(Which("some_bits>=8"), "1");
  EXPECT_EQ(Which("inner.value=0"), "1 2 3");
}

TEST_F(FilterTest, SignedNumbersBelowZero) {
  EXPECT_EQ(Which("signed_byte=-128"), "1");
  EXPECT_EQ(Which("signed_byte<0"), "1 2");
  EXPECT_EQ(Which("signed_byte<=-1"), "1 2");
  EXPECT_EQ(Which("signed_byte>-2"), "2 3");
  EXPECT_EQ(Which("signed_byte>=127"), "3");
  EXPECT_EQ(Which("signed_word<0"), "1");
  EXPECT_EQ(Which("signed_long<-1"), "1");
  EXPECT_EQ(Which("signed_long>=-1"), "2 3");
}

TEST_F(FilterTest, NumbersOf64Bits) {
  EXPECT_EQ(Which("long=18446744073709551615"), "1");
  EXPECT_EQ(Which("long<18446744073709551615"), "2 3");
  EXPECT_EQ(Which("long>18446744073709551613"), "1 2");
  EXPECT_EQ(Which("signed_long=-9223372036854775808"), "1");
}

TEST_F(FilterTest, AddressesAndPrefixes) {
  for (const std::string field : {"ip", "ip_net"}) {
    EXPECT_EQ(Which(field + "=192.0.2.7"), "1");
    EXPECT_EQ(Which(field + "!=192.0.2.7"), "2 3");
    EXPECT_EQ(Which(field + "=192.0.2.0/24"), "1");
    EXPECT_EQ(Which(field + "=192.0.2.99/24"), "1");
    EXPECT_EQ(Which(field + "=192.0.2.0/23"), "1 2");
    EXPECT_EQ(Which(field + "!=192.0.2.0/23"), "3");
    EXPECT_EQ(Which(field + "=192.0.2.7/32"), "1");
    EXPECT_EQ(Which(field + "=0.0.0.0/0"), "1 2 3");
    EXPECT_EQ(Which(field + ">192.0.2.7"), "2");
    EXPECT_EQ(Which(field + "<=192.0.2.7"), "1 3");
  }
  for (const std::string field : {"ip6", "ip6_words"}) {
    EXPECT_EQ(Which(field + "=2001:db8::7"), "1");
    EXPECT_EQ(Which(field + "=2001:DB8:0::7"), "1");
    EXPECT_EQ(Which(field + "=2001:db8::/32"), "1");
    EXPECT_EQ(Which(field + "=2001:db8::/31"), "1 2");
    EXPECT_EQ(Which(field + "!=2001:db8::/31"), "3");
    EXPECT_EQ(Which(field + "=::/0"), "1 2 3");
    EXPECT_EQ(Which(field + "=2001:db8::7/128"), "1");
    EXPECT_EQ(Which(field + ">=2001:db8::7"), "1 2");
  }
}

TEST_F(FilterTest, MacAddressesAndTexts) {
  EXPECT_EQ(Which("mac=02:00:5e:00:53:01"), "1");
  EXPECT_EQ(Which("mac=2-0-5E-0-53-1"), "1");
  EXPECT_EQ(Which("mac=02:00:5E:*"), "1 2");
  EXPECT_EQ(Which("mac=*:02"), "2");
  EXPECT_EQ(Which("mac!=*:53:*"), "3");
  EXPECT_EQ(Which("mac>02:00:5e:00:53:01"), "2");
  EXPECT_EQ(Which("name=lab-1"), "1");
  EXPECT_EQ(Which("name=lab"), "");
  EXPECT_EQ(Which("name=lab*"), "1 2");
  EXPECT_EQ(Which("name=*a*-*"), "1 2");
  EXPECT_EQ(Which("name!=lab*"), "3");
  EXPECT_EQ(Which("name=\\x1b*"), "3");
  EXPECT_EQ(Which("name=*\\\\"), "3");
  EXPECT_EQ(Which("name>lab-1"), "2");
  EXPECT_EQ(Which("name<lab-1"), "3");
  EXPECT_EQ(Which("name<=lab-1"), "1 3");
  EXPECT_EQ(Which("name>=lab-2"), "2");
}

TEST_F(FilterTest, AnyElementOfAnArray) {
  EXPECT_EQ(Which("numbers=3"), "1 2");
  EXPECT_EQ(Which("numbers[0]=3"), "2");
  EXPECT_EQ(Which("numbers!=3"), "3");
  EXPECT_EQ(Which("numbers>3"), "3");
  EXPECT_EQ(Which("numbers<1"), "3");
  EXPECT_EQ(Which("pairs.low=5"), "1 2");
  EXPECT_EQ(Which("pairs[0].low=5"), "1");
}

TEST_F(FilterTest, References) {
  EXPECT_EQ(Which("peer=other/1/2"), "2");
  EXPECT_EQ(Which("peer=other/1/*"), "1 2");
  EXPECT_EQ(Which("peer!=other/1/2"), "1 3");
  EXPECT_EQ(Which("peer=stale"), "3");
  EXPECT_EQ(Which("peer=none"), "");
  EXPECT_EQ(Which("next=things/2"), "1");
  EXPECT_EQ(Which("next=stale"), "2");
  EXPECT_EQ(Which("next=other/stale"), "2");
  EXPECT_EQ(Which("next=0x1234"), "3");
  EXPECT_EQ(Which("peers=none"), "1 2 3");
  EXPECT_EQ(Which("peers!=0"), "");
}

TEST_F(FilterTest, ReferencesToWhatIsNoKey) {
  const auto refused = [&](std::string_view condition) {
    return ErrorOf([&] { RunList(*arena_.Source(), Request("things", {condition}), nullptr); });
  };
  EXPECT_EQ(
      refused("peer=other/1/x"),
      R"("peer=other/1/x": things.peer is a reference to other: "x" is not a number (decimal or 0x...))");
  EXPECT_EQ(refused("peer=other/1"),
            R"("peer=other/1": things.peer is a reference (write other/group/number))");
  EXPECT_EQ(refused("peer=other/"),
            R"("peer=other/": things.peer is a reference to other: "" is not a number (decimal or 0x...))");
  EXPECT_EQ(refused("peer=other/1/2/3"),
            R"("peer=other/1/2/3": things.peer is a reference (write other/group/number))");
  EXPECT_EQ(refused("peer!=other/1/0x2"),
            R"("peer!=other/1/0x2": things.peer is a reference that is shown as other/1/2 (write it so))");
  EXPECT_EQ(
      refused("next=things/99999999999"),
      R"("next=things/99999999999": things.next is a reference to things: 99999999999 does not fit 32 bits (0 to 4294967295))");
  for (const std::string_view right :
       {"peer=other/1/7", "next=things/2", "next=things/*", "next=other/stale", "next=0x1"})
    EXPECT_EQ(refused(right), "no error") << right;
}

TEST_F(FilterTest, PartsThatNotAllHave) {
  EXPECT_EQ(Which("part.a=9"), "1");
  EXPECT_EQ(Which("part.ip=10.0.0.0/8"), "1");
  EXPECT_EQ(Which("part.a>=0"), "1");
  EXPECT_EQ(Which("part6.b=9"), "2");
  EXPECT_EQ(Which("tail.c=0"), "");
  EXPECT_EQ(Which("part.a!=9"), "2 3");
}

TEST_F(FilterTest, TimesAreSecondsAgo) {
  for (const std::string field : {"seen", "made"}) {
    EXPECT_EQ(Which(field + "<200"), "1");
    EXPECT_EQ(Which(field + ">=300"), "2 3");
  }
}

TEST_F(FilterTest, AllConditionsHold) {
  EXPECT_EQ(Values("things", {"byte>=0", "word>0", "index!=1"}), "2");
  EXPECT_EQ(Values("things", {"index=1", "index=2"}), "");
}

TEST_F(FilterTest, AddressesOfSeveralKinds) {
  Load(R"(
named:
  - {name: a, where: 192.0.2.1, value: 1}
  - {name: b, where: "2001:db8::1", value: 2}
  - {name: c, where: 02:00:5e:00:53:01, value: 3}
)");
  EXPECT_EQ(Values("named", {"where=192.0.2.1"}, "value"), "1");
  EXPECT_EQ(Values("named", {"where=2001:db8::1"}, "value"), "2");
  EXPECT_EQ(Values("named", {"where=02:00:5e:00:53:01"}, "value"), "3");
  EXPECT_EQ(Values("named", {"where!=02:00:5e:00:53:01"}, "value"), "1 2");
  EXPECT_EQ(Values("named", {"where=192.0.2.1", "name=a"}, "value"), "1");
  EXPECT_EQ(Values("named", {"where=192.0.0.0/16"}, "value"), "1");
  EXPECT_EQ(Values("named", {"where=192.0.2.1/32"}, "value"), "1");
  EXPECT_EQ(Values("named", {"where!=192.0.0.0/16"}, "value"), "2 3");
  EXPECT_EQ(Values("named", {"where=0.0.0.0/0"}, "value"), "1");
  EXPECT_EQ(Values("named", {"where=2001:db8::/32"}, "value"), "2");
  EXPECT_EQ(Values("named", {"where=2001:db8::1/128", "name=b"}, "value"), "2");
  EXPECT_EQ(Values("named", {"where=::/0"}, "value"), "2");
  EXPECT_EQ(Values("named", {"where=192.0.2.1", "name=abcdefghijkl"}, "value"), "");
}

TEST_F(FilterTest, EveryMistakeHasALine) {
  EXPECT_EQ(Refusal("byte"), R"("byte" is no condition (write FIELD=VALUE, with = != < <= > or >=))");
  EXPECT_EQ(Refusal("=5"), R"("=5" is no condition (write FIELD=VALUE, with = != < <= > or >=))");
  EXPECT_EQ(Refusal("byte!"), R"("byte!" is no condition (write FIELD=VALUE, with = != < <= > or >=))");
  EXPECT_EQ(Refusal("byte!5"), R"("byte!5" is no condition (write FIELD!=VALUE))");
  EXPECT_EQ(Refusal("bite=5"), R"(things has no field "bite" (did you mean byte?))");
  EXPECT_EQ(Refusal("byte=256"), R"("byte=256": 256 does not fit 8 bits (0 to 255))");
  EXPECT_EQ(Refusal("signed_byte<-129"), R"("signed_byte<-129": -129 does not fit 8 bits (-128 to 127))");
  EXPECT_EQ(
      Refusal("long=18446744073709551616"),
      R"("long=18446744073709551616": 18446744073709551616 does not fit 64 bits (0 to 18446744073709551615))");
  EXPECT_EQ(Refusal("byte="), R"("byte=": "" is not a number (decimal or 0x...))");
  EXPECT_EQ(Refusal("byte>=x"), R"("byte>=x": "x" is not a number (decimal or 0x...))");
  EXPECT_EQ(Refusal("ip=192.0.2"), R"("ip=192.0.2": "192.0.2" is not an IPv4 address (such as 192.0.2.1))");
  EXPECT_EQ(
      Refusal("ip=192.0.2.0/33"),
      R"("ip=192.0.2.0/33": things.ip is not "192.0.2.0/33", which is no prefix (such as 192.0.2.0/24))");
  EXPECT_EQ(
      Refusal("ip=2001:db8::/32"),
      R"("ip=2001:db8::/32": things.ip is not "2001:db8::/32", which is no prefix (such as 192.0.2.0/24))");
  EXPECT_EQ(
      Refusal("ip6=2001:db8::/129"),
      R"("ip6=2001:db8::/129": things.ip6 is not "2001:db8::/129", which is no prefix (such as 2001:db8::/32))");
  EXPECT_EQ(Refusal("ip>192.0.2.0/24"),
            R"("ip>192.0.2.0/24": things.ip is compared with an address here (a prefix is for = and !=))");
  EXPECT_EQ(Refusal("mac=02:00"), R"("mac=02:00": "02:00" is not a MAC address (such as 02:00:5e:00:53:01))");
  EXPECT_EQ(Refusal("mac>02:*"), R"("mac>02:*": "02:*" is not a MAC address (such as 02:00:5e:00:53:01))");
  EXPECT_EQ(Refusal("name=a\\b"), R"("name=a\b": things.name is a text with a backslash (write \\ or \x1b))");
  EXPECT_EQ(Refusal("peer=5"),
            R"("peer=5": things.peer is a reference (write other/KEY, stale, none, or an address 0x...))");
  EXPECT_EQ(
      Refusal("peer=things/5"),
      R"("peer=things/5": things.peer is a reference (write other/KEY, stale, none, or an address 0x...))");
  EXPECT_EQ(Refusal("peer=0xz"),
            R"("peer=0xz": things.peer is a reference: "0xz" is not a number (decimal or 0x...))");
  EXPECT_EQ(Refusal("peer<none"), R"("peer<none": things.peer can be = or != only)");
  EXPECT_EQ(Refusal("where<10.0.0.1", "named"), R"("where<10.0.0.1": named.where can be = or != only)");
  EXPECT_EQ(
      Refusal("where=10.0.0.0/33", "named"),
      R"("where=10.0.0.0/33": named.where is not "10.0.0.0/33", which is no prefix (such as 192.0.2.0/24))");
  EXPECT_EQ(Refusal("part=5"), R"("part=5": name one field of the structure part)");
  EXPECT_EQ(Refusal("inner=5"), "no error");  // it has one value
}

TEST(MatchesTest, StarsStandForAnyCharacters) {
  for (const auto &[pattern, text] :
       std::initializer_list<std::pair<const char *, const char *>>{{"", ""},
                                                                    {"*", ""},
                                                                    {"*", "abc"},
                                                                    {"**", "abc"},
                                                                    {"a*", "a"},
                                                                    {"a*c", "abc"},
                                                                    {"a*c", "ac"},
                                                                    {"*b*", "abc"},
                                                                    {"a*b*c", "a-b-b-c"},
                                                                    {"*aab", "aaab"},
                                                                    {"*ab*ab", "abab"},
                                                                    {"abc", "abc"},
                                                                    {"a**c", "abc"}}) {
    EXPECT_TRUE(Matches(pattern, text)) << pattern << " " << text;
  }
  for (const auto &[pattern, text] :
       std::initializer_list<std::pair<const char *, const char *>>{{"", "a"},
                                                                    {"a", ""},
                                                                    {"a*", "ba"},
                                                                    {"a*c", "a"},
                                                                    {"a*a", "a"},
                                                                    {"*b*", "ac"},
                                                                    {"*ab*ab", "ab"},
                                                                    {"ab*ba", "aba"},
                                                                    {"abc", "abcd"},
                                                                    {"a*b*c", "acb"}}) {
    EXPECT_FALSE(Matches(pattern, text)) << pattern << " " << text;
  }
}

TEST(PrefixTest, AddressesAndPrefixes) {
  const auto shown = [](std::string_view text) -> std::string {
    const auto prefix = ParsePrefix(text);
    if (!prefix) return "none";
    const FieldKind kind = prefix->form == ValueForm::kIpv4 ? FieldKind::kIpv4 : FieldKind::kIpv6;
    const auto size = static_cast<uint16_t>(kind == FieldKind::kIpv4 ? 4 : 16);
    return ValueText({0, size, kind, 0, 0}, prefix->value) + "/" + std::to_string(prefix->length) + " " +
           ValueText({0, size, kind, 0, 0}, prefix->Mask());
  };
  EXPECT_EQ(shown("192.0.2.77"), "192.0.2.77/32 255.255.255.255");
  EXPECT_EQ(shown("192.0.2.77/24"), "192.0.2.0/24 255.255.255.0");
  EXPECT_EQ(shown("192.0.2.77/0"), "0.0.0.0/0 0.0.0.0");
  EXPECT_EQ(shown("2001:db8::77"), "2001:db8::77/128 ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
  EXPECT_EQ(shown("2001:db8::77/33"), "2001:db8::/33 ffff:ffff:8000::");
  EXPECT_EQ(shown("::/0"), "::/0 ::");
  for (const char *text :
       {"", "/", "192.0.2.77/", "192.0.2.77/33", "::/129", "192.0.2/24", "192.0.2.77/2x", "x", "1.2.3.4/-1"})
    EXPECT_EQ(shown(text), "none") << text;
}

}  // namespace
}  // namespace qdt::host
