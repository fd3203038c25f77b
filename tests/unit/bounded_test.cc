#include "src/om/common/bounded.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

// The bounds-checked operations at the edges of their contracts. Destinations are heap blocks of exactly the
// room that is named, so that a sanitizer sees a single byte written outside.
namespace qdt::test {
namespace {

// A block of `size` bytes, none of which is a NUL.
std::unique_ptr<char[]> Block(size_t size) {
  auto block = std::make_unique<char[]>(size);
  std::memset(block.get(), '#', size);
  return block;
}

std::string Contents(const std::unique_ptr<char[]> &block, size_t size) { return {block.get(), size}; }

constexpr size_t kHugeRoom = size_t{INT32_MAX} + 1;
constexpr size_t kNegativeRoom = static_cast<size_t>(-5);

__attribute__((format(printf, 3, 4))) int32_t Truncated(char *dest, size_t room, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t result = vsnprintf_truncated_s(dest, room, format, args);
  va_end(args);
  return result;
}

TEST(MemcpyTest, FitsExactly) {
  const auto dest = Block(4);
  EXPECT_EQ(memcpy_s(dest.get(), 4, "abcd", 4), 0);
  EXPECT_EQ(Contents(dest, 4), "abcd");
}

TEST(MemcpyTest, LeavesTheRestOfTheRoomAlone) {
  const auto dest = Block(5);
  EXPECT_EQ(memcpy_s(dest.get(), 5, "ab", 2), 0);
  EXPECT_EQ(Contents(dest, 5), "ab###");
}

TEST(MemcpyTest, CopiesNothing) {
  const auto dest = Block(2);
  EXPECT_EQ(memcpy_s(dest.get(), 2, "ab", 0), 0);
  EXPECT_EQ(Contents(dest, 2), "##");
}

TEST(MemcpyTest, OneTooManyZeroesTheRoom) {
  const auto dest = Block(4);
  EXPECT_LT(memcpy_s(dest.get(), 4, "abcde", 5), 0);
  EXPECT_EQ(Contents(dest, 4), std::string(4, '\0'));
}

TEST(MemcpyTest, NullSourceZeroesTheRoom) {
  const auto dest = Block(3);
  EXPECT_LT(memcpy_s(dest.get(), 3, nullptr, 1), 0);
  EXPECT_EQ(Contents(dest, 3), std::string(3, '\0'));
}

TEST(MemcpyTest, RefusesRoomsThatAreNone) {
  const auto dest = Block(1);
  EXPECT_LT(memcpy_s(nullptr, 4, "abcd", 4), 0);
  EXPECT_LT(memcpy_s(dest.get(), 0, "a", 0), 0);
  EXPECT_LT(memcpy_s(dest.get(), 0, "a", 1), 0);
  EXPECT_LT(memcpy_s(dest.get(), kHugeRoom, "a", 1), 0);
  EXPECT_LT(memcpy_s(dest.get(), kNegativeRoom, "a", 1), 0);
  EXPECT_EQ(Contents(dest, 1), "#");
}

TEST(StrcpyTest, FitsExactly) {
  const auto dest = Block(5);
  EXPECT_EQ(strcpy_s(dest.get(), 5, "abcd"), 0);
  EXPECT_STREQ(dest.get(), "abcd");
}

TEST(StrcpyTest, EmptyTextIntoOneByte) {
  const auto dest = Block(1);
  EXPECT_EQ(strcpy_s(dest.get(), 1, ""), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(StrcpyTest, OneTooLongEmptiesTheDestination) {
  const auto dest = Block(4);
  EXPECT_LT(strcpy_s(dest.get(), 4, "abcd"), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(StrcpyTest, RefusesNullsAndRoomsThatAreNone) {
  const auto dest = Block(2);
  EXPECT_LT(strcpy_s(nullptr, 2, "a"), 0);
  EXPECT_LT(strcpy_s(dest.get(), 0, ""), 0);
  EXPECT_LT(strcpy_s(dest.get(), kHugeRoom, "a"), 0);
  EXPECT_LT(strcpy_s(dest.get(), kNegativeRoom, "a"), 0);
  EXPECT_EQ(Contents(dest, 2), "##");
  EXPECT_LT(strcpy_s(dest.get(), 2, nullptr), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(StrncpyTest, CutsAtTheCount) {
  const auto dest = Block(4);
  EXPECT_EQ(strncpy_s(dest.get(), 4, "abcdef", 3), 0);
  EXPECT_STREQ(dest.get(), "abc");
}

TEST(StrncpyTest, EndsAtTheTextsEnd) {
  const auto dest = Block(4);
  EXPECT_EQ(strncpy_s(dest.get(), 4, "abc", 100), 0);
  EXPECT_STREQ(dest.get(), "abc");
}

TEST(StrncpyTest, CountOfZeroGivesAnEmptyText) {
  const auto dest = Block(1);
  EXPECT_EQ(strncpy_s(dest.get(), 1, "abc", 0), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(StrncpyTest, SourceNeedNotBeTerminated) {
  const auto source = Block(3);
  const auto dest = Block(4);
  EXPECT_EQ(strncpy_s(dest.get(), 4, source.get(), 3), 0);
  EXPECT_STREQ(dest.get(), "###");
}

TEST(StrncpyTest, OneTooManyEmptiesTheDestination) {
  const auto dest = Block(3);
  EXPECT_LT(strncpy_s(dest.get(), 3, "abcdef", 3), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(StrncpyTest, RefusesNullsAndRoomsThatAreNone) {
  const auto dest = Block(2);
  EXPECT_LT(strncpy_s(nullptr, 2, "a", 1), 0);
  EXPECT_LT(strncpy_s(dest.get(), 0, "a", 0), 0);
  EXPECT_LT(strncpy_s(dest.get(), kHugeRoom, "a", 1), 0);
  EXPECT_EQ(Contents(dest, 2), "##");
  EXPECT_LT(strncpy_s(dest.get(), 2, nullptr, 0), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(SprintfTest, FitsExactly) {
  const auto dest = Block(6);
  EXPECT_EQ(sprintf_s(dest.get(), 6, "%s=%d", "ab", 42), 5);
  EXPECT_STREQ(dest.get(), "ab=42");
}

TEST(SprintfTest, EmptyTextIntoOneByte) {
  const auto dest = Block(1);
  EXPECT_EQ(sprintf_s(dest.get(), 1, "%s", ""), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(SprintfTest, OneTooLongEmptiesTheDestination) {
  const auto dest = Block(5);
  EXPECT_LT(sprintf_s(dest.get(), 5, "%s=%d", "ab", 42), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(SprintfTest, RefusesNullsAndRoomsThatAreNone) {
  const auto dest = Block(2);
  const char *volatile noFormat = nullptr;  // hidden from the compiler's own check
  EXPECT_LT(sprintf_s(nullptr, 2, "a"), 0);
  EXPECT_LT(sprintf_s(dest.get(), 0, "%s", ""), 0);
  EXPECT_LT(sprintf_s(dest.get(), kHugeRoom, "a"), 0);
  EXPECT_LT(sprintf_s(dest.get(), kNegativeRoom, "a"), 0);
  EXPECT_EQ(Contents(dest, 2), "##");
  EXPECT_LT(sprintf_s(dest.get(), 2, noFormat, 1), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(SprintfTest, FormattingFailureEmptiesTheDestination) {
  const auto dest = Block(8);
  EXPECT_LT(sprintf_s(dest.get(), 8, "ab%lc", static_cast<wint_t>(0x7FFFFFFF)), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(VsnprintfTruncatedTest, FitsExactly) {
  const auto dest = Block(5);
  EXPECT_EQ(Truncated(dest.get(), 5, "%d", 1234), 4);
  EXPECT_STREQ(dest.get(), "1234");
}

TEST(VsnprintfTruncatedTest, CutsWhatDoesNotFit) {
  const auto dest = Block(4);
  EXPECT_EQ(Truncated(dest.get(), 4, "%d", 1234), 3);
  EXPECT_STREQ(dest.get(), "123");
  EXPECT_EQ(Truncated(dest.get(), 1, "%d", 1234), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(VsnprintfTruncatedTest, RefusesNullsAndRoomsThatAreNone) {
  const auto dest = Block(2);
  const char *volatile noFormat = nullptr;  // hidden from the compiler's own check
  EXPECT_LT(Truncated(nullptr, 2, "a"), 0);
  EXPECT_LT(Truncated(dest.get(), 0, "a"), 0);
  EXPECT_LT(Truncated(dest.get(), kHugeRoom, "a"), 0);
  EXPECT_LT(Truncated(dest.get(), kNegativeRoom, "a"), 0);
  EXPECT_EQ(Contents(dest, 2), "##");
  EXPECT_LT(Truncated(dest.get(), 2, noFormat, 1), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(VsnprintfTruncatedTest, FormattingFailureEmptiesTheDestination) {
  const auto dest = Block(8);
  EXPECT_LT(Truncated(dest.get(), 8, "ab%lc", static_cast<wint_t>(0x7FFFFFFF)), 0);
  EXPECT_STREQ(dest.get(), "");
}

TEST(SscanfTest, CountsTheFieldsItConverts) {
  unsigned a = 7, b = 8;
  EXPECT_EQ(sscanf_s("12:34", "%u:%u", &a, &b), 2);
  EXPECT_EQ(a, 12u);
  EXPECT_EQ(b, 34u);
  EXPECT_EQ(sscanf_s("56;78", "%u:%u", &a, &b), 1);
  EXPECT_EQ(a, 56u);
  EXPECT_EQ(b, 34u);
  EXPECT_EQ(sscanf_s("x", "%u:%u", &a, &b), 0);
}

TEST(SscanfTest, TextFieldsAreBoundedByTheirWidth) {
  const auto dest = Block(4);
  EXPECT_EQ(sscanf_s("abcdef", "%3s", dest.get()), 1);
  EXPECT_STREQ(dest.get(), "abc");
}

TEST(SscanfTest, RefusesNullsAndEmptyTexts) {
  unsigned value = 7;
  const char *volatile none = nullptr;
  EXPECT_LT(sscanf_s(none, "%u", &value), 0);
  EXPECT_LT(sscanf_s("1", none, &value), 0);
  EXPECT_LT(sscanf_s("", "%u", &value), 0);
  EXPECT_EQ(value, 7u);
}

}  // namespace
}  // namespace qdt::test
