#include "host/session/fields.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qdt::host {
namespace {

using Strings = std::vector<std::string>;
using std::string_literals::operator""s;

TEST(Fields, ComeBackAsTheyWere) {
  std::string frame;
  for (const std::string &field : {"a"s, ""s, "b\0c"s, std::string(70'000, 'x')}) AppendField(field, &frame);
  EXPECT_EQ(ReadFields(frame, 4), (Strings{"a", "", "b\0c"s, std::string(70'000, 'x')}));
  EXPECT_EQ(ReadFields("", 0), Strings());
}

TEST(Fields, OthersAreNone) {
  std::string frame;
  AppendField("abc", &frame);
  for (size_t length = 1; length < frame.size(); ++length)
    EXPECT_FALSE(ReadFields(std::string_view(frame).substr(0, length), 9)) << length;
  EXPECT_FALSE(ReadFields(frame + "\xff\xff\xff\xff"s, 9));
  EXPECT_FALSE(ReadFields(frame + frame, 1)) << "more than may be";
}

}  // namespace
}  // namespace qdt::host
