#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of the ports' tags, isolation and spanning-tree states, and of what is sent to the control plane.
namespace qdt::test {
namespace {

constexpr uint32_t kCtrlIfMap = 11, kPortTag = 41, kPortIsolate = 43, kPortInstance = 96, kCause = 98;

class SwitchingTest : public ViewTest {
 protected:
  void Map(uint32_t ctrlIfIndex, uint32_t fwdIfIndex) {
    platform.AddEntry(kCtrlIfMap, Key(ctrlIfIndex), Record(16).U32(4, fwdIfIndex).bytes());
  }
};

// Port tags.

Record PortTag(uint32_t id) { return Record(8).U32(0, id).U32(4, 3000000004u); }

std::string PortTagText(const std::string &id) {
  return "  PortId       :  " + id + "\n  PortEncType  :  3000000004\n\n";
}

TEST_F(SwitchingTest, PortTagByKey) {
  platform.AddEntry(kPortTag, Key(uint32_t{70000}), PortTag(3000000000u).bytes());
  EXPECT_EQ(Query("26", "0", "70000"), Framed(PortTagText("3000000000")));
  EXPECT_EQ(Query("26", "70000", "1"), "search result not found");
  EXPECT_EQ(Call(NqeTableSearchPortTag, 0, "x", 70000), (Found{0, PortTag(3000000000u).bytes()}));
  EXPECT_EQ(platform.searches.back(), "search 41 70110100");
  EXPECT_EQ(platform.allocations.back().size, 8u);
  EXPECT_TRUE(platform.walks.empty());
}

// The walk's buffer has 12 bytes an entry, of which it fills 8.
TEST_F(SwitchingTest, PortTagWalk) {
  EXPECT_EQ(Query("26", "all"), "datasize empty or invalid");
  platform.walks.clear();
  std::string seventy, all;
  for (uint32_t i = 0; i < 120; ++i) {
    platform.AddEntry(kPortTag, Key(i), PortTag(i).bytes());
    all += PortTagText(std::to_string(i));
    if (i < 70) seventy += PortTagText(std::to_string(i));
  }
  EXPECT_EQ(Query("26", "all"), Framed(all));
  EXPECT_EQ(platform.allocations.back().size, 600u);
  EXPECT_EQ(Query("26", "num70"), Framed(seventy));
  EXPECT_EQ(platform.allocations.back().size, 240u);
  EXPECT_EQ(platform.walks, (std::vector<std::string>{"next 41 400", "next 41 400", "next 41 400",
                                                      "next 41 400", "next 41 160"}));
  Bytes two = PortTag(0).bytes();
  const Bytes second = PortTag(1).bytes();
  two.insert(two.end(), second.begin(), second.end());
  EXPECT_EQ(Call(NqeTableSearchPortTag, 2, "x"), (Found{1, two}));
}

TEST_F(SwitchingTest, PortTagFailures) {
  for (uint32_t i = 0; i < 60; ++i) platform.AddEntry(kPortTag, Key(i), PortTag(i).bytes());
  platform.FailAllocation(0);
  EXPECT_EQ(Query("26", "0", "1"), "nqecli malloc fail");
  platform.FailAllocation(1);
  EXPECT_EQ(Query("26", "all"), "nqecli malloc fail");
  platform.FailWalk(kPortTag, 1, -12);
  EXPECT_EQ(Query("26", "all"), "stop the search,a node is deleted");
  platform.FailTable(kPortTag, -1);
  EXPECT_EQ(Query("26", "all"), "search fail");
  EXPECT_EQ(Query("26", "0", "1"), "search fail");
  ExpectFormatsEach(NqeTableFormatPortTag, PortTag(1));
  ExpectBoundedByRoom(NqeTableFormatPortTag, PortTag(3000000000u));
}

// Port isolation.

Record Isolation(uint32_t flags) { return Record(12).U32(0, 3000000000u).U32(4, 3000000004u).U32(8, flags); }

std::string IsolationText(const std::string &enabled) {
  return "  SrcFwdIfIndex    :  3000000000\n"
         "  DstFwdIfIndex    :  3000000004\n"
         "  PortIsolateEn    :  " +
         enabled + "\n";
}

TEST_F(SwitchingTest, PortIsolateWholeAnswer) {
  Map(5, 0x01020304);
  Map(6, 0x05060708);
  platform.AddEntry(kPortIsolate, Key(0x01020304u, 0x05060708u), Isolation(1).bytes());
  EXPECT_EQ(Query("25", "0", "5", "6"), Framed(IsolationText("1")));
  EXPECT_EQ(platform.searches, (std::vector<std::string>{"search 11 05000000", "search 11 06000000",
                                                         "search 43 0403020108070605"}));
  EXPECT_EQ(platform.allocations.back().size, 12u);
  EXPECT_EQ(Query("25", "all", "5", "6"), Framed(IsolationText("1")));  // never a list
  EXPECT_EQ(Query("25", "0", "6", "5"), "search result not found");
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(SwitchingTest, PortIsolateShowsOneBit) {
  for (uint32_t bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(FormatText(NqeTableFormatPortIsolate, Isolation(1u << bit)),
              IsolationText(bit == 0 ? "1" : "0"));
  }
  EXPECT_EQ(FormatText(NqeTableFormatPortIsolate, Isolation(~1u)), IsolationText("0"));
}

TEST_F(SwitchingTest, PortIsolateFailures) {
  Map(5, 12);
  platform.AddEntry(kPortIsolate, Key(12u, 12u), Isolation(1).bytes());
  EXPECT_EQ(Query("25", "0", "5", "6"), "search result not found");  // no such destination
  EXPECT_EQ(Query("25", "0", "6", "5"), "search result not found");  // no such source
  for (const std::string &line : platform.searches) EXPECT_TRUE(line.starts_with("search 11")) << line;
  platform.FailAllocation(0);
  EXPECT_EQ(Query("25", "0", "5", "5"), "nqecli malloc fail");
  platform.FailTable(kPortIsolate, -116);
  EXPECT_EQ(Query("25", "0", "5", "5"), "search not ready");
  platform.FailTable(kCtrlIfMap, -2);
  EXPECT_EQ(Query("25", "0", "5", "5"), "search param wrong");
  ExpectOneRecordOnly(NqeTableFormatPortIsolate, 12);
  ExpectBoundedByRoom(NqeTableFormatPortIsolate, Isolation(1));
}

// States of ports in spanning-tree instances.

Record PortInstance(uint32_t fwdIfIndex) {
  return Record(12).U16(0, 40000).U16(2, 40002).U32(4, fwdIfIndex).U8(8, 208).U8(9, 0xEE).U16(10, 0xEEEE);
}

std::string PortInstanceText(const std::string &fwdIfIndex) {
  return "  BrId         :  40000\n  InstId       :  40002\n  FwdIfIdx     :  " + fwdIfIndex +
         "\n  State        :  208\n\n";
}

TEST_F(SwitchingTest, PortInstanceByKey) {
  Map(0x01020304, 0x05060708);
  platform.AddEntry(kPortInstance, Key(uint16_t{0x0A0B}, uint16_t{0x0C0D}, uint32_t{0x05060708}),
                    PortInstance(3000000004u).bytes());
  EXPECT_EQ(Query("74", "0", "0x0A0B", "0x0C0D", "0x01020304"), Framed(PortInstanceText("3000000004")));
  EXPECT_EQ(platform.searches,
            (std::vector<std::string>{"search 11 04030201", "search 96 0b0a0d0c08070605"}));
  EXPECT_EQ(platform.allocations.back().size, 12u);
  EXPECT_EQ(Query("74", "0", "0x10A0B", "0x10C0D", "0x01020304"), Framed(PortInstanceText("3000000004")));
  EXPECT_EQ(Query("74", "0", "0x0A0B", "0x0C0E", "0x01020304"), "search result not found");
  EXPECT_EQ(Query("74", "0", "0x0A0C", "0x0C0D", "0x01020304"), "search result not found");
  EXPECT_EQ(Query("74", "0", "0x0A0B", "0x0C0D", "1"), "search result not found");
  EXPECT_TRUE(platform.walks.empty());
}

// A list does not look at the keys, so none of them need name an interface.
TEST_F(SwitchingTest, PortInstanceWalk) {
  std::string all;
  for (uint32_t i = 0; i < 60; ++i) {
    platform.AddEntry(kPortInstance, Key(i, i), PortInstance(i).bytes());
    all += PortInstanceText(std::to_string(i));
  }
  EXPECT_EQ(Query("74", "all", "1", "2", "99"), Framed(all));
  EXPECT_EQ(Query("74", "num60", "1", "2", "99"), Framed(all));
  EXPECT_EQ(platform.walks,
            (std::vector<std::string>{"next 96 600", "next 96 600", "next 96 600", "next 96 120"}));
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(SwitchingTest, PortInstanceFailures) {
  EXPECT_EQ(Query("74", "all"), "datasize empty or invalid");
  Map(5, 12);
  platform.AddEntry(kPortInstance, Key(uint16_t{0}, uint16_t{0}, uint32_t{12}), PortInstance(12).bytes());
  platform.FailAllocation(0);
  EXPECT_EQ(Query("74", "0", "0", "0", "5"), "nqecli malloc fail");
  platform.FailAllocation(0);
  EXPECT_EQ(Query("74", "all"), "nqecli malloc fail");
  platform.FailWalk(kPortInstance, 0, -11);
  EXPECT_EQ(Query("74", "all"), "the search continues,a node is deleted");
  platform.FailTable(kPortInstance, -116);
  EXPECT_EQ(Query("74", "0", "0", "0", "5"), "search not ready");
  platform.FailTable(kCtrlIfMap, -12);
  EXPECT_EQ(Query("74", "0", "0", "0", "5"), "stop the search,a node is deleted");
  ExpectFormatsEach(NqeTableFormatPortInstState, PortInstance(1));
  ExpectBoundedByRoom(NqeTableFormatPortInstState, PortInstance(1));
}

// Causes.

Record Cause(uint32_t packets) {
  return Record(16).U32(0, 3000000000u).U32(4, 0xEEEEEEEE).U32(8, 3000000008u).U32(12, packets);
}

std::string CauseText(const std::string &packets) {
  return "  CpCauseId       :  3000000000\n"
         "  CauseIdx        :  3000000008\n"
         "  PktCount        :  " +
         packets + "\n\n";
}

TEST_F(SwitchingTest, Cause) {
  ExpectLists("76", kCause, NqeTableSearchCause, {Cause(0), Cause(1), Cause(UINT32_MAX)},
              {CauseText("0"), CauseText("1"), CauseText("4294967295")});
  EXPECT_EQ(platform.walks.front(), "next 98 32");
  ExpectFormatsEach(NqeTableFormatCause, Cause(1));
  ExpectBoundedByRoom(NqeTableFormatCause, Cause(UINT32_MAX));
}

}  // namespace
}  // namespace qdt::test
