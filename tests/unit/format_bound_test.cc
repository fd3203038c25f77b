#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

#include "src/om/common/text.h"

// How many characters a format takes at most, which the compiler works out: where so many are left, a text is
// printed without a look at the room before each step. What is known at run time only counts nothing.
namespace qdt::test {
namespace {

template <format::Format F, typename... Args>
int Bound() {
  return format::kProgram<F, format::TextKind<Args>()...>.head.bound;
}

TEST(FormatBoundTest, NumbersAreAsLongAsTheirLongest) {
  EXPECT_EQ((Bound<"%hhu", uint8_t>()), 3);   // 255
  EXPECT_EQ((Bound<"%hu", uint16_t>()), 5);   // 65535
  EXPECT_EQ((Bound<"%u", uint32_t>()), 10);   // 4294967295
  EXPECT_EQ((Bound<"%lu", uint64_t>()), 20);  // 18446744073709551615
  EXPECT_EQ((Bound<"%llu", unsigned long long>()), 20);
  EXPECT_EQ((Bound<"%hhd", int8_t>()), 4);   // -128
  EXPECT_EQ((Bound<"%hd", int16_t>()), 6);   // -32768
  EXPECT_EQ((Bound<"%d", int32_t>()), 11);   // -2147483648
  EXPECT_EQ((Bound<"%ld", int64_t>()), 20);  // -9223372036854775808
  EXPECT_EQ((Bound<"%hhx", uint8_t>()), 2);
  EXPECT_EQ((Bound<"%x", uint32_t>()), 8);
  EXPECT_EQ((Bound<"%llx", unsigned long long>()), 16);
  EXPECT_EQ((Bound<"%7.3f", double>()), 314);  // a sign, 309 digits, a point and three behind it
}

TEST(FormatBoundTest, OtherValues) {
  EXPECT_EQ((Bound<"%c", char>()), 1);
  EXPECT_EQ((Bound<"%02x:%02x:%02x:%02x:%02x:%02x", Mac>()), 17);
  EXPECT_EQ((Bound<"%s", Ipv4>()), 15);  // 255.255.255.255
  EXPECT_EQ((Bound<"%s", Ipv6>()), 45);  // six groups of four digits and an IPv4 address
  EXPECT_EQ((Bound<"%s", Ipv6Words>()), 45);
  EXPECT_EQ((Bound<"%s", const char *>()), 0);
  EXPECT_EQ((Bound<"%s", std::string_view>()), 0);
}

TEST(FormatBoundTest, WidthsAndLiterals) {
  EXPECT_EQ((Bound<"%9u", uint32_t>()), 10);
  EXPECT_EQ((Bound<"%10u", uint32_t>()), 10);
  EXPECT_EQ((Bound<"%11u", uint32_t>()), 11);
  EXPECT_EQ((Bound<"%-30s", const char *>()), 30);
  EXPECT_EQ(Bound<"">(), 0);
  EXPECT_EQ(Bound<"abc">(), 3);
  EXPECT_EQ((Bound<"  Id  :  %u\n", uint32_t>()), 20);
  EXPECT_EQ((Bound<"%u, %u%%", uint32_t, uint32_t>()), 23);
}

}  // namespace
}  // namespace qdt::test
