#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <string>

#include "tests/unit/view_test.h"

// View of IPv4 next hops: encapsulation, egress services and output interfaces.
namespace qdt::test {
namespace {

constexpr uint32_t kNextHop = 2, kAclGroup = 24, kFwdIf = 29;

// Where the fields of the extension block stand in the record.
constexpr size_t kExt = 16, kEncapSize = kExt + 7, kL3Count = kExt + 8, kL1Count = kExt + 9,
                 kOutCount = kExt + 11, kEncap = kExt + 12, kL3 = kExt + 112, kL1 = kExt + 176,
                 kOut = kExt + 560;

// A service entry.
struct Service {
  uint8_t type;
  uint8_t argument1;
  int16_t argument2;
  uint32_t argument3;
  const void *bound;
};

Record &PutService(Record &record, size_t offset, const Service &s) {
  return record.U8(offset, s.type)
      .U8(offset + 1, s.argument1)
      .U16(offset + 2, static_cast<uint16_t>(s.argument2))
      .U32(offset + 4, s.argument3)
      .Address(offset + 8, s.bound);
}

// The first words of a forwarding-interface record, which is all that is read of it.
struct Interface {
  uint32_t ifIndex, reserved[2], ctrlIfIndex;
};

class NextHopTest : public ViewTest {
 protected:
  void *AddInterface(uint32_t index) { return platform.AddEntry(kFwdIf, Key(index), Bytes(1544)); }
  void *AddGroup(uint32_t type, uint32_t id) {
    return platform.AddEntry(kAclGroup, Key(type, id), Record(40).U32(0, type).U32(4, id).bytes(), 8);
  }

  // The text from `title` up to the title that follows it, or to the end.
  static std::string Section(const Record &record, const std::string &title, const std::string &next = "") {
    char area[8192];
    const int32_t written = NqeTableFormatNhp(area, sizeof(area), record.data(), record.size());
    if (written < 0) return "code " + std::to_string(written);
    const std::string text = area;
    const size_t begin = text.find(title);
    if (begin == text.npos) return text;
    return text.substr(begin, next.empty() ? next.npos : text.find(next) - begin);
  }
  static std::string Encapsulation(const Record &record) {
    return Section(record, "  EncapData:", "  L2AclKey:\n");
  }
  static std::string Services(const Record &record) {
    return Section(record, "  Egress Service:\n", "  OutFwdif:\n");
  }
  static std::string Interfaces(const Record &record) { return Section(record, "  OutFwdif:\n"); }

  Record FullRecord();

  const Interface out_[2] = {{7001, {1, 2}, 6001}, {7002, {3, 4}, 6002}};
};

// Every field holds a value of its own; tests/golden/nhp.txt shows where each belongs.
Record NextHopTest::FullRecord() {
  Record record(608);
  record.U32(0, 3000000001u)
      .U32(4, 0xAC101FFE)
      .U32(8, 91)
      .U32(12, 92)
      .U16(kExt, 40016)
      .U16(kExt + 2, 40018)
      .Copy(kExt + 4, "\x9B\x66\x99")
      .U8(kEncapSize, 18)
      .U8(kL3Count, 2)
      .U8(kL1Count, 3)
      .U8(kExt + 10, 0x98)
      .U8(kOutCount, 2);
  for (uint8_t i = 0; i < 64; ++i) record.U8(kEncap + i, 0xC0 + i);
  record.Copy(kExt + 76, "\xA0\x0B\xC1\x0D\xE2\x0F\xB0\x1B\xD1\x1D\xF2\x1F")
      .U16(kExt + 88, 0x0806)
      .U16(kExt + 90, 0x9FA1)
      .U64(kExt + 92, 0x1111111111111111);
  PutService(record, kL3, {31, 201, -2001, 3001, AddInterface(3001)});
  PutService(record, kL3 + 16, {232, 202, 2002, 4000000000u, AddInterface(3002)});
  PutService(record, kL1, {1, 2, -4001, 5001, AddGroup(2, 5001)});
  PutService(record, kL1 + 16, {2, 0, 4002, 5002, AddGroup(0, 5002)});
  PutService(record, kL1 + 32, {17, 203, 4003, 5003, nullptr});
  return record.Address(kOut, &out_[0]).Address(kOut + 8, &out_[1]);
}

TEST_F(NextHopTest, WholeAnswer) {
  const Record record = FullRecord();
  platform.AddEntry(kNextHop, Key(uint32_t{70000}), record.bytes());
  EXPECT_EQ(Query("4", "0", "70000"), Golden("nhp.txt"));
  ExpectBoundedByRoom(NqeTableFormatNhp, record);
  ExpectFindsOne(NqeTableSearchNhp, kNextHop, record, "search 2 70110100", "x", 70000);
}

TEST_F(NextHopTest, ZeroedRecord) {
  ExpectOneRecordOnly(NqeTableFormatNhp, 608);
  EXPECT_EQ(FormatText(NqeTableFormatNhp, Record(608)),
            "  IfIndex    :  0\n"
            "  NextHopIp  :  0.0.0.0\n"
            "  PortId    : 0\n"
            "  Mtu       : 0\n"
            "  ArpMiss   : 0\n"
            "  arpFake   : 0\n"
            "  EncapType : 0\n"
            "  EncapSize : 0\n"
            "  L3SvcNum  : 0\n"
            "  L1SvcNum  : 0\n"
            "  LinkSvcNum: 0\n"
            "  FwdIfNum  : 0\n"
            "  EncapData:\r\n"
            "  L2AclKey:\n"
            "    Dmac    : 00:00:00:00:00:00\n"
            "    Smac    : 00:00:00:00:00:00\n"
            "    EthType : 0x0000\n"
            "    VlanId  : 0x0000\n"
            "  Egress Service:\n"
            "  OutFwdif:\n"
            "\n");
}

TEST_F(NextHopTest, NumbersOfTheExtension) {
  Record record(608);
  record.U16(kExt, 0xFFFF).U16(kExt + 2, 0x8000);
  for (size_t i = 4; i < 12; ++i) record.U8(kExt + i, static_cast<uint8_t>(0x80 + i));
  EXPECT_EQ(Section(record, "  PortId", "  EncapData:"),
            "  PortId    : 65535\n"
            "  Mtu       : 32768\n"
            "  ArpMiss   : -124\n"
            "  arpFake   : -123\n"
            "  EncapType : -122\n"
            "  EncapSize : -121\n"
            "  L3SvcNum  : -120\n"
            "  L1SvcNum  : -119\n"
            "  LinkSvcNum: -118\n"
            "  FwdIfNum  : -117\n");
}

TEST_F(NextHopTest, EncapsulationRowsOf8) {
  const auto dump = [](int8_t size) {
    Record record(608);
    record.U8(kEncapSize, static_cast<uint8_t>(size));
    for (uint8_t i = 0; i < 64; ++i) record.U8(kEncap + i, i);
    return Encapsulation(record);
  };
  EXPECT_EQ(dump(-128), "  EncapData:\r\n");
  EXPECT_EQ(dump(-1), "  EncapData:\r\n");
  EXPECT_EQ(dump(0), "  EncapData:\r\n");
  EXPECT_EQ(dump(1), "  EncapData:\n   00\r\n");
  EXPECT_EQ(dump(4), "  EncapData:\n   00 01 02 03\r\n");
  EXPECT_EQ(dump(5), "  EncapData:\n   00 01 02 03  04\r\n");
  EXPECT_EQ(dump(8), "  EncapData:\n   00 01 02 03  04 05 06 07\r\n");
  EXPECT_EQ(dump(9), "  EncapData:\n   00 01 02 03  04 05 06 07\n   08\r\n");
  EXPECT_EQ(dump(64),
            "  EncapData:\n"
            "   00 01 02 03  04 05 06 07\n"
            "   08 09 0a 0b  0c 0d 0e 0f\n"
            "   10 11 12 13  14 15 16 17\n"
            "   18 19 1a 1b  1c 1d 1e 1f\n"
            "   20 21 22 23  24 25 26 27\n"
            "   28 29 2a 2b  2c 2d 2e 2f\n"
            "   30 31 32 33  34 35 36 37\n"
            "   38 39 3a 3b  3c 3d 3e 3f\r\n");
  EXPECT_EQ(dump(65), "code -120");
  EXPECT_EQ(dump(127), "code -120");
}

TEST_F(NextHopTest, CountsAboveTheArraysFailTheWholeView) {
  struct Case {
    size_t offset;
    uint8_t value;
  };
  for (const Case c : {Case{kEncapSize, 65},
                       {kL3Count, 5},
                       {kL3Count, 127},
                       {kL1Count, 25},
                       {kL1Count, 127},
                       {kOutCount, 5},
                       {kOutCount, 127}}) {
    platform.ClearTable(kNextHop);
    platform.AddEntry(kNextHop, Key(uint32_t{1}), Record(608).U8(c.offset, c.value).bytes());
    EXPECT_EQ(Query("4", "0", "1"), "parse data format fail") << c.offset << " " << int{c.value};
  }
}

TEST_F(NextHopTest, NegativeCountsAreNone) {
  for (const uint8_t count : {0x80, 0xFF}) {
    Record record(608);
    record.U8(kL3Count, count).U8(kL1Count, count).U8(kOutCount, count);
    EXPECT_EQ(Section(record, "  Egress Service:\n"), "  Egress Service:\n  OutFwdif:\n\n");
  }
  EXPECT_TRUE(platform.searches.empty());
}

// Layer-3 services.

TEST_F(NextHopTest, L3ServicesAreCheckedAgainstTheLiveInterface) {
  const void *const live = AddInterface(3001);
  const void *const other = AddInterface(3002);
  Record record(608);
  record.U8(kL3Count, 4);
  PutService(record, kL3, {0, 0, 0, 3001, live});
  PutService(record, kL3 + 16, {255, 255, -32768, 3001, other});
  PutService(record, kL3 + 32, {1, 128, 32767, 3001, nullptr});
  PutService(record, kL3 + 48, {2, 127, -1, 3003, live});
  EXPECT_EQ(Services(record),
            "  Egress Service:\n"
            "    [0]L3Svc:0, a1=0, a2=0, a3=3001\n"
            "    [1]L3Svc:255, a1=255, a2=-32768, a3=3001, a4=Error\n"
            "    [2]L3Svc:1, a1=128, a2=32767, a3=3001, a4=Error\n"
            "    [3]L3Svc:2, a1=127, a2=-1, a3=3003, a4=Error\n");
  EXPECT_EQ(platform.searches, (std::vector<std::string>{"search 29 b90b0000", "search 29 b90b0000",
                                                         "search 29 b90b0000", "search 29 bb0b0000"}));
  platform.FailTable(kFwdIf, -116);
  record.U8(kL3Count, 1);
  EXPECT_EQ(Services(record), "  Egress Service:\n    [0]L3Svc:0, a1=0, a2=0, a3=3001, a4=Error\n");
}

// Layer-1 services.

// What makes a service of types 0 to 18 intact: nothing, always, or a group of this type that it is bound to.
constexpr char kRules[] =
    "-"
    "20202020"
    "20202020"
    "++";

TEST_F(NextHopTest, L1EveryTypeGroupAndBinding) {
  constexpr uint32_t kId = 70000;
  const std::array<uint8_t, 4> types = {0, 2, 1, 255};
  const void *groups[4];
  for (size_t i = 0; i < 4; ++i) groups[i] = AddGroup(types[i], kId);
  const int other = 0;
  for (int type = 0; type < 256; ++type) {
    for (size_t g = 0; g < 4; ++g) {
      struct Binding {
        uint32_t id;
        const void *bound;
        bool right;
      };
      const Binding bindings[] = {
          {kId, groups[g], true},
          {kId, &other, false},
          {kId, groups[(g + 1) % 4], false},  // another group's entry
          {kId, nullptr, false},
          {kId + 1, groups[g], false},  // no such group
          {kId + 1, nullptr, false},
      };
      for (const Binding &b : bindings) {
        const char rule = type < 19 ? kRules[type] : '-';
        const bool intact = rule == '+' || (rule == '0' + types[g] && b.right);
        Record record(608);
        record.U8(kL1Count, 1);
        PutService(record, kL1, {static_cast<uint8_t>(type), types[g], 0, b.id, b.bound});
        platform.searches.clear();
        ASSERT_EQ(Services(record), "  Egress Service:\n    [0]L1Svc:" + std::to_string(type) + ", a1=" +
                                        std::to_string(types[g]) + ", a2=0, a3=" + std::to_string(b.id) +
                                        (intact ? "\n" : ", a4=Error\n"));
        // Types that have no group, or are none, are not looked up.
        ASSERT_EQ(platform.searches.size(), rule == '0' || rule == '2' ? 1u : 0u) << type;
      }
    }
  }
}

TEST_F(NextHopTest, L1LooksUpTypeAndId) {
  Record record(608);
  record.U8(kL1Count, 1);
  PutService(record, kL1, {1, 2, 0, 0x01020304, AddGroup(2, 0x01020304)});
  EXPECT_EQ(Services(record), "  Egress Service:\n    [0]L1Svc:1, a1=2, a2=0, a3=16909060\n");
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 24 0200000004030201"});
  platform.FailTable(kAclGroup, -1);
  EXPECT_EQ(Services(record), "  Egress Service:\n    [0]L1Svc:1, a1=2, a2=0, a3=16909060, a4=Error\n");
}

TEST_F(NextHopTest, AllServicesThatTheRecordHolds) {
  Record record(608);
  record.U8(kL3Count, 4).U8(kL1Count, 24);
  std::string expected = "  Egress Service:\n";
  for (int i = 0; i < 4; ++i) {
    PutService(record, kL3 + 16 * i, {static_cast<uint8_t>(i), 1, 2, 9, nullptr});
    expected +=
        "    [" + std::to_string(i) + "]L3Svc:" + std::to_string(i) + ", a1=1, a2=2, a3=9, a4=Error\n";
  }
  for (int i = 0; i < 24; ++i) {
    PutService(record, kL1 + 16 * i,
               {18, static_cast<uint8_t>(i), static_cast<int16_t>(-i), 0xFFFFFFFF, nullptr});
    expected += "    [" + std::to_string(i) + "]L1Svc:18, a1=" + std::to_string(i) +
                ", a2=" + std::to_string(-i) + ", a3=-1\n";
  }
  EXPECT_EQ(Services(record), expected);
}

// Output interfaces.

TEST_F(NextHopTest, OutputInterfaces) {
  const Interface high = {0xFFFFFFFE, {5, 6}, 0x80000000};
  Record record(608);
  record.U8(kOutCount, 4)
      .Address(kOut, &high)
      .Address(kOut + 8, nullptr)
      .Address(kOut + 16, &out_[0])
      .Address(kOut + 24, &out_[1]);
  EXPECT_EQ(Interfaces(record),
            "  OutFwdif:\n"
            "    [0]CtrlIfIndex=-2147483648, FwdifIndex=-2\n"
            "    [1]CtrlIfIndex=0, FwdifIndex=0\n"
            "    [2]CtrlIfIndex=6001, FwdifIndex=7001\n"
            "    [3]CtrlIfIndex=6002, FwdifIndex=7002\n"
            "\n");
  EXPECT_EQ(Interfaces(record.U8(kOutCount, 1)),
            "  OutFwdif:\n"
            "    [0]CtrlIfIndex=-2147483648, FwdifIndex=-2\n"
            "\n");
}

// It counts as none, and the rest of the view stands.
TEST_F(NextHopTest, AWildInterfaceAddress) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto *const mapped = static_cast<char *>(
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(mapped, MAP_FAILED);
  ASSERT_EQ(mprotect(mapped + page, page, PROT_NONE), 0);
  const auto end = reinterpret_cast<uint64_t>(mapped + page);
  for (const uint64_t wild :
       {end, end - 12, end + 8, uint64_t{1}, uint64_t{0x8000000000000000}, UINT64_MAX}) {
    Record record(608);
    record.U8(kOutCount, 3).Address(kOut, &out_[0]).U64(kOut + 8, wild).Address(kOut + 16, &out_[1]);
    EXPECT_EQ(Interfaces(record),
              "  OutFwdif:\n"
              "    [0]CtrlIfIndex=6001, FwdifIndex=7001\n"
              "    [1]CtrlIfIndex=0, FwdifIndex=0\n"
              "    [2]CtrlIfIndex=6002, FwdifIndex=7002\n"
              "\n")
        << std::hex << wild;
    // Behind the count it is not looked at.
    EXPECT_EQ(Interfaces(record.U8(kOutCount, 1)),
              "  OutFwdif:\n    [0]CtrlIfIndex=6001, FwdifIndex=7001\n\n");
  }
  EXPECT_EQ(Interfaces(Record(608).U8(kOutCount, 1).U64(kOut, end - 16)),
            "  OutFwdif:\n    [0]CtrlIfIndex=0, FwdifIndex=0\n\n");
  munmap(mapped, 2 * page);
}

}  // namespace
}  // namespace qdt::test
