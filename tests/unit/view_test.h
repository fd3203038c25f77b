#ifndef TESTS_UNIT_VIEW_TEST_H_
#define TESTS_UNIT_VIEW_TEST_H_

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/fake_platform/fake_platform.h"

namespace qdt::test {

// What the tests of table views share: single calls of search and format operations, and the rules that all
// views of one kind follow.
class ViewTest : public PlatformTest {
 protected:
  // The answer to a query whose records print as `text`. An empty line at the end gives way to the end line.
  static std::string Framed(const std::string &text) {
    const std::string line(30, '-');
    std::string answer = line + "\n" + text;
    if (answer.ends_with("\n\n")) answer.pop_back();
    return answer + line;
  }

  // What one call of a search operation returned and delivered.
  struct Found {
    int32_t code;
    Bytes record;
    bool operator==(const Found &) const = default;
  };

  // Calls the operation with the fixture's traversal context, as the frame does.
  Found Call(TableSearch search, uint32_t loopNum, const char *key1, uint32_t key2 = 0, uint32_t key3 = 0,
             uint32_t key4 = 0) {
    void *record = nullptr;
    uint32_t length = 0;
    Found found{search(&record, &length, &context, loopNum, key1, key2, key3, key4), {}};
    const bool delivered = found.code == 0 || found.code == 1;
    EXPECT_TRUE(record != nullptr || !delivered);
    const auto *bytes = static_cast<const uint8_t *>(record);
    if (delivered && record != nullptr) found.record.assign(bytes, bytes + length);
    free_ex(g_mallocHandle, record);
    return found;
  }

  // A search of one entry by key, whose entry the table already holds: it delivers the record whatever
  // loopNum is, asks for `line`, and passes on what fails.
  void ExpectFindsOne(TableSearch search, uint32_t table, const Record &entry, const std::string &line,
                      const char *key1, uint32_t key2 = 0, uint32_t key3 = 0) {
    platform.searches.clear();
    for (const uint32_t loopNum : {0, 1, 50}) {
      EXPECT_EQ(Call(search, loopNum, key1, key2, key3), (Found{0, entry.bytes()}));
      EXPECT_EQ(platform.allocations.back().size, entry.bytes().size());
    }
    EXPECT_EQ(platform.searches, std::vector<std::string>(3, line));
    platform.FailAllocation(0);
    EXPECT_EQ(Call(search, 0, key1, key2, key3).code, QDT_TBL_NO_MEMORY);

    const size_t allocations = platform.allocations.size();
    for (const int32_t code : {-1, -12, -116, 2}) {
      platform.FailTable(table, code);
      EXPECT_EQ(Call(search, 0, key1, key2, key3).code, code);
    }
    platform.FailTable(table, 0);
    platform.ClearTable(table);
    EXPECT_EQ(Call(search, 0, key1, key2, key3).code, QDT_TBL_NOT_FOUND);
    EXPECT_EQ(platform.allocations.size(), allocations) << "memory was taken before there was an entry";
  }

  // A search of batches, over a table whose entries (those of the keys) are these three.
  void ExpectWalks(TableSearch search, uint32_t table, const std::vector<Record> &entries, const char *key1,
                   uint32_t key2 = 0, uint32_t key3 = 0, uint32_t key4 = 0) {
    ASSERT_EQ(entries.size(), 3u);
    const size_t size = entries[0].bytes().size();
    TbmTblTravContextInit(&context);
    EXPECT_EQ(Call(search, 0, key1, key2, key3, key4).code, QDT_TBL_INVALID_INPUT);
    Bytes two = entries[0].bytes();
    two.insert(two.end(), entries[1].bytes().begin(), entries[1].bytes().end());
    EXPECT_EQ(Call(search, 2, key1, key2, key3, key4), (Found{1, two}));
    EXPECT_EQ(platform.allocations.back().size, 2 * size);
    EXPECT_EQ(Call(search, 2, key1, key2, key3, key4), (Found{0, entries[2].bytes()}));
    EXPECT_EQ(Call(search, 2, key1, key2, key3, key4), (Found{0, {}}));

    platform.FailAllocation(0);
    EXPECT_EQ(Call(search, 2, key1, key2, key3, key4).code, QDT_TBL_NO_MEMORY);
    for (const int32_t code : {-11, -115, 2}) {
      platform.FailWalk(table, 0, code);
      EXPECT_EQ(Call(search, 2, key1, key2, key3, key4).code, code);
    }
  }

  // A list of a whole table: every way to ask for it, and none to ask for one entry.
  void ExpectLists(const std::string &id, uint32_t table, TableSearch search,
                   const std::vector<Record> &entries, const std::vector<std::string> &texts) {
    EXPECT_EQ(Query(id, "all"), "datasize empty or invalid");
    for (uint32_t i = 0; i < 3; ++i) platform.AddEntry(table, Key(i), entries[i].bytes());
    EXPECT_EQ(Query(id, "all"), Framed(texts[0] + texts[1] + texts[2]));
    EXPECT_EQ(Query(id, "num2"), Framed(texts[0] + texts[1]));
    platform.walks.clear();
    for (const char *key1 : {"0", "ALL", "10.1.0.7", "a0:0b:c1:0d:e2:0f", "num0", "num101"}) {
      EXPECT_EQ(Query(id, key1), "invalid input param") << key1;
    }
    EXPECT_TRUE(platform.walks.empty());
    EXPECT_TRUE(platform.searches.empty());
    ExpectWalks(search, table, entries, "all");
  }

  // A format of exactly one record of `size` bytes.
  static void ExpectOneRecordOnly(TableFormat format, int32_t size) {
    for (const int32_t length : {INT32_MIN, -1, 0, 1, size - 1, size + 1, 2 * size, INT32_MAX}) {
      ExpectCode(format, size, length, QDT_TBL_DATA_SIZE);
    }
    EXPECT_EQ(format(nullptr, 0, nullptr, size), QDT_TBL_DATA_SIZE);
  }

  // A format of a list: each record as its own text, a partial one behind them as nothing.
  static void ExpectFormatsEach(TableFormat format, const Record &record) {
    const int32_t size = record.size();
    const std::string text = FormatText(format, record);
    for (const int32_t length : {INT32_MIN, -1, 0}) ExpectCode(format, size, length, QDT_TBL_DATA_SIZE);
    for (const int32_t length : {1, size - 1}) ExpectCode(format, size, length, 0);
    const std::string once(reinterpret_cast<const char *>(record.data()), record.bytes().size());
    Record twice(2 * size);
    twice.Copy(0, once).Copy(size, once);
    EXPECT_EQ(FormatText(format, twice), text + text);
    EXPECT_EQ(FormatText(format, Record(2 * size - 1).Copy(0, once)), text);
  }

  // A format of a list that must hold whole records: each record as its own text.
  static void ExpectFormatsWhole(TableFormat format, const Record &record) {
    const int32_t size = record.size();
    for (const int32_t length : {INT32_MIN, -size, -1, 0, 1, size - 1, size + 1, 2 * size - 1})
      ExpectCode(format, size, length, QDT_TBL_DATA_SIZE);
    EXPECT_EQ(format(nullptr, 0, nullptr, size), QDT_TBL_DATA_SIZE);
    const std::string once(reinterpret_cast<const char *>(record.data()), record.bytes().size());
    const std::string text = FormatText(format, record);
    EXPECT_EQ(FormatText(format, Record(2 * size).Copy(0, once).Copy(size, once)), text + text);
  }

  // An operation that writes one piece of a view behind what stands in the room already.
  template <typename Piece>
  static void ExpectWritesAt(Piece piece, const Record &record, const std::string &text) {
    const auto size = static_cast<uint32_t>(text.size());
    for (const uint32_t offset : {0, 1, 7}) {
      const uint32_t room = offset + size + 1;
      std::string area(room, '#');
      EXPECT_EQ(piece(area.data(), room, offset, record.data()), static_cast<int32_t>(size));
      EXPECT_STREQ(area.c_str(), (std::string(offset, '#') + text).c_str());
      std::string small(room - 1, '#');
      EXPECT_EQ(piece(small.data(), room - 1, offset, record.data()), QDT_TBL_FORMAT);
      EXPECT_EQ(small.substr(0, offset), std::string(offset, '#'));
    }
    char area[] = "#";
    for (const uint32_t offset : {1u, 2u, UINT32_MAX}) {
      EXPECT_EQ(piece(area, 1, offset, record.data()), QDT_TBL_FORMAT) << offset;
    }
    EXPECT_EQ(piece(area, 0, 0, record.data()), QDT_TBL_FORMAT);
    EXPECT_EQ(piece(nullptr, 5, 1, record.data()), QDT_TBL_FORMAT);
    EXPECT_EQ(piece(area, 1, 0, nullptr), QDT_TBL_DATA_SIZE);
    EXPECT_STREQ(area, "#");
  }

  TbmTravContext context{};

 private:
  static void ExpectCode(TableFormat format, int32_t size, int32_t length, int32_t code) {
    const Record record(2 * size);
    char area[512] = "#";
    EXPECT_EQ(format(area, sizeof(area), record.data(), length), code) << length;
    EXPECT_EQ(area[0], code < 0 ? '#' : '\0') << length;
  }
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_VIEW_TEST_H_
