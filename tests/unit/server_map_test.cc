#include <sys/mman.h>

#include <cstring>
#include <string>
#include <vector>

#include "qdt/server_map.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/unit/kernel_calls.h"
#include "tests/unit/uptime.h"

// Server maps: which entries a request means, their texts, the messages of a listing, and what a reset
// leaves.
namespace qdt::test {
namespace {

constexpr uint32_t kNever = 0xFFFFFFFF;
constexpr size_t kTtl = 24;
const LogLine kNoRoom = {3, "Sprintf failed, ret=-1\n"};

Record Entry(uint8_t type, uint32_t ttl = kNever) { return Record(60).U8(18, type).U32(kTtl, ttl); }

// A NAT server: 10.0.0.1:1111 to 203.0.113.2:2222, translated to 192.168.3.4:3333, hit 7 times.
Record NatServer(uint8_t type = 0) {
  return Entry(type)
      .U32(0, 0x0A000001)
      .U32(4, 0xCB007102)
      .U16(8, 1111)
      .U16(10, 2222)
      .U16(14, 6)
      .U32(44, 0xC0A80304)
      .U16(48, 3333)
      .U32(52, 7);
}

class ServerMapTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    info_.serverMaps = platform.serverMaps.Map();
    g_tbmGlobalInfo = &info_;
  }

  // Puts the entry into the bucket and returns where it lies.
  uint8_t *Put(uint32_t bucket, const Record &entry) {
    auto &buckets = platform.serverMaps.buckets;
    if (buckets.size() <= bucket) buckets.resize(bucket + 1);
    void *const node = platform.AddEntry(64, {}, entry.bytes());
    buckets[bucket].push_back(node);
    return static_cast<uint8_t *>(node);
  }

  void Ask(const char *type, const char *ip = nullptr) {
    request_ = {};
    if (type != nullptr) request_.texts["type"] = type;
    if (ip != nullptr) request_.texts["ip"] = ip;
  }

  // The messages of a query.
  std::vector<std::string> Query(const char *type = nullptr, const char *ip = nullptr) {
    Ask(type, ip);
    platform.answers.clear();
    result_ = QdtOmaQueryServerMapProc(&request_);
    return platform.answers;
  }

  // The whole listing of a query of at most 204 buckets.
  std::string List(const char *type = nullptr, const char *ip = nullptr) {
    const auto answers = Query(type, ip);
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(answers.size(), 2u);
    return answers.empty() ? "" : answers.back();
  }

  // What a printer adds to an empty listing.
  static std::string Print(int32_t (*print)(const void *, ServerMapQuery *), const Record &entry) {
    char text[256];
    ServerMapQuery query = {text, sizeof(text), 0, 0, 0};
    const int32_t result = print(entry.data(), &query);
    EXPECT_EQ(result, static_cast<int32_t>(query.length));
    return std::string(text, query.length);
  }

  TbmGlobalInfo info_{};
  omcc_request request_;
  int32_t result_ = 0;
};

// An entry of each type from 0 to 23 whose protocol is its type.
class ServerMapKindTest : public ServerMapTest {
 protected:
  void SetUp() override {
    ServerMapTest::SetUp();
    for (uint8_t type = 0; type < 24; ++type) nodes_.push_back(Put(type, Entry(type).U16(14, 100 + type)));
  }

  // The types that a query lists.
  std::vector<int> Types(const char *type) {
    const std::string text = List(type);
    std::vector<int> types;
    for (int i = 0; i < 24; ++i) {
      const std::string number = std::to_string(100 + i);
      const bool nat = text.find("protocol:" + number) != std::string::npos;
      const bool basic = text.find("pro: " + number + ",") != std::string::npos;
      EXPECT_EQ(nat, (nat || basic) && (i == 0 || i == 14)) << i;
      if (nat || basic) types.push_back(i);
    }
    return types;
  }

  // The types whose TTL a reset has set to 0.
  std::vector<int> Reset(const char *type, const char *ip = nullptr) {
    Ask(type, ip);
    EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
    std::vector<int> types;
    for (int i = 0; i < 24; ++i) {
      uint32_t ttl;
      std::memcpy(&ttl, nodes_[i] + kTtl, sizeof(ttl));
      if (ttl == 0) types.push_back(i);
      EXPECT_TRUE(ttl == 0 || ttl == kNever);
    }
    return types;
  }

  std::vector<uint8_t *> nodes_;
};

std::vector<int> Range(int first, int last) {
  std::vector<int> numbers;
  for (int i = first; i <= last; ++i) numbers.push_back(i);
  return numbers;
}

TEST_F(ServerMapKindTest, QueryOfEachKind) {
  EXPECT_EQ(Types("aspf"), (std::vector<int>{2, 16}));
  EXPECT_EQ(Types("nat-server"), (std::vector<int>{0, 14}));
  EXPECT_EQ(Types("no-pat"), (std::vector<int>{1, 15}));
  EXPECT_EQ(Types("all"), Range(0, 21));  // those above are no types
}

TEST_F(ServerMapKindTest, UnknownTypesAndNoneListEveryKind) {
  for (const char *type : {"", "ALL", "Aspf", "nat", "no-pat "}) EXPECT_EQ(Types(type), Range(0, 21)) << type;
  EXPECT_EQ(Types(nullptr), Range(0, 21));
  request_.scribbles = true;
  EXPECT_EQ(GetQueryType(&request_), QDT_SERVER_MAP_ALL);
  request_.texts["type"] = nullptr;
  EXPECT_EQ(GetQueryType(&request_), QDT_SERVER_MAP_ALL);
}

TEST_F(ServerMapKindTest, KindsByNumber) {
  Ask("all");
  EXPECT_EQ(GetQueryType(&request_), 0u);
  Ask("aspf");
  EXPECT_EQ(GetQueryType(&request_), 1u);
  Ask("nat-server");
  EXPECT_EQ(GetQueryType(&request_), 2u);
  Ask("no-pat");
  EXPECT_EQ(GetQueryType(&request_), 3u);
  const ServerMapQuery other = {nullptr, 0, 0, 4, 0};
  for (uint8_t type = 0; type < 24; ++type) EXPECT_NE(QueryServerMapMatch(&other, nodes_[type]), 0);
}

TEST_F(ServerMapKindTest, ResetOfNatServersChangesNothing) {
  EXPECT_EQ(Reset("nat-server"), std::vector<int>{});
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(ServerMapKindTest, ResetOfNoPatSparesTypeOne) { EXPECT_EQ(Reset("no-pat"), std::vector<int>{15}); }

TEST_F(ServerMapKindTest, ResetOfAspf) { EXPECT_EQ(Reset("aspf"), (std::vector<int>{2, 16})); }

TEST_F(ServerMapKindTest, ResetOfAllSparesThreeTypes) {
  std::vector<int> types = Range(2, 13);
  for (int type = 15; type <= 21; ++type) types.push_back(type);
  EXPECT_EQ(Reset("all"), types);
  EXPECT_EQ(platform.serverMaps.walks, std::vector<std::string>{"0 256 1"});
  EXPECT_TRUE(platform.log.empty());
  EXPECT_TRUE(platform.allocations.empty());
}

TEST_F(ServerMapKindTest, ResetOfAnAddressNobodyHas) {
  EXPECT_EQ(Reset("all", "192.0.2.1"), std::vector<int>{});
}

TEST_F(ServerMapTest, ResetOfAnAddress) {
  uint8_t *const other = Put(0, Entry(2, 60).U32(0, 0x0A000001));
  uint8_t *const meant = Put(0, Entry(2, 60).U32(4, 0x0A000002));
  Ask(nullptr, "10.0.0.2");
  EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
  EXPECT_EQ(other[kTtl], 60);
  EXPECT_EQ(meant[kTtl], 0);
}

TEST_F(ServerMapTest, AnEntryThatMayOnlyBeReadStays) {
  void *const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  const Record entry = Entry(2, 60);
  std::memcpy(page, entry.data(), 60);
  ASSERT_EQ(mprotect(page, 4096, PROT_READ), 0);
  platform.serverMaps.buckets = {{page}};
  uint8_t *const other = Put(0, entry);
  Ask("all");
  EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
  EXPECT_EQ(std::memcmp(page, entry.data(), 60), 0);
  EXPECT_EQ(std::memcmp(other, Entry(2, 0).data(), 60), 0);
  munmap(page, 4096);
}

TEST_F(ServerMapTest, ResetAsksTheKernelAboutPagesOnly) {
  std::vector<uint8_t *> nodes;
  for (uint32_t i = 0; i < 4000; ++i) nodes.push_back(Put(i % 250, Entry(2, 60)));
  Ask("all");
  KernelCalls::count = 0;
  EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
  EXPECT_LE(KernelCalls::count.load(), 1000);
  for (const uint8_t *node : nodes) ASSERT_EQ(node[kTtl], 0);
}

// Where the address may stand, by type.
TEST_F(ServerMapTest, AddressesOfAnEntry) {
  constexpr uint32_t kAddress = 0xC0000207;
  const std::vector<size_t> words = {0, 4, 44, 48, 52, 56};
  const auto placesOf = [&](uint8_t type) {
    std::vector<size_t> places;
    const ServerMapQuery query = {nullptr, 0, 0, 0, kAddress};
    for (const size_t word : words) {
      const Record entry = Entry(type).U32(word, kAddress);
      EXPECT_EQ(QueryServerMapIpMatch(&query, entry.data()), QueryServerMapMatch(&query, entry.data()));
      if (QueryServerMapIpMatch(&query, entry.data()) == 0) places.push_back(word);
    }
    return places;
  };
  for (const uint8_t type : {0, 14}) EXPECT_EQ(placesOf(type), (std::vector<size_t>{0, 4, 44})) << +type;
  for (const uint8_t type : {1, 15}) EXPECT_EQ(placesOf(type), (std::vector<size_t>{0, 4, 52, 56})) << +type;
  for (const uint8_t type : {2, 16}) EXPECT_EQ(placesOf(type), (std::vector<size_t>{0, 4, 44, 48})) << +type;
  for (const uint8_t type : {3, 13, 17, 21}) EXPECT_EQ(placesOf(type), (std::vector<size_t>{0, 4})) << +type;
}

TEST_F(ServerMapTest, KindAndAddressMustBothMatch) {
  const Record entry = Entry(2).U32(0, 0x0A000001);
  const auto matches = [&](uint32_t kind, uint32_t address) {
    const ServerMapQuery query = {nullptr, 0, 0, kind, address};
    return QueryServerMapMatch(&query, entry.data()) == 0;
  };
  EXPECT_TRUE(matches(1, 0x0A000001));
  EXPECT_TRUE(matches(0, 0x0A000001));
  EXPECT_TRUE(matches(1, 0));
  EXPECT_FALSE(matches(2, 0x0A000001));
  EXPECT_FALSE(matches(1, 0x0100000A));
  const ServerMapQuery otherKind = {nullptr, 0, 0, 3, 0};
  EXPECT_EQ(QueryServerMapIpMatch(&otherKind, entry.data()), 0);  // the kind is not its business
}

TEST_F(ServerMapTest, QueryOfAnAddress) {
  Put(0, Entry(2).U32(0, 0x0A000001).U16(12, 1));
  Put(0, Entry(16).U32(48, 0x0A000001).U16(12, 2));
  Put(0, Entry(2).U32(0, 0x0A000002).U16(12, 3));
  EXPECT_EQ(List("aspf", "10.0.0.1"),
            "\n vrf: 1, pro: 0, 0x0a000001:0 -> 0x00000000:0\n zone: 0, type: 2, flag: 0x00000000\n"
            "\n vrf: 2, pro: 0, 0x00000000:0 -> 0x00000000:0\n zone: 0, type: 16, flag: 0x00000000\n");
  EXPECT_EQ(List("nat-server", "10.0.0.1"), "");
  EXPECT_EQ(List(nullptr, "0.0.0.0"), List());
  EXPECT_EQ(List(nullptr, "no address"), "");  // no entry has 255.255.255.255
}

TEST_F(ServerMapTest, NatServerText) {
  EXPECT_EQ(Print(QueryServerMapShowNat, NatServer()),
            "\n Type: Nat Server,  10.0.0.1:1111[192.168.3.4:3333] -> "
            "203.0.113.2:2222[192.168.3.4:3333],  protocol:6\n");
  EXPECT_EQ(Print(QueryServerMapShowNat, NatServer(14)),
            "\n Type: Nat Server Reverse,  10.0.0.1:1111[192.168.3.4:3333] -> "
            "203.0.113.2:2222[192.168.3.4:3333],  protocol:6,  counter: 7\n");
  EXPECT_EQ(Print(QueryServerMapShowNat, NatServer(2)),
            "\n Type: Unknown,  10.0.0.1:1111[192.168.3.4:3333] -> "
            "203.0.113.2:2222[192.168.3.4:3333],  protocol:6\n");
}

TEST_F(ServerMapTest, NatServerOfAnything) {
  EXPECT_EQ(Print(QueryServerMapShowNat, Entry(0)), "\n Type: Nat Server,  ANY -> ANY,  protocol:---\n");
  // An end that is any shows neither its port nor a translation.
  EXPECT_EQ(Print(QueryServerMapShowNat, NatServer().U32(0, 0).U32(4, 0)),
            "\n Type: Nat Server,  ANY -> ANY,  protocol:6\n");
}

TEST_F(ServerMapTest, PiecesOfNatServers) {
  EXPECT_EQ(Print(QueryServerMapNatShowTypeInfo, Entry(0)), "\n Type: Nat Server");
  EXPECT_EQ(Print(QueryServerMapNatShowTypeInfo, Entry(14)), "\n Type: Nat Server Reverse");
  for (const uint8_t type : {1, 2, 13, 15, 255})
    EXPECT_EQ(Print(QueryServerMapNatShowTypeInfo, Entry(type)), "\n Type: Unknown");
  EXPECT_EQ(Print(QueryServerMapNatShowSrcInfo, NatServer().U16(8, 0)), ",  10.0.0.1[192.168.3.4:3333]");
  EXPECT_EQ(Print(QueryServerMapNatShowSrcInfo, NatServer().U16(48, 0)), ",  10.0.0.1:1111[192.168.3.4]");
  EXPECT_EQ(Print(QueryServerMapNatShowSrcInfo, NatServer().U32(44, 0)), ",  10.0.0.1:1111");
  EXPECT_EQ(Print(QueryServerMapNatShowDstInfo, NatServer().U16(10, 0)), "203.0.113.2[192.168.3.4:3333]");
  EXPECT_EQ(Print(QueryServerMapNatShowDstInfo, NatServer().U16(48, 0)), "203.0.113.2:2222[192.168.3.4]");
  EXPECT_EQ(Print(QueryServerMapNatShowDstInfo, NatServer().U32(44, 0).U16(10, 65535)), "203.0.113.2:65535");
  EXPECT_EQ(Print(QueryServerMapNatShowProtocolInfo, Entry(0).U16(14, 65535)), ",  protocol:65535\n");
  EXPECT_EQ(Print(QueryServerMapNatShowProtocolInfo, Entry(14)), ",  protocol:---,  counter: 0\n");
  EXPECT_EQ(Print(QueryServerMapNatShowProtocolInfo, Entry(14).U32(52, 0x80000000)),
            ",  protocol:---,  counter: -2147483648\n");
}

TEST_F(ServerMapTest, AddressText) {
  char text[16];
  EXPECT_EQ(SvrmapIpAddrToStr(0xFFFEFDFC, text, sizeof(text)), 15);
  EXPECT_STREQ(text, "255.254.253.252");
  EXPECT_EQ(SvrmapIpAddrToStr(0x01020304, text, 8), 7);
  EXPECT_STREQ(text, "1.2.3.4");
  EXPECT_EQ(SvrmapIpAddrToStr(0xFFFEFDFC, text, 15), -1);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(platform.log, std::vector<LogLine>{kNoRoom});
}

Record AspfEntry(uint32_t ttl, uint32_t timeStamp) {
  return Entry(2, ttl)
      .U32(0, 0x0A0B0C0D)
      .U32(4, 0xC0A80102)
      .U16(8, 20)
      .U16(10, 40001)
      .U16(12, 65535)
      .U16(14, 17)
      .U16(16, 9)
      .U32(20, 0xABC)
      .U32(28, timeStamp);
}

constexpr char kAspfHead[] = "\n vrf: 65535, pro: 17, 0x0a0b0c0d:20 -> 0xc0a80102:40001";

TEST_F(ServerMapTest, BasicTextWithTimes) {
  const auto textOf = [](uint32_t ttl, int64_t age) {
    std::string text;
    WithinASecond([&](uint32_t now) {
      text = Print(QueryServerMapPrintBasic, AspfEntry(ttl, static_cast<uint32_t>(now - age)));
    });
    return text;
  };
  const std::string head = std::string(kAspfHead) + "\n zone: 9, type: 2, flag: 0x00000abc, ttl: ";
  EXPECT_EQ(textOf(100, 30), head + "100, left-time: 70\n");
  EXPECT_EQ(textOf(100, 0), head + "100, left-time: 100\n");
  EXPECT_EQ(textOf(100, 99), head + "100, left-time: 1\n");
  EXPECT_EQ(textOf(100, 100), head + "100, left-time: 0\n");
  EXPECT_EQ(textOf(100, 101), head + "100, left-time: 0\n");
  EXPECT_EQ(textOf(100, -50), head + "100, left-time: 100\n");  // a stamp in the future counts as now
  EXPECT_EQ(textOf(0xFFFFFFFE, 0), head + "4294967294, left-time: -2\n");  // signed, as the text has it
}

TEST_F(ServerMapTest, EntryThatNeverAgesShowsNoTimes) {
  EXPECT_EQ(Print(QueryServerMapPrintBasic, AspfEntry(kNever, 5)),
            std::string(kAspfHead) + "\n zone: 9, type: 2, flag: 0x00000abc\n");
}

TEST_F(ServerMapTest, EntriesThatAreAgedOutAreNotListed) {
  Put(0, Entry(2, 0));
  Put(0, NatServer().U32(kTtl, 0));
  Put(0, Entry(3).U16(12, 8));
  EXPECT_EQ(Query(),
            (std::vector<std::string>{
                "Total servermap number : 3 \n",
                "\n vrf: 8, pro: 0, 0x00000000:0 -> 0x00000000:0\n zone: 0, type: 3, flag: 0x00000000\n"}));
}

TEST_F(ServerMapTest, EmptyMapSendsItsTotalAndOneEmptyMessage) {
  EXPECT_EQ(Query(), (std::vector<std::string>{"Total servermap number : 0 \n", ""}));
  EXPECT_EQ(result_, 0);
  ASSERT_EQ(platform.allocations.size(), 1u);
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_server_map");
}

TEST_F(ServerMapTest, OneMessageForEach204Buckets) {
  for (const uint32_t bucket : {0, 203, 204, 612})
    Put(bucket, Entry(3).U16(12, static_cast<uint16_t>(bucket)));
  const auto block = [](int vrf) {
    return "\n vrf: " + std::to_string(vrf) +
           ", pro: 0, 0x00000000:0 -> 0x00000000:0\n zone: 0, type: 3, flag: 0x00000000\n";
  };
  EXPECT_EQ(Query(), (std::vector<std::string>{"Total servermap number : 4 \n", block(0) + block(203),
                                               block(204), "", block(612)}));
  EXPECT_EQ(platform.serverMaps.walks,
            (std::vector<std::string>{"0 204 1", "204 204 1", "408 204 1", "612 204 1"}));
  EXPECT_TRUE(platform.pauses.empty());
}

TEST_F(ServerMapTest, ResetPausesAfterEach256Buckets) {
  uint8_t *const first = Put(255, Entry(3));
  uint8_t *const last = Put(600, Entry(3));
  Ask(nullptr);
  EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
  EXPECT_EQ(platform.serverMaps.walks, (std::vector<std::string>{"0 256 1", "256 256 1", "512 256 1"}));
  EXPECT_EQ(platform.pauses, (std::vector<uint32_t>{10000, 10000, 10000}));
  EXPECT_EQ(first[kTtl], 0);
  EXPECT_EQ(last[kTtl], 0);
}

TEST_F(ServerMapTest, FullListingEndsWithAWholeEntry) {
  // The blocks take 83 bytes: 246 of them leave 61 of the 20479.
  for (int i = 0; i < 300; ++i) Put(i % 204, Entry(3));
  Put(204, Entry(3));
  const auto answers = Query();
  EXPECT_EQ(result_, 0);
  const std::string block =
      "\n vrf: 0, pro: 0, 0x00000000:0 -> 0x00000000:0\n zone: 0, type: 3, flag: 0x00000000\n";
  std::string whole;
  while (whole.size() + block.size() < 20480) whole += block;
  EXPECT_EQ(answers,
            (std::vector<std::string>{"Total servermap number : 301 \n", whole}));  // the walk has ended
  EXPECT_EQ(platform.log, std::vector<LogLine>{kNoRoom});
}

TEST_F(ServerMapTest, PrintersAddAllOrNothing) {
  const auto check = [&](int32_t (*print)(const void *, ServerMapQuery *), const Record &entry) {
    const std::string whole = Print(print, entry);
    for (uint32_t room = 1; room <= whole.size() + 1; ++room) {
      platform.log.clear();
      char text[300];
      std::memset(text, 'x', sizeof(text));
      std::memcpy(text, "head", 5);
      ServerMapQuery query = {text, 4 + room, 4, 0, 0};
      const bool fits = room > whole.size();
      EXPECT_EQ(print(entry.data(), &query), fits ? static_cast<int32_t>(whole.size()) : -1) << room;
      EXPECT_EQ(query.length, fits ? 4 + whole.size() : 4) << room;
      EXPECT_EQ(std::string(text), fits ? "head" + whole : "head") << room;
      EXPECT_EQ(text[4 + room], 'x');
      EXPECT_EQ(platform.log, fits ? std::vector<LogLine>{} : std::vector<LogLine>{kNoRoom}) << room;
    }
  };
  check(QueryServerMapShowNat, NatServer(14));
  check(QueryServerMapPrintBasic, AspfEntry(kNever, 0));
  for (const auto print : {QueryServerMapNatShowTypeInfo, QueryServerMapNatShowSrcInfo,
                           QueryServerMapNatShowDstInfo, QueryServerMapNatShowProtocolInfo})
    check(print, NatServer(14));
}

TEST_F(ServerMapTest, CallbacksStopOnlyWithoutRoom) {
  char text[8];
  ServerMapQuery query = {text, sizeof(text), 0, 0, 0};
  Record entry = NatServer();
  Record invalid = Entry(22);
  EXPECT_EQ(OmaQueryServerMapGetInfo(const_cast<void *>(entry.data()), &query), -10);
  EXPECT_EQ(OmaQueryServerMapGetInfo(const_cast<void *>(invalid.data()), &query), -9);
  EXPECT_EQ(OmaResetServerMapGetInfo(const_cast<void *>(invalid.data()), &query), -9);
  EXPECT_EQ(OmaResetServerMapGetInfo(const_cast<void *>(entry.data()), &query), -9);
}

TEST_F(ServerMapTest, FailedWalkIsLoggedAndSendsNoMore) {
  Put(300, Entry(3));
  platform.serverMaps.failWalkAt = 1;
  for (const int32_t code : {2, -12}) {
    platform.serverMaps.walks.clear();
    platform.serverMaps.walkCode = code;
    platform.log.clear();
    EXPECT_EQ(Query(), (std::vector<std::string>{"Total servermap number : 1 \n", ""}));
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Query server map trav bucket failed, ret: " +
                                                          std::to_string(code) + "\n"}}));
  }
}

TEST_F(ServerMapTest, FailedWalkEndsAResetSilently) {
  uint8_t *const entry = Put(300, Entry(3, 9));
  platform.serverMaps.failWalkAt = 1;
  platform.serverMaps.walkCode = -12;
  Ask(nullptr);
  EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
  EXPECT_EQ(entry[kTtl], 9);
  EXPECT_EQ(platform.pauses, (std::vector<uint32_t>{10000, 10000}));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(ServerMapTest, FailedSendsFailTheQuery) {
  platform.sendResult = 1;
  EXPECT_EQ(Query(), std::vector<std::string>{"Total servermap number : 0 \n"});
  EXPECT_EQ(result_, -1);
  EXPECT_TRUE(platform.serverMaps.walks.empty());
  // The same for the text of a batch.
  Put(204, Entry(3));
  platform.sendResultFrom = 1;
  EXPECT_EQ(Query(), (std::vector<std::string>{"Total servermap number : 1 \n", ""}));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(platform.serverMaps.walks, std::vector<std::string>{"0 204 1"});
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(ServerMapTest, NoMemory) {
  platform.FailAllocation(0);
  EXPECT_EQ(Query(), std::vector<std::string>{});
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for server map failed\n"}}));
}

TEST_F(ServerMapTest, AnEngineWithoutServerMaps) {
  info_.serverMaps = nullptr;
  for (TbmGlobalInfo *info : {&info_, static_cast<TbmGlobalInfo *>(nullptr)}) {
    g_tbmGlobalInfo = info;
    platform.log.clear();
    EXPECT_EQ(Query(), std::vector<std::string>{"Total servermap number : 0 \n"});
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Query server map trav bucket failed, ret: -116\n"}}));
    EXPECT_EQ(QdtOmaResetServerMapProc(&request_), 0);
  }
}

TEST_F(ServerMapTest, Statistics) {
  Put(3, Entry(2));
  Put(7, Entry(30));  // whatever it is, it is there
  char text[64];
  std::memset(text, 'x', sizeof(text));
  ServerMapQuery query = {text, sizeof(text), 17, 0, 0};
  EXPECT_EQ(QdtOmaQueryServerMapStatistics(&query, text, sizeof(text)), 0);
  EXPECT_EQ(platform.answers, std::vector<std::string>{"Total servermap number : 2 \n"});
  EXPECT_EQ(query.length, 0u);
  EXPECT_EQ(std::string(text, sizeof(text)), std::string(sizeof(text), '\0'));
  platform.serverMaps.countCode = -2;
  EXPECT_EQ(QdtOmaQueryServerMapStatistics(&query, text, sizeof(text)), 0);
  EXPECT_EQ(platform.answers.back(), "Total servermap number : 0 \n");
  EXPECT_EQ(QdtOmaQueryServerMapStatistics(&query, text, 28), -1);
  EXPECT_EQ(platform.log, std::vector<LogLine>{kNoRoom});
  EXPECT_EQ(platform.answers.size(), 2u);
}

TEST_F(ServerMapTest, ResetCommandLine) {
  char line[64];
  Ask(nullptr, "10.1.2.3");
  EXPECT_EQ(QdtOmaResetServerMapGetParam(&request_, line, sizeof(line)), 0);
  EXPECT_STREQ(line, "server-map reset-server-map ip 10.1.2.3");
  EXPECT_EQ(QdtOmaResetServerMapGetParam(&request_, line, 40), 0);
  EXPECT_TRUE(platform.log.empty());
  EXPECT_EQ(QdtOmaResetServerMapGetParam(&request_, line, 39), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "sprintfs reset ip failed\n"}}));
  platform.log.clear();
  Ask("all");
  EXPECT_EQ(QdtOmaResetServerMapGetParam(&request_, line, sizeof(line)), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Get reset server map ip failed\n"}}));
}

}  // namespace
}  // namespace qdt::test
