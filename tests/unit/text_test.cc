#include "src/om/common/text.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

#include "src/om/common/section.h"

// What Text prints, stated literally. text_conversion_test.cc compares it with the C library.
namespace qdt::test {
namespace {

constexpr uint32_t kPlenty = 2000;

template <format::Format F, typename... Args>
std::string Printed(Args... args) {
  char area[kPlenty];
  Text text(area, sizeof(area));
  EXPECT_TRUE(text.Print<F>(args...));
  EXPECT_EQ(area[text.size()], '\0');
  return std::string(text.view());
}

TEST(TextTest, Literals) {
  EXPECT_EQ(Printed<"">(), "");
  EXPECT_EQ(Printed<"abc\n">(), "abc\n");
  EXPECT_EQ(Printed<"100%%">(), "100%");
  EXPECT_EQ(Printed<"%%%%a%%b">(), "%%a%b");
}

TEST(TextTest, Unsigned) {
  EXPECT_EQ(Printed<"%u">(0u), "0");
  EXPECT_EQ(Printed<"%u">(4294967295u), "4294967295");
  EXPECT_EQ(Printed<"<%u,%u>">(9u, 10u), "<9,10>");
  EXPECT_EQ(Printed<"%u">(uint8_t{255}), "255");
  EXPECT_EQ(Printed<"%u">(uint16_t{65535}), "65535");
  EXPECT_EQ(Printed<"%hu">(uint16_t{65535}), "65535");
  EXPECT_EQ(Printed<"%hu">(uint32_t{0x10007}), "7");
  EXPECT_EQ(Printed<"%hhu">(uint8_t{200}), "200");
  EXPECT_EQ(Printed<"%hhu">(uint32_t{0x1FF}), "255");
  EXPECT_EQ(Printed<"%lu">(uint64_t{18446744073709551615u}), "18446744073709551615");
  EXPECT_EQ(Printed<"%llu">(uint64_t{10000000000000000000u}), "10000000000000000000");
}

TEST(TextTest, Signed) {
  EXPECT_EQ(Printed<"%d">(0), "0");
  EXPECT_EQ(Printed<"%d">(-1), "-1");
  EXPECT_EQ(Printed<"%d">(2147483647), "2147483647");
  EXPECT_EQ(Printed<"%d">(INT32_MIN), "-2147483648");
  EXPECT_EQ(Printed<"%d">(uint16_t{65535}), "65535");
  EXPECT_EQ(Printed<"%d">(uint8_t{255}), "255");
  EXPECT_EQ(Printed<"%d">(int8_t{-128}), "-128");
  EXPECT_EQ(Printed<"%ld">(int64_t{-42}), "-42");
  EXPECT_EQ(Printed<"%ld">(INT64_MIN), "-9223372036854775808");
  EXPECT_EQ(Printed<"%lld">(INT64_MAX), "9223372036854775807");
}

TEST(TextTest, Hexadecimal) {
  EXPECT_EQ(Printed<"%x">(0u), "0");
  EXPECT_EQ(Printed<"%x">(0xDEADBEEFu), "deadbeef");
  EXPECT_EQ(Printed<"%02x">(uint8_t{0}), "00");
  EXPECT_EQ(Printed<"%02x">(uint8_t{0x0A}), "0a");
  EXPECT_EQ(Printed<"%02x">(0x1234u), "1234");
  EXPECT_EQ(Printed<"%04x">(uint16_t{0x806}), "0806");
  EXPECT_EQ(Printed<"%08x">(0x1Fu), "0000001f");
  EXPECT_EQ(Printed<"0x%016llx">(uint64_t{0x123456789ABCDEF}), "0x0123456789abcdef");
  EXPECT_EQ(Printed<"%02x:%02x:%02x">(uint8_t{1}, uint8_t{0xFE}, uint8_t{0}), "01:fe:00");
}

TEST(TextTest, TextsAndCharacters) {
  const char *const none = nullptr;
  const char unterminated[3] = {'x', 'y', 'z'};
  char writable[] = "rw";
  EXPECT_EQ(Printed<"%s">("abc"), "abc");
  EXPECT_EQ(Printed<"%s">(writable), "rw");
  EXPECT_EQ(Printed<"<%s>">(none), "<>");
  EXPECT_EQ(Printed<"<%5s>">(none), "<     >");
  EXPECT_EQ(Printed<"%s">(std::string_view(unterminated, 3)), "xyz");
  EXPECT_EQ(Printed<"%s">(std::string("string")), "string");
  EXPECT_EQ(Printed<"%c%c">('o', 'k'), "ok");
}

TEST(TextTest, Widths) {
  EXPECT_EQ(Printed<"<%-8s>">("abc"), "<abc     >");
  EXPECT_EQ(Printed<"<%8s>">("abc"), "<     abc>");
  EXPECT_EQ(Printed<"<%-2s>">("abc"), "<abc>");
  EXPECT_EQ(Printed<"<%5d>">(-42), "<  -42>");
  EXPECT_EQ(Printed<"<%05d>">(-42), "<-0042>");
  EXPECT_EQ(Printed<"<%-5d>">(-42), "<-42  >");
  EXPECT_EQ(Printed<"<%2d>">(-4200), "<-4200>");
  EXPECT_EQ(Printed<"<%-8u>">(7u), "<7       >");
  EXPECT_EQ(Printed<"<%3c>">('a'), "<  a>");
  EXPECT_EQ(Printed<"<%-3c>">('a'), "<a  >");
}

TEST(TextTest, WidthsThatAreArguments) {
  EXPECT_EQ(Printed<"<%*s>">(5, "ab"), "<   ab>");
  EXPECT_EQ(Printed<"<%-*s>">(5, "ab"), "<ab   >");
  EXPECT_EQ(Printed<"<%*s>">(-5, "ab"), "<ab   >");
  EXPECT_EQ(Printed<"<%-*s>">(-5, "ab"), "<ab   >");
  EXPECT_EQ(Printed<"<%*s>">(0, "ab"), "<ab>");
  EXPECT_EQ(Printed<"<%*u>">(4, 7u), "<   7>");
  EXPECT_EQ(Printed<"<%0*d>">(4, -7), "<-007>");
}

TEST(TextTest, MacAddresses) {
  const uint8_t mac[6] = {0x00, 0x1A, 0xFF, 0x07, 0xB0, 0x9C};
  EXPECT_EQ(Printed<"%02x:%02x:%02x:%02x:%02x:%02x">(Mac(mac)), "00:1a:ff:07:b0:9c");
  EXPECT_EQ(Printed<"<%02x:%02x:%02x:%02x:%02x:%02x, %u>\n">(Mac(mac), 5u), "<00:1a:ff:07:b0:9c, 5>\n");
}

TEST(TextTest, Ipv4Addresses) {
  EXPECT_EQ(Printed<"%s">(Address(uint32_t{0})), "0.0.0.0");
  EXPECT_EQ(Printed<"%s">(Address(uint32_t{0xFFFFFFFF})), "255.255.255.255");
  EXPECT_EQ(Printed<"ip %s\n">(Address(uint32_t{0x0A0B6409})), "ip 10.11.100.9\n");
  EXPECT_EQ(Printed<"<%-16s>">(Address(uint32_t{0xC0000201})), "<192.0.2.1       >");
}

struct Ipv6Case {
  uint32_t words[4];
  const char *text;
};

TEST(TextTest, Ipv6Addresses) {
  constexpr Ipv6Case kCases[] = {
      {{0, 0, 0, 0}, "::"},
      {{0, 0, 0, 1}, "::1"},
      {{0x00010000, 0, 0, 0}, "1::"},
      {{0x20010DB8, 0, 0, 0x00000001}, "2001:db8::1"},
      {{0x20010DB8, 0x00000000, 0x00010000, 0x00000001}, "2001:db8::1:0:0:1"},
      {{0x20010DB8, 0x00000001, 0x00000000, 0x00010001}, "2001:db8:0:1::1:1"},
      {{0x20010DB8, 0x00010002, 0x00030004, 0x00050000}, "2001:db8:1:2:3:4:5:0"},
      {{0x20010DB8, 0x00000001, 0x00020003, 0x00040005}, "2001:db8:0:1:2:3:4:5"},
      {{0xFE800000, 0, 0x021122FF, 0xFE334455}, "fe80::211:22ff:fe33:4455"},
      {{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
      {{0, 0, 0x0000FFFF, 0xC0000201}, "::ffff:192.0.2.1"},
      {{0, 0, 0, 0xC0000201}, "::192.0.2.1"},
      {{0, 0, 0x0000FFFE, 0xC0000201}, "::fffe:c000:201"},
  };
  for (const Ipv6Case &c : kCases) {
    uint8_t bytes[16];
    for (int i = 0; i < 16; ++i) bytes[i] = static_cast<uint8_t>(c.words[i / 4] >> (24 - i % 4 * 8));
    EXPECT_EQ(Printed<"%s">(Address(c.words)), c.text);
    EXPECT_EQ(Printed<"<%s>\n">(Address(bytes)), "<" + std::string(c.text) + ">\n");
  }
}

// Every pattern of zero words, held against the C library.
TEST(TextTest, Ipv6AddressesAsTheCLibrary) {
  for (unsigned pattern = 0; pattern < 256 * 4; ++pattern) {
    uint8_t bytes[16] = {};
    for (unsigned word = 0; word < 8; ++word) {
      if ((pattern & 1u << word) == 0) continue;
      bytes[2 * word] = pattern & 256 ? 0xFF : 0;
      bytes[2 * word + 1] = pattern & 512 ? 0xFF : static_cast<uint8_t>(word + 1);
    }
    char expected[INET6_ADDRSTRLEN];
    ASSERT_NE(inet_ntop(AF_INET6, bytes, expected, sizeof(expected)), nullptr);
    EXPECT_EQ(Printed<"%s">(Address(bytes)), expected) << pattern;
  }
}

#define QDT_TEN "0123456789"
#define QDT_HUNDRED QDT_TEN QDT_TEN QDT_TEN QDT_TEN QDT_TEN QDT_TEN QDT_TEN QDT_TEN QDT_TEN QDT_TEN

TEST(TextTest, LiteralsOfAnyLength) {
  const std::string hundred = QDT_HUNDRED;
  EXPECT_EQ(Printed<QDT_HUNDRED QDT_HUNDRED QDT_HUNDRED>(), hundred + hundred + hundred);
  EXPECT_EQ(Printed<"%u" QDT_HUNDRED QDT_HUNDRED QDT_HUNDRED "%s" QDT_TEN>(7u, "x"),
            "7" + hundred + hundred + hundred + "x0123456789");
  // "%%" at the place where a literal is divided.
  EXPECT_EQ(
      Printed<QDT_HUNDRED QDT_HUNDRED "0123456789012345678901234567890123456789012345678901234%%%u">(1u),
      hundred + hundred + "0123456789012345678901234567890123456789012345678901234%1");
}

// Whatever the literal's length, no byte but the text's and its NUL is written.
TEST(TextTest, WritesNothingBehindTheText) {
  char area[64];
  const auto expect = [&area](bool printed, const std::string &text) {
    EXPECT_TRUE(printed);
    EXPECT_EQ(std::string(area, sizeof(area)),
              text + std::string(1, '\0') + std::string(sizeof(area) - 1 - text.size(), '#'));
  };
  const auto fresh = [&area] {
    std::fill(std::begin(area), std::end(area), '#');
    return sizeof(area);
  };
  {
    Text text(area, fresh());
    expect(text.Print<"a">(), "a");
  }
  {
    Text text(area, fresh());
    expect(text.Print<"abc%u">(1u), "abc1");
  }
  {
    Text text(area, fresh());
    expect(text.Print<"abcdefg%u\n">(1u), "abcdefg1\n");
  }
  {
    Text text(area, fresh());
    expect(text.Print<"abcdefghijklmnop : %d\n">(-1), "abcdefghijklmnop : -1\n");
  }
  {
    Text text(area, fresh());
    expect(text.Print<"%s<">("abcdefghijklmnopqrstu"), "abcdefghijklmnopqrstu<");
  }
}

TEST(TextTest, Doubles) {
  EXPECT_EQ(Printed<"%7.3f">(0.0), "  0.000");
  EXPECT_EQ(Printed<"%7.3f">(-1.5), " -1.500");
  EXPECT_EQ(Printed<"%7.3f">(1234567.0), "1234567.000");
  EXPECT_EQ(Printed<"%10.3f">(3.14159), "     3.142");
  EXPECT_EQ(Printed<"%.3f">(2.0), "2.000");
}

TEST(TextTest, PrintsAddUp) {
  char area[kPlenty];
  Text text(area, sizeof(area));
  EXPECT_TRUE(text.Print<"a=%u\n">(1u));
  EXPECT_TRUE(text.Print<"b=%u\n">(2u));
  EXPECT_STREQ(area, "a=1\nb=2\n");
  EXPECT_EQ(text.size(), 8u);
  EXPECT_EQ(text.Room(), kPlenty - 8);
  EXPECT_EQ(text.Result(), 8);
  EXPECT_FALSE(text.failed());
}

// A format with every kind of piece; its text has 47 characters.
bool PrintMixed(Text &text) {
  return text.Print<"[%u|%5d|%-4s|%08x|%c|%02x|%*u|%lu|%%|%7.3f]\n">(4000000000u, -12, "ab", 0xBEEFu, 'z',
                                                                     uint8_t{7}, 3, 5u, uint64_t{99}, 2.5);
}
constexpr char kMixed[] = "[4000000000|  -12|ab  |0000beef|z|07|  5|99|%|  2.500]\n";

TEST(TextTest, AllOrNothingAtEveryRoom) {
  constexpr uint32_t kLength = sizeof(kMixed) - 1;
  // Up to a room at which the worst case of the format fits and no step is checked.
  for (uint32_t room = 1; room < kLength + 500; ++room) {
    const auto area = std::make_unique<char[]>(room);
    Text text(area.get(), room);
    EXPECT_STREQ(area.get(), "");
    EXPECT_EQ(PrintMixed(text), room > kLength) << room;
    EXPECT_STREQ(area.get(), room > kLength ? kMixed : "") << room;
    EXPECT_EQ(text.Result(), room > kLength ? static_cast<int32_t>(kLength) : -120) << room;
  }
}

TEST(TextTest, FailureKeepsWhatStoodBeforeAndIsRemembered) {
  const auto area = std::make_unique<char[]>(8);
  Text text(area.get(), 8);
  EXPECT_TRUE(text.Print<"%s">("abcd"));
  EXPECT_FALSE(text.Print<"%s">("efgh"));
  EXPECT_STREQ(area.get(), "abcd");
  EXPECT_FALSE(text.Print<"x">());  // would fit
  EXPECT_STREQ(area.get(), "abcd");
  EXPECT_TRUE(text.failed());
  EXPECT_EQ(text.size(), 4u);
  EXPECT_EQ(text.Room(), 0u);
  EXPECT_EQ(text.Result(), -120);
}

// A label of 16 to 32 characters before a plain number is copied in another way than others: in a line of its
// own, at a text's end, between others, and at the bounds of its length.
TEST(TextTest, LabelsWhereverTheyStand) {
  char area[kPlenty];
  Text text(area, sizeof(area));
  text.Print<"  Sixteen chars:%u\n">(7u);
  text.Print<"  Fifteen char:%u\n">(12345u);
  text.Print<"  A label of thirty-two letters:%u\n">(4294967295u);
  text.Print<"  A label of thirty-four letters.:%lu\n">(uint64_t{18446744073709551615u});
  text.Print<"  At the end    :  %u">(10u);
  text.Print<"|  After another :  %u  In the middle :  %u\n\n">(9u, 100u);
  text.Print<"  Signed number :  %d\n">(-1);
  EXPECT_STREQ(area,
               "  Sixteen chars:7\n"
               "  Fifteen char:12345\n"
               "  A label of thirty-two letters:4294967295\n"
               "  A label of thirty-four letters.:18446744073709551615\n"
               "  At the end    :  10|  After another :  9  In the middle :  100\n\n"
               "  Signed number :  -1\n");
}

TEST(TextTest, FillsItsRoomToTheLastByte) {
  const auto area = std::make_unique<char[]>(8);
  Text text(area.get(), 8);
  EXPECT_TRUE(text.Print<"%s">("abcdefg"));
  EXPECT_EQ(text.Room(), 1u);
  EXPECT_TRUE(text.Print<"">());
  EXPECT_EQ(text.Result(), 7);
  EXPECT_FALSE(text.Print<"%u">(1u));
  EXPECT_STREQ(area.get(), "abcdefg");
}

TEST(TextTest, NoRoomIsAFailureAndWritesNothing) {
  char area[1] = {'#'};
  Text text(area, 0);
  EXPECT_TRUE(text.failed());
  EXPECT_FALSE(text.Print<"">());
  EXPECT_FALSE(text.Print<"%u">(1u));
  EXPECT_EQ(text.Result(), -120);
  EXPECT_EQ(area[0], '#');

  Text nowhere(nullptr, 100);
  EXPECT_FALSE(nowhere.Print<"a">());
  EXPECT_EQ(nowhere.Result(), -120);
}

TEST(TextTest, FailMakesTheWholeTextAFailure) {
  char area[kPlenty];
  Text text(area, sizeof(area));
  text.Print<"abc">();
  text.Fail();
  EXPECT_FALSE(text.Print<"def">());
  EXPECT_EQ(text.Result(), -120);
  EXPECT_STREQ(area, "abc");
}

TEST(TextTest, HugeWidthDoesNotFit) {
  char area[100];
  Text text(area, sizeof(area));
  EXPECT_FALSE(text.Print<"%*u">(INT32_MAX, 1u));
  EXPECT_STREQ(area, "");
  Text negative(area, sizeof(area));
  EXPECT_FALSE(negative.Print<"%*u">(INT32_MIN, 1u));
  EXPECT_STREQ(area, "");
}

TEST(SectionTest, PadsLabelsToTheColumn) {
  char area[kPlenty];
  Text text(area, sizeof(area));
  Section<10> section(text);
  section.Line<"Short">(7u);
  section.Line<"ExactlyTen">(8u);
  section.Line<"LongerThanTen">(9u);
  section.Line<"Own:">(10u);
  section.Line<"Flag", "%08x">(0xABu);
  section.Line<"Two", "%u/%d">(1u, -2);
  section.MacLine<"Mac">({0, 1, 0x2A, 0xFF, 0x10, 5});
  EXPECT_STREQ(area,
               "  Short     :  7\n"
               "  ExactlyTen:  8\n"
               "  LongerThanTen:  9\n"
               "  Own:      :  10\n"
               "  Flag      :  000000ab\n"
               "  Two       :  1/-2\n"
               "  Mac       :  00:01:2a:ff:10:05\n");
}

}  // namespace
}  // namespace qdt::test
