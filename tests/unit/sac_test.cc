#include <string>

#include "tests/unit/view_test.h"

// Views of application control: profiles and how applications are numbered.
namespace qdt::test {
namespace {

class SacTest : public ViewTest {
 protected:
  // A view of one entry under a 32-bit key: its whole answer, and the rules of such views.
  void ExpectView(const std::string &id, uint32_t table, TableSearch search, TableFormat format,
                  const Record &entry, const std::string &text) {
    platform.AddEntry(table, Key(uint32_t{70000}), entry.bytes());
    for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query(id, key1, "70000"), Framed(text));
    EXPECT_EQ(Query(id, "70000"), "search result not found");
    EXPECT_TRUE(platform.walks.empty());
    ExpectFindsOne(search, table, entry, "search " + std::to_string(table) + " 70110100", "x", 70000);
    ExpectOneRecordOnly(format, entry.size());
    ExpectBoundedByRoom(format, entry);
  }
};

Record Head() { return Record(392).U32(0, 3000000001u).U8(4, 201).U8(5, 202).U16(6, 0xEEEE); }

const std::string kHead =
    "      SacId           :  3000000001\n"
    "      VapStatEn       :  201\n"
    "      UsrStatEn       :  202\n";

TEST_F(SacTest, Profile) {
  Record profile = Head();
  profile.U16(8, 60001).U8(10, 203).U8(11, 5).U32(12, 3000000012u).U32(16, 3000000016u);
  profile.U8(22, 9).U8(23, 3).U32(24, 9).U32(28, 9);  // slot 1 has no application
  profile.U16(380, 1).U8(382, 2).U8(383, 3).U32(384, 4).U32(388, 5);
  ExpectView("78", 99, NqeTableSearchSacProfile, NqeTableFormatSacProfile, profile,
             kHead +
                 "[ 0]  AppId           :  60001\n"
                 "      AppType         :  203\n"
                 "      ActionType      :  5(dynamic-optimization)\n"
                 "      ActionPara      :  3000000012\n"
                 "      ActionIndex     :  3000000016\n"
                 "[31]  AppId           :  1\n"
                 "      AppType         :  2\n"
                 "      ActionType      :  3(deny)\n"
                 "      ActionPara      :  4\n"
                 "      ActionIndex     :  5\n");
}

TEST_F(SacTest, ProfileWithoutApplications) {
  EXPECT_EQ(FormatText(NqeTableFormatSacProfile, Head()), kHead);
}

TEST_F(SacTest, ActionNames) {
  const auto line = [](uint8_t type) {
    const std::string text =
        FormatText(NqeTableFormatSacProfile, Record(392).U16(8 + 5 * 12, 1).U8(71, type));
    EXPECT_NE(text.find("[ 5]  AppId           :  1\n"), std::string::npos);
    const size_t at = text.find("ActionType");
    return text.substr(at, text.find('\n', at) - at);
  };
  EXPECT_EQ(line(1), "ActionType      :  1(remark-dscp)");
  EXPECT_EQ(line(2), "ActionType      :  2(remark-dot1p)");
  EXPECT_EQ(line(3), "ActionType      :  3(deny)");
  EXPECT_EQ(line(4), "ActionType      :  4(car)");
  EXPECT_EQ(line(5), "ActionType      :  5(dynamic-optimization)");
  // What is stored wrongly has no name.
  EXPECT_EQ(line(0), "ActionType      :  0()");
  EXPECT_EQ(line(6), "ActionType      :  6()");
  EXPECT_EQ(line(255), "ActionType      :  255()");
}

TEST_F(SacTest, PolicyCar) {
  const Record entry = Record(12).U32(0, 3000000001u).U16(4, 60004).U16(6, 60006).U32(8, 3000000008u);
  platform.AddEntry(102, Key(uint32_t{70000}, uint16_t{5}, uint16_t{6}), entry.bytes());
  const std::string answer = Framed(
      "    SacId        :  3000000001\n"
      "    AppId        :  60004\n"
      "    AppType      :  60006\n"
      "    CarId        :  3000000008\n");
  EXPECT_EQ(Query("79", "0", "70000", "5", "6"), answer);
  EXPECT_EQ(Query("79", "all", "70000", "65541", "65542"), answer);  // ids and types have 16 bits
  EXPECT_EQ(Query("79", "0", "70000", "6", "5"), "search result not found");
  EXPECT_EQ(platform.searches.back(), "search 102 7011010006000500");
  platform.ClearTable(102);
  platform.AddEntry(102, Key(uint32_t{7}, uint16_t{8}, uint16_t{0}), entry.bytes());
  ExpectFindsOne(NqeTableSearchSacPolicyCarid, 102, entry, "search 102 0700000008000000", "x", 7, 8);
  ExpectOneRecordOnly(NqeTableFormatSacPolicyCarid, 12);
  ExpectBoundedByRoom(NqeTableFormatSacPolicyCarid, entry);
}

TEST_F(SacTest, ApplicationGroup) {
  Record group(64);
  for (uint32_t i = 0; i < 16; ++i) group.U32(4 * i, 0x10u + i);
  group.U32(0, 0xFEDCBA98).U32(60, 0x80000001);
  ExpectView("80", 94, NqeTableSearchSacAppGroup, NqeTableFormatSacAppGroup, group,
             "bitmap[ 0] : fedcba98\n"
             "bitmap[ 1] : 00000011\n"
             "bitmap[ 2] : 00000012\n"
             "bitmap[ 3] : 00000013\n"
             "bitmap[ 4] : 00000014\n"
             "bitmap[ 5] : 00000015\n"
             "bitmap[ 6] : 00000016\n"
             "bitmap[ 7] : 00000017\n"
             "bitmap[ 8] : 00000018\n"
             "bitmap[ 9] : 00000019\n"
             "bitmap[10] : 0000001a\n"
             "bitmap[11] : 0000001b\n"
             "bitmap[12] : 0000001c\n"
             "bitmap[13] : 0000001d\n"
             "bitmap[14] : 0000001e\n"
             "bitmap[15] : 80000001\n");
}

TEST_F(SacTest, ProtocolMapping) {
  ExpectView("81", 95, NqeTableSearchSacProtocolMapping, NqeTableFormatSacProtocolMapping,
             Record(8).U32(0, 3000000001u).U32(4, 3000000002u),
             "    AppId        :  3000000001\n"
             "    ClassId      :  3000000002\n");
}

Record Mapping() { return Record(40).U32(0, 3000000001u).U32(4, 3000000002u); }

TEST_F(SacTest, ApplicationMapping) {
  ExpectView("82", 92, NqeTableSearchSacAppMapping, NqeTableFormatSacAppMapping,
             Mapping().Copy(8, std::string("a name\0behind", 13)),
             "    AppIndex     :  3000000001\n"
             "    ClassId      :  3000000002\n"
             "    AppName      :  a name\n");
}

TEST_F(SacTest, ReverseMapping) {
  ExpectView("83", 93, NqeTableSearchSacAppRvsMapping, NqeTableFormatSacAppRvsMapping,
             Mapping().Copy(8, std::string("a name\0behind", 13)),
             "    AppId        :  3000000001\n"
             "    ClassId      :  3000000002\n"
             "    AppName      :  a name\n");
}

TEST_F(SacTest, NamesEndWithTheirField) {
  const Record record = Mapping().Copy(8, "abcdefghijklmnopqrstuvwxyz012345");
  EXPECT_EQ(FormatText(NqeTableFormatSacAppMapping, record),
            "    AppIndex     :  3000000001\n"
            "    ClassId      :  3000000002\n"
            "    AppName      :  abcdefghijklmnopqrstuvwxyz012345\n");
  EXPECT_EQ(FormatText(NqeTableFormatSacAppRvsMapping, record),
            "    AppId        :  3000000001\n"
            "    ClassId      :  3000000002\n"
            "    AppName      :  abcdefghijklmnopqrstuvwxyz012345\n");
}

TEST_F(SacTest, PriorityMapping) {
  ExpectView("84", 101, NqeTableSearchSacPriorityMapping, NqeTableFormatSacPriorityMapping,
             Record(4).U32(0, 3000000001u), "    Priority     :  3000000001\n");
}

}  // namespace
}  // namespace qdt::test
