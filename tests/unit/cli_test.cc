#include <array>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

#include "tests/fake_platform/fake_platform.h"

// The output buffer and the parsers of command words.
namespace qdt::test {
namespace {

class CliPrintfTest : public PlatformTest {
 protected:
  CliPrintfTest() { std::memset(area_.get(), '#', QDT_OUTPUT_CAPACITY); }

  // A heap block of exactly the capacity: a sanitizer sees a byte written behind it.
  std::unique_ptr<char[]> area_ = std::make_unique<char[]>(QDT_OUTPUT_CAPACITY);
  OutputBuffer out_ = {area_.get(), 0};
};

TEST_F(CliPrintfTest, Appends) {
  EXPECT_EQ(QdtCliPrintf(&out_, "%s=%d\n", "a", 1), 4);
  EXPECT_EQ(QdtCliPrintf(&out_, "b=%05.1f\n", 2.5), 8);
  EXPECT_EQ(out_.len, 12u);
  EXPECT_STREQ(out_.buf, "a=1\nb=002.5\n");
  EXPECT_EQ(out_.buf[13], '#');
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(CliPrintfTest, AppendsNothing) {
  EXPECT_EQ(QdtCliPrintf(&out_, "%s", ""), 0);
  EXPECT_EQ(out_.len, 0u);
  EXPECT_STREQ(out_.buf, "");
}

TEST_F(CliPrintfTest, FillsTheLastByte) {
  out_.len = 0xFFFFC;
  EXPECT_EQ(QdtCliPrintf(&out_, "abc"), 3);
  EXPECT_EQ(out_.len, 0xFFFFFu);
  EXPECT_STREQ(out_.buf + 0xFFFFC, "abc");
}

TEST_F(CliPrintfTest, CutsWhatDoesNotFit) {
  out_.len = 0xFFFFC;
  EXPECT_EQ(QdtCliPrintf(&out_, "abcdef"), 3);
  EXPECT_EQ(out_.len, 0xFFFFFu);
  EXPECT_STREQ(out_.buf + 0xFFFFC, "abc");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(CliPrintfTest, AFullBufferStaysFull) {
  const std::string big(0x100000, 'x');
  EXPECT_EQ(QdtCliPrintf(&out_, "%s", big.c_str()), 0xFFFFF);
  EXPECT_EQ(out_.len, 0xFFFFFu);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(QdtCliPrintf(&out_, "more"), 0);
    EXPECT_EQ(out_.len, 0xFFFFFu);
  }
  EXPECT_EQ(std::strlen(out_.buf), 0xFFFFFu);
  EXPECT_EQ(std::string(out_.buf), std::string(0xFFFFF, 'x'));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(CliPrintfTest, StartsAgainAtTheCapacity) {
  out_.len = 0x100000;
  EXPECT_EQ(QdtCliPrintf(&out_, "new"), 3);
  EXPECT_EQ(out_.len, 3u);
  EXPECT_STREQ(out_.buf, "new");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "qdt command print buf has error length[1048576]\n"}}));
}

TEST_F(CliPrintfTest, StartsAgainBeyondTheCapacity) {
  out_.len = 0x7FFFFFFF;
  EXPECT_EQ(QdtCliPrintf(&out_, "new"), 3);
  EXPECT_EQ(out_.len, 3u);
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{3, "qdt command print buf has error length[2147483647]\n"}}));
}

TEST_F(CliPrintfTest, StartsAgainBelowZero) {
  out_.len = 0xFFFFFFFE;
  EXPECT_EQ(QdtCliPrintf(&out_, "new"), 3);
  EXPECT_EQ(out_.len, 3u);
  EXPECT_STREQ(out_.buf, "new");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "qdt command print buf has error length[-2]\n"}}));
}

// No wide character has this code, so that the C library fails to format it.
constexpr auto kNoCharacter = static_cast<wint_t>(0x7FFFFFFF);

TEST_F(CliPrintfTest, FormattingFailureKeepsTheText) {
  QdtCliPrintf(&out_, "kept");
  EXPECT_EQ(QdtCliPrintf(&out_, "lost%lc", kNoCharacter), 0);
  EXPECT_EQ(out_.len, 4u);
  EXPECT_STREQ(out_.buf, "kept");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "qdt command print length error, return[-1]\n"}}));
}

TEST_F(CliPrintfTest, FormattingFailureAfterStartingAgain) {
  out_.len = 0x100000;
  EXPECT_EQ(QdtCliPrintf(&out_, "%lc", kNoCharacter), 0);
  EXPECT_EQ(out_.len, 0u);
  EXPECT_STREQ(out_.buf, "");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "qdt command print buf has error length[1048576]\n"},
                                                {3, "qdt command print length error, return[-1]\n"}}));
}

TEST(CliParseTest, Int) {
  struct Case {
    const char *text;
    int32_t value;
    int ok;
  };
  const Case cases[] = {
      {"0", 0, 1},
      {"12", 12, 1},
      {"-12", -12, 1},
      {"+12", 12, 1},
      {" \t12", 12, 1},
      {"", 0, 1},
      {"12abc", 12, 0},
      {"12 ", 12, 0},
      {"abc", 0, 0},
      {"-", 0, 0},
      {" ", 0, 0},
      {"0x10", 0, 0},
      {"010", 10, 1},
      {"2147483647", 2147483647, 1},
      {"2147483648", INT32_MIN, 1},
      {"-2147483649", 2147483647, 1},
      {"4294967296", 0, 1},
      {"9223372036854775807", -1, 1},
      {"99999999999999999999", -1, 1},
      {"-99999999999999999999", 0, 1},
  };
  for (const Case &c : cases) {
    uint8_t ok = 7;
    EXPECT_EQ(QdtCliParseInt(c.text, &ok), c.value) << c.text;
    EXPECT_EQ(ok, c.ok) << c.text;
    EXPECT_EQ(QdtCliParseInt(c.text, nullptr), c.value) << c.text;
  }
}

constexpr uint64_t kMax64 = 18446744073709551615u;

TEST(CliParseTest, Uint64) {
  struct Case {
    const char *text;
    uint64_t value;
    int ok;
  };
  const Case cases[] = {
      {"", 0, 1},
      {"0", 0, 1},
      {"00", 0, 1},
      {"7", 7, 1},
      {"+7", 7, 1},
      {" 7", 7, 1},
      {"7 ", 7, 0},
      {"7x", 7, 0},
      {"x", 0, 0},
      {" ", 0, 0},
      {"-", 0, 0},
      {"0x", 0, 1},
      {"0X", 0, 1},
      {"0x1F", 31, 1},
      {"0X1f", 31, 1},
      {"0xg", 0, 0},
      {"0x1Fg", 31, 0},
      {"x1F", 0, 0},
      {"010", 8, 1},
      {"0777", 511, 1},
      {"08", 0, 0},
      {"018", 1, 0},
      {" 0x10", 0, 0},  // the prefix counts only as the first characters
      {" 010", 10, 1},
      {"4294967295", 4294967295u, 1},
      {"4294967296", 4294967296u, 1},
      {"18446744073709551615", kMax64, 1},
      {"18446744073709551616", kMax64, 1},
      {"0xFFFFFFFFFFFFFFFF", kMax64, 1},
      {"0x10000000000000000", kMax64, 1},
      {"01777777777777777777777", kMax64, 1},
      {"-1", kMax64, 0},
      {"-0", 0, 0},
      {"-5x", kMax64 - 4, 0},
      {" -1", kMax64, 1},
      {" -0", 0, 1},
      {"0x-1", kMax64, 1},  // what stands behind the prefix is strtoull's
  };
  for (const Case &c : cases) {
    uint8_t ok = 7;
    EXPECT_EQ(QdtCliParseUint64(c.text, &ok), c.value) << c.text;
    EXPECT_EQ(ok, c.ok) << c.text;
    EXPECT_EQ(QdtCliParseUint64(c.text, nullptr), c.value) << c.text;
  }
}

TEST(CliParseTest, Uint) {
  struct Case {
    const char *text;
    uint32_t value;
    int ok;
  };
  const Case cases[] = {
      {"", 0, 1},
      {"0", 0, 1},
      {"0x", 0, 1},
      {"08", 0, 0},
      {"010", 8, 1},
      {"0x1F", 31, 1},
      {"7x", 0, 0},
      {"abc", 0, 0},
      {"4294967295", 4294967295u, 1},
      {"0xFFFFFFFF", 4294967295u, 1},
      {"4294967296", 0, 0},
      {"0x100000000", 0, 0},
      {"99999999999999999999", 0, 0},
      {"-1", 0, 0},
      {"-0", 0, 0},
      {" -1", 0, 0},
      {" -0", 0, 1},
      {"\xC3\xA9", 0, 0},
  };
  for (const Case &c : cases) {
    uint8_t ok = 7;
    EXPECT_EQ(QdtCliParseUint(c.text, &ok), c.value) << c.text;
    EXPECT_EQ(ok, c.ok) << c.text;
  }
}

TEST(CliParseTest, WordsOfAMebibyte) {
  uint8_t ok = 7;
  EXPECT_EQ(QdtCliParseUint(std::string(1 << 20, '9').c_str(), &ok), 0u);
  EXPECT_EQ(ok, 0);
  EXPECT_EQ(QdtCliParseUint(std::string(1 << 20, '0').c_str(), &ok), 0u);
  EXPECT_EQ(ok, 1);
}

using Mac = std::array<uint8_t, 6>;

TEST(CliMacTest, ReadsSixFields) {
  struct Case {
    const char *text;
    Mac mac;
  };
  const Case cases[] = {
      {"00:11:22:33:44:55", {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"1:2:3:4:5:6", {1, 2, 3, 4, 5, 6}},
      {"fF:Ee:dD:Cc:bB:Aa", {0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA}},
      {"00:11:22:33:44:55:66 and more", {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"00:11:22:33:44:556", {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},  // two digits a field
  };
  for (const Case &c : cases) {
    Mac mac = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(QdtCliStr2Mac(c.text, mac.data(), 6), 0) << c.text;
    EXPECT_EQ(mac, c.mac) << c.text;
  }
}

TEST(CliMacTest, LeavesTheOutputAloneOnFailure) {
  const Mac before = {9, 8, 7, 6, 5, 4};
  for (const char *text : {"", "0", "00:11:22:33:44", "00:11:22:33:44:", "00-11-22-33-44-55",
                           "001:22:33:44:55:66", "gg:11:22:33:44:55", "0011.2233.4455"}) {
    Mac mac = before;
    EXPECT_EQ(QdtCliStr2Mac(text, mac.data(), 6), -1) << text;
    EXPECT_EQ(mac, before) << text;
  }
}

TEST(CliMacTest, LengthMustBeSix) {
  const Mac before = {9, 8, 7, 6, 5, 4};
  for (const int length : {-128, -1, 0, 4, 5, 7, 127}) {
    Mac mac = before;
    EXPECT_EQ(QdtCliStr2Mac("00:11:22:33:44:55", mac.data(), static_cast<int8_t>(length)), -1) << length;
    EXPECT_EQ(mac, before) << length;
  }
}

class CliPairTest : public PlatformTest {
 protected:
  // Both halves as blocks of `size` bytes.
  int32_t Split(const char *text, uint32_t size) {
    const auto first = std::make_unique<char[]>(size);
    const auto second = std::make_unique<char[]>(size);
    std::memset(first.get(), '#', size);
    std::memset(second.get(), '#', size);
    const int32_t code = QdtCliGetIpsSeparatedByColon(text, first.get(), second.get(), size);
    if (code == 0) {
      first_ = first.get();
      second_ = second.get();
    }
    return code;
  }
  void ExpectLog(const std::string &line) {
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, line}}));
    platform.log.clear();
  }

  std::string first_, second_;
};

TEST_F(CliPairTest, Splits) {
  EXPECT_EQ(Split("1.1.1.1:2.2.2.2", 16), 0);
  EXPECT_EQ(first_, "1.1.1.1");
  EXPECT_EQ(second_, "2.2.2.2");
  EXPECT_EQ(Split("255.255.255.255:255.255.255.254", 16), 0);
  EXPECT_EQ(first_, "255.255.255.255");
  EXPECT_EQ(second_, "255.255.255.254");
  EXPECT_EQ(Split("x:y", 2), 0);
  EXPECT_EQ(first_, "x");
  EXPECT_EQ(second_, "y");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(CliPairTest, OnlyTheFirstColonSplits) {
  EXPECT_EQ(Split("a:b:c", 16), 0);
  EXPECT_EQ(first_, "a");
  EXPECT_EQ(second_, "b:c");
  EXPECT_EQ(Split("a::", 16), 0);
  EXPECT_EQ(first_, "a");
  EXPECT_EQ(second_, ":");
}

TEST_F(CliPairTest, RefusesMissingHalves) {
  for (const std::string text : {"", ":", "::", ":2.2.2.2", "1.1.1.1:", "1.1.1.1", "0", ":a:b"}) {
    EXPECT_EQ(Split(text.c_str(), 16), -1) << text;
    ExpectLog("[ErrCode: -6]not support this input for " + text + "\n");
  }
}

TEST_F(CliPairTest, RefusesHalvesThatDoNotFit) {
  EXPECT_EQ(Split("1234567890123456:b", 16), -1);
  ExpectLog("[ErrCode: -3]strncpy ip1 fail for 1234567890123456:b\n");
  EXPECT_EQ(Split("a:1234567890123456", 16), -1);
  ExpectLog("[ErrCode: -3]strncpy ip2 fail for a:1234567890123456\n");
  EXPECT_EQ(Split("a:b", 1), -1);
  ExpectLog("[ErrCode: -3]strncpy ip1 fail for a:b\n");
  EXPECT_EQ(Split("a:b", 0), -1);
  ExpectLog("[ErrCode: -3]strncpy ip1 fail for a:b\n");
}

class CliInterfaceTest : public PlatformTest {};

TEST_F(CliInterfaceTest, MapsAControlInterface) {
  platform.AddEntry(11, Key(uint32_t{0x01020304}), Record(8).U32(0, 0x01020304).U32(4, 77).bytes());
  EXPECT_EQ(QdtCliGetFwdifIndexByCtrlIndex(0x01020304), 77u);
  EXPECT_EQ(platform.searches, (std::vector<std::string>{"search 11 04030201"}));
}

TEST_F(CliInterfaceTest, PassesCodesOn) {
  platform.AddEntry(11, Key(uint32_t{5}), Record(8).U32(0, 5).U32(4, 12).bytes());
  EXPECT_EQ(static_cast<int32_t>(QdtCliGetFwdifIndexByCtrlIndex(6)), -7);
  for (const int32_t code : {-1, -12, -116, 1, 2, 1000}) {
    platform.FailTable(11, code);
    EXPECT_EQ(static_cast<int32_t>(QdtCliGetFwdifIndexByCtrlIndex(5)), code);
  }
}

}  // namespace
}  // namespace qdt::test
