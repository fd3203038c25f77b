#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "qdt/oma.h"
#include "tests/fake_platform/fake_platform.h"

// Parameters of a management request, and the addresses that their texts stand for.
namespace qdt::test {
namespace {

using MacBytes = std::vector<uint8_t>;

class OmaRequestTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    request_.scribbles = true;  // what a failed parse leaves behind must not reach the caller
  }

  void TearDown() override {
    EXPECT_TRUE(platform.log.empty());
    EXPECT_TRUE(platform.allocations.empty());
    PlatformTest::TearDown();
  }

  omcc_request request_;
};

TEST_F(OmaRequestTest, GetBool) {
  request_.flags = {{"off", 0}, {"on", 1}, {"odd", 254}};
  EXPECT_EQ(QdtOmaGetBool(&request_, "off"), 0);
  EXPECT_EQ(QdtOmaGetBool(&request_, "on"), 1);
  EXPECT_EQ(QdtOmaGetBool(&request_, "odd"), 254);  // as it came
  EXPECT_EQ(QdtOmaGetBool(&request_, "absent"), 0);
}

TEST_F(OmaRequestTest, ParseBool) {
  request_.flags = {{"off", 0}, {"on", 1}, {"even", 254}, {"odd", 255}};
  const auto parsed = [&](const char *name, int32_t status) -> int {
    uint8_t flag = 77;
    EXPECT_EQ(QdtOmaParseBool(&request_, name, &flag), status) << name;
    return flag;
  };
  EXPECT_EQ(parsed("off", 0), 0);
  EXPECT_EQ(parsed("on", 0), 1);
  EXPECT_EQ(parsed("even", 0), 0);
  EXPECT_EQ(parsed("odd", 0), 1);
  EXPECT_EQ(parsed("absent", -1), 77);
}

// The number read into a field between two others, which must stay as they are.
template <typename T>
std::pair<int32_t, uint64_t> Read(int32_t (*parse)(AgentRequest, const char *, T *), AgentRequest request,
                                  const char *name) {
  T fields[3] = {T{0x5A}, T{0x5B}, T{0x5C}};
  const int32_t status = parse(request, name, &fields[1]);
  EXPECT_EQ(fields[0], T{0x5A});
  EXPECT_EQ(fields[2], T{0x5C});
  return {status, fields[1]};
}

using Outcome = std::pair<int32_t, uint64_t>;

TEST_F(OmaRequestTest, NumbersAreCutToTheirWidth) {
  request_.numbers = {{"300", 300},        {"256", 256}, {"70000", 70000}, {"2^32+9", 0x100000009},
                      {"all", UINT64_MAX}, {"zero", 0}};
  EXPECT_EQ(Read(QdtOmaParseU8, &request_, "300"), (Outcome{0, 44}));
  EXPECT_EQ(Read(QdtOmaParseU8, &request_, "256"), (Outcome{0, 0}));
  EXPECT_EQ(Read(QdtOmaParseU8, &request_, "all"), (Outcome{0, 0xFF}));
  EXPECT_EQ(Read(QdtOmaParseU16, &request_, "300"), (Outcome{0, 300}));
  EXPECT_EQ(Read(QdtOmaParseU16, &request_, "70000"), (Outcome{0, 4464}));
  EXPECT_EQ(Read(QdtOmaParseU16, &request_, "all"), (Outcome{0, 0xFFFF}));
  EXPECT_EQ(Read(QdtOmaParseU32, &request_, "70000"), (Outcome{0, 70000}));
  EXPECT_EQ(Read(QdtOmaParseU32, &request_, "2^32+9"), (Outcome{0, 9}));
  EXPECT_EQ(Read(QdtOmaParseU32, &request_, "all"), (Outcome{0, 0xFFFFFFFF}));
  EXPECT_EQ(Read(QdtOmaParseU64, &request_, "2^32+9"), (Outcome{0, 0x100000009}));
  EXPECT_EQ(Read(QdtOmaParseU64, &request_, "all"), (Outcome{0, UINT64_MAX}));
  EXPECT_EQ(Read(QdtOmaParseU8, &request_, "zero"), (Outcome{0, 0}));
  EXPECT_EQ(Read(QdtOmaParseU64, &request_, "zero"), (Outcome{0, 0}));
}

TEST_F(OmaRequestTest, AbsentNumbersLeaveTheDestination) {
  EXPECT_EQ(Read(QdtOmaParseU8, &request_, "absent"), (Outcome{-1, 0x5B}));
  EXPECT_EQ(Read(QdtOmaParseU16, &request_, "absent"), (Outcome{-1, 0x5B}));
  EXPECT_EQ(Read(QdtOmaParseU32, &request_, "absent"), (Outcome{-1, 0x5B}));
  // 64 bits are the document library's to write.
  EXPECT_EQ(Read(QdtOmaParseU64, &request_, "absent"), (Outcome{-1, 0xDEAD}));
  request_.scribbles = false;
  EXPECT_EQ(Read(QdtOmaParseU64, &request_, "absent"), (Outcome{-1, 0x5B}));
}

TEST_F(OmaRequestTest, Texts) {
  const std::string given = "10.1.0.7";
  request_.texts = {{"next-hop", given.c_str()}};
  const char *text = nullptr;
  EXPECT_EQ(QdtOmaParseStr(&request_, "next-hop", &text), 0);
  EXPECT_EQ(text, given.c_str());  // the request's own, not a copy
  EXPECT_EQ(QdtOmaParseStr(&request_, "absent", &text), -1);
  EXPECT_STREQ(text, "scribble");
  request_.scribbles = false;
  text = given.c_str();
  EXPECT_EQ(QdtOmaParseStr(&request_, "absent", &text), -1);
  EXPECT_EQ(text, given.c_str());
}

// What a MAC conversion leaves in six bytes that were 0xEE before; empty on failure, when they must stay.
template <typename Convert>
MacBytes Mac(Convert convert) {
  MacBytes mac(6, 0xEE);
  const int32_t status = convert(mac.data());
  if (status == 0) return mac;
  EXPECT_EQ(status, -1);
  EXPECT_EQ(mac, MacBytes(6, 0xEE));
  return {};
}

TEST_F(OmaRequestTest, MacAddresses) {
  struct Case {
    const char *text;
    MacBytes mac;
  };
  const MacBytes good = {0x00, 0xE0, 0xFC, 0x12, 0x34, 0x56};
  const Case cases[] = {
      {"00e0-fc12-3456", good},
      {"00E0-FC12-3456", good},
      {"00e0-fc12-3456-789a", good},
      {"00e0-fc12-345678", good},
      {"ffff-ffff-fffe", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}},
      {"00e0-fc12-345", {0x00, 0xE0, 0xFC, 0x12, 0x34, 0x05}},
      {"00e0-fc12-34", {}},
      {"00e0-fc12", {}},
      {"00e0fc123456", {}},
      {"0e0-fc12-3456", {0x0E, 0x00, 0xFC, 0x12, 0x34, 0x56}},  // two digits at a time
      {"0-1-2", {}},
      {"00:e0:fc:12:34:56", {}},
      {"00e0-fg12-3456", {}},
      {"mac", {}},
      {"", {}},
  };
  for (const Case &one : cases) {
    EXPECT_EQ(Mac([&](uint8_t *mac) { return QdtOmaStrToMac(one.text, mac); }), one.mac) << one.text;
    request_.texts["source-mac"] = one.text;
    EXPECT_EQ(Mac([&](uint8_t *mac) { return QdtOmaParseMac(&request_, "source-mac", mac); }), one.mac)
        << one.text;
  }
  EXPECT_EQ(Mac([&](uint8_t *mac) { return QdtOmaParseMac(&request_, "absent", mac); }), MacBytes{});
  request_.texts["source-mac"] = nullptr;
  EXPECT_EQ(Mac([&](uint8_t *mac) { return QdtOmaParseMac(&request_, "source-mac", mac); }), MacBytes{});
}

TEST_F(OmaRequestTest, Ipv4Texts) {
  const auto converted = [](const char *text) {
    uint32_t value = 0xEEEEEEEE;
    const int32_t status = QdtOmaStrToIp4(text, &value);
    EXPECT_EQ(status, value == 0xEEEEEEEE ? -1 : 0) << text;
    return value;
  };
  EXPECT_EQ(converted("1.2.3.4"), 0x01020304u);
  EXPECT_EQ(converted("255.255.255.255"), 0xFFFFFFFFu);
  EXPECT_EQ(converted("0.0.0.0"), 0u);
  for (const char *text : {"1.2.3", "1.2.3.256", "1.2.3.4.5", "1.2.3.4 ", "::1", "", "host"})
    EXPECT_EQ(converted(text), 0xEEEEEEEEu) << text;
}

TEST_F(OmaRequestTest, Ipv6TextsKeepNetworkOrder) {
  MacBytes bytes(16, 0xEE);
  EXPECT_EQ(QdtOmaStrToIp6("2001:db8::102:3ff", bytes.data()), 0);
  EXPECT_EQ(bytes, (MacBytes{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x02, 0x03, 0xFF}));
  for (const char *text : {"2001:db8::zz", "1.2.3.4", "", "fe80::1%eth0"}) {
    std::fill(bytes.begin(), bytes.end(), uint8_t{0xEE});
    EXPECT_EQ(QdtOmaStrToIp6(text, bytes.data()), -1) << text;
    EXPECT_EQ(bytes, MacBytes(16, 0xEE)) << text;
  }
}

TEST_F(OmaRequestTest, TheFirstMarkTellsTheVersion) {
  EXPECT_EQ(QdtOmaGetIpVer("1.2.3.4"), 4);
  EXPECT_EQ(QdtOmaGetIpVer("10.0.0.1:80"), 4);
  EXPECT_EQ(QdtOmaGetIpVer("."), 4);
  EXPECT_EQ(QdtOmaGetIpVer("fe80::1%eth0"), 6);
  EXPECT_EQ(QdtOmaGetIpVer("::ffff:1.2.3.4"), 6);
  EXPECT_EQ(QdtOmaGetIpVer("abc:"), 6);
  EXPECT_EQ(QdtOmaGetIpVer(""), 0);
  EXPECT_EQ(QdtOmaGetIpVer("abc"), 0);
}

std::string Words(const OmaIpAddr &address) {
  char text[64];
  std::snprintf(text, sizeof(text), "%u %08x %08x %08x %08x", address.version, address.addr[0],
                address.addr[1], address.addr[2], address.addr[3]);
  return text;
}

TEST_F(OmaRequestTest, IpTextsOfEitherVersion) {
  EXPECT_EQ(sizeof(OmaIpAddr), 20u);
  struct Case {
    const char *text;
    int32_t status;
    const char *words;
  };
  // Words that a conversion does not write keep what stood there.
  const Case cases[] = {
      {"1.2.3.4", 0, "4 01020304 a1a2a3a4 b1b2b3b4 c1c2c3c4"},
      {"1.2.3", -1, "4 91929394 a1a2a3a4 b1b2b3b4 c1c2c3c4"},
      {"10.0.0.1:80", -1, "4 91929394 a1a2a3a4 b1b2b3b4 c1c2c3c4"},
      {"2001:db8::1", 0, "6 20010db8 00000000 00000000 00000001"},
      {"::ffff:1.2.3.4", 0, "6 00000000 00000000 0000ffff 01020304"},
      {"abc", -1, "0 91929394 a1a2a3a4 b1b2b3b4 c1c2c3c4"},
      {"", -1, "0 91929394 a1a2a3a4 b1b2b3b4 c1c2c3c4"},
  };
  for (const Case &one : cases) {
    const OmaIpAddr before = {99, {0x91929394, 0xA1A2A3A4, 0xB1B2B3B4, 0xC1C2C3C4}};
    OmaIpAddr address = before;
    EXPECT_EQ(QdtOmaStrToIp(one.text, &address), one.status) << one.text;
    EXPECT_EQ(Words(address), one.words) << one.text;
    address = before;
    request_.texts["source-ip"] = one.text;
    EXPECT_EQ(QdtOmaParseIp(&request_, "source-ip", &address), one.status) << one.text;
    EXPECT_EQ(Words(address), one.words) << one.text;
  }
}

TEST_F(OmaRequestTest, AMalformedIpv6TextIsNotNoticed) {
  OmaIpAddr address = {};
  EXPECT_EQ(QdtOmaStrToIp("2001:db8::zz", &address), 0);
  EXPECT_EQ(Words(address), "6 00000000 00000000 00000000 00000000");
  address.addr[1] = 0x0A0B0C0D;
  EXPECT_EQ(QdtOmaStrToIp("2001:db8::zz", &address), 0);
  EXPECT_EQ(Words(address), "6 00000000 0d0c0b0a 00000000 00000000");
}

TEST_F(OmaRequestTest, AnAbsentIpLeavesTheDestination) {
  OmaIpAddr address = {99, {1, 2, 3, 4}};
  EXPECT_EQ(QdtOmaParseIp(&request_, "absent", &address), -1);
  request_.texts["source-ip"] = nullptr;
  EXPECT_EQ(QdtOmaParseIp(&request_, "source-ip", &address), -1);
  EXPECT_EQ(Words(address), "99 00000001 00000002 00000003 00000004");
}

}  // namespace
}  // namespace qdt::test
