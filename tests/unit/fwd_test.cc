#include <memory>
#include <string>

#include "tests/fake_platform/fake_platform.h"

// Views of the forwarding-interface table and of the maps that lead to it: whole records, searches, limits.
namespace qdt::test {
namespace {

const std::string kLine = "------------------------------";
constexpr char kSource[] = "src/om/nqe_cli/nqe_cli_tbl_query_fwd";

// Every field holds a value of its own; tests/golden/fwdif.txt shows where each belongs. `group` is the
// address of an ACL group that a service is bound to.
Record FullRecord(const void *group) {
  Record record(1544);
  record.U32(0, 3000000001u)
      .Bits(4, 0, 40123)
      .Bits(4, 18, 1)
      .Bits(4, 19, 1)
      .U32(8, 3000008008u)
      .U32(12, 3000012009u)
      .U32(16, 3000016010u)
      .U8(20, 178u)
      .U8(21, 171u)
      .U8(22, 164u)
      .U16(24, 50244u)
      .U16(26, 50265u)
      .U32(28, 3000028016u)
      .U32(32, 3000032017u)
      .Copy(36, "\xA1\x0B\xEF\x01\x80\x10")
      .U16(42, 50429u)
      .U32(44, 3000044020u)
      .Bits(48, 3, 1)
      .Bits(48, 4, 1)
      .Bits(48, 5, 1)
      .U8(49, 59u)
      .U8(50, 52u)
      .U8(51, 45u)
      .U16(52, 50521u)
      .U16(54, 50542u)
      .U32(56, 3000056033u)
      .Bits(60, 0, 5)
      .Bits(60, 24, 6)
      .Bits(60, 30, 1)
      .Bits(60, 31, 1)
      .U8(61, 211u)
      .U8(62, 204u)
      .Bits(64, 4, 1)
      .Bits(64, 5, 1)
      .Bits(64, 9, 1)
      .Bits(64, 10, 1)
      .Bits(64, 11, 1)
      .U16(72, 50727u)
      .U16(74, 50748u)
      .U16(76, 50769u)
      .U16(78, 50780u)
      .U8(80, 78u)
      .Copy(84, "\xA2\x16\xEE\x02\x81\x20")
      .U8(90, 64u)
      .U8(91, 57u)
      .U8(92, 50u)
      .U8(93, 43u)
      .U8(94, 36u)
      .U8(95, 29u)
      .U16(96, 50969u)
      .Copy(98, "\xA3\x21\xED\x03\x82\x30")
      .U32(104, 3000104071u)
      .U32(108, 3000108072u)
      .U8(112, 244u)
      .U32(116, 3000116074u)
      .Bits(120, 3, 1)
      .Bits(120, 4, 1)
      .Bits(120, 5, 1)
      .U16(122, 51221u)
      .Bits(124, 0, 1)
      .Bits(124, 1, 1)
      .Bits(124, 2, 1)
      .U16(126, 51265u)
      .U16(128, 51286u)
      .Bits(132, 0, 1)
      .Bits(132, 1, 1)
      .Bits(132, 2, 1)
      .Bits(132, 6, 1)
      .Bits(132, 7, 1)
      .U16(136, 51365u)
      .U16(138, 51386u)
      .U64(144, 0xFEDC0009A33CD640)
      .U64(152, 0xFEDC000A2C4E7060)
      .U64(160, 0xFEDC000AB5600A80)
      .U64(168, 0xFEDC000B3E71A4A0)
      .U64(176, 0xFFFFFFFFFFFFFC18)
      .U64(184, 184000552)
      .U64(192, 192000576)
      .U64(200, 200000600)
      .U64(208, 208000624)
      .U64(248, 248000744)
      .U64(256, 256000768)
      .U64(264, 264000792)
      .U64(272, 272000816)
      .U64(280, 0x7FFFFFFFFFFFFFFF)
      .U64(328, 300)
      .U64(336, 191919552)
      .U64(344, 199919576)
      .U64(352, 207919600)
      .U64(360, 215919624)
      .U64(400, 255919744)
      .U64(408, 263919768)
      .U64(416, 271919792)
      .U64(424, 279919816)
      .U64(432, 2)
      .U64(480, 0xFFFFFFFFFFFFFFFC)
      .U64(488, 16022000552)
      .U64(496, 16030000576)
      .U64(504, 16038000600)
      .U64(512, 16046000624)
      .U64(552, 16086000744)
      .U64(560, 16094000768)
      .U64(568, 16102000792)
      .U64(576, 16110000816)
      .U64(584, 0xFFFFFFFFFFFFFFFB)
      .U64(632, 7)
      .U64(640, 23757184000552)
      .U64(648, 23757192000576)
      .U64(656, 23757200000600)
      .U64(664, 23757208000624)
      .U64(704, 23757248000744)
      .U64(712, 23757256000768)
      .U64(720, 23757264000792)
      .U64(728, 23757272000816)
      .U64(736, 0xFFFFFFFFFFFFFFFF)
      .Bits(784, 3, 1)
      .Bits(784, 4, 1)
      .Bits(784, 5, 1)
      .U16(786, 57867u)
      .U32(788, 3000788118u)
      .U32(792, 3000792119u)
      .U32(796, 3000796120u)
      .Bits(800, 2, 2)
      .Bits(800, 5, 1)
      .Bits(800, 9, 1)
      .Bits(800, 10, 1)
      .Bits(800, 11, 1)
      .Bits(800, 23, 1)
      .Bits(800, 24, 3)
      .Bits(800, 28, 1)
      .Bits(800, 29, 1)
      .Bits(804, 0, 1)
      .Bits(804, 1, 1)
      .Bits(804, 2, 1)
      .U32(816, 3000816145u)
      .U32(820, 3000820146u)
      .U32(824, 3000824147u)
      .U32(828, 3000828148u)
      .U32(832, 3000832149u)
      .U32(836, 3000836150u)
      .U32(840, 3000840151u)
      .U32(844, 3000844152u)
      .U32(848, 3000848153u)
      .Bits(852, 0, 1)
      .Bits(852, 1, 1)
      .Bits(852, 2, 1)
      .Bits(852, 6, 1)
      .Bits(852, 8, 1)
      .Bits(852, 12, 1)
      .Bits(852, 13, 1)
      .Bits(852, 14, 1)
      .Bits(852, 18, 1)
      .Bits(852, 19, 1)
      .Bits(852, 20, 1)
      .Bits(852, 24, 1)
      .Bits(852, 25, 1)
      .Bits(852, 26, 1)
      .Bits(856, 3, 1)
      .Bits(856, 4, 1)
      .Bits(856, 5, 1)
      .Bits(856, 9, 1)
      .Bits(856, 10, 1)
      .Bits(856, 11, 1)
      .Bits(856, 15, 1)
      .Bits(856, 16, 1)
      .Bits(856, 17, 1)
      .U32(860, 3000860200u)
      .U32(864, 3000864201u)
      .U32(868, 3000868202u)
      .U32(872, 3000872203u)
      .U32(876, 3000876204u)
      .U32(880, 3000880205u)
      .U32(884, 3000884206u)
      .U32(888, 3000888207u)
      .U32(892, 3000892208u)
      .U32(896, 3000896209u)
      .U32(900, 3000900210u)
      .U32(904, 3000904211u)
      .U32(908, 3000908212u)
      .U32(912, 3000912213u)
      .U32(916, 3000916214u)
      .U32(920, 3000920215u)
      .U32(924, 3000924216u)
      .U32(928, 3000928217u)
      .U32(932, 3000932218u)
      .U32(936, 3000936219u)
      .U32(940, 3000940220u)
      .U32(944, 3000944221u)
      .U32(948, 3000948222u)
      .U32(952, 3000952223u)
      .U32(956, 3000956224u)
      .U32(960, 3000960225u)
      .U32(964, 3000964226u)
      .U32(968, 3000968227u)
      .U32(972, 3000972228u)
      .U32(976, 3000976229u)
      .U32(980, 3000980230u)
      .U32(984, 3000984231u)
      .U8(988, 131u)
      .U8(989, 124u)
      .U8(990, 117u)
      .U8(991, 110u)
      .U8(992, 103u)
      .U8(993, 96u)
      .U8(994, 89u)
      .U8(995, 82u)
      .U8(996, 75u)
      .U8(997, 68u)
      .U8(998, 61u)
      .U8(999, 54u)
      .U8(1000, 47u)
      .U8(1001, 40u)
      .U8(1002, 33u)
      .U8(1003, 26u);
  record.U32(1008, 4).U8(1016, 1).U8(1017, 11).U16(1018, 3).U32(1020, 70001);
  record.U8(1032, 2).U8(1033, 12).U16(1034, 2).U32(1036, 70002).Address(1040, group);
  record.U8(1048, 3).U8(1049, 13).U16(1050, 2).U32(1052, 70002).Address(1056, group);
  record.U8(1064, 200).U8(1065, 250).U16(1066, 65535).U32(1068, 4294967295u);
  record.U32(1400, 2).U8(1408, 129).U8(1409, 14).U16(1410, 40000).U32(1412, 70004);
  return record;
}

class FwdTest : public PlatformTest {
 protected:
  void *AddGroup(uint32_t type, uint32_t id) {
    return platform.AddEntry(24, Key(type, id), Record(40).U32(0, type).U32(4, id).bytes(), 8);
  }
  void AddInterface(uint32_t ctrlIf, uint32_t fwdIf, const Record &record) {
    platform.AddEntry(11, Key(ctrlIf), Record(16).U32(0, ctrlIf).U32(4, fwdIf).bytes());
    platform.AddEntry(29, Key(fwdIf), record.bytes());
  }
};

TEST_F(FwdTest, EveryField) {
  EXPECT_EQ(FormatText(NqeTableFormatFwdif, FullRecord(AddGroup(2, 70002))), Golden("fwdif.txt"));
}

TEST_F(FwdTest, ZeroedRecord) {
  EXPECT_EQ(FormatText(NqeTableFormatFwdif, Record(1544)), Golden("fwdif_zero.txt"));
}

TEST_F(FwdTest, WholeAnswer) {
  AddInterface(5, 12, FullRecord(AddGroup(2, 70002)));
  const std::string answer = kLine + "\n" + Golden("fwdif.txt") + kLine;
  EXPECT_EQ(Query("0", "0", "5"), answer);
  EXPECT_EQ(static_cast<size_t>(result), answer.size());
  EXPECT_EQ(platform.searches[0], "search 11 05000000");
  EXPECT_EQ(platform.searches[1], "search 29 0c000000");
  // One record of the key, whatever number is asked for.
  EXPECT_EQ(Query("0", "all", "5"), answer);
  EXPECT_EQ(Query("0", "num5", "5"), answer);
  EXPECT_EQ(Query("0", "num100", "5", "7", "8"), answer);
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(FwdTest, BoundedByRoom) {
  ExpectBoundedByRoom(NqeTableFormatFwdif, FullRecord(AddGroup(2, 70002)));
  const Record map = Record(16).U32(0, 4294967295u).U32(4, 4294967294u);
  ExpectBoundedByRoom(NqeTableFormatCtrlIfMap, map);
  ExpectBoundedByRoom(NqeTableFormatFlowIfMap, map);
  ExpectBoundedByRoom(NqeTableFormatPfeVapIfMap, map);
}

TEST_F(FwdTest, RecordNeedNotBeAligned) {
  const Record record = FullRecord(AddGroup(2, 70002));
  Record shifted(1545);
  shifted.Copy(1, {static_cast<const char *>(record.data()), 1544});
  std::string text(20000, '#');
  const auto *from = static_cast<const char *>(shifted.data()) + 1;
  ASSERT_GT(NqeTableFormatFwdif(text.data(), 20000, from, 1544), 0);
  EXPECT_EQ(text.c_str(), Golden("fwdif.txt"));
}

TEST_F(FwdTest, Maps) {
  const Record map = Record(16).U32(0, 4000000001u).U32(4, 4000000002u).U32(8, 99).U32(12, 98);
  EXPECT_EQ(FormatText(NqeTableFormatCtrlIfMap, map),
            "  CtrlIfIdx  :  4000000001\n  FwdIfIdx   :  4000000002\n");
  EXPECT_EQ(FormatText(NqeTableFormatFlowIfMap, map),
            "  FlowIfIdx  :  4000000001\n  FwdIfIdx   :  4000000002\n");
  EXPECT_EQ(FormatText(NqeTableFormatPfeVapIfMap, map),
            "  UsrId  :  4000000001\n  FwdIfIdx   :  4000000002\n");
}

TEST_F(FwdTest, LengthMustBeOneRecord) {
  const Record record(2 * 1544);
  char out[20000];
  for (const int32_t length : {0, 1, 16, 1543, 1545, 2 * 1544, -1, -1544}) {
    EXPECT_EQ(NqeTableFormatFwdif(out, sizeof(out), record.data(), length), -119) << length;
  }
  for (const TableFormat format :
       {NqeTableFormatCtrlIfMap, NqeTableFormatFlowIfMap, NqeTableFormatPfeVapIfMap}) {
    for (const int32_t length : {0, 1, 8, 15, 17, 32, 1543, 1544, 1545, -1, -16}) {
      EXPECT_EQ(format(out, sizeof(out), record.data(), length), -119) << length;
    }
  }
}

TEST_F(FwdTest, IngressAclBlockAlone) {
  const std::string whole = Golden("fwdif.txt");
  const size_t from = whole.find("IngFwdifAclEnInfo:\n");
  const std::string block = whole.substr(from, whole.find("EgrFwdifAclEnInfo:\n") - from);
  const Record record = FullRecord(nullptr);
  const auto length = static_cast<uint32_t>(block.size());
  const auto area = std::make_unique<char[]>(length + 1);
  EXPECT_EQ(NqeTableFwdifIngAclEnInfo(area.get(), length + 1, record.data()), static_cast<int32_t>(length));
  EXPECT_EQ(area.get(), block);
  for (const uint32_t room : {0u, 1u, 20u, length - 1, length}) {
    const auto small = std::make_unique<char[]>(room);
    EXPECT_EQ(NqeTableFwdifIngAclEnInfo(small.get(), room, record.data()), -120) << room;
  }
  EXPECT_EQ(NqeTableFwdifIngAclEnInfo(area.get(), length + 1, nullptr), -119);
}

// Each map with its diag id, its engine table and the label of its source index.
struct Map {
  const char *id;
  uint32_t table;
  const char *label;
  TableSearch search;
};
const Map kMaps[] = {
    {"1", 11, "  CtrlIfIdx  :  ", NqeTableSearchCtrlIfMap},
    {"2", 12, "  FlowIfIdx  :  ", NqeTableSearchFlowIfMap},
    {"61", 85, "  UsrId  :  ", NqeTableSearchPfeVapIfMap},
};

TEST_F(FwdTest, MapAnswers) {
  for (const Map &map : kMaps) {
    platform.Reset();
    platform.AddEntry(map.table, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 12).bytes());
    platform.AddEntry(map.table, Key(uint32_t{6}), Record(16).U32(0, 6).U32(4, 13).bytes());
    const std::string answer = kLine + "\n" + map.label + "6\n  FwdIfIdx   :  13\n" + kLine;
    EXPECT_EQ(Query(map.id, "0", "6"), answer);
    EXPECT_EQ(platform.searches,
              (std::vector<std::string>{"search " + std::to_string(map.table) + " 06000000"}));
    EXPECT_EQ(Query(map.id, "all", "6"), answer);
    EXPECT_EQ(Query(map.id, "num5", "6", "1", "2"), answer);
    EXPECT_EQ(Query(map.id, "10.1.1.1", "6", "4294967295"), answer);
    EXPECT_EQ(Query(map.id, "0", "7"), "search result not found");
    EXPECT_TRUE(platform.walks.empty());
  }
}

TEST_F(FwdTest, SearchesDeliverOneRecord) {
  for (const Map &map : kMaps) {
    platform.AddEntry(map.table, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 12).U32(12, 7).bytes());
    for (const uint32_t loopNum : {0u, 1u, 50u}) {
      void *record = nullptr;
      uint32_t length = 77;
      TbmTravContext ctx = {};
      EXPECT_EQ(map.search(&record, &length, &ctx, loopNum, "all", 5, 1, 2), 0);
      EXPECT_EQ(length, 16u);
      EXPECT_EQ(std::memcmp(record, Record(16).U32(0, 5).U32(4, 12).U32(12, 7).data(), 16), 0);
      free_ex(g_mallocHandle, record);
    }
  }
}

TEST_F(FwdTest, MapCodesPassThrough) {
  for (const Map &map : kMaps) {
    platform.AddEntry(map.table, Key(uint32_t{5}), Record(16).bytes());
    for (const int32_t code : {-1, -7, -12, -116, -121, -500, 1, 2, 3, 1000000}) {
      platform.FailTable(map.table, code);
      void *record = nullptr;
      uint32_t length = 0;
      TbmTravContext ctx = {};
      EXPECT_EQ(map.search(&record, &length, &ctx, 0, "0", 5, 0, 0), code);
      EXPECT_EQ(record, nullptr);
    }
    platform.FailTable(map.table, 2);
    EXPECT_EQ(Query(map.id, "0", "5"), "Invalid error code");
    platform.FailTable(map.table, 1);  // taken for a batch that is not the last, with nothing in it
    EXPECT_EQ(Query(map.id, "0", "5"), "datasize empty or invalid");
  }
}

TEST_F(FwdTest, InterfaceCodesPassThrough) {
  AddInterface(5, 12, Record(1544));
  EXPECT_EQ(Query("0", "0", "6"), "search result not found");
  for (const int32_t code : {-1, -7, -12, -116, -500, 1, 2, 1000000}) {
    platform.FailTable(29, code);
    void *record = nullptr;
    uint32_t length = 0;
    TbmTravContext ctx = {};
    EXPECT_EQ(NqeTableSearchFwdif(&record, &length, &ctx, 0, "0", 5, 0, 0), code);
    EXPECT_EQ(record, nullptr);
  }
  platform.FailTable(29, 2);
  EXPECT_EQ(Query("0", "0", "5"), "Invalid error code");
  platform.FailTable(29, 0);
  platform.FailTable(11, -116);
  EXPECT_EQ(Query("0", "0", "5"), "search not ready");
}

TEST_F(FwdTest, MapLeadsToNoInterface) {
  platform.AddEntry(11, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 12).bytes());
  EXPECT_EQ(Query("0", "0", "5"), "search result not found");
  platform.AddEntry(29, Key(uint32_t{13}), Record(1544).bytes());
  EXPECT_EQ(Query("0", "0", "5"), "search result not found");
  EXPECT_EQ(platform.searches.back(), "search 29 0c000000");
}

// A code and an index cannot be told apart: what is negative is a code, all else an index.
TEST_F(FwdTest, MapResultsAreCodesWhenNegative) {
  platform.AddEntry(11, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 0xFFFFFFFD).bytes());
  platform.AddEntry(29, Key(uint32_t{0xFFFFFFFD}), Record(1544).bytes());
  EXPECT_EQ(Query("0", "0", "5"), "memory operation error");
  platform.AddEntry(11, Key(uint32_t{6}), Record(16).U32(0, 6).U32(4, 0x80000000).bytes());
  platform.AddEntry(29, Key(uint32_t{0x80000000}), Record(1544).bytes());
  EXPECT_EQ(Query("0", "0", "6"), "Invalid error code");
  platform.AddEntry(11, Key(uint32_t{7}), Record(16).U32(0, 7).U32(4, 0x7FFFFFFF).bytes());
  platform.AddEntry(29, Key(uint32_t{0x7FFFFFFF}), Record(1544).bytes());
  EXPECT_EQ(Query("0", "0", "7"), kLine + "\n" + Golden("fwdif_zero.txt") + kLine);
  platform.FailTable(11, 12);
  platform.AddEntry(29, Key(uint32_t{12}), Record(1544).bytes());
  EXPECT_EQ(Query("0", "0", "5"), kLine + "\n" + Golden("fwdif_zero.txt") + kLine);
}

TEST_F(FwdTest, Allocations) {
  AddInterface(5, 12, Record(1544));
  Query("0", "0", "5");
  for (const Map &map : kMaps) {
    if (map.table != 11) platform.AddEntry(map.table, Key(uint32_t{5}), Record(16).bytes());
    Query(map.id, "0", "5");
  }
  ASSERT_EQ(platform.allocations.size(), 4u);
  const size_t sizes[] = {1544, 16, 16, 16};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(platform.allocations[i].path, kSource);
    EXPECT_EQ(platform.allocations[i].size, sizes[i]);
    EXPECT_GT(platform.allocations[i].line, 0u);
  }
}

TEST_F(FwdTest, AllocationFailure) {
  AddInterface(5, 12, Record(1544));
  platform.FailAllocation(0);
  EXPECT_EQ(Query("0", "0", "5"), "nqecli malloc fail");
  for (const Map &map : kMaps) {
    if (map.table != 11) platform.AddEntry(map.table, Key(uint32_t{5}), Record(16).bytes());
    platform.FailAllocation(0);
    EXPECT_EQ(Query(map.id, "0", "5"), "nqecli malloc fail");
    void *record = nullptr;
    uint32_t length = 0;
    TbmTravContext ctx = {};
    platform.FailAllocation(0);
    EXPECT_EQ(map.search(&record, &length, &ctx, 0, "0", 5, 0, 0), -117);
    EXPECT_EQ(record, nullptr);
  }
}

}  // namespace
}  // namespace qdt::test
