#include <cstdlib>
#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of the stations that the engine traces.
namespace qdt::test {
namespace {

const char kRegion[] = "PKT_TRACE_CTX_PTR";

class StationTraceTest : public ViewTest {};

// Station i has the MAC address i, 0, 0, 0, 0, i.
Record Block(uint8_t stationCount, int stations) {
  Record block = Record(224).U8(132, 201).U8(133, stationCount).U8(220, 0b100);
  for (int i = 0; i < stations; ++i) {
    const auto byte = static_cast<uint8_t>(i + 1);
    block.U16(136 + 8 * i, 0xEEEE).U8(138 + 8 * i, byte).U8(143 + 8 * i, byte);
  }
  return block;
}

std::string Head(const std::string &enable, const std::string &all, const std::string &count) {
  return "  Enable :  " + enable + " \n  IsAll  :  " + all + " \n  StaNum :  " + count + " \n";
}

TEST_F(StationTraceTest, Stations) {
  const Record block = Block(3, 3).Copy(146, "\xa0\x0b\xc1\x0d\xe2\x0f");
  const std::string text = Head("1", "201", "3") +
                           "  StaMac :  01:00:00:00:00:01\n"
                           "  StaMac :  a0:0b:c1:0d:e2:0f\n"
                           "  StaMac :  03:00:00:00:00:03\n";
  EXPECT_EQ(FormatText(NqeTableFormatStationTrace, block), text);
  char area[500];
  EXPECT_EQ(NqeTableStationTraceParseFormat(area, sizeof(area), block.data()),
            static_cast<int32_t>(text.size()));
  EXPECT_EQ(area, text);
  EXPECT_EQ(NqeTableStationTraceParseFormat(area, sizeof(area), nullptr), QDT_TBL_DATA_SIZE);
  ExpectOneRecordOnly(NqeTableFormatStationTrace, 224);
}

TEST_F(StationTraceTest, EnableIsBit2) {
  for (const auto &[flags, enable] : {std::pair(0b100, "1"), {0b11111011, "0"}, {0, "0"}, {0xFF, "1"}})
    EXPECT_EQ(FormatText(NqeTableFormatStationTrace, Record(224).U8(220, static_cast<uint8_t>(flags))),
              Head(enable, "0", "0"));
}

TEST_F(StationTraceTest, NoStations) {
  EXPECT_EQ(FormatText(NqeTableFormatStationTrace, Block(0, 3)), Head("1", "201", "0"));
  // Negative to the engine, but shown without a sign.
  EXPECT_EQ(FormatText(NqeTableFormatStationTrace, Block(0x80, 3)), Head("1", "201", "128"));
  EXPECT_EQ(FormatText(NqeTableFormatStationTrace, Block(0xFF, 3)), Head("1", "201", "255"));
}

// The eleventh and last station of the block shares its bytes with the flags.
TEST_F(StationTraceTest, WrongCountsEndWithTheRecord) {
  std::string ten;
  for (const char *byte : {"01", "02", "03", "04", "05", "06", "07", "08", "09", "0a"})
    ten += std::string("  StaMac :  ") + byte + ":00:00:00:00:" + byte + "\n";
  EXPECT_EQ(FormatText(NqeTableFormatStationTrace, Block(10, 10)), Head("1", "201", "10") + ten);
  const std::string eleven = ten + "  StaMac :  db:00:04:00:00:df\n";
  for (const auto &[count, text] : {std::pair(11, "11"), {12, "12"}, {127, "127"}})
    EXPECT_EQ(FormatText(NqeTableFormatStationTrace,
                         Block(static_cast<uint8_t>(count), 10).U8(218, 0xdb).U8(223, 0xdf)),
              Head("1", "201", text) + eleven);
}

// Stations that do not fit are left out; the head must fit.
TEST_F(StationTraceTest, Room) {
  const Record block = Block(2, 2);
  const std::string head = Head("1", "201", "2"), text = FormatText(NqeTableFormatStationTrace, block);
  const size_t line = 30;
  ASSERT_EQ(text.size(), head.size() + 2 * line);
  for (uint32_t room = 0; room <= text.size() + 1; ++room) {
    const auto area = std::make_unique<char[]>(room);
    const int32_t written = NqeTableFormatStationTrace(area.get(), room, block.data(), 224);
    if (room <= head.size()) {
      EXPECT_EQ(written, QDT_TBL_FORMAT) << room;
    } else {
      const size_t lines = (room - 1 - head.size()) / line;
      EXPECT_EQ(written, static_cast<int32_t>(head.size() + lines * line)) << room;
      EXPECT_EQ(text.substr(0, written), area.get()) << room;
    }
  }
}

// The view keeps the block for the life of its process, so what attaches it runs in a process of its own.
template <typename Body>
void InNewProcess(Body body) {
  EXPECT_EXIT(
      {
        body();
        std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(StationTraceTest, WholeAnswer) {
  InNewProcess([this] {
    platform.AddRegion(kRegion, 224);
    std::memcpy(platform.Region(kRegion), Block(1, 1).data(), 224);
    const std::string answer = Framed(Head("1", "201", "1") + "  StaMac :  01:00:00:00:00:01\n");
    for (const char *key1 : {"0", "all", "num5", "x"})
      EXPECT_EQ(Query("58", key1, "1", "2", "3"), answer) << key1;
    EXPECT_EQ(platform.attaches, std::vector<std::string>{"PKT_TRACE_CTX_PTR 224"});  // once

    EXPECT_EQ(Call(NqeTableSearchStationTrace, 0, "0"), (Found{0, Block(1, 1).bytes()}));
    EXPECT_EQ(platform.allocations.back().size, 224u);
    platform.FailAllocation(0);
    EXPECT_EQ(Call(NqeTableSearchStationTrace, 0, "0").code, QDT_TBL_NO_MEMORY);
  });
}

TEST_F(StationTraceTest, AFailedAttachIsTriedAgain) {
  InNewProcess([this] {
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Query("58", "0"), "search internal error");
    EXPECT_EQ(platform.attaches.size(), 2u);
    EXPECT_TRUE(platform.allocations.empty());
    platform.AddRegion(kRegion, 224);
    EXPECT_EQ(Query("58", "0"), Framed(Head("0", "0", "0")));
    EXPECT_EQ(platform.attaches.size(), 3u);
  });
}

}  // namespace
}  // namespace qdt::test
