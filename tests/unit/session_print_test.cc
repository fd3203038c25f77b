#include <sys/mman.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/unit/session_fixture.h"
#include "tests/unit/uptime.h"

// The lines of the agent's list of sessions, printer by printer.
namespace qdt::test {
namespace {

constexpr uint32_t kSource = 0x0A0B0C01, kDestination = 0xC0A80102;  // 10.11.12.1, 192.168.1.2

using Printer = int32_t (*)(const void *, SessionQueryOutput *);

const std::vector<LogLine> kFull = {{3, "Sprintf failed, ret=-1\n"}};

class SessionPrintTest : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    setenv("TZ", "UTC", 1);
  }

  // What the printer adds behind "before", or "code N".
  std::string Print(Printer printer, const Record &record) {
    std::string area(4096, '#');
    std::strcpy(area.data(), "before");
    SessionQueryOutput output = {area.data(), 4096, 6, 1};
    const int32_t written = printer(record.data(), &output);
    EXPECT_EQ(output.counter, 1u);
    if (written < 0) {
      EXPECT_EQ(output.length, 6u);
      EXPECT_STREQ(area.c_str(), "before");
      return "code " + std::to_string(written);
    }
    EXPECT_EQ(output.length, 6u + static_cast<uint32_t>(written));
    EXPECT_EQ(std::strlen(area.c_str()), output.length);
    return area.c_str() + 6;
  }

  // The printer must refuse every room below the text's, and leave what was there before.
  void ExpectBounded(Printer printer, const Record &record, const std::string &text) {
    EXPECT_EQ(Print(printer, record), text);
    const auto length = static_cast<uint32_t>(text.size());
    for (uint32_t room = 0; room <= length + 1; ++room) {
      platform.log.clear();
      const auto area = std::make_unique<char[]>(6 + room + 1);
      std::memcpy(area.get(), "before", 6);
      area[6 + room] = 'x';
      SessionQueryOutput output = {area.get(), 6 + room, 6, 1};
      if (room == length + 1) {
        EXPECT_EQ(printer(record.data(), &output), static_cast<int32_t>(length));
        EXPECT_EQ(area.get(), "before" + text);
        EXPECT_TRUE(platform.log.empty());
      } else {
        EXPECT_EQ(printer(record.data(), &output), -1) << room;
        EXPECT_EQ(output.length, 6u) << room;
        if (room != 0) {
          EXPECT_STREQ(area.get(), "before") << room;
        }
        EXPECT_EQ(platform.log, kFull) << room;
      }
      EXPECT_EQ(area[6 + room], 'x') << room;
    }
  }

  Record Ipv4(uint8_t protocol = 6) {
    return Session(Ipv4Key(kSource, kDestination, 50001, 443, protocol, 60007))
        .U32(28, 0xCB007101)  // 203.0.113.1
        .U32(32, 0xCB007102)  // 203.0.113.2
        .U16(36, 50011)
        .U16(38, 8443);
  }
  Record Ipv6(uint8_t protocol = 6) { return Session(Ipv6Key(1, 2, 50001, 443, protocol, 60008)); }

  const void *Sac() {
    return Keep(
        Record(20).U64(0, 0xEEEEEEEEEEEEEEEE).U32(8, 3000000001).U32(12, 3000000002).U32(16, 3000000003));
  }
};

constexpr char kSacText[] = "\n [sac info] appId: 3000000001, protocolId 3000000003, classId 3000000002";

TEST_F(SessionPrintTest, Protocol) {
  ExpectBounded(QuerySessionPrintProto, Ipv4(), "\n tcp VPN: 60007 <--> 60007 ");
  ExpectBounded(QuerySessionPrintProto, Ipv6(17), "\n udp VPN: 60008 <--> 60008 ");
  EXPECT_EQ(Print(QuerySessionPrintProto, Ipv4(141)), "\n unknown(0x8d) VPN: 60007 <--> 60007 ");
  EXPECT_STREQ(protocolName, "unknown(0x8d)");
  EXPECT_EQ(Print(QuerySessionPrintProto, Ipv6(255)), "\n unknown(0xff) VPN: 60008 <--> 60008 ");
}

TEST_F(SessionPrintTest, ProtocolNames) {
  const std::string names = Golden("session_protocols.txt");
  std::string all;
  for (uint32_t number = 0; number <= 140; ++number)
    all += std::string(OmaQuerySessionGetProtocolName(number)) + "\n";
  EXPECT_EQ(all, names);
  EXPECT_STREQ(OmaQuerySessionGetProtocolName(1), "icmp");
  EXPECT_STREQ(OmaQuerySessionGetProtocolName(34), "3rd party conect(0x22)");
  EXPECT_STREQ(OmaQuerySessionGetProtocolName(140), "shim6 header(0x8c)");
  for (const auto &[number, name] : {std::pair{141u, "unknown(0x8d)"},
                                     {254u, "unknown(0xfe)"},
                                     {256u, "unknown(0x100)"},
                                     {UINT32_MAX, "unknown(0xffffffff)"}}) {
    EXPECT_STREQ(OmaQuerySessionGetProtocolName(number), name);
    EXPECT_EQ(OmaQuerySessionGetProtocolName(number), protocolName);
  }
}

TEST_F(SessionPrintTest, LinesThatNeedTheKey) {
  for (const Printer printer : {QuerySessionPrintProto, QuerySessionPrintIpPort, QuerySessionPrintIpv6Port}) {
    for (const uint64_t nothing : {uint64_t{0}, kWildAddresses[0], kWildAddresses[1]}) {
      EXPECT_EQ(Print(printer, Ipv4().U64(112, nothing)), "code -1");
      EXPECT_EQ(Print(printer, Ipv6().U64(112, nothing)), "code -1");
    }
  }
  EXPECT_TRUE(platform.log.empty());
}

// A record at an address of the test's choice.
class PlacedRecord {
 public:
  PlacedRecord(uintptr_t address, uint32_t index, uint32_t createTime) {
    page_ = mmap(reinterpret_cast<void *>(address), 4096, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (page_ != reinterpret_cast<void *>(address)) return;
    const Record record = Record(192).U32(0, index).U32(128, createTime);
    std::memcpy(page_, record.data(), 192);
  }
  ~PlacedRecord() {
    if (page_ != MAP_FAILED) munmap(page_, 4096);
  }
  const void *get() const { return page_; }

 private:
  void *page_;
};

std::string IdAt(uintptr_t address, uint32_t index, uint32_t createTime) {
  const PlacedRecord record(address, index, createTime);
  if (record.get() != reinterpret_cast<void *>(address)) return "the address is taken";
  char id[64];
  const int32_t length = GenerateSessionId(record.get(), id, sizeof(id));
  EXPECT_EQ(length, static_cast<int32_t>(std::strlen(id)));
  for (int32_t room = 0; room <= length; ++room) {
    const auto area = std::make_unique<char[]>(room);
    EXPECT_EQ(GenerateSessionId(record.get(), area.get(), room), -1);
  }
  return id;
}

bool HasAddress(uintptr_t address) {
  return PlacedRecord(address, 0, 0).get() == reinterpret_cast<void *>(address);
}

TEST_F(SessionPrintTest, Ids) {
#ifdef __has_feature
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "ThreadSanitizer leaves these addresses to nobody";
#endif
#endif
  // Lengths of address, index and create time; these; slot and processor.
  EXPECT_EQ(IdAt(0x10203000, 0x1A, 0x65538D80),
            "82810203000"
            "1a"
            "65538d80"
            "000");
  EXPECT_EQ(IdAt(0x10203000, 0, 0), "8111020300000000");
  // Kernels for 39 bits of addresses have no longer ones.
  if (!HasAddress(0x200000100000)) return;
  EXPECT_EQ(IdAt(0x200000001000, 0xFFFFFFFF, 0x65538D80),
            "c88"
            "200000001000"
            "ffffffff"
            "65538d80"
            "000");
  EXPECT_EQ(IdAt(0x200010203000, 7, 0x10),
            "c12"
            "200010203000"
            "7"
            "10"
            "000");
}

TEST_F(SessionPrintTest, AnIdThatDoesNotFit) {
  char id[8];
  EXPECT_EQ(GenerateSessionId(Ipv4().data(), id, sizeof(id)), -1);
  EXPECT_EQ(platform.log, kFull);
}

class SessionTimeTest : public SessionPrintTest {
 protected:
  // The line of a session that was refreshed `age` seconds ago, behind its id.
  std::string Line(uint32_t createTime, uint16_t ttl, int32_t age) {
    std::string behind;
    WithinASecond([&](uint32_t now) {
      const Record record = Ipv4().U32(4, now - static_cast<uint32_t>(age)).U16(10, ttl).U32(128, createTime);
      char id[64];
      EXPECT_GT(GenerateSessionId(record.data(), id, sizeof(id)), 0);
      const std::string start = "ID: " + std::string(id);
      const std::string line = Print(QuerySessionPrintIdTtl, record);
      EXPECT_EQ(line.substr(0, start.size()), start);
      behind = line.substr(start.size());
    });
    return behind;
  }
};

TEST_F(SessionTimeTest, WholeLine) {
  EXPECT_EQ(Line(1700000000, 3725, 100),
            "\n Create Time: 2023-11-14 22:13:20\n Slot: 0 CPU: 0  TTL: 01:02:05  Left: 01:00:25");
  EXPECT_EQ(Line(0, 300, 0),
            "\n Create Time: 1970-01-01 00:00:00\n Slot: 0 CPU: 0  TTL: 00:05:00  Left: 00:05:00");
  EXPECT_EQ(Line(UINT32_MAX, 65534, 1),
            "\n Create Time: 2106-02-07 06:28:15\n Slot: 0 CPU: 0  TTL: 18:12:14  Left: 18:12:13");
}

TEST_F(SessionTimeTest, LocalTime) {
  setenv("TZ", "LAB-5:30", 1);
  EXPECT_EQ(Line(1700000000, 65535, 0),
            "\n Create Time: 2023-11-15 03:43:20\n Slot: 0 CPU: 0  TTL: --:--:--  Left: --:--:--");
}

TEST_F(SessionTimeTest, NeverAged) {
  EXPECT_EQ(Line(1700000000, 65535, 100000),
            "\n Create Time: 2023-11-14 22:13:20\n Slot: 0 CPU: 0  TTL: --:--:--  Left: --:--:--");
}

TEST_F(SessionTimeTest, TimeLeft) {
  const auto left = [this](uint16_t ttl, int32_t age) {
    const std::string line = Line(0, ttl, age);
    return line.substr(line.find("  TTL"));
  };
  EXPECT_EQ(left(10, 9), "  TTL: 00:00:10  Left: 00:00:01");
  EXPECT_EQ(left(10, 10), "  TTL: 00:00:10  Left: 00:00:00");
  EXPECT_EQ(left(10, 11), "  TTL: 00:00:10  Left: 00:00:00");
  EXPECT_EQ(left(10, -5), "  TTL: 00:00:10  Left: 00:00:10");  // a stamp in the future
  EXPECT_EQ(left(0, 0), "  TTL: 00:00:00  Left: 00:00:00");
}

TEST_F(SessionPrintTest, AnIdentityThatDoesNotFit) {
  const Record record = Ipv4().U16(10, 65535).U32(128, 1700000000);
  char address[32];
  const int digits =
      std::snprintf(address, sizeof(address), "%llx", reinterpret_cast<unsigned long long>(record.data()));
  char lengths[8];
  std::snprintf(lengths, sizeof(lengths), "%x18", static_cast<unsigned>(digits));  // index 0, time 0x6553f100
  ExpectBounded(QuerySessionPrintIdTtl, record,
                "ID: " + std::string(lengths) + address +
                    "06553f100000\n Create Time: 2023-11-14 22:13:20\n Slot: 0 CPU: 0"
                    "  TTL: --:--:--  Left: --:--:--");
}

TEST_F(SessionPrintTest, Ipv4Addresses) {
  ExpectBounded(QuerySessionPrintIpPort, Ipv4(), "\n 10.11.12.1:50001 <--> 192.168.1.2:443\n");
}

TEST_F(SessionPrintTest, Translations) {
  const std::string source[] = {"10.11.12.1:50001", "10.11.12.1:50001[203.0.113.1:50001]",
                                "10.11.12.1:50001[10.11.12.1:50011]", "10.11.12.1:50001[203.0.113.1:50011]"};
  const std::string destination[] = {"192.168.1.2:443", "192.168.1.2:443[203.0.113.2:443]",
                                     "192.168.1.2:443[192.168.1.2:8443]",
                                     "192.168.1.2:443[203.0.113.2:8443]"};
  for (uint32_t bits = 0; bits < 16; ++bits) {
    const int newSource = (bits & 1) | (bits >> 1 & 2), newDestination = (bits >> 1 & 1) | (bits >> 2 & 2);
    EXPECT_EQ(Print(QuerySessionPrintIpPort, Ipv4().U32(16, bits | 0xFFFFFFF0)),
              "\n " + source[newSource] + " <--> " + destination[newDestination] + "\n")
        << bits;
  }
  // Translated to itself.
  const Record same = Ipv4().U32(16, 0xF).U32(28, kSource).U32(32, kDestination).U16(36, 50001).U16(38, 443);
  EXPECT_EQ(Print(QuerySessionPrintIpPort, same), "\n 10.11.12.1:50001 <--> 192.168.1.2:443\n");
  ExpectBounded(QuerySessionPrintIpPort, Ipv4().U32(16, 0xF),
                "\n 10.11.12.1:50001[203.0.113.1:50011] <--> 192.168.1.2:443[203.0.113.2:8443]\n");
}

TEST_F(SessionPrintTest, Ipv6Addresses) {
  ExpectBounded(QuerySessionPrintIpv6Port, Ipv6(), "\n 2001:db8::1.50001 <--> 2001:db8::2.443");
  EXPECT_EQ(Print(QuerySessionPrintIpv6Port, Ipv6().U32(16, 0xF)),
            "\n 2001:db8::1.50001 <--> 2001:db8::2.443");  // no translation is shown
  Record key(40);
  for (uint32_t i = 0; i < 8; ++i) key.U32(4 * i, 0x10012002 + 0x01010101 * i);
  EXPECT_EQ(Print(QuerySessionPrintIpv6Port, Session(key)),
            "\n 1001:2002:1102:2103:1203:2204:1304:2305.0 <--> 1405:2406:1506:2507:1607:2608:1708:2709.0");
}

TEST_F(SessionPrintTest, Classification) {
  ExpectBounded(QuerySessionPrintSacSess, Ipv4().Address(168, Sac()), kSacText);
  for (const uint64_t nothing : {uint64_t{0}, kWildAddresses[0], kWildAddresses[1]})
    EXPECT_EQ(Print(QuerySessionPrintSacSess, Ipv4().U64(168, nothing)), "");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionPrintTest, ClassificationBehindAddresses) {
  EXPECT_EQ(Print(QuerySessionPrintIpPort, Ipv4().Address(168, Sac())),
            std::string("\n 10.11.12.1:50001 <--> 192.168.1.2:443") + kSacText + "\n");
  EXPECT_EQ(Print(QuerySessionPrintIpv6Port, Ipv6().Address(168, Sac())),
            std::string("\n 2001:db8::1.50001 <--> 2001:db8::2.443") + kSacText);
}

TEST_F(SessionPrintTest, AClassificationThatDoesNotFitIsLeftOut) {
  const std::string line = "\n 10.11.12.1:50001 <--> 192.168.1.2:443\n";
  std::string area(line.size() + 50, '#');
  SessionQueryOutput output = {area.data(), static_cast<uint32_t>(area.size()), 0, 1};
  const Record record = Ipv4().Address(168, Sac());
  EXPECT_EQ(QuerySessionPrintIpPort(record.data(), &output), static_cast<int32_t>(line.size()));
  EXPECT_EQ(area.c_str(), line);
  EXPECT_EQ(platform.log, kFull);

  const std::string ipv6 = "\n 2001:db8::1.50001 <--> 2001:db8::2.443";
  output.length = 0;
  EXPECT_EQ(QuerySessionPrintIpv6Port(Ipv6().Address(168, Sac()).data(), &output),
            static_cast<int32_t>(ipv6.size()));
  EXPECT_EQ(area.c_str(), ipv6);
  EXPECT_EQ(platform.log.size(), 2u);
}

TEST_F(SessionPrintTest, TcpFlow) {
  const auto flow = [] {
    return Record(36)
        .U32(0, 0xEEEEEEEE)
        .U32(4, 3000000004)
        .U32(8, 3000000008)
        .U32(12, 3000000012)
        .U32(16, 0x0ACE0016)
        .U32(20, 0xA5E00020)
        .U8(26, 0xE6)
        .U16(30, 60030)
        .U16(32, 60032)
        .U16(34, 60034);
  };
  const auto text = [](const std::string &bits) {
    return "\n UpTcpFlow:\n Wscale: 230  " + bits +
           "\n BrakeCount: 60030  AccCount: 60032  HoldCount: 60034"
           "\n Cwnd: 3000000004 Rwnd: 3000000008 RwndMin: 3000000012 Seq: 0xa5e00020 Ack: 0x0ace0016";
  };
  const auto print = [&](uint16_t bits) {
    return Print(QuerySessionPrintTcpFlowInfo, Ipv4().Address(176, Keep(flow().U16(24, bits))));
  };
  const std::string set[16] = {"",
                               "",
                               "",
                               "Up: 1  Action: 0",
                               "Up: 2  Action: 0",
                               "Up: 4  Action: 0",
                               "Up: 8  Action: 0",
                               "Up: 0  Action: 1",
                               "Up: 0  Action: 2"};
  for (int bit = 0; bit < 16; ++bit) {
    EXPECT_EQ(print(static_cast<uint16_t>(1 << bit)), text(set[bit].empty() ? "Up: 0  Action: 0" : set[bit]))
        << bit;
  }
  EXPECT_EQ(print(0xFFFF), text("Up: 15  Action: 3"));
  ExpectBounded(QuerySessionPrintTcpFlowInfo, Ipv4().Address(176, Keep(flow())), text("Up: 0  Action: 0"));
  for (const uint64_t nothing : {uint64_t{0}, kWildAddresses[0], kWildAddresses[1]})
    EXPECT_EQ(Print(QuerySessionPrintTcpFlowInfo, Ipv4().U64(176, nothing)), "");
}

}  // namespace
}  // namespace qdt::test
