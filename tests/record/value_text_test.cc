#include "host/layout/value_text.h"

#include <cstdio>

#include <gtest/gtest.h>

namespace qdt::host {
namespace {

std::string Escaped(std::string_view text) {
  std::string out;
  AppendEscaped(text, &out);
  return out;
}

TEST(EscapeTest, EveryByteComesBack) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    const bool isPlain = byte >= 0x20 && byte < 0x7f && byte != '\\';
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02x", byte);
    EXPECT_EQ(Escaped(one), isPlain ? one : byte == '\\' ? "\\\\" : hex) << byte;
    for (const std::string &text :
         {one, "a" + one + "b", one + one, "\\x" + one, "\xc3" + one, "\xf0\x9f\x98" + one}) {
      std::string bytes;
      ASSERT_TRUE(Unescape(Escaped(text), &bytes)) << byte;
      EXPECT_EQ(bytes, text) << byte;
    }
  }
}

struct Text {
  const char *bytes;
  const char *escaped;
};

TEST(EscapeTest, CharactersAreUtf8OfUnicode) {
  const Text texts[] = {
      {"", ""},
      {"\xc3\xa4", "ä"},
      {"\xc2\xa0", "\xc2\xa0"},    // the first that is no control character
      {"\xc2\x9f", "\\xc2\\x9f"},  // the last that is
      {"\xc2\x80", "\\xc2\\x80"},
      {"\xdf\xbf", "\xdf\xbf"},
      {"\xc0\x80", "\\xc0\\x80"},  // overlong NUL
      {"\xc1\xbf", "\\xc1\\xbf"},
      {"\xe0\xa0\x80", "\xe0\xa0\x80"},
      {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},  // overlong
      {"\xed\x9f\xbf", "\xed\x9f\xbf"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},  // surrogate
      {"\xef\xbf\xbf", "\xef\xbf\xbf"},
      {"\xf0\x90\x80\x80", "\xf0\x90\x80\x80"},
      {"\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf"},  // overlong
      {"\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"},      // U+10FFFF
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond
      {"\xf5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
      {"\xff\xfe", "\\xff\\xfe"},
      {"\xe2\x82", "\\xe2\\x82"},  // cut
      {"\xe2\x82x", "\\xe2\\x82x"},
      {"\xf0\x9f\x98", "\\xf0\\x9f\\x98"},
      {"\x80\xbf", "\\x80\\xbf"},  // what only follows others
      {"\xe2\x28\xa1", "\\xe2(\\xa1"},
      {"a\xc3\xa4\xc3", "aä\\xc3"},
      {"\n\t\x1b[31m", "\\x0a\\x09\\x1b[31m"},
      {"\\x1b", "\\\\x1b"},
  };
  for (const Text &text : texts) {
    EXPECT_EQ(Escaped(text.bytes), text.escaped);
    std::string bytes;
    EXPECT_TRUE(Unescape(text.escaped, &bytes)) << text.escaped;
    EXPECT_EQ(bytes, text.bytes);
  }
}

TEST(EscapeTest, WhatNobodyWroteIsRefused) {
  for (const char *text :
       {"\\", "a\\", "\\x", "\\x1", "\\xg0", "\\x0g", "\\n", "\\X1b", "\\\\\\", "\\ x1b"}) {
    std::string bytes = "kept";
    EXPECT_FALSE(Unescape(text, &bytes)) << text;
  }
  std::string bytes;
  EXPECT_TRUE(Unescape("\\xAb\\xaB", &bytes));
  EXPECT_EQ(bytes, "\xab\xab");
}

std::string Written(const FieldRef &field, WideValue value) {
  char out[kValueRoom];
  return {out, WriteValue(field, value, out)};
}

TEST(WriteValueTest, LongestOfEachKind) {
  EXPECT_EQ(Written({0, 8, FieldKind::kUnsigned, 0, 0}, UINT64_MAX), "18446744073709551615");
  EXPECT_EQ(Written({0, 8, FieldKind::kSigned, 0, 0}, static_cast<WideValue>(INT64_MIN)),
            "-9223372036854775808");
  EXPECT_EQ(Written({0, 1, FieldKind::kSigned, 0, 0}, ~WideValue{0}), "-1");
  EXPECT_EQ(Written({0, 4, FieldKind::kIpv4, 0, 0}, 0xffffffff), "255.255.255.255");
  EXPECT_EQ(Written({0, 6, FieldKind::kMac, 0, 0}, 0x02005e0053ff), "02:00:5e:00:53:ff");
  const FieldRef ip6{0, 16, FieldKind::kIpv6, 0, 0};
  EXPECT_EQ(Written(ip6, 0), "::");
  EXPECT_EQ(Written(ip6, 1), "::1");
  EXPECT_EQ(Written(ip6, ~WideValue{0}), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
  EXPECT_EQ(Written(ip6, WideValue{0x20010db800000000} << 64 | 0x10000), "2001:db8::1:0");
  char out[kValueRoom];
  EXPECT_EQ(std::string(out, WriteHex(0, out)), "0x0");
  EXPECT_EQ(std::string(out, WriteHex(UINT64_MAX, out)), "0xffffffffffffffff");
}

TEST(WriteValueTest, DigitsOfEveryLength) {
  const FieldRef number{0, 8, FieldKind::kUnsigned, 0, 0};
  uint64_t power = 1;
  for (int digits = 1; digits <= 20; ++digits, power *= 10) {
    for (const uint64_t value : {power - 1, power, power + 1, power * 7 + power / 3, power * 99 / 10})
      EXPECT_EQ(Written(number, value), std::to_string(value));
  }
  for (uint32_t value = 0; value < 20000; ++value) EXPECT_EQ(Written(number, value), std::to_string(value));
  EXPECT_EQ(Written({0, 4, FieldKind::kSigned, 0, 0}, ~WideValue{0} - 9999), "-10000");
}

TEST(WriteValueTest, EveryByteOfAnAddress) {
  for (uint32_t byte = 0; byte < 256; ++byte) {
    char wanted[kValueRoom];
    std::snprintf(wanted, sizeof(wanted), "%02x:00:5e:%02x:53:%02x", byte, byte, 255 - byte);
    const uint64_t mac = uint64_t{byte} << 40 | 0x5eull << 24 | byte << 16 | 0x53 << 8 | (255 - byte);
    EXPECT_EQ(Written({0, 6, FieldKind::kMac, 0, 0}, mac), wanted);
    std::snprintf(wanted, sizeof(wanted), "%u.0.%u.%u", byte, byte, 255 - byte);
    EXPECT_EQ(Written({0, 4, FieldKind::kIpv4, 0, 0}, byte << 24 | byte << 8 | (255 - byte)), wanted);
  }
}

TEST(NarrowAddressTest, ByWhatStandsBehind) {
  const FieldRef area{4, 16, FieldKind::kAddress, 0, 0};
  uint8_t record[20] = {};
  EXPECT_EQ(NarrowAddressIn(area, record).kind, FieldKind::kIpv4);
  record[4 + 3] = 192;
  EXPECT_EQ(NarrowAddressIn(area, record).kind, FieldKind::kIpv4);
  record[4 + 5] = 1;
  EXPECT_EQ(NarrowAddressIn(area, record).kind, FieldKind::kMac);
  record[4 + 15] = 1;
  EXPECT_EQ(NarrowAddressIn(area, record).kind, FieldKind::kIpv6);
  EXPECT_EQ(NarrowAddressIn(area, record).offset, 4u);
}

}  // namespace
}  // namespace qdt::host
