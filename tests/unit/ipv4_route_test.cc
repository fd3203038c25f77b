#include <string>

#include "tests/unit/view_test.h"

// Views of IPv4 routes and next-hop groups, and their checks of the entries that they are bound to.
namespace qdt::test {
namespace {

constexpr uint32_t kFib = 1, kNextHop = 2, kGroup = 3;

class RouteTest : public ViewTest {
 protected:
  void *AddNextHop(uint32_t index) { return platform.AddEntry(kNextHop, Key(index), Bytes(608)); }
  void *AddGroup(uint32_t index) { return platform.AddEntry(kGroup, Key(index), Bytes(784)); }
};

// A route key; the destination's bytes stand as they are written.
Bytes FibKey(uint16_t prefixLength, uint16_t vpn, uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  return Key(prefixLength, vpn, a, b, c, d);
}

// A route with a value of its own in every field.
Record FullRoute(const void *bound) {
  return Record(16)
      .Bits(0, 0, 5)
      .Bits(0, 4, 1)
      .U8(1, 200)
      .U16(2, 40001)
      .U32(4, 4000000001u)
      .Address(8, bound);
}

constexpr char kFullRoute[] =
    "  OpCode    :  5\n"
    "  MulNhp    :  0\n"
    "  Def       :  1\n"
    "  Dir       :  0\n"
    "  Prefix    :  200\n"
    "  NhpIndex  :  40001\n"
    "  ReIndex   :  4000000001\n";

TEST_F(RouteTest, WholeAnswer) {
  platform.AddEntry(kFib, FibKey(24, 7, 10, 1, 2, 0), FullRoute(AddNextHop(40001)).bytes());
  EXPECT_EQ(Query("3", "10.1.2.0", "24", "7"), Framed(kFullRoute));
  EXPECT_EQ(Query("3", "10.1.2.0", "24", "8"), "search result not found");
  EXPECT_EQ(Query("3", "10.1.2.0", "25", "7"), "search result not found");
  EXPECT_EQ(Query("3", "0.2.1.10", "24", "7"), "search result not found");
}

TEST_F(RouteTest, FindsByPrefixVpnAndDestinationInNetworkOrder) {
  const Record route = FullRoute(nullptr);
  platform.AddEntry(kFib, FibKey(24, 0x0201, 10, 1, 2, 0), route.bytes());
  ExpectFindsOne(NqeTableSearchFib, kFib, route, "search 1 180001020a010200", "10.1.2.0", 24, 0x0201);
  EXPECT_EQ(platform.allocations[0].path, "src/om/nqe_cli/nqe_cli_tbl_query_fwd");
  // Numbers are cut to the key's 16 bits.
  platform.AddEntry(kFib, FibKey(24, 0x0201, 10, 1, 2, 0), route.bytes());
  ExpectFindsOne(NqeTableSearchFib, kFib, route, "search 1 180001020a010200", "10.1.2.0", 0xFFFF0018,
                 0x80000201);
}

TEST_F(RouteTest, TextsThatAreNoAddressMeanTheLastOne) {
  platform.AddEntry(kFib, FibKey(32, 0, 255, 255, 255, 255), FullRoute(AddNextHop(40001)).bytes());
  for (const char *key1 : {"x", "", "ALL", "10.1.2.256", "10.1.2.0.1", "::1", "255.255.255.255"}) {
    EXPECT_EQ(Query("3", key1, "32", "0"), Framed(kFullRoute)) << key1;
  }
  platform.searches.clear();
  EXPECT_EQ(Query("3", "0", "0", "0"), "search result not found");
  EXPECT_EQ(Query("3", "10.1", "8", "0"), "search result not found");  // the old short form
  EXPECT_EQ(platform.searches,
            (std::vector<std::string>{"search 1 0000000000000000", "search 1 080000000a000001"}));
}

TEST_F(RouteTest, EachFlagAlone) {
  const auto text = [](const char *op, const char *multiple, const char *isDefault, const char *direct) {
    return std::string("  OpCode    :  ") + op + "\n  MulNhp    :  " + multiple +
           "\n  Def       :  " + isDefault + "\n  Dir       :  " + direct +
           "\n  Prefix    :  0\n  NhpIndex  :  0\n  ReIndex   :  0\n  NhpEntry  :  Error(-7)\n";
  };
  const std::string expected[8] = {
      text("1", "0", "0", "0"), text("2", "0", "0", "0"), text("4", "0", "0", "0"), text("0", "1", "0", "0"),
      text("0", "0", "1", "0"), text("0", "0", "0", "1"), text("0", "0", "0", "0"), text("0", "0", "0", "0")};
  for (int bit = 0; bit < 8; ++bit) {
    EXPECT_EQ(FormatText(NqeTableFormatFib, Record(16).Bits(0, bit, 1)), expected[bit]) << bit;
  }
}

TEST_F(RouteTest, TheBoundNextHopIsTheLiveOne) {
  const std::string intact = kFullRoute;
  const void *const live = AddNextHop(40001);
  const void *const other = AddNextHop(40002);
  EXPECT_EQ(FormatText(NqeTableFormatFib, FullRoute(live)), intact);
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 2 419c0000"});
  EXPECT_EQ(FormatText(NqeTableFormatFib, FullRoute(other)), intact + "  NhpEntry  :  Error(0)\n");
  EXPECT_EQ(FormatText(NqeTableFormatFib, FullRoute(nullptr)), intact + "  NhpEntry  :  Error(0)\n");
  platform.FailTable(kNextHop, -116);
  EXPECT_EQ(FormatText(NqeTableFormatFib, FullRoute(live)), intact + "  NhpEntry  :  Error(-116)\n");
  platform.FailTable(kNextHop, 0);
  platform.ClearTable(kNextHop);
  EXPECT_EQ(FormatText(NqeTableFormatFib, FullRoute(live)), intact + "  NhpEntry  :  Error(-7)\n");
  EXPECT_EQ(FormatText(NqeTableFormatFib, FullRoute(nullptr)), intact + "  NhpEntry  :  Error(-7)\n");
}

TEST_F(RouteTest, MultipleNextHopsAreAGroup) {
  const std::string intact =
      "  OpCode    :  0\n"
      "  MulNhp    :  1\n"
      "  Def       :  0\n"
      "  Dir       :  0\n"
      "  Prefix    :  0\n"
      "  NhpIndex  :  77\n"
      "  ReIndex   :  0\n";
  const auto route = [](const void *bound) { return Record(16).Bits(0, 3, 1).U16(2, 77).Address(8, bound); };
  const void *const nextHop = AddNextHop(77);
  EXPECT_EQ(FormatText(NqeTableFormatFib, route(nextHop)), intact + "  NhpEntry  :  Error(-7)\n");
  const void *const group = AddGroup(77);
  EXPECT_EQ(FormatText(NqeTableFormatFib, route(group)), intact);
  EXPECT_EQ(FormatText(NqeTableFormatFib, route(nextHop)), intact + "  NhpEntry  :  Error(0)\n");
  EXPECT_EQ(platform.searches, std::vector<std::string>(2, "search 3 4d000000"));
  // Nor is a next hop looked for among the groups.
  platform.ClearTable(kNextHop);
  EXPECT_EQ(FormatText(NqeTableFormatFib, Record(16).U16(2, 77).Address(8, group)),
            "  OpCode    :  0\n"
            "  MulNhp    :  0\n"
            "  Def       :  0\n"
            "  Dir       :  0\n"
            "  Prefix    :  0\n"
            "  NhpIndex  :  77\n"
            "  ReIndex   :  0\n"
            "  NhpEntry  :  Error(-7)\n");
}

TEST_F(RouteTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatFib, 16);
  ExpectBoundedByRoom(NqeTableFormatFib, FullRoute(AddNextHop(40001)));
  ExpectBoundedByRoom(NqeTableFormatFib, FullRoute(nullptr));  // ends with the error line
}

// Groups of next hops.

constexpr size_t kIndexes = 12, kPrimaries = 140, kBounds = 272, kPrimaryBounds = 528;

TEST_F(RouteTest, GroupWholeAnswer) {
  Record group(784);
  group.U8(0, 1).U8(1, 2).U8(2, 3).U32(4, 4000000002u).U32(8, 0xA0B1C2D3);
  for (uint32_t i = 0; i < 2; ++i) {
    group.U32(kIndexes + 4 * i, 3100000000u + i);
    group.Address(kBounds + 8 * i, AddNextHop(3100000000u + i));
  }
  for (uint32_t i = 0; i < 3; ++i) {
    group.U32(kPrimaries + 4 * i, 3200000000u + i);
    group.Address(kPrimaryBounds + 8 * i, AddNextHop(3200000000u + i));
  }
  platform.AddEntry(kGroup, Key(uint32_t{70000}), group.bytes());
  EXPECT_EQ(Query("5", "0", "70000"), Framed("  BsFrr:         1\n"
                                             "  BsNhpNum:      2\n"
                                             "  HashIndex:     4000000002\n"
                                             "  PrimaryNum:    3\n"
                                             "  PrimaryBitmap: a0b1c2d3\n"
                                             "  NhpIndex[0]:     3100000000\n"
                                             "  NhpIndex[1]:     3100000001\n"
                                             "  PrimaryNhpIndex[0]:     3200000000\n"
                                             "  PrimaryNhpIndex[1]:     3200000001\n"
                                             "  PrimaryNhpIndex[2]:     3200000002\n"));
  ExpectBoundedByRoom(NqeTableFormatNhpGroup, group);
  ExpectFindsOne(NqeTableSearchNhpGroup, kGroup, group, "search 3 70110100", "x", 70000);
}

constexpr char kNoMembers[] =
    "  BsFrr:         0\n"
    "  BsNhpNum:      0\n"
    "  HashIndex:     0\n"
    "  PrimaryNum:    0\n"
    "  PrimaryBitmap: 0000000f\n";

TEST_F(RouteTest, GroupWithoutMembersLooksNothingUp) {
  AddNextHop(0);
  EXPECT_EQ(FormatText(NqeTableFormatNhpGroup, Record(784).U32(8, 15)), kNoMembers);
  // Only the lowest bit is the flag.
  EXPECT_EQ(FormatText(NqeTableFormatNhpGroup, Record(784).U32(8, 15).U8(0, 0xFE)), kNoMembers);
  EXPECT_TRUE(platform.searches.empty());
}

// The member lines of a group, which stand behind its five counts.
std::string Members(const std::string &text) { return text.substr(text.find("\n", text.find("Bitmap")) + 1); }

TEST_F(RouteTest, EachMemberIsCheckedAgainstTheLiveNextHop) {
  const void *const live = AddNextHop(501);
  const void *const other = AddNextHop(502);
  Record group(784);
  group.U8(1, 4).U8(2, 4);
  const uint32_t index[4] = {501, 501, 501, 503};
  const void *const bound[4] = {live, other, nullptr, live};
  for (int i = 0; i < 4; ++i) {
    group.U32(kIndexes + 4 * i, index[i]).Address(kBounds + 8 * i, bound[i]);
    group.U32(kPrimaries + 4 * i, index[3 - i]).Address(kPrimaryBounds + 8 * i, bound[3 - i]);
  }
  EXPECT_EQ(Members(FormatText(NqeTableFormatNhpGroup, group)),
            "  NhpIndex[0]:     501\n"
            "  NhpIndex[1]:     501\n"
            "  Entry of 1 :     Error\n"
            "  NhpIndex[2]:     501\n"
            "  Entry of 2 :     Error\n"
            "  NhpIndex[3]:     503\n"
            "  Entry of 3 :     Error\n"
            "  PrimaryNhpIndex[0]:     503\n"
            "  PrimaryEntry of 0 :     Error\n"
            "  PrimaryNhpIndex[1]:     501\n"
            "  PrimaryEntry of 1 :     Error\n"
            "  PrimaryNhpIndex[2]:     501\n"
            "  PrimaryEntry of 2 :     Error\n"
            "  PrimaryNhpIndex[3]:     501\n");
  EXPECT_EQ(platform.searches.size(), 8u);
  EXPECT_EQ(platform.searches[0], "search 2 f5010000");
  EXPECT_EQ(platform.searches[3], "search 2 f7010000");
  ExpectBoundedByRoom(NqeTableFormatNhpGroup, group);
}

TEST_F(RouteTest, AFailingNextHopTableMarksAllMembers) {
  const void *const live = AddNextHop(501);
  platform.FailTable(kNextHop, -113);
  EXPECT_EQ(Members(FormatText(NqeTableFormatNhpGroup, Record(784)
                                                           .U8(1, 1)
                                                           .U8(2, 1)
                                                           .U32(kIndexes, 501)
                                                           .Address(kBounds, live)
                                                           .U32(kPrimaries, 501)
                                                           .Address(kPrimaryBounds, live))),
            "  NhpIndex[0]:     501\n"
            "  Entry of 0 :     Error\n"
            "  PrimaryNhpIndex[0]:     501\n"
            "  PrimaryEntry of 0 :     Error\n");
}

// Lists of a group whose members are all intact, with values of their own up to the last slots.
class GroupListTest : public RouteTest {
 protected:
  Record Group(uint8_t backups, uint8_t primaries) {
    platform.ClearTable(kNextHop);
    Record group(784);
    group.U8(1, backups).U8(2, primaries);
    for (uint32_t i = 0; i < 32; ++i) {
      group.U32(kIndexes + 4 * i, 1000 + i).Address(kBounds + 8 * i, AddNextHop(1000 + i));
      group.U32(kPrimaries + 4 * i, 2000 + i).Address(kPrimaryBounds + 8 * i, AddNextHop(2000 + i));
    }
    return group;
  }

  static std::string Lines(const std::string &label, int count, int first) {
    std::string lines;
    for (int i = 0; i < count; ++i) {
      lines += "  " + label + "[" + std::to_string(i) + "]:     " + std::to_string(first + i) + "\n";
    }
    return lines;
  }
};

TEST_F(GroupListTest, AtMost32OfEachList) {
  struct Case {
    uint8_t count;
    int shown;
  };
  for (const Case c : {Case{0, 0}, {1, 1}, {31, 31}, {32, 32}, {33, 32}, {128, 32}, {255, 32}}) {
    const std::string backups = FormatText(NqeTableFormatNhpGroup, Group(c.count, 0));
    EXPECT_EQ(Members(backups), Lines("NhpIndex", c.shown, 1000));
    EXPECT_NE(backups.find("  BsNhpNum:      " + std::to_string(c.count) + "\n"), std::string::npos);
    const std::string primaries = FormatText(NqeTableFormatNhpGroup, Group(0, c.count));
    EXPECT_EQ(Members(primaries), Lines("PrimaryNhpIndex", c.shown, 2000));
    EXPECT_NE(primaries.find("  PrimaryNum:    " + std::to_string(c.count) + "\n"), std::string::npos);
  }
  EXPECT_EQ(Members(FormatText(NqeTableFormatNhpGroup, Group(255, 2))),
            Lines("NhpIndex", 32, 1000) + Lines("PrimaryNhpIndex", 2, 2000));
}

TEST_F(GroupListTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatNhpGroup, 784);
  ExpectBoundedByRoom(NqeTableFormatNhpGroup, Group(32, 32));
  ExpectBoundedByRoom(NqeTableFormatNhpGroup, Record(784).U8(1, 32).U8(2, 32));  // none intact
}

}  // namespace
}  // namespace qdt::test
