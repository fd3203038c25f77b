#include "tools/nqecli/output/shown_text.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::nqecli {
namespace {

std::string OnTerminal(std::string_view text) {
  std::string carry;
  return ShownText(text, true, &carry) + carry;
}

TEST(ShownTextTest, ATerminalGetsNoControlCharacters) {
  EXPECT_EQ(OnTerminal("  Identity : anna\n"), "  Identity : anna\n");
  EXPECT_EQ(OnTerminal("a\tb\\n\n"), "a\tb\\n\n");
  EXPECT_EQ(OnTerminal("\x1b[31mred\a\r\x7f"), "\\x1b[31mred\\x07\\x0d\\x7f");
  // Lines of CSV end so.
  EXPECT_EQ(OnTerminal("a,b\r\nc"), "a,b\r\nc");
  EXPECT_EQ(OnTerminal("Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb6"),
            "Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb6");
  // The control characters of Latin 1, and bytes that are no UTF-8.
  EXPECT_EQ(OnTerminal("\xc2\x9b"
                       "31m"),
            "\\xc2\\x9b31m");
  EXPECT_EQ(OnTerminal("\xff\xfe\xc3("), "\\xff\\xfe\\xc3(");
  EXPECT_EQ(OnTerminal("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  // What turns the direction, or ends a line, but not what stands beside it among the numbers.
  EXPECT_EQ(OnTerminal("a\xe2\x80\xae"
                       "b\xe2\x81\xa6\xe2\x80\xa8\xd8\x9c"),
            "a\\xe2\\x80\\xae"
            "b\\xe2\\x81\\xa6\\xe2\\x80\\xa8\\xd8\\x9c");
  EXPECT_EQ(OnTerminal("\xe2\x80\xa6 \xe2\x81\xb0 \xd8\x9b"), "\xe2\x80\xa6 \xe2\x81\xb0 \xd8\x9b");
}

TEST(ShownTextTest, AFileGetsWhatThereIs) {
  std::string carry;
  EXPECT_EQ(ShownText("\x1b[31m\xff\r\n", false, &carry), "\x1b[31m\xff\r\n");
  EXPECT_TRUE(IsHarmless("\x1b[31m\xff\r\n", false));
  EXPECT_FALSE(IsHarmless("\x1b[31m", true));
  EXPECT_TRUE(IsHarmless("plain\n", true));
}

TEST(ShownTextTest, ACharacterMayComeInParts) {
  std::string carry, shown;
  for (const char c : std::string("a\r\nb\rc")) shown += ShownText({&c, 1}, true, &carry);
  EXPECT_EQ(shown, "a\r\nb\\x0dc");
  shown.clear();
  for (const char c : std::string("\xe2\x82\xac \xf0\x9f\x93\xb6 \xc3\xa9\n"))
    shown += ShownText({&c, 1}, true, &carry);
  EXPECT_EQ(shown, "\xe2\x82\xac \xf0\x9f\x93\xb6 \xc3\xa9\n");
  EXPECT_EQ(carry, "");
  EXPECT_EQ(ShownText("\xe2\x82", true, &carry), "");
  EXPECT_EQ(ShownText("x", true, &carry), "\\xe2\\x82x");
}

TEST(ShownTextTest, RawIsRaw) {
  SetRaw(true);
  EXPECT_TRUE(IsHarmless("\x1b[31m", true));
  SetRaw(false);
}

}  // namespace
}  // namespace qdt::nqecli
