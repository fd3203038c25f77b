#include <map>
#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of the QoS priority maps, and its writers.
namespace qdt::test {
namespace {

constexpr uint32_t kPriority = 69;

class PriorityTest : public ViewTest {};

// Byte i holds i, but for the last byte of each map: 255.
Record Maps() {
  Record record(224);
  for (uint32_t i = 0; i < 224; ++i) record.U8(i, static_cast<uint8_t>(i));
  for (const size_t last : {7, 15, 79, 143, 151, 215, 223}) record.U8(last, 255);
  return record;
}

TEST_F(PriorityTest, WholeAnswer) {
  platform.AddEntry(kPriority, Key(uint32_t{70000}), Maps().bytes());
  const std::string answer = Framed(Golden("priority.txt"));
  for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query("46", key1, "70000", "8", "9"), answer);
  EXPECT_EQ(Query("46", "70000"), "search result not found");
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_TRUE(platform.log.empty());
  ExpectFindsOne(NqeTableSearchPriority, kPriority, Maps(), "search 69 70110100", "x", 70000);
  ExpectOneRecordOnly(NqeTableFormatPriority, 224);
}

TEST_F(PriorityTest, FirstLineIsConstant) {
  const std::string line = "  UP    to  DSCP     :  0 8 16 24 32 40 48 56\n";
  EXPECT_EQ(FormatText(NqeTableFormatPriority, Record(224)).substr(0, line.size()), line);
  Record other(224);
  for (size_t i = 0; i < 8; ++i) other.U8(i, 77);
  EXPECT_EQ(FormatText(NqeTableFormatPriority, other), FormatText(NqeTableFormatPriority, Record(224)));
}

using Head = int32_t (*)(char *, uint32_t, uint32_t);
using Data = int32_t (*)(char *, uint32_t, uint32_t, const void *);

TEST_F(PriorityTest, Heads) {
  const std::vector<std::pair<Head, std::string>> heads = {
      {Up2DscpHead, "  UP    to  DSCP     :  0 8 16 24 32 40 48 56\n"},
      {UpTo8021pHead, "  UP    to  8021P    :  "},
      {P8021p2UpHead, "  8021P to  UP       :  "},
      {Up2TnlDscpHead, "  UP    to  Tnl DSCP :  "},
      {DscpTo8021pHead, "  DSCP  to  8021P    :  "},
      {Dscp2UpHead, "  DSCP  to  UP       :  "},
      {Dscp2TnlDscpHead, "  DSCP  to  Tnl DSCP :  "},
  };
  for (const auto &[head, text] : heads) {
    const auto size = static_cast<uint32_t>(text.size());
    std::string area(3 + size + 1, '#');
    EXPECT_EQ(head(area.data(), size + 4, 3), static_cast<int32_t>(size));
    EXPECT_EQ(area, "###" + text + '\0');
    std::string small(3 + size, '#');
    EXPECT_EQ(head(small.data(), size + 3, 3), QDT_TBL_FORMAT);
    EXPECT_EQ(small.substr(0, 3), "###");
    for (const uint32_t position : {5u, 6u, UINT32_MAX}) EXPECT_EQ(head(small.data(), 5, position), -120);
    EXPECT_EQ(head(nullptr, 100, 0), QDT_TBL_FORMAT);
  }
  EXPECT_TRUE(platform.log.empty());
}

std::string Written(Data data, uint32_t room, int32_t length) {
  std::string area(room, '#');
  EXPECT_EQ(data(area.data(), room, 2, Maps().data()), length);
  EXPECT_EQ(area.substr(0, 2), "##");
  return area.c_str() + 2;
}

struct SmallMap {
  Data data;
  std::string text;
  std::string logName;
};

TEST_F(PriorityTest, SmallMaps) {
  for (const auto &[data, text, logName] :
       {SmallMap{Up2DscpData, "0 1 2 3 4 5 6 255\n", "Up2DscpData"},
        {UpTo8021pData, "8 9 10 11 12 13 14 255\n", "UpTo8021pData"},
        {P8021p2UpData, "144 145 146 147 148 149 150 255\n", "8021p2UpData"},
        {Up2TnlDscpData, "216 217 218 219 220 221 222 255\n", "Up2TnlDscpData"}}) {
    const auto size = static_cast<int32_t>(text.size());
    EXPECT_EQ(Written(data, size + 3, size), text);
    EXPECT_TRUE(platform.log.empty());
    // The last value with its newline does not fit; then not even the first one.
    EXPECT_EQ(Written(data, size + 2, size - 4), text.substr(0, size - 4));
    EXPECT_EQ(Written(data, 3, 0), "");
    const std::string line = "[ErrCode: -120]Error in format data for " + logName;
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, line + "[7]\n"}, {3, line + "[0]\n"}}));
    platform.log.clear();
  }
}

TEST_F(PriorityTest, LargeMaps) {
  const std::string golden = Golden("priority.txt");
  const std::string indent(24, ' ');
  for (const auto &[data, head, logName] :
       {SmallMap{DscpTo8021pData, "  DSCP  to  8021P    :  ", "dscpTo8021p"},
        {Dscp2UpData, "  DSCP  to  UP       :  ", "Dscp2Up"},
        {Dscp2TnlDscpData, "  DSCP  to  Tnl DSCP :  ", "Dscp2TnlDscp"}}) {
    // Eight lines of the whole view.
    const size_t begin = golden.find(head) + head.size();
    size_t end = begin;
    for (int line = 0; line < 8; ++line) end = golden.find('\n', end) + 1;
    const std::string text = golden.substr(begin, end - begin);
    const auto size = static_cast<int32_t>(text.size());
    EXPECT_EQ(Written(data, size + 3, size), text);
    EXPECT_TRUE(platform.log.empty());

    EXPECT_EQ(Written(data, size + 2, size - 1), text.substr(0, size - 1));  // no closing line
    EXPECT_EQ(Written(data, size + 1, size - 5), text.substr(0, size - 5));  // no value 63
    const auto line = static_cast<int32_t>(text.find('\n'));
    EXPECT_EQ(Written(data, line + 2 + 25, line), text.substr(0, line));  // no second line
    const std::string log = "[ErrCode: -120]Error in format data for " + logName;
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, log + "\n"}, {3, log + "[63]\n"}, {3, log + "[7]\n"}}));
    platform.log.clear();
  }
}

TEST_F(PriorityTest, DataNeverFails) {
  const Record maps = Maps();
  for (const Data data : {Up2DscpData, UpTo8021pData, P8021p2UpData, Up2TnlDscpData, DscpTo8021pData,
                          Dscp2UpData, Dscp2TnlDscpData}) {
    char area[] = "####";
    for (const uint32_t position : {4u, 5u, UINT32_MAX}) EXPECT_EQ(data(area, 4, position, maps.data()), 0);
    EXPECT_EQ(data(area, 0, 0, maps.data()), 0);
    EXPECT_STREQ(area, "####");
    EXPECT_EQ(data(nullptr, 100, 0, maps.data()), 0);
    EXPECT_EQ(data(area, 4, 0, nullptr), 0);
  }
}

// A label that does not fit ends the view; values that do not fit are only left out, which the last map's
// show.
TEST_F(PriorityTest, Room) {
  const Record maps = Maps();
  const std::string text = Golden("priority.txt");
  const std::string label = "  DSCP  to  Tnl DSCP :  ";
  const size_t lastLabel = text.find(label), lastMap = lastLabel + label.size();
  // Where the sixth map has no room for its next line, there is just enough for the last label behind it.
  std::map<uint32_t, std::string> shortened;
  for (size_t end = text.find("\n     ", text.find("  DSCP  to  UP ")); end < lastLabel;
       end = text.find("\n     ", end + 1)) {
    shortened[static_cast<uint32_t>(end) + 25] = text.substr(0, end) + label;
  }
  ASSERT_EQ(shortened.size(), 7u);
  for (uint32_t room = 0; room <= text.size() + 1; ++room) {
    const auto area = std::make_unique<char[]>(room);
    const int32_t written = NqeTableFormatPriority(area.get(), room, maps.data(), 224);
    if (shortened.contains(room)) {
      EXPECT_EQ(written, static_cast<int32_t>(shortened[room].size())) << room;
      EXPECT_EQ(shortened[room], area.get());
    } else if (room <= lastMap) {
      EXPECT_EQ(written, QDT_TBL_FORMAT) << room;
    } else {
      EXPECT_GE(written, static_cast<int32_t>(lastMap)) << room;
      EXPECT_EQ(text.substr(0, written), area.get()) << room;
      EXPECT_EQ(written == static_cast<int32_t>(text.size()), room == text.size() + 1) << room;
    }
  }
}

}  // namespace
}  // namespace qdt::test
