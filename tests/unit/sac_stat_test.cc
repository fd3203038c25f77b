#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of what application control counts, of an interface and of a user: one block in two sizes.
namespace qdt::test {
namespace {

constexpr uint32_t kGlobal = 0, kCtrlIf = 11, kFwdIf = 29, kIfStat = 103, kUserStat = 104;
constexpr size_t kIfSize = 16104, kUserSize = 3472, kUserBlock = 3464;

// Where a block of so many slots keeps its arrays.
struct Shape {
  size_t start, sub0, sub1, total;
};
constexpr Shape kInterface = {0, 24, 4848, 9672};
constexpr Shape kUser = {8, 24, 1056, 2088};

class SacStatTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    platform.AddEntry(kGlobal, Key(uint32_t{0}), Record(14672).U64(14640, UINT64_MAX - 9).bytes());
  }
};

Record Head(size_t size, const Shape &shape, uint32_t lastSlot) {
  return Record(size)
      .U32(shape.start, lastSlot)
      .U32(shape.start + 4, 1)
      .U64(shape.start + 8, static_cast<uint64_t>(-5000000008))
      .U64(shape.start + 16, 5000000016);
}

std::string HeadText(const std::string &lastSlot) {
  return "      AppNum            :  " + lastSlot +
         "\n"
         "      CurRealTimeStat   :  1\n"
         "      CurStatVersion    :  -5000000008\n"
         "      LastStatVersion   :  5000000016\n"
         "      GlobalStatVersion :  -10\n";
}

void FillSlot(Record &record, const Shape &shape, size_t slot) {
  const size_t total = shape.start + shape.total + 32 * slot;
  record.U32(total, 0xFFFFFFFF).U32(total + 4, 1002);
  record.U64(total + 8, static_cast<uint64_t>(-5000000003)).U64(total + 16, 5000000004);
  record.U32(total + 24, 3000000005u).U32(total + 28, 0xEEEEEEEE);
  const size_t sub0 = shape.start + shape.sub0 + 24 * slot;
  record.U32(sub0, 2001).U32(sub0 + 4, 0xFFFFFFFE).U32(sub0 + 8, 2003).U32(sub0 + 12, 0xFFFFFFFC);
  record.U32(sub0 + 16, 3000000006u).U32(sub0 + 20, 0xEEEEEEEE);
  const size_t sub1 = shape.start + shape.sub1 + 24 * slot;
  record.U32(sub1, 0xFFFFFFFB).U32(sub1 + 4, 2147483647).U32(sub1 + 8, 0x80000000).U32(sub1 + 12, 4004);
  record.U32(sub1 + 16, 3000000007u).U32(sub1 + 20, 0xEEEEEEEE);
}

std::string FullSlot(const std::string &slot) {
  return slot +
         "  AppId             :  3000000005\n"
         "      UpPktStat         :  -1\n"
         "      UpByteStat        :  -5000000003\n"
         "      DnPktStat         :  1002\n"
         "      DnByteStat        :  5000000004\n"
         "      AppId0            :  3000000006\n"
         "      UpPktStat         :  2001\n"
         "      UpByteStat        :  -2\n"
         "      DnPktStat         :  2003\n"
         "      DnByteStat        :  -4\n"
         "      AppId1            :  3000000007\n"
         "      UpPktStat         :  -5\n"
         "      UpByteStat        :  2147483647\n"
         "      DnPktStat         :  -2147483648\n"
         "      DnByteStat        :  4004\n";
}

std::string EmptySlot(int slot) {
  const std::string counts =
      "      UpPktStat         :  0\n"
      "      UpByteStat        :  0\n"
      "      DnPktStat         :  0\n"
      "      DnByteStat        :  0\n";
  return (slot < 10 ? "[ " : "[") + std::to_string(slot) + "]  AppId             :  0\n" + counts +
         "      AppId0            :  0\n" + counts + "      AppId1            :  0\n" + counts;
}

std::string EmptySlots(int first, int last) {
  std::string text;
  for (int slot = first; slot <= last; ++slot) text += EmptySlot(slot);
  return text;
}

TEST_F(SacStatTest, EachSlotInUseIsShown) {
  Record interface = Head(kIfSize, kInterface, 200);
  FillSlot(interface, kInterface, 0);
  FillSlot(interface, kInterface, 200);
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, interface),
            HeadText("200") + FullSlot("[ 0]") + EmptySlots(1, 199) + FullSlot("[200]"));

  Record user = Head(kUserSize, kUser, 42).U64(0, UINT64_MAX);
  FillSlot(user, kUser, 0);
  FillSlot(user, kUser, 42);
  EXPECT_EQ(FormatText(NqeTableFormatSacUsfStat, user),
            HeadText("42") + FullSlot("[ 0]") + EmptySlots(1, 41) + FullSlot("[42]"));
}

TEST_F(SacStatTest, SlotZeroIsShownWhenInUse) {
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, Head(kIfSize, kInterface, 0)), HeadText("0"));
  EXPECT_EQ(FormatText(NqeTableFormatSacUsfStat, Head(kUserSize, kUser, 0)), HeadText("0"));
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, Head(kIfSize, kInterface, 2)),
            HeadText("2") + EmptySlot(1) + EmptySlot(2));
  // Counts alone do not put it to use.
  Record counts = Head(kIfSize, kInterface, 0);
  FillSlot(counts, kInterface, 0);
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, counts), HeadText("0") + FullSlot("[ 0]"));
  counts.U32(9672 + 24, 0);
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, counts), HeadText("0"));
}

TEST_F(SacStatTest, RealTimeIsOneBit) {
  const std::string text =
      FormatText(NqeTableFormatSacIfStat, Head(kIfSize, kInterface, 0).U32(4, 0xFFFFFFFE));
  EXPECT_NE(text.find("      CurRealTimeStat   :  0\n"), std::string::npos);
}

TEST_F(SacStatTest, WrongSlotNumbersEndWithTheRecord) {
  const std::string interfaces = EmptySlots(1, 200), users = EmptySlots(1, 42);
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, Head(kIfSize, kInterface, 201)),
            HeadText("201") + interfaces);
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, Head(kIfSize, kInterface, UINT32_MAX)),
            HeadText("4294967295") + interfaces);
  EXPECT_EQ(FormatText(NqeTableFormatSacUsfStat, Head(kUserSize, kUser, 43)), HeadText("43") + users);
  EXPECT_EQ(FormatText(NqeTableFormatSacUsfStat, Head(kUserSize, kUser, UINT32_MAX)),
            HeadText("4294967295") + users);
}

TEST_F(SacStatTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatSacIfStat, kIfSize);
  ExpectOneRecordOnly(NqeTableFormatSacUsfStat, kUserSize);
  Record interface = Head(kIfSize, kInterface, 2), user = Head(kUserSize, kUser, 2);
  FillSlot(interface, kInterface, 0);
  FillSlot(user, kUser, 1);
  ExpectBoundedByRoom(NqeTableFormatSacIfStat, interface);
  ExpectBoundedByRoom(NqeTableFormatSacUsfStat, user);
}

TEST_F(SacStatTest, BlocksByThemselves) {
  Record interface = Head(kIfSize, kInterface, 1);
  FillSlot(interface, kInterface, 1);
  char area[2000];
  const std::string text = HeadText("1") + FullSlot("[ 1]");
  EXPECT_EQ(NqeTableFormatSacStatForIf(area, sizeof(area), interface.data()),
            static_cast<int32_t>(text.size()));
  EXPECT_EQ(area, text);

  constexpr Shape kBlock = {0, 24, 1056, 2088};
  Record user = Head(kUserBlock, kBlock, 1);
  FillSlot(user, kBlock, 1);
  area[0] = '#';
  EXPECT_EQ(NqeTableFormatSacStatForUsf(area, sizeof(area), user.data()), static_cast<int32_t>(text.size()));
  EXPECT_EQ(area, text);

  const auto size = static_cast<uint32_t>(text.size());
  EXPECT_EQ(NqeTableFormatSacStatForIf(area, size, interface.data()), QDT_TBL_FORMAT);
  EXPECT_EQ(NqeTableFormatSacStatForUsf(area, size, user.data()), QDT_TBL_FORMAT);
  EXPECT_EQ(NqeTableFormatSacStatForIf(area, size, nullptr), QDT_TBL_DATA_SIZE);
  EXPECT_EQ(NqeTableFormatSacStatForUsf(area, size, nullptr), QDT_TBL_DATA_SIZE);
}

TEST_F(SacStatTest, NoGlobalEntry) {
  platform.FailTable(kGlobal, -12);
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, Record(kIfSize)), "code -120");
  EXPECT_EQ(FormatText(NqeTableFormatSacUsfStat, Record(kUserSize)), "code -120");
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{3, "[SacStatGloVer] error in Search CAP_TABLE_GLOBAL, ret -12\n"},
                                  {3, "[SacStatGloVer] error in search usf CAP_TABLE_GLOBAL, ret -12\n"}}));
  EXPECT_EQ(platform.searches, std::vector<std::string>());
}

// Control interface 70000 is forwarding interface 1200, which stands for VAP 201.
class SacIfStatTest : public SacStatTest {
 protected:
  void AddInterfaces() {
    platform.AddEntry(kCtrlIf, Key(uint32_t{70000}), Record(16).U32(0, 70000).U32(4, 1200).bytes());
    platform.AddEntry(kFwdIf, Key(uint32_t{1200}), Record(1544).U32(60, 0xEEEEC9EE).bytes());
  }
};

TEST_F(SacIfStatTest, WholeAnswer) {
  AddInterfaces();
  Record entry = Head(kIfSize, kInterface, 1);
  FillSlot(entry, kInterface, 1);
  platform.AddEntry(kIfStat, Key(uint32_t{201}), entry.bytes());
  for (const char *key1 : {"0", "all", "num5"})
    EXPECT_EQ(Query("85", key1, "70000"), Framed(HeadText("1") + FullSlot("[ 1]")));
  EXPECT_EQ(Call(NqeTableSearchSacIfStat, 0, "x", 70000), (Found{0, entry.bytes()}));
  EXPECT_EQ(platform.allocations.back().size, kIfSize);
  platform.FailAllocation(0);
  EXPECT_EQ(Call(NqeTableSearchSacIfStat, 0, "x", 70000).code, QDT_TBL_NO_MEMORY);
  EXPECT_TRUE(platform.log.empty());
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(SacIfStatTest, NoForwardingInterface) {
  EXPECT_EQ(Query("85", "0", "70000"), "search result not found");
  platform.FailTable(kCtrlIf, -116);
  EXPECT_EQ(Call(NqeTableSearchSacIfStat, 0, "0", 70000).code, -116);
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SacIfStatTest, MissingEntriesAreLogged) {
  platform.AddEntry(kCtrlIf, Key(uint32_t{3000000000u}), Record(16).U32(4, 1200).bytes());
  EXPECT_EQ(Query("85", "0", "3000000000"), "search result not found");
  EXPECT_EQ(
      platform.log,
      (std::vector<LogLine>{{6, "sac search fwdif fail, ret=-7, ctrlIfIdx=3000000000, fwdIfIdx=1200\n"}}));
  platform.log.clear();
  AddInterfaces();
  platform.FailTable(kIfStat, -4);
  EXPECT_EQ(Query("85", "0", "70000"), "search result is empty");
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{6, "sac search if stat fail, ret=-4, ctrlIfIdx=70000, vapIndex=201\n"}}));
}

TEST_F(SacStatTest, UserWholeAnswer) {
  Record entry = Head(kUserSize, kUser, 1);
  FillSlot(entry, kUser, 1);
  platform.AddEntry(kUserStat, {0xa0, 0x0b, 0xc1, 0x0d, 0xe2, 0x0f, 0, 0}, entry.bytes());
  EXPECT_EQ(Query("86", "a0:0b:c1:0d:e2:0f"), Framed(HeadText("1") + FullSlot("[ 1]")));
  EXPECT_TRUE(platform.log.empty());
  ExpectFindsOne(NqeTableSearchSacUsfStat, kUserStat, entry, "search 104 a00bc10de20f0000",
                 "a0:0b:c1:0d:e2:0f");
}

TEST_F(SacStatTest, UserMissingIsLogged) {
  EXPECT_EQ(Query("86", "a0:0b:c1:0d:e2:0f"), "search result not found");
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{6, "sac usf stat search fail, ret=-7, mac(a0:0b:c1:0d:e2:0f)\n"}}));
}

TEST_F(SacStatTest, UserKeyMustBeAnAddress) {
  for (const char *key1 : {"0", "all", "num5", "10.1.0.7", "a0:0b:c1:0d:e2"})
    EXPECT_EQ(Query("86", key1), "search is not supported") << key1;
  EXPECT_TRUE(platform.searches.empty());
  // The usage list shows the address one word later, where only numbers go.
  const std::string usage = Diag({});
  EXPECT_EQ(Query("86", "0", "a0:0b:c1:0d:e2:0f"), usage);
  EXPECT_NE(usage.find("86 0 mac 0 0"), std::string::npos);
}

}  // namespace
}  // namespace qdt::test
