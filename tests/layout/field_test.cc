#include "host/layout/field.h"

#include <gtest/gtest.h>

#include <array>

#include "host/layout/field_line.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

FieldRef Line(std::string_view line) {
  LayoutStore store;
  Field field;
  std::string problem;
  EXPECT_TRUE(ParseFieldLine(line, &store, &field, &problem)) << problem;
  return field.ref;
}

struct Encoding {
  const char *line;
  const char *text;
  const char *bytes;  // of a 20-byte record that held 0xaa everywhere
};

class EncodingTest : public testing::TestWithParam<Encoding> {};

TEST_P(EncodingTest, WritesTheseBytesAndReadsThemBack) {
  const FieldRef field = Line(GetParam().line);
  std::array<uint8_t, 20> record;
  record.fill(0xaa);
  std::string problem;
  const std::optional<WideValue> value = ParseValue(field, GetParam().text, &problem);
  ASSERT_TRUE(value) << problem;
  field.Write(record.data(), *value);
  EXPECT_EQ(Hex(record), GetParam().bytes);
  EXPECT_TRUE(field.Read(record.data()) == *value);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, EncodingTest,
    testing::Values(Encoding{"0 u8", "0xfe", "feaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"1 u16", "258", "aa0201aa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"4 u32", "0x01020304", "aaaaaaaa 04030201 aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"4 u32", "4294967295", "aaaaaaaa ffffffff aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"8 u64", "0x0102030405060708", "aaaaaaaa aaaaaaaa 08070605 04030201 aaaaaaaa"},
                    Encoding{"8 u64", "18446744073709551615", "aaaaaaaa aaaaaaaa ffffffff ffffffff aaaaaaaa"},
                    Encoding{"0 i8", "-128", "80aaaaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 i16", "-2", "feffaaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 i32", "-0x10", "f0ffffff aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 i64", "-9223372036854775808", "00000000 00000080 aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 i64", "9223372036854775807", "ffffffff ffffff7f aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u32 bit 0", "1", "abaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u32 bit 1", "false", "a8aaaaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u32 bit 30", "true", "aaaaaaea aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u32 bits 0-15", "0x1234", "3412aaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u32 bits 24-26", "5", "aaaaaaad aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u8 bits 1-2", "3", "aeaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 u64 bit 63", "0", "aaaaaaaa aaaaaa2a aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 ipv4", "10.1.2.7", "0702010a aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 ipv4_net", "10.1.2.7", "0a010207 aaaaaaaa aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"0 ipv6", "2001:db8::7", "20010db8 00000000 00000000 00000007 aaaaaaaa"},
                    Encoding{"4 ipv6_words", "2001:db8:1:2::a0b",
                             "aaaaaaaa b80d0120 02000100 00000000 0b0a0000"},
                    Encoding{"2 mac", "02:00:5e:10:0a:ff", "aaaa0200 5e100aff aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"2 mac", "2-0-5E-10-a-FF", "aaaa0200 5e100aff aaaaaaaa aaaaaaaa aaaaaaaa"},
                    Encoding{"8 ref arp", "0x7f0000001000", "aaaaaaaa aaaaaaaa 00100000 007f0000 aaaaaaaa"}));

TEST(FieldTest, TextIsPaddedAndMayFillItsField) {
  const FieldRef field = Line("4 text 6");
  std::array<uint8_t, 12> record;
  record.fill(0xaa);
  field.SetText(record.data(), "nqe");
  EXPECT_EQ(Hex(record), "aaaaaaaa 6e716500 0000aaaa");
  EXPECT_EQ(field.GetText(record.data()), "nqe");
  field.SetText(record.data(), "abcdef");
  EXPECT_EQ(Hex(record), "aaaaaaaa 61626364 6566aaaa");
  EXPECT_EQ(field.GetText(record.data()), "abcdef");
}

TEST(FieldTest, GetAndSetTakePlainNumbers) {
  const FieldRef signedField = Line("0 i16");
  const FieldRef bits = Line("4 u32 bits 8-11");
  std::array<uint8_t, 8> record{};
  signedField.Set(record.data(), static_cast<uint64_t>(-300));
  bits.Set(record.data(), 9);
  EXPECT_EQ(Hex(record), "d4fe0000 00090000");
  EXPECT_EQ(static_cast<int64_t>(signedField.Get(record.data())), -300);
  EXPECT_EQ(bits.Get(record.data()), 9u);
}

struct Mistake {
  const char *line;
  const char *text;
  const char *problem;
};

class MistakeTest : public testing::TestWithParam<Mistake> {};

TEST_P(MistakeTest, SaysWhatIsWrong) {
  std::string problem;
  EXPECT_FALSE(ParseValue(Line(GetParam().line), GetParam().text, &problem));
  EXPECT_EQ(problem, GetParam().problem);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, MistakeTest,
    testing::Values(
        Mistake{"0 u8", "256", "256 does not fit 8 bits (0 to 255)"},
        Mistake{"0 u16", "-1", "-1 does not fit 16 bits (0 to 65535)"},
        Mistake{"0 u32", "0x100000000", "0x100000000 does not fit 32 bits (0 to 4294967295)"},
        Mistake{"0 u64", "18446744073709551616",
                "18446744073709551616 does not fit 64 bits (0 to 18446744073709551615)"},
        Mistake{"0 i8", "128", "128 does not fit 8 bits (-128 to 127)"},
        Mistake{"0 i32", "-2147483649", "-2147483649 does not fit 32 bits (-2147483648 to 2147483647)"},
        Mistake{"0 i64", "9223372036854775808",
                "9223372036854775808 does not fit 64 bits (-9223372036854775808 to 9223372036854775807)"},
        Mistake{"0 i64", "-18446744073709551615",
                "-18446744073709551615 does not fit 64 bits (-9223372036854775808 to 9223372036854775807)"},
        Mistake{"0 u32 bits 0-2", "8", "8 does not fit 3 bits (0 to 7)"},
        Mistake{"0 u32 bit 4", "2", "2 does not fit 1 bit (0 to 1)"},
        Mistake{"0 u32 bit 4", "yes", "\"yes\" is not a bit (write true)"},
        Mistake{"0 u32", "true", "\"true\" is not a number (decimal or 0x...)"},
        Mistake{"0 u32", "", "\"\" is not a number (decimal or 0x...)"},
        Mistake{"0 u32", "0x", "\"0x\" is not a number (decimal or 0x...)"},
        Mistake{"0 u32", "12abc", "\"12abc\" is not a number (decimal or 0x...)"},
        Mistake{"0 ipv4", "10.1.0", "\"10.1.0\" is not an IPv4 address (such as 192.0.2.1)"},
        Mistake{"0 ipv4_net", "10.1.0.256", "\"10.1.0.256\" is not an IPv4 address (such as 192.0.2.1)"},
        Mistake{"0 ipv6", "10.1.0.2", "\"10.1.0.2\" is not an IPv6 address (such as 2001:db8::1)"},
        Mistake{"0 ipv6_words", "2001:db8:::1",
                "\"2001:db8:::1\" is not an IPv6 address (such as 2001:db8::1)"},
        Mistake{"0 mac", "", "\"\" is not a MAC address (such as 02:00:5e:00:53:01)"},
        Mistake{"0 mac", "02:00:5e:10:00",
                "\"02:00:5e:10:00\" is not a MAC address (such as 02:00:5e:00:53:01)"},
        Mistake{"0 mac", "02:00:5e:10:00:123",
                "\"02:00:5e:10:00:123\" is not a MAC address (such as 02:00:5e:00:53:01)"},
        Mistake{"0 mac", "02:00:5e:10:00:0g",
                "\"02:00:5e:10:00:0g\" is not a MAC address (such as 02:00:5e:00:53:01)"}));

TEST(FieldLineTest, RejectsWhatItCannotRead) {
  const std::pair<const char *, const char *> kCases[] = {
      {"u32", "\"u32\" stands where the offset in bytes belongs (a number below 65536)"},
      {"-1 u32", "\"-1\" stands where the offset in bytes belongs (a number below 65536)"},
      {"65536 u8", "\"65536\" stands where the offset in bytes belongs (a number below 65536)"},
      {"0 u33", "\"u33\" is not a kind of field (did you mean u32?)"},
      {"0 boolean",
       "\"boolean\" is not a kind of field (u8 to u64, i8 to i64, ipv4, ipv4_net, ipv6, ipv6_words, mac, "
       "address, uptime_ago, time_ago, text or ref)"},
      {"0 u32 bit 32", "bits outside their word (0 to 31, the lower first)"},
      {"0 u32 bits 5-2", "bits outside their word (0 to 31, the lower first)"},
      {"0 u32 bits 5", "\"5\" is not a range of bits (write bits FIRST-LAST)"},
      {"0 i32 bit 1", "bits of something else than u8 to u64"},
      {"0 text", "\"\" stands where the text's length belongs (a number below 65536)"},
      {"0 text 0", "a text of no length (write text LENGTH)"},
      {"0 ref", "a reference to no table (write ref TABLE or ref TABLE|TABLE)"},
      {"0 u32 x 0", "an array of no elements (write x COUNT)"},
      {"0 u32 x 4 every 2", "elements that overlap (every at least their size)"},
      {"0 u16 = 65536", "65536 does not fit 16 bits (0 to 65535)"},
      {"0 mac =", "\"\" is not a MAC address (such as 02:00:5e:00:53:01)"},
      {"0 u16 host",
       "\"host\" is out of place (OFFSET TYPE, then bit, bits, x COUNT, every STRIDE, cleared_by, counter, "
       "clock, "
       "unit, leads_to, must_lead_to, agrees_with, counts, = VALUE or -- MEANING)"},
      {"0 mac counter", "\"counter\" is for numbers"},
      {"0 u16 unit", "a unit without a name (write unit bytes)"},
      {"0 ref t leads_to t", "\"leads_to\" names the table of a number that is its key"},
      {"0 u32 agrees_with index", "agrees_with names the fields that say which entry a reference leads to"},
      {"0 ipv4 counts list", "counts names the array whose elements a number counts"},
  };
  for (const auto &[line, expected] : kCases) {
    LayoutStore store;
    Field field;
    std::string problem;
    EXPECT_FALSE(ParseFieldLine(line, &store, &field, &problem)) << line;
    EXPECT_EQ(problem, expected) << line;
  }
}

}  // namespace
}  // namespace qdt::host
