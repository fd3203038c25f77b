#include "host/base/words.h"

#include <gtest/gtest.h>

#include "host/base/arguments.h"
#include "host/base/host_error.h"

namespace qdt::host {
namespace {

using Words = std::vector<std::string>;
using std::string_literals::operator""s;

TEST(SplitWords, SplitsAtBlanks) {
  EXPECT_EQ(SplitWords(""), Words{});
  EXPECT_EQ(SplitWords(" \t\r\n "), Words{});
  EXPECT_EQ(SplitWords("diag search\tnqpTable  3\n"), (Words{"diag", "search", "nqpTable", "3"}));
  EXPECT_EQ(SplitWords("sip:10.0.0.1 \xc3\xa4"), (Words{"sip:10.0.0.1", "\xc3\xa4"}));
}

TEST(SplitWords, QuotesKeepBlanksAndEmptyWords) {
  EXPECT_EQ(SplitWords("a 'b c' \"d e\""), (Words{"a", "b c", "d e"}));
  EXPECT_EQ(SplitWords("'' \"\" x''y"), (Words{"", "", "xy"}));
  EXPECT_EQ(SplitWords("\"it's\" '\"'"), (Words{"it's", "\""}));
  EXPECT_EQ(SplitWords("back\\slash"), (Words{"back\\slash"}));
}

std::string SplitError(const std::string &line) {
  try {
    SplitWords(line);
  } catch (const HostError &error) {
    return error.what();
  }
  return "no error";
}

TEST(SplitWords, RefusesWhatHasNoEnd) {
  EXPECT_EQ(SplitError("a 'b"), "the command line ends inside '...'");
  EXPECT_EQ(SplitError("a \"b'"), "the command line ends inside \"...\"");
  EXPECT_EQ(SplitError("a\0b"s), "the command line holds a NUL byte");
}

TEST(SplitWords, TakesLongWords) {
  EXPECT_EQ(SplitWords(std::string(1 << 20, 'x')), Words{std::string(1 << 20, 'x')});
}

TEST(JoinWords, GivesALineThatSplitsIntoTheSameWords) {
  for (const Words &words : {Words{}, Words{"status"}, Words{"a", "b c", ""},
                             Words{"it's", "\"x\"", "'\"'\"'"}, Words{" ", "\t\n", "\\", "'"}}) {
    std::vector<char *> pointers;
    for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
    EXPECT_EQ(SplitWords(JoinWords(pointers)), words) << JoinWords(pointers);
  }
}

TEST(Quoted, StaysOneReadableLine) {
  EXPECT_EQ(Quoted(""), "\"\"");
  EXPECT_EQ(Quoted("a\nb\x1b[2J"), "\"a?b?[2J\"");
  EXPECT_EQ(Quoted(std::string(41, 'x')), '"' + std::string(40, 'x') + "...\"");
}

TEST(Arguments, TakesOptionsWithValues) {
  const char *words[] = {"tool", "--arena", "a", "--socket=s", "--verbose", "show", "--arena", nullptr};
  Arguments arguments(7, const_cast<char **>(words));
  std::string value = "default";
  EXPECT_FALSE(arguments.TakeValue("--are", &value));
  EXPECT_EQ(value, "default");
  ASSERT_TRUE(arguments.TakeValue("--arena", &value));
  EXPECT_EQ(value, "a");
  ASSERT_TRUE(arguments.TakeValue("--socket", &value));
  EXPECT_EQ(value, "s");
  EXPECT_TRUE(arguments.AtOption());
  ASSERT_TRUE(arguments.Take("--verbose"));
  EXPECT_FALSE(arguments.AtOption());
  ASSERT_EQ(arguments.rest().size(), 2u);
  ASSERT_TRUE(arguments.Take("show"));
  try {
    arguments.TakeValue("--arena", &value);
    ADD_FAILURE() << "took " << value;
  } catch (const HostError &error) {
    EXPECT_STREQ(error.what(), "--arena needs a value; try --help");
  }
}

TEST(Arguments, TakesAnEmptyCommandLine) { EXPECT_TRUE(Arguments(0, nullptr).empty()); }

}  // namespace
}  // namespace qdt::host
