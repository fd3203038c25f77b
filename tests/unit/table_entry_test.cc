#include <string>
#include <vector>

#include "qdt/server_map.h"
#include "qdt/session.h"
#include "tests/unit/view_test.h"

// How the library reads entries that belong to the table manager: a lookup that succeeds without an entry is
// a failed copy, and entries need not be aligned.
namespace qdt::test {
namespace {

constexpr uint32_t kGlobal = 0, kFib = 1, kNextHop = 2, kArp = 4, kNd = 8, kCtrlIf = 11, kPortHead = 14;
constexpr uint32_t kPort = 15, kPortV6Head = 16, kAclGroup = 24, kAclStat = 25, kBridge = 27, kFwdIf = 29;
constexpr uint32_t kUser = 45, kTunnel = 53, kCar = 54, kCpcar = 62, kHsec = 68, kSacProfile = 99;
constexpr uint32_t kIfStat = 103, kUserStat = 104;

class TableEntryTest : public ViewTest {
 protected:
  // Adds an entry that begins `shift` bytes behind an aligned address.
  void Add(uint32_t table, const Bytes &key, const Record &entry, size_t shift) {
    Bytes bytes(shift);
    bytes.insert(bytes.end(), entry.bytes().begin(), entry.bytes().end());
    platform.AddEntry(table, key, bytes, shift);
  }
};

struct Lookup {
  const char *id;
  const char *key1;
  std::vector<uint32_t> tables;  // each of them alone finds nothing
};

TEST_F(TableEntryTest, AnEntryThatIsNoneIsAFailedCopy) {
  platform.AddEntry(kCtrlIf, Key(uint32_t{5}), Record(16).U32(4, 1200).bytes());
  platform.AddEntry(kFwdIf, Key(uint32_t{1200}), Record(1544).bytes());
  platform.AddEntry(kCpcar, Key(uint32_t{5}), Record(20).U32(0, 5).bytes());
  const std::vector<Lookup> lookups = {
      {"0", "0", {kCtrlIf, kFwdIf}},
      {"1", "0", {kCtrlIf}},
      {"3", "10.1.0.7", {kFib}},
      {"4", "0", {kNextHop}},
      {"6", "10.1.0.7", {kArp}},
      {"8", "all", {kCtrlIf, kPortHead}},
      {"9", "0", {kBridge}},
      {"10", "0", {kGlobal}},
      {"11", "0", {kAclGroup}},
      {"12", "0", {kAclGroup}},
      {"13", "0", {kAclStat}},
      {"21", "0", {kCtrlIf}},
      {"25", "0", {kCtrlIf}},
      {"28", "a0:0b:c1:0d:e2:0f", {kUser}},
      {"31", "0", {kCar}},
      {"32", "0", {kTunnel}},
      {"36", "0", {kHsec}},
      {"45", "num1", {kCar}},
      {"48", "a0:0b:c1:0d:e2:0f", {kHsec}},
      {"71", "2001:db8::7", {kNd}},
      {"73", "all", {kCtrlIf, kPortV6Head}},
      {"74", "0", {kCtrlIf}},
      {"78", "0", {kSacProfile}},
      {"85", "0", {kCtrlIf, kFwdIf, kIfStat}},
      {"86", "a0:0b:c1:0d:e2:0f", {kUserStat}},
  };
  for (const Lookup &lookup : lookups) {
    for (const uint32_t table : lookup.tables) {
      platform.hollowTables = {table};
      EXPECT_EQ(Query(lookup.id, lookup.key1, "5", "5", "5"), "memory operation error")
          << lookup.id << " in table " << table;
      EXPECT_EQ(platform.liveAllocations(), 0u);
    }
  }
  platform.walks.clear();
  platform.hollowTables = {kPortHead, kPortV6Head};
  for (const char *id : {"8", "73"}) Query(id, "all", "5");
  EXPECT_TRUE(platform.walks.empty());
  platform.hollowTables = {kCtrlIf};
  EXPECT_EQ(static_cast<int32_t>(QdtCliGetFwdifIndexByCtrlIndex(5)), -3);
}

TEST_F(TableEntryTest, AViewIsToldOfAGlobalRecordThatIsNone) {
  platform.hollowTables = {kGlobal};
  EXPECT_EQ(FormatText(NqeTableFormatSacIfStat, Record(16104)), "code -120");
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{3, "[SacStatGloVer] error in Search CAP_TABLE_GLOBAL, ret -3\n"}}));
}

// The lookup that found no entry has not failed itself.
TEST_F(TableEntryTest, AnInterfaceThatIsNoneIsNotLogged) {
  platform.AddEntry(kCtrlIf, Key(uint32_t{5}), Record(16).U32(4, 1200).bytes());
  platform.AddEntry(kFwdIf, Key(uint32_t{1200}), Record(1544).bytes());
  for (const uint32_t table : {kFwdIf, kIfStat}) {
    platform.hollowTables = {table};
    EXPECT_EQ(Call(NqeTableSearchSacIfStat, 0, "0", 5).code, -3);
    EXPECT_TRUE(platform.log.empty());
  }
}

// Whatever a record has bound, an address of 0 is no entry's.
TEST_F(TableEntryTest, NothingIsBoundToNoEntry) {
  platform.hollowTables = {kFib, kNextHop};
  char area[200];
  EXPECT_EQ(NqeTableCapwapFastFormat(area, sizeof(area), Record(112).U32(16, 0x0A010007).data()), 57);
  EXPECT_STREQ(area, "  CapwapTunnel-Fast: Error, ret=0, vpn=0, dip=0x0a010007\n");
  EXPECT_NE(FormatText(NqeTableFormatFib, Record(16)).find("  NhpEntry  :  Error(0)\n"), std::string::npos);
}

TEST_F(TableEntryTest, EntriesNeedNotBeAligned) {
  const uint8_t mac[] = {0xA0, 0x0B, 0xC1, 0x0D, 0xE2, 0x0F, 0, 0};
  Record hsec(328);
  for (size_t slot = 0; slot < 128; ++slot) hsec.U16(44 + 2 * slot, 40001);
  for (size_t shift = 0; shift < 8; ++shift) {
    for (const uint32_t table : {kGlobal, kCtrlIf, kPortHead, kPort, kPortV6Head, kFwdIf, kCar, kCpcar, kHsec,
                                 kIfStat, kUserStat, kAclGroup}) {
      platform.ClearTable(table);
    }
    Add(kGlobal, Key(uint32_t{0}), Record(14672).U64(14640, 3000000000001), shift);
    Add(kCtrlIf, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 1200), shift);
    Add(kFwdIf, Key(uint32_t{1200}), Record(1544).U32(60, 0xEEEEC9EE), shift);
    Add(kPortHead, Key(uint32_t{1200}), Record(8).U32(4, 70000), shift);
    platform.AddEntry(kPort, Key(uint32_t{70000}), Record(20).U32(0, 0x0A010007).U32(4, 0xFFFFFF00).bytes());
    Add(kCar, Key(uint32_t{9}), Record(144).U64(56, uint64_t{300} << 32), shift);
    platform.AddEntry(kCpcar, Key(uint32_t{0}), Record(20).U32(4, 9).bytes());
    Add(kHsec, Key(uint32_t{0}), hsec, shift);
    Add(kIfStat, Key(uint32_t{201}), Record(16104).U32(0, 1), shift);
    Add(kUserStat, Bytes(mac, mac + 8), Record(3472).U64(8, 7), shift);
    Add(kAclGroup, Key(uint32_t{5}, uint32_t{6}), Record(32).U32(0, 77), shift);

    EXPECT_EQ(Query("1", "0", "5"), Framed("  CtrlIfIdx  :  5\n  FwdIfIdx   :  1200\n")) << shift;
    EXPECT_EQ(Query("8", "all", "5"), Framed("  IpAddr  :  10.1.0.7\n  IpMask  :  255.255.255.0\n"
                                             "  IpType  :  0\n\n"))
        << shift;
    EXPECT_NE(Query("45", "all").find("  Pps            :  300\n"), std::string::npos) << shift;
    EXPECT_EQ(Query("48", "a0:0b:c1:0d:e2:0f"), Framed("  CarId       :  40001\n")) << shift;
    EXPECT_EQ(Call(NqeTableSearchSacIfStat, 0, "0", 5), (Found{0, Record(16104).U32(0, 1).bytes()})) << shift;
    EXPECT_EQ(Call(NqeTableSearchSacUsfStat, 0, "a0:0b:c1:0d:e2:0f"),
              (Found{0, Record(3472).U64(8, 7).bytes()}))
        << shift;
    EXPECT_NE(FormatText(NqeTableFormatSacIfStat, Record(16104)).find("GlobalStatVersion :  3000000000001\n"),
              std::string::npos)
        << shift;
    EXPECT_EQ(Call(NqeTableSearchAclGroup, 0, "0", 5, 6),
              (Found{0, Record(40).U32(0, 5).U32(4, 6).U32(8, 77).bytes()}))
        << shift;
  }
}

// What a walk hands over is an entry as well.
TEST_F(TableEntryTest, VisitedEntriesNeedNotBeAligned) {
  for (size_t shift = 0; shift < 8; ++shift) {
    std::vector<uint64_t> area(30);
    char *const at = reinterpret_cast<char *>(area.data()) + shift;
    const Record session = Record(192).U32(0, 42).U64(112, 1).U64(120, 1);
    std::memcpy(at, session.data(), 192);
    SessionCollect collect{};
    std::strcpy(collect.Key.Text, "all");
    Bytes records(192);
    collect.Records = records.data();
    collect.Limit = 1;
    EXPECT_EQ(SessionNodeSearchMatch(at, &collect), QDT_TBL_CONTINUE);
    EXPECT_EQ(collect.Count, 1u);
    EXPECT_EQ(records, session.bytes());

    const Record map = Record(60).U8(18, 2).U32(24, 0xFFFFFFFF).U32(0, 0x0A010007);
    std::memcpy(at, map.data(), 60);
    char text[200];
    ServerMapQuery query = {text, sizeof(text), 0, QDT_SERVER_MAP_ALL, 0x0A010007};
    EXPECT_EQ(OmaQueryServerMapGetInfo(at, &query), QDT_TBL_CONTINUE);
    EXPECT_STREQ(text,
                 "\n vrf: 0, pro: 0, 0x0a010007:0 -> 0x00000000:0\n zone: 0, type: 2, flag: 0x00000000\n");
  }
}

}  // namespace
}  // namespace qdt::test
