#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qdt/oma.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/unit/uptime.h"

// The listings of packets that wait for their next hop: what is fetched, how it is grouped, and what happens
// when the tables, memory or the agent fail.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;
using Log = std::vector<LogLine>;

constexpr uint32_t kArpMiss = 57, kNdMiss = 89;

// Words that the listing does not read hold noise.
Record ArpMiss(uint32_t nextHop, uint32_t created = 0, uint32_t ttl = 0, uint32_t source = 0x0B160C17,
               uint32_t destination = 0xC0A80163) {
  return Record(32)
      .U32(0, 0xD0D1D2D3)
      .U32(4, nextHop)
      .U32(8, 0xD8D9DADB)
      .U32(12, 0xDCDDDEDF)
      .U32(16, created)
      .U32(20, source)
      .U32(24, destination)
      .U32(28, ttl);
}

// Addresses 2001:db8::NEXTHOP, 2001:db8:1::5, fe80::a0b:c1d.
Record NdMiss(uint32_t nextHop, uint32_t created = 0, uint32_t ttl = 0) {
  return Record(72)
      .U32(0, 0xD0D1D2D3)
      .U32(4, 0x20010DB8)
      .U32(16, nextHop)
      .U32(20, 0xE0E1E2E3)
      .U32(24, 0xE4E5E6E7)
      .U32(28, 0xE8E9EAEB)
      .U32(32, created)
      .U32(36, ttl)
      .Copy(40, std::string_view("\x20\x01\x0D\xB8\0\1\0\0\0\0\0\0\0\0\0\5", 16))
      .Copy(56, std::string_view("\xFE\x80\0\0\0\0\0\0\0\0\0\0\x0A\x0B\x0C\x1D", 16));
}

Bytes ArpKey(uint32_t nextHop) { return Key(nextHop, uint32_t{0}); }
Bytes NdKey(uint32_t nextHop) {
  return Key(uint32_t{0}, uint32_t{0x20010DB8}, uint32_t{0}, uint32_t{0}, nextHop);
}

Bytes Join(const std::vector<Record> &records) {
  Bytes bytes;
  for (const Record &record : records)
    bytes.insert(bytes.end(), record.bytes().begin(), record.bytes().end());
  return bytes;
}

const std::string kRule = "\n-----------------------------------------------------------------";
const std::string kArpColumns = "\nPkt   SrcIp            DstIp             TTL       LeftTime";
const std::string kNdColumns =
    "\nPkt   SrcIp                                          DstIp                                           "
    "TTL       LeftTime";

// What differs between the two caches, for the tests of what does not.
struct Family {
  const char *name;
  uint32_t table;
  uint32_t entrySize;
  int32_t (*handle)(AgentRequest);
  int32_t (*get)(void **, uint32_t *, const char *);
  int32_t (*info)(char *, uint32_t, const void *, uint32_t);
  int32_t (*header)(char *, uint32_t, const void *, uint32_t, uint32_t);
  int32_t (*group)(char *, uint32_t, const void *, uint32_t);
  Record (*entry)(uint32_t nextHop, uint32_t created, uint32_t ttl);
  Bytes (*key)(uint32_t nextHop);
  const char *all;
  const char *one;     // entry 7's next hop
  const char *oneKey;  // and its key, as the fake platform notes it
  const char *cache;   // in log lines
  const char *tableName;
  const char *source;   // as the allocator is told
  std::string header1;  // of a group of one packet with next hop 7
  std::string row1;     // of one packet, without its times
};

const Family kFamilies[] = {
    {"arp", kArpMiss, 32, QdtOmaArpmissProc, QdtGetArpMissData, QdtPrintArpMissInfo, QdtPrintArpMissHdr,
     QdtPrintSingleNhpArpMissInfo,
     [](uint32_t nextHop, uint32_t created, uint32_t ttl) {
       return ArpMiss(0x0A010000 + nextHop, created, ttl);
     },
     [](uint32_t nextHop) { return ArpKey(0x0A010000 + nextHop); }, "0.0.0.0", "10.1.0.7", "0700010a00000000",
     "arp", "CAP_TABLE_ARP_MISS_CACHE", "src/om/oma/qdt_oma_arpmiss",
     kRule +
         "\nSession           :  1              \nVrf               :  0       "
         "\nNext Hop          :  10.1.0.7       \nTotal Cached Pkt  :  1       " +
         kRule + kArpColumns,
     "\n1     11.22.12.23      192.168.1.99      "},
    {"nd", kNdMiss, 72, QdtOmaNdmissProc, QdtGetNdMissData, QdtPrintNdMissInfo, QdtPrintNdMissHdr,
     QdtPrintSingleNhpNdMissInfo,
     [](uint32_t nextHop, uint32_t created, uint32_t ttl) { return NdMiss(nextHop, created, ttl); }, NdKey,
     "::", "2001:db8::7", "00000000b80d0120000000000000000007000000", "nd", "CAP_TABLE_ND_MISS_CACHE",
     "src/om/oma/qdt_oma_ndmiss",
     kRule +
         "\nSession           :  1              \nVrf               :  0       "
         "\nNext Hop          :  2001:db8::7                                   "
         "\nTotal Cached Pkt  :  1       " +
         kRule + kNdColumns,
     "\n1     2001:db8:1::5                                  fe80::a0b:c1d                                  "
     " "},
};

class MissCacheTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform.capacities = {{kArpMiss, 100}, {kNdMiss, 100}};
  }

  void Ask(const char *nextHop) {
    request_.texts.clear();
    if (nextHop != nullptr) request_.texts["next-hop"] = nextHop;
  }

  void ClearWhatHappened() {
    platform.answers.clear();
    platform.walks.clear();
    platform.allocations.clear();
    platform.log.clear();
  }

  // A call of the snapshot operation: what it returned, the bytes used, and whether a buffer was left.
  struct Taken {
    int32_t code;
    uint32_t bytes;
    bool left;
    bool operator==(const Taken &) const = default;
  };
  Taken Take(const Family &family, const char *nextHop) {
    void *snapshot = &request_;
    Taken taken{0, 4711, false};
    taken.code = family.get(&snapshot, &taken.bytes, nextHop);
    taken.left = snapshot != nullptr;
    free_ex(g_mallocHandle, snapshot);
    return taken;
  }

  omcc_request request_;
};

TEST_F(MissCacheTest, ArpWholeAnswer) {
  WithinASecond([this](uint32_t now) {
    platform.ClearTable(kArpMiss);
    ClearWhatHappened();
    const Record entries[] = {
        ArpMiss(0x0A010007, now - 10, 5),  // held too long
        ArpMiss(0x0A010007, now - 10, 3671, 0x01020304, 0xFFFFFFFF),
        ArpMiss(0x0A010008, now + 30, 86399),  // stamped in the future
        ArpMiss(0x0A010007, now, 360061),
        ArpMiss(0xFFFFFFFE, now - 1, 1),
    };
    for (const Record &entry : entries) platform.AddEntry(kArpMiss, ArpKey(0), entry.bytes());
    EXPECT_EQ(QdtOmaArpmissProc(&request_), 0);
  });
  EXPECT_EQ(platform.answers, Lines{"\n-----------------------------------------------------------------"
                                    "\nSession           :  1              "
                                    "\nVrf               :  0       "
                                    "\nNext Hop          :  10.1.0.7       "
                                    "\nTotal Cached Pkt  :  2       "
                                    "\n-----------------------------------------------------------------"
                                    "\nPkt   SrcIp            DstIp             TTL       LeftTime"
                                    "\n1     11.22.12.23      192.168.1.99      00:00:05  1193046:28:11"
                                    "\n2     1.2.3.4          255.255.255.255   01:01:11  01:01:01"
                                    "\n-----------------------------------------------------------------"
                                    "\n-----------------------------------------------------------------"
                                    "\nSession           :  2              "
                                    "\nVrf               :  0       "
                                    "\nNext Hop          :  10.1.0.8       "
                                    "\nTotal Cached Pkt  :  1       "
                                    "\n-----------------------------------------------------------------"
                                    "\nPkt   SrcIp            DstIp             TTL       LeftTime"
                                    "\n1     11.22.12.23      192.168.1.99      23:59:59  23:59:59"
                                    "\n-----------------------------------------------------------------"
                                    "\n-----------------------------------------------------------------"
                                    "\nSession           :  3              "
                                    "\nVrf               :  0       "
                                    "\nNext Hop          :  10.1.0.7       "
                                    "\nTotal Cached Pkt  :  1       "
                                    "\n-----------------------------------------------------------------"
                                    "\nPkt   SrcIp            DstIp             TTL       LeftTime"
                                    "\n1     11.22.12.23      192.168.1.99      100:01:01  100:01:01"
                                    "\n-----------------------------------------------------------------"
                                    "\n-----------------------------------------------------------------"
                                    "\nSession           :  4              "
                                    "\nVrf               :  0       "
                                    "\nNext Hop          :  255.255.255.254"
                                    "\nTotal Cached Pkt  :  1       "
                                    "\n-----------------------------------------------------------------"
                                    "\nPkt   SrcIp            DstIp             TTL       LeftTime"
                                    "\n1     11.22.12.23      192.168.1.99      00:00:01  00:00:00"
                                    "\n-----------------------------------------------------------------"});
  EXPECT_EQ(platform.walks, Lines{"next 57 3200"});
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(MissCacheTest, NdWholeAnswer) {
  WithinASecond([this](uint32_t now) {
    platform.ClearTable(kNdMiss);
    ClearWhatHappened();
    const Record entries[] = {
        NdMiss(7, now - 10, 5),
        NdMiss(7, now - 3600, 7325),
        NdMiss(7, now + 30, 86399).U32(8, 1),  // any of the four words makes another next hop
        NdMiss(7, now, 1).U32(12, 1),
        NdMiss(7, now, 2).U32(4, 0xFE80FFFF),
        NdMiss(8, now, 3),
        NdMiss(7, now, 4),
    };
    for (const Record &entry : entries) platform.AddEntry(kNdMiss, NdKey(0), entry.bytes());
    EXPECT_EQ(QdtOmaNdmissProc(&request_), 0);
  });
  const auto group = [](const char *number, const char *nextHop, const char *packets) {
    std::string padded = nextHop;
    padded.resize(46, ' ');
    return kRule + "\nSession           :  " + number + "              \nVrf               :  0       " +
           "\nNext Hop          :  " + padded + "\nTotal Cached Pkt  :  " + packets + "       " + kRule +
           kNdColumns;
  };
  const auto row = [](const char *number, const char *times) {
    return "\n" + std::string(number) +
           "     2001:db8:1::5                                  "
           "fe80::a0b:c1d                                   " +
           times;
  };
  ASSERT_EQ(platform.answers.size(), 1u);
  EXPECT_EQ(platform.answers[0],
            group("1", "2001:db8::7", "2") + row("1", "00:00:05  1193046:28:11") +
                row("2", "02:02:05  01:02:05") + kRule + group("2", "2001:db8:0:1::7", "1") +
                row("1", "23:59:59  23:59:59") + kRule + group("3", "2001:db8::1:0:7", "1") +
                row("1", "00:00:01  00:00:01") + kRule + group("4", "fe80:ffff::7", "1") +
                row("1", "00:00:02  00:00:02") + kRule + group("5", "2001:db8::8", "1") +
                row("1", "00:00:03  00:00:03") + kRule + group("6", "2001:db8::7", "1") +
                row("1", "00:00:04  00:00:04") + kRule);
  EXPECT_EQ(platform.walks, Lines{"next 89 7200"});
  EXPECT_TRUE(platform.log.empty());
}

// The longest texts and numbers fill their columns and beyond.
TEST_F(MissCacheTest, WideColumns) {
  Record entry = NdMiss(0, Uptime() + 1000, UINT32_MAX);
  for (size_t offset = 4; offset < 20; offset += 4) entry.U32(offset, 0xFFFFFFFF);
  for (size_t offset = 40; offset < 72; offset += 4) entry.U32(offset, 0xEFEFEFEF);
  platform.AddEntry(kNdMiss, NdKey(0), entry.bytes());
  EXPECT_EQ(QdtOmaNdmissProc(&request_), 0);
  EXPECT_EQ(platform.answers,
            Lines{kRule +
                  "\nSession           :  1              \nVrf               :  0       "
                  "\nNext Hop          :  ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff       "
                  "\nTotal Cached Pkt  :  1       " +
                  kRule + kNdColumns +
                  "\n1     efef:efef:efef:efef:efef:efef:efef:efef        "
                  "efef:efef:efef:efef:efef:efef:efef:efef         1193046:28:15  1193046:28:15" +
                  kRule});

  char text[512];
  EXPECT_GT(QdtPrintArpMissHdr(text, sizeof(text), ArpMiss(1).data(), 4294967295u, 4000000001u), 0);
  EXPECT_EQ(text, kRule +
                      "\nSession           :  4294967295     \nVrf               :  0       "
                      "\nNext Hop          :  0.0.0.1        \nTotal Cached Pkt  :  4000000001" +
                      kRule + kArpColumns);
}

TEST_F(MissCacheTest, OneNextHop) {
  for (const Family &family : kFamilies) {
    SCOPED_TRACE(family.name);
    WithinASecond([&](uint32_t now) {
      platform.ClearTable(family.table);
      ClearWhatHappened();
      for (const uint32_t nextHop : {7, 8})
        platform.AddEntry(family.table, family.key(nextHop), family.entry(nextHop, now - 2, 62).bytes());
      Ask(family.one);
      EXPECT_EQ(family.handle(&request_), 0);
    });
    EXPECT_EQ(platform.answers, Lines{family.header1 + family.row1 + "00:01:02  00:01:00" + kRule});
    const std::string bytes = std::to_string(100 * family.entrySize);
    EXPECT_EQ(platform.walks,
              Lines{"by key " + std::to_string(family.table) + " " + bytes + " " + family.oneKey});
  }
}

TEST_F(MissCacheTest, AllNextHopsAreAskedForByOneTextOnly) {
  platform.AddEntry(kArpMiss, ArpKey(1), ArpMiss(1).bytes());
  platform.AddEntry(kNdMiss, NdKey(1), NdMiss(1).bytes());
  const auto arp = [this](const char *nextHop) {
    ClearWhatHappened();
    Ask(nextHop);
    EXPECT_EQ(QdtOmaArpmissProc(&request_), 0);
    return platform.walks;
  };
  EXPECT_EQ(arp("0.0.0.0"), Lines{"next 57 3200"});
  EXPECT_EQ(arp(nullptr), Lines{"next 57 3200"});
  for (const char *zero : {"0", "0.0", "00.0.0.0"})
    EXPECT_EQ(arp(zero), Lines{"by key 57 3200 0000000000000000"});
  // Texts that are no addresses are searched as the address of all ones.
  for (const char *wrong : {"", "x", "10.1.0.256", "::", "255.255.255.255"})
    EXPECT_EQ(arp(wrong), Lines{"by key 57 3200 ffffffff00000000"}) << wrong;

  const auto nd = [this](const char *nextHop) {
    ClearWhatHappened();
    Ask(nextHop);
    EXPECT_EQ(QdtOmaNdmissProc(&request_), 0);
    return platform.walks;
  };
  const std::string byZero = "by key 89 7200 " + std::string(40, '0');
  EXPECT_EQ(nd("::"), Lines{"next 89 7200"});
  EXPECT_EQ(nd(nullptr), Lines{"next 89 7200"});
  for (const char *wrong : {"0::0", "", "x", "10.1.0.7", "2001:db8::zz"})
    EXPECT_EQ(nd(wrong), Lines{byZero}) << wrong;
  EXPECT_EQ(nd("102:304:506:708:90a:b0c:d0e:f10"),
            Lines{"by key 89 7200 0000000004030201080706050c0b0a09100f0e0d"});

  // A parameter without a text, and what a failed accessor leaves behind, count as absent.
  request_.texts["next-hop"] = nullptr;
  request_.scribbles = true;
  platform.walks.clear();
  EXPECT_EQ(QdtOmaArpmissProc(&request_), 0);
  request_.texts.clear();
  EXPECT_EQ(QdtOmaArpmissProc(&request_), 0);
  EXPECT_EQ(platform.walks, Lines(2, "next 57 3200"));
}

TEST_F(MissCacheTest, AnEmptyCacheIsNotAnswered) {
  for (const Family &family : kFamilies) {
    for (const char *nextHop : {family.all, family.one}) {
      ClearWhatHappened();
      Ask(nextHop);
      EXPECT_EQ(family.handle(&request_), 0) << family.name;
      EXPECT_EQ(platform.allocations.size(), 1u);
      EXPECT_EQ(Take(family, nextHop), (Taken{0, 0, true}));
    }
  }
  EXPECT_TRUE(platform.answers.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(MissCacheTest, BuffersAreOfTheirSizes) {
  // 2^32 + 96 and 2^32 + 32 bytes, counted in 32 bits.
  platform.capacities = {{kArpMiss, 0x08000003}, {kNdMiss, 59652324}};
  EXPECT_EQ(Take(kFamilies[0], "0.0.0.0").code, 0);
  EXPECT_EQ(platform.allocations.at(0).size, 96u);
  EXPECT_EQ(Take(kFamilies[1], "::").code, 0);
  EXPECT_EQ(platform.allocations.at(1).size, 32u);

  platform.capacities = {{kArpMiss, 10}, {kNdMiss, 10}};
  for (const Family &family : kFamilies) {
    platform.allocations.clear();
    platform.AddEntry(family.table, family.key(7), family.entry(7, 0, 0).bytes());
    EXPECT_EQ(family.handle(&request_), 0);
    ASSERT_EQ(platform.allocations.size(), 2u);
    EXPECT_EQ(platform.allocations[0].size, 10 * family.entrySize);
    EXPECT_EQ(platform.allocations[1].size, 409600u);
    for (const auto &allocation : platform.allocations) EXPECT_EQ(allocation.path, family.source);
  }
}

// The engine may add entries faster than its capacity says: the rest is another walk's, which nobody asks
// for.
TEST_F(MissCacheTest, ARestIsLeftBehindForArpOnly) {
  platform.capacities = {{kArpMiss, 1}, {kNdMiss, 1}};
  for (const Family &family : kFamilies) {
    for (int i = 0; i < 2; ++i) platform.AddEntry(family.table, family.key(7), family.entry(7, 0, 0).bytes());
  }
  EXPECT_EQ(QdtOmaArpmissProc(&request_), 0);
  EXPECT_EQ(platform.answers.size(), 1u);
  EXPECT_EQ(Take(kFamilies[0], "0.0.0.0"), (Taken{0, 32, true}));

  EXPECT_EQ(QdtOmaNdmissProc(&request_), -1);
  EXPECT_EQ(platform.liveAllocations(), 0u);
  EXPECT_EQ(platform.answers.size(), 1u);
  EXPECT_EQ(Take(kFamilies[1], "::"), (Taken{1, 72, true}));
  EXPECT_TRUE(platform.log.empty());

  // Of one next hop a rest is a failure for both.
  for (const Family &family : kFamilies) {
    platform.log.clear();
    Ask(family.one);
    EXPECT_EQ(family.handle(&request_), -1);
    EXPECT_EQ(Take(family, family.one), (Taken{-1, 4711, false}));
    const LogLine line{3, "Error in Search " + std::string(family.cache) + " miss cache, ret: 1\n"};
    EXPECT_EQ(platform.log, Log(2, line));
  }
  EXPECT_EQ(platform.answers.size(), 1u);
}

TEST_F(MissCacheTest, FailuresOfTheTable) {
  size_t abandoned = 0;
  for (const Family &family : kFamilies) {
    platform.AddEntry(family.table, family.key(7), family.entry(7, 0, 0).bytes());
    // After a failed walk of all next hops the ND snapshot is left to its caller, and the handler keeps it.
    const bool left = family.table == kNdMiss;
    for (const int32_t code : {-1, -11, -116, 2}) {
      SCOPED_TRACE(std::string(family.name) + " " + std::to_string(code));
      platform.FailTable(family.table, code);
      platform.log.clear();
      Ask(nullptr);
      EXPECT_EQ(family.handle(&request_), -1);
      abandoned += left;
      EXPECT_EQ(platform.liveAllocations(), abandoned);
      EXPECT_EQ(Take(family, family.all), (Taken{code, 4711, left}));
      const std::string number = std::to_string(code);
      EXPECT_EQ(platform.log,
                Log(2, {3, "[ErrCode: " + number + "]Error in Search " + family.tableName + "\n"}));

      platform.log.clear();
      Ask(family.one);
      EXPECT_EQ(family.handle(&request_), -1);
      EXPECT_EQ(Take(family, family.one), (Taken{-1, 4711, false}));
      EXPECT_EQ(platform.log, Log(2, {3, "Error in Search " + std::string(family.cache) +
                                             " miss cache, ret: " + number + "\n"}));
      EXPECT_EQ(platform.liveAllocations(), abandoned);
    }
  }
  EXPECT_EQ(abandoned, 4u);
  EXPECT_TRUE(platform.answers.empty());
  platform.Reset();  // releases what was abandoned
}

TEST_F(MissCacheTest, ShortMemoryIsLogged) {
  for (const Family &family : kFamilies) {
    platform.AddEntry(family.table, family.key(7), family.entry(7, 0, 0).bytes());
    const std::string snapshot = "Malloc fail for " + std::string(family.cache) + " miss cache\n";
    platform.log.clear();
    platform.FailAllocation(0);
    EXPECT_EQ(family.handle(&request_), -1);
    platform.FailAllocation(0);
    EXPECT_EQ(Take(family, family.one), (Taken{-1, 4711, false}));
    EXPECT_EQ(platform.log, Log(2, {3, snapshot}));

    platform.log.clear();
    platform.FailAllocation(1);
    EXPECT_EQ(family.handle(&request_), -1);
    EXPECT_EQ(platform.log, (Log{{3, "malloc buf for tbl usage failed\n"}}));
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(MissCacheTest, AFailedSendIsAFailure) {
  for (const Family &family : kFamilies) {
    platform.AddEntry(family.table, family.key(7), family.entry(7, 0, 0).bytes());
    for (const int32_t sent : {-1, 1}) {
      platform.sendResult = sent;
      EXPECT_EQ(family.handle(&request_), -1) << family.name;
      EXPECT_EQ(platform.liveAllocations(), 0u);
    }
  }
  EXPECT_EQ(platform.answers.size(), 4u);
  EXPECT_TRUE(platform.log.empty());
}

// 409600 bytes hold a header of 326 characters, 6820 rows of 60 and the rule line, but not one row more.
TEST_F(MissCacheTest, WhatDoesNotFitIsNotSent) {
  platform.capacities[kArpMiss] = 10000;
  const auto send = [this](size_t rows) {
    platform.ClearTable(kArpMiss);
    ClearWhatHappened();
    const Record entry = ArpMiss(0x0A010007, Uptime() + 1000, 60);
    for (size_t i = 0; i < rows; ++i) platform.AddEntry(kArpMiss, ArpKey(0), entry.bytes());
    return QdtOmaArpmissProc(&request_);
  };
  EXPECT_EQ(send(6820), 0);
  ASSERT_EQ(platform.answers.size(), 1u);
  EXPECT_EQ(platform.answers[0].size(), 326u + 6820 * 60 + 66);
  EXPECT_EQ(send(6821), -1);
  EXPECT_EQ(platform.log, (Log{{3, "sprintf_s end block line for arp miss cache failed, ret: -1\n"}}));
  EXPECT_EQ(send(7000), -1);
  EXPECT_EQ(platform.log, (Log{{3, "sprintf_s ip info fail\n"}}));
  EXPECT_TRUE(platform.answers.empty());
}

// The pieces of a listing, which others may call on their own.
class MissTextTest : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override { FakePlatform::Get().Reset(); }
  const Family &family_ = kFamilies[GetParam()];
  const Record entry_ = family_.entry(7, Uptime() + 1000, 3723);
  const std::string rows_ = family_.row1 + "01:02:03  01:02:03";
  Log &log_ = FakePlatform::Get().log;
};

TEST_P(MissTextTest, HeaderAndItsRoom) {
  const auto length = static_cast<int32_t>(family_.header1.size());
  for (int32_t capacity = 0; capacity <= length + 1; ++capacity) {
    const auto text = std::make_unique<char[]>(capacity);  // a sanitizer sees every byte beyond
    const bool fits = capacity > length;
    EXPECT_EQ(family_.header(text.get(), capacity, entry_.data(), 1, 1), fits ? length : -1) << capacity;
    if (fits) {
      EXPECT_EQ(text.get(), family_.header1);
    }
  }
  EXPECT_TRUE(log_.empty());
}

TEST_P(MissTextTest, GroupAndItsRoom) {
  const std::string whole = rows_ + kRule;
  const auto length = static_cast<int32_t>(whole.size());
  const auto row = static_cast<int32_t>(rows_.size());
  const LogLine noRow{3, "sprintf_s ip info fail\n"};
  const LogLine noEnd{
      3, "sprintf_s end block line for " + std::string(family_.cache) + " miss cache failed, ret: -1\n"};
  for (int32_t capacity = 0; capacity <= length + 1; ++capacity) {
    const auto text = std::make_unique<char[]>(capacity);
    log_.clear();
    const int32_t written = family_.group(text.get(), capacity, entry_.data(), 1);
    if (capacity > length) {
      EXPECT_EQ(written, length);
      EXPECT_EQ(text.get(), whole);
      EXPECT_TRUE(log_.empty());
    } else {
      EXPECT_EQ(written, -1) << capacity;
      // Rows keep one byte more free.
      EXPECT_EQ(log_, Log{capacity > row + 1 ? noEnd : noRow}) << capacity;
    }
  }
}

TEST_P(MissTextTest, InfoIsZeroOnSuccess) {
  const std::string whole = family_.header1 + rows_ + kRule;
  std::string area(whole.size() + 1, '#');
  const auto room = static_cast<uint32_t>(area.size());
  EXPECT_EQ(family_.info(area.data(), room, entry_.data(), 1), 0);
  EXPECT_EQ(area.c_str(), whole);
  EXPECT_EQ(family_.info(area.data(), room - 1, entry_.data(), 1), -1);
  EXPECT_EQ(family_.info(area.data(), static_cast<uint32_t>(family_.header1.size()), entry_.data(), 1), -1);

  area.assign(area.size(), '#');
  EXPECT_EQ(family_.info(area.data(), room, entry_.data(), 0), 0);
  EXPECT_EQ(area, std::string(area.size(), '#'));
}

TEST_P(MissTextTest, EntriesNeedNotBeAligned) {
  const Bytes bytes = Join({Record(1), entry_, entry_});
  std::string second = rows_;
  second[1] = '2';
  std::string area(2000, '#');
  EXPECT_EQ(family_.info(area.data(), 2000, bytes.data() + 1, 2), 0);
  EXPECT_TRUE(std::string(area.c_str()).starts_with(kRule + "\nSession           :  1 "));
  EXPECT_TRUE(std::string(area.c_str()).ends_with(second + kRule)) << area.c_str();
}

INSTANTIATE_TEST_SUITE_P(Caches, MissTextTest, ::testing::Values(0, 1),
                         [](const auto &info) { return kFamilies[info.param].name; });

}  // namespace
}  // namespace qdt::test
