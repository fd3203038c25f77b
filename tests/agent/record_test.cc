#include "host/agent/record.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

std::string Line(const std::string &value) {
  const std::pair<const char *, std::string> values[] = {{"user", value}};
  return RecordLine(Record::Severity::kNotice, "LOGIN", values, "text", 0, "host", 7);
}

// What stands of the value in the line.
std::string Told(const std::string &value) {
  const std::string line = Line(value);
  const std::string before = "<85>1 1970-01-01T00:00:00.000000Z host omad 7 LOGIN [omad@32473 user=\"",
                    after = "\"] text";
  EXPECT_TRUE(line.starts_with(before) && line.ends_with(after)) << line;
  return line.substr(before.size(), line.size() - before.size() - after.size());
}

TEST(Record, ALineOfSyslog) {
  const std::pair<const char *, std::string> values[] = {{"user", "alice"}, {"result", "ok"}};
  EXPECT_EQ(
      RecordLine(Record::Severity::kWarning, "COMMAND", values, "done", 1'795'342'504'118'260, "gw1", 4711),
      "<84>1 2026-11-22T10:15:04.118260Z gw1 omad 4711 COMMAND [omad@32473 user=\"alice\" result=\"ok\"] "
      "done");
  EXPECT_EQ(RecordLine(Record::Severity::kNotice, "RULES", {}, "read", 1, "", 1),
            "<85>1 1970-01-01T00:00:00.000001Z - omad 1 RULES [omad@32473] read");
}

TEST(Record, NothingOfAValueEndsIt) {
  EXPECT_EQ(Told("plain text, =;[<>"), "plain text, =;[<>");
  EXPECT_EQ(Told("a\"b\\c]d"), "a\\\"b\\\\c\\]d");
  EXPECT_EQ(Told("a\nb\rc\td\x1b[2J\x7f"), "a?b?c?d?[2J?");
  EXPECT_EQ(Told(std::string("a\0b", 3)), "a?b");
  EXPECT_EQ(Told("\xc3\xa4 \xe2\x82\xac"), "\xc3\xa4 \xe2\x82\xac");
  EXPECT_EQ(Told("\xc2\x85 \xc2\x9b \xc2\xa0"), "? ? \xc2\xa0") << "controls of two bytes";
  EXPECT_EQ(Told("\xe2\x80\xa8\xe2\x80\xa9"), "??") << "ends of lines and paragraphs";
  EXPECT_EQ(Told("\xe2\x80\xaa\xe2\x80\xae\xe2\x81\xa6\xd8\x9c\xe2\x80\xa7"), "????\xe2\x80\xa7") << "turns";
  EXPECT_EQ(Told("\xff\xc3"), "??");
}

TEST(Record, TheTextIsOneLine) {
  const std::string line =
      RecordLine(Record::Severity::kNotice, "RULES", {}, "a\n\"b\" \xc2\x85 \xff", 0, "h", 1);
  EXPECT_TRUE(line.ends_with("] a?\"b\" ? ?")) << line;
}

TEST(Record, LongValuesAreCut) {
  EXPECT_EQ(Told(std::string(2048, 'x')), std::string(2048, 'x'));
  EXPECT_EQ(Told(std::string(2049, 'x')), std::string(2048, 'x') + "...");
  EXPECT_EQ(Told(std::string(2047, 'x') + "\xc3\xa4"), std::string(2047, 'x') + "?...")
      << "not within a character";
}

}  // namespace
}  // namespace qdt::host
