#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>

#include "tests/unit/aging_globals.h"
#include "tests/unit/view_test.h"

// A record has one text, wherever it lies.
namespace qdt::test {
namespace {

constexpr uint32_t kGlobal = 0, kCar = 54;

struct Row {
  int id;
  int32_t size;  // of a record; 0 for a view that prints none
  int records = 1;
};

constexpr Row kRows[] = {
    {0, 1544},   {1, 16},     {2, 16},      {3, 16},     {4, 608},    {5, 784},     {6, 44},     {7, 32, 3},
    {8, 20, 3},  {9, 24},     {10, 14672},  {11, 40, 3}, {12, 268},   {13, 208, 3}, {14, 0},     {15, 16, 3},
    {16, 12, 3}, {17, 48, 3}, {18, 64},     {19, 8},     {20, 24},    {21, 1028},   {22, 8, 3},  {23, 20, 3},
    {24, 0},     {25, 12},    {26, 8, 3},   {27, 12, 3}, {28, 760},   {29, 8},      {30, 48},    {31, 144},
    {32, 112},   {33, 20},    {34, 2192},   {35, 20, 3}, {36, 328},   {37, 32},     {38, 28},    {39, 32},
    {40, 36, 3}, {41, 4, 3},  {42, 20, 3},  {43, 208},   {44, 1032},  {45, 20},     {46, 224},   {47, 0},
    {48, 2},     {49, 4, 3},  {50, 192, 3}, {51, 8, 3},  {52, 16, 3}, {53, 8, 3},   {54, 24, 3}, {55, 16, 3},
    {56, 44, 3}, {57, 24, 3}, {58, 224},    {59, 0},     {60, 8, 3},  {61, 16},     {62, 24},    {63, 24},
    {64, 24},    {65, 36},    {66, 136, 3}, {67, 40},    {68, 16},    {69, 72},     {70, 784},   {71, 56},
    {72, 72, 3}, {73, 32, 3}, {74, 12, 3},  {75, 16, 3}, {76, 16, 3}, {77, 128},    {78, 392},   {79, 12},
    {80, 64},    {81, 8},     {82, 40},     {83, 40},    {84, 4},     {85, 16104},  {86, 3472},  {87, 1632},
    {88, 56, 3},
};

class AlignmentTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    platform.AddEntry(kGlobal, Key(uint32_t{0}), Record(14672).bytes());
    platform.AddRegion("IPP_SESSION_AGING_TIME", 6);
    platform.AddRegion("APP_SESSION_AGING_TIME", 318);
  }

  // Bytes small enough for every count that a record holds, and nowhere alike when moved by some bytes.
  static Record Records(const Row &row) {
    Record records(static_cast<size_t>(row.size) * row.records);
    uint32_t random = 1;
    for (int32_t i = 0; i < records.size(); ++i) {
      random = random * 1664525 + 1013904223;
      records.U8(i, static_cast<uint8_t>((random >> 24) % 3));
    }
    if (row.id == 4) records.U8(16 + 11, 0);  // no output interfaces, whose records are elsewhere
    if (row.id == 69) records.U8(24 + 9, 0);
    if (row.id == 65) records.U32(0, 12);  // the length of the names
    if (row.id == 67) records.Copy(0, "rule name r1");
    return records;
  }

 private:
  AgingGlobals agingGlobals_;
};

TEST_F(AlignmentTest, EveryViewAtEveryAlignment) {
  static_assert(std::size(kRows) == QDT_DIAG_TABLE_COUNT);
  for (const Row &row : kRows) {
    ASSERT_EQ(row.id, &row - kRows);
    if (row.size == 0) continue;
    const TableFormat format = g_nqeTblOps[row.id].format;
    const Record records = Records(row);
    if (row.id == 45) {
      const uint8_t *const id = records.bytes().data() + 4;
      platform.AddEntry(kCar, Bytes(id, id + 4), Record(144).bytes());
    }
    const std::string text = FormatText(format, records);
    EXPECT_GT(text.size(), 10u) << row.id;
    EXPECT_NE(text.substr(0, 5), "code ") << row.id << text;
    for (size_t shift = 0; shift < 16; ++shift) {
      // Nothing lies behind the records, and their block is aligned for everything.
      const auto block = std::make_unique<char[]>(shift + records.bytes().size());
      std::memcpy(block.get() + shift, records.data(), records.bytes().size());
      std::string area(QDT_OUTPUT_CAPACITY, '#');
      const int32_t written = format(area.data(), QDT_OUTPUT_CAPACITY, block.get() + shift, records.size());
      EXPECT_EQ(written, static_cast<int32_t>(text.size())) << row.id << " at " << shift;
      EXPECT_STREQ(area.c_str(), text.c_str()) << row.id << " at " << shift;
    }
  }
}

// Views of the first record take one that is short: what is missing counts as zero, wherever the rest lies.
TEST_F(AlignmentTest, ShortRecordsAtEveryAlignment) {
  for (const int row : {12, 44}) {
    const TableFormat format = g_nqeTblOps[row].format;
    const Record whole = Records(kRows[row]);
    for (const int32_t length : {1, 7, 8, 11, whole.size() - 1, whole.size(), whole.size() + 9}) {
      Record padded(whole.bytes().size());
      const auto count = static_cast<size_t>(std::min(length, whole.size()));
      padded.Copy(0, std::string(reinterpret_cast<const char *>(whole.data()), count));
      const std::string text = FormatText(format, padded);
      for (size_t shift = 0; shift < 16; ++shift) {
        const auto block = std::make_unique<char[]>(shift + length);
        std::memcpy(block.get() + shift, whole.data(), count);
        std::string area(20000, '#');
        EXPECT_EQ(format(area.data(), 20000, block.get() + shift, length), static_cast<int32_t>(text.size()));
        EXPECT_STREQ(area.c_str(), text.c_str()) << row << " of " << length << " at " << shift;
      }
    }
  }
}

}  // namespace
}  // namespace qdt::test
