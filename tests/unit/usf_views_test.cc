#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of what the engine keeps of wireless users beside their services: statistics ids, addresses, roaming,
// portals and the stations of an access point.
namespace qdt::test {
namespace {

constexpr uint32_t kCtrlIfMap = 11, kStat = 46, kRoam = 47, kRoamStation = 48, kPortalPort = 51, kMacIp = 56,
                   kManager = 70, kProxy = 75, kVapStation = 81;

class UsfViewsTest : public ViewTest {};

// Statistics ids.

Record StatStation() { return Record(8).Copy(0, "\xA0\x0B\xC1\x0D\xE2\x0F").U16(6, 0xEEEE); }

TEST_F(UsfViewsTest, Stat) {
  platform.AddEntry(kStat, Key(uint32_t{70000}), StatStation().bytes());
  for (const char *key1 : {"0", "all", "num5"})
    EXPECT_EQ(Query("29", key1, "70000"), Framed("  StaMac   :  a0:0b:c1:0d:e2:0f\n"));
  EXPECT_EQ(Query("29", "0", "70001"), "search result not found");
  ExpectFindsOne(NqeTableSearchUsfStat, kStat, StatStation(), "search 46 70110100", "0", 70000);
  ExpectOneRecordOnly(NqeTableFormatUsfStat, 8);
  ExpectBoundedByRoom(NqeTableFormatUsfStat, StatStation());
}

// Addresses of stations.

Record Binding() {
  return Record(48)
      .Copy(0, std::string(20, '\xEE'))
      .U8(20, 201)
      .U8(21, 202)
      .Copy(22, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U32(28, 0xCB00714D)
      .Copy(32, {"\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\xAB\xCD\x01\x02", 16});
}

const std::string kBindingText =
    "  IpType     :  201\n"
    "  LearnMode  :  202\n"
    "  MacData    :  a00b-c10d-e20f\n"
    "  Ipv4Data   :  203.0.113.77\n"
    "  Ipv6Data   :  2001:db8::abcd:102\n";

// The key of an address, which stands first in its area, and its type.
Bytes AddressKey(const Bytes &address, uint16_t type) {
  Bytes key(16);
  std::copy(address.begin(), address.end(), key.begin());
  key.push_back(type & 0xFF);
  key.push_back(type >> 8);
  key.resize(20);
  return key;
}

TEST_F(UsfViewsTest, AddressByIpv4) {
  platform.AddEntry(kMacIp, AddressKey({0x07, 0x00, 0x01, 0x0A}, 0), Binding().bytes());
  EXPECT_EQ(Query("30", "10.1.0.7", "0", "7"), Framed(kBindingText));  // the third key counts for MACs only
  EXPECT_EQ(Query("30", "10.1.0.8", "0"), "search result not found");
  EXPECT_EQ(Query("30", "10.1.0.7", "1"), "search result not found");
  ExpectFindsOne(NqeTableSearchUsfMacIp, kMacIp, Binding(),
                 "search 56 0700010a00000000000000000000000000000000", "10.1.0.7", 0, 7);
}

TEST_F(UsfViewsTest, AddressByIpv6) {
  platform.AddEntry(kMacIp, AddressKey({0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD, 1, 2}, 1),
                    Binding().bytes());
  EXPECT_EQ(Query("30", "2001:db8::abcd:102", "1", "7"), Framed(kBindingText));
  EXPECT_EQ(Query("30", "2001:db8::abcd:103", "1"), "search result not found");
  ExpectFindsOne(NqeTableSearchUsfMacIp, kMacIp, Binding(),
                 "search 56 20010db80000000000000000abcd010201000000", "2001:db8::abcd:102", 1, 7);
}

// The third key takes the place of the type, as far as its field goes.
TEST_F(UsfViewsTest, AddressByMac) {
  platform.AddEntry(kMacIp, AddressKey({0xA0, 0x0B, 0xC1, 0x0D, 0xE2, 0x0F}, 7), Binding().bytes());
  EXPECT_EQ(Query("30", "a0:0b:c1:0d:e2:0f", "2", "7"), Framed(kBindingText));
  EXPECT_EQ(Query("30", "a0:0b:c1:0d:e2:0f", "2", "0x50007"), Framed(kBindingText));
  EXPECT_EQ(Query("30", "a0:0b:c1:0d:e2:0f", "2", "2"), "search result not found");
  EXPECT_EQ(Query("30", "a0:0b:c1:0d:e2:0f", "2"), "search result not found");
  ExpectFindsOne(NqeTableSearchUsfMacIp, kMacIp, Binding(),
                 "search 56 a00bc10de20f0000000000000000000007000000", "a0:0b:c1:0d:e2:0f", 2, 7);
}

TEST_F(UsfViewsTest, AddressKeysThatAreNone) {
  platform.AddEntry(kMacIp, AddressKey({0xFF, 0xFF, 0xFF, 0xFF}, 0), Binding().bytes());
  platform.AddEntry(kMacIp, AddressKey({}, 1), Binding().bytes());
  for (const char *key1 : {"all", "num5", "10.1.0.", "2001:db8::1"}) {
    EXPECT_EQ(Query("30", key1, "0"), Framed(kBindingText)) << key1;
  }
  for (const char *key1 : {"all", "0", "10.1.0.7", "2001:db8:::1"}) {
    EXPECT_EQ(Query("30", key1, "1"), Framed(kBindingText)) << key1;
  }
  platform.searches.clear();
  for (const char *key1 : {"all", "0", "10.1.0.7", "a0:0b:c1:0d:e2"}) {
    EXPECT_EQ(Query("30", key1, "2"), "search is not supported") << key1;
  }
  for (const char *key2 : {"3", "0x10000", "0x10001", "0x10002", "4294967295"}) {
    EXPECT_EQ(Query("30", "10.1.0.7", key2), "invalid input param") << key2;
    EXPECT_EQ(Query("30", "x", key2), "invalid input param") << key2;
  }
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(UsfViewsTest, AddressLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatUsfMacIp, 48);
  ExpectBoundedByRoom(NqeTableFormatUsfMacIp, Binding());
}

// Stations that manage the device.

Record Manager() {
  return Record(28)
      .U32(0, 0xEEEEEEEE)
      .Copy(4, "\xA0\x0B\xC1\x0D\xE2\x0F\xB1\x1C\xD2\x1E\xF3\x20")
      .U32(16, 0xCB00714D)
      .U32(20, 4000000020)
      .U32(24, 4000000024);
}

TEST_F(UsfViewsTest, LocalManagementUser) {
  platform.AddEntry(kManager, Key(uint32_t{0x0A010007}), Manager().bytes());
  EXPECT_EQ(Query("38", "10.1.0.7"), Framed("  MngUserIpv4Addr  :  203.0.113.77\n"
                                            "  FwdIfIndex       :  4000000020\n"
                                            "  VlanId           :  4000000024\n"
                                            "  LocalMngSrcMac   :  a0:0b:c1:0d:e2:0f\n"
                                            "  LocalMngDstMac   :  b1:1c:d2:1e:f3:20\n"));
  EXPECT_EQ(Query("38", "7.0.1.10"), "search result not found");
  ExpectFindsOne(NqeTableSearchUsfLocalMngUser, kManager, Manager(), "search 70 0700010a", "10.1.0.7", 5, 6);
  ExpectOneRecordOnly(NqeTableFormatUsfLocalMngUser, 28);
  ExpectBoundedByRoom(NqeTableFormatUsfLocalMngUser, Manager());
}

TEST_F(UsfViewsTest, LocalManagementUserThatIsNoAddress) {
  platform.AddEntry(kManager, Key(uint32_t{0xFFFFFFFF}), Manager().bytes());
  EXPECT_EQ(Query("38", "all").substr(31, 23), "  MngUserIpv4Addr  :  2");
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 70 ffffffff"});
}

// Roaming.

constexpr const char *kMac = "a0:0b:c1:0d:e2:0f";

Record Roaming(uint16_t flags) {
  return Record(32)
      .Copy(0, "\xA0\x0B\xC1\x0D\xE2\x0F\xEE\xEE")
      .U16(8, flags)
      .U16(10, 60010)
      .U32(12, 4000000012)
      .U32(16, 4000000016)
      .Copy(20, std::string(12, '\xEE'));
}

std::string RoamingText(const std::vector<std::string> &flags) {
  return "  RoamRole         :  " + flags[0] + "\n  InterIsolate     :  " + flags[1] +
         "\n  InnerIsolate     :  " + flags[2] + "\n  UserIsolate      :  " + flags[3] +
         "\n  TunnelDstRole    :  " + flags[4] +
         "\n"
         "  UsrGroupId       :  60010\n"
         "  HomeVapFwdif     :  4000000012\n"
         "  TunnelId         :  4000000016\n";
}

TEST_F(UsfViewsTest, Roam) {
  const Record record = Roaming(0b1111111'110'0'1'0'101);
  platform.AddEntry(kRoam, {0xA0, 0x0B, 0xC1, 0x0D, 0xE2, 0x0F, 0, 0}, record.bytes());
  EXPECT_EQ(Query("39", kMac), Framed(RoamingText({"5", "0", "1", "0", "6"})));
  EXPECT_EQ(Query("39", "a0:0b:c1:0d:e2:0e"), "search result not found");
  for (const char *key1 : {"0", "all", "num5"}) EXPECT_EQ(Query("39", key1), "search is not supported");
  ExpectFindsOne(NqeTableSearchUsfRoam, kRoam, record, "search 47 a00bc10de20f0000", kMac, 5, 6);
  ExpectOneRecordOnly(NqeTableFormatUsfRoam, 32);
  ExpectBoundedByRoom(NqeTableFormatUsfRoam, record);
}

TEST_F(UsfViewsTest, EachRoamingBitAlone) {
  const std::vector<std::vector<std::string>> bits = {
      {"1", "0", "0", "0", "0"}, {"2", "0", "0", "0", "0"}, {"4", "0", "0", "0", "0"},
      {"0", "1", "0", "0", "0"}, {"0", "0", "1", "0", "0"}, {"0", "0", "0", "1", "0"},
      {"0", "0", "0", "0", "1"}, {"0", "0", "0", "0", "2"}, {"0", "0", "0", "0", "4"}};
  for (size_t bit = 0; bit < 16; ++bit) {
    EXPECT_EQ(FormatText(NqeTableFormatUsfRoam, Roaming(static_cast<uint16_t>(1u << bit))),
              RoamingText(bit < bits.size() ? bits[bit] : std::vector<std::string>(5, "0")))
        << bit;
  }
}

Record RoamStation(uint16_t vlanId, uint32_t flags) {
  return Record(36)
      .U16(0, vlanId)
      .U16(2, 0xEEEE)
      .U32(4, 0xC0A80164)
      .Copy(8, std::string(12, '\xEE'))
      .Copy(20, "\xA0\x0B\xC1\x0D\xE2\x0F\xB1\x1C\xD2\x1E\xF3\x20")
      .U32(32, flags);
}

std::string RoamStationText(const std::string &vlanId, const std::string &type, const std::string &isolate) {
  return "  VlanId       : " + vlanId + "\n  IPType       : " + type +
         "\n"
         "  UserMac      : a0:0b:c1:0d:e2:0f\n"
         "  HapMac       : b1:1c:d2:1e:f3:20\n"
         "  UserIsolate  : " +
         isolate + "\n\n" + (type == "1" ? "  Ipv4         : 0xc0a80164\n" : "");
}

// The flags above the bit of the type are not its own.
TEST_F(UsfViewsTest, RoamingStations) {
  const std::vector<Record> entries = {RoamStation(60001, 0xFFFFFEC9), RoamStation(0, 0xFFFFFFCA),
                                       RoamStation(60003, 0)};
  const std::vector<std::string> texts = {RoamStationText("60001", "0", "201"),
                                          RoamStationText("0", "1", "202"),
                                          RoamStationText("60003", "0", "0")};
  ExpectLists("40", kRoamStation, NqeTableSearchUsfRoamAp2StaElb, entries, texts);
  for (const Record &entry : entries) {
    ExpectFormatsEach(NqeTableFormatUsfRoamAp2StaElb, entry);
    ExpectBoundedByRoom(NqeTableFormatUsfRoamAp2StaElb, entry);
  }
}

// An address ends the answer where it is shown, and an empty line otherwise.
TEST_F(UsfViewsTest, RoamingStationAtTheEnd) {
  const std::string line(30, '-');
  platform.AddEntry(kRoamStation, Key(uint32_t{1}), RoamStation(1, 0x100).bytes());
  EXPECT_EQ(Query("40", "all"), line +
                                    "\n  VlanId       : 1\n  IPType       : 1\n"
                                    "  UserMac      : a0:0b:c1:0d:e2:0f\n"
                                    "  HapMac       : b1:1c:d2:1e:f3:20\n"
                                    "  UserIsolate  : 0\n\n  Ipv4         : 0xc0a80164\n" +
                                    line);
  platform.ClearTable(kRoamStation);
  platform.AddEntry(kRoamStation, Key(uint32_t{1}), RoamStation(1, 0x200).bytes());
  EXPECT_EQ(Query("40", "all"), line +
                                    "\n  VlanId       : 1\n  IPType       : 0\n"
                                    "  UserMac      : a0:0b:c1:0d:e2:0f\n"
                                    "  HapMac       : b1:1c:d2:1e:f3:20\n"
                                    "  UserIsolate  : 0\n" +
                                    line);
}

// Portal ports.

std::string Ports(uint32_t count) {
  std::string text;
  for (uint32_t i = 0; i < count; ++i) text += "  Port    :  " + std::to_string(4000000000 + i) + "\n";
  return text;
}

TEST_F(UsfViewsTest, PortalPortsAreEightAtMost) {
  for (const char *key1 : {"0", "all", "num2", "num100", "x"}) {
    platform.ClearTable(kPortalPort);
    EXPECT_EQ(Query("41", key1), "datasize empty or invalid") << key1;
    for (uint32_t i = 0; i < 20; ++i) {
      platform.AddEntry(kPortalPort, Key(i), Record(4).U32(0, 4000000000 + i).bytes());
      platform.walks.clear();
      EXPECT_EQ(Query("41", key1), Framed(Ports(i < 8 ? i + 1 : 8))) << key1;
      EXPECT_EQ(platform.walks, std::vector<std::string>{"next 51 32"});
    }
  }
}

TEST_F(UsfViewsTest, PortalPortsInOneBatch) {
  for (uint32_t i = 0; i < 9; ++i) {
    platform.AddEntry(kPortalPort, Key(i), Record(4).U32(0, 0x01020304 * i).bytes());
  }
  Bytes eight;
  for (uint32_t i = 0; i < 8; ++i) {
    const Bytes port = Record(4).U32(0, 0x01020304 * i).bytes();
    eight.insert(eight.end(), port.begin(), port.end());
  }
  for (const uint32_t loopNum : {0, 1, 50}) {
    TbmTblTravContextInit(&context);
    EXPECT_EQ(Call(NqeTableSearchUsfPortalHttpPort, loopNum, "0", 1, 2, 3), (Found{0, eight}));
    EXPECT_EQ(platform.allocations.back().size, 32u);
    EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_usf");
  }
  platform.FailAllocation(0);
  EXPECT_EQ(Call(NqeTableSearchUsfPortalHttpPort, 0, "0").code, QDT_TBL_NO_MEMORY);
  for (const int32_t code : {-11, -115, 2}) {
    platform.FailWalk(kPortalPort, 0, code);
    EXPECT_EQ(Call(NqeTableSearchUsfPortalHttpPort, 0, "0").code, code);
  }
  EXPECT_EQ(Query("41", "0"), "Invalid error code");
}

TEST_F(UsfViewsTest, PortalPortLengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatUsfPortalHttpPort, Record(4).U32(0, 4294967295u));
  ExpectBoundedByRoom(NqeTableFormatUsfPortalHttpPort, Record(4).U32(0, 4294967295u));
}

// Proxy portals.

Record Proxy(const std::string &url) { return Record(208).U16(0, 60000).U16(2, 0xEEEE).Copy(4, url); }

TEST_F(UsfViewsTest, ProxyPortal) {
  const Record record = Proxy("http://portal.example.net/%s?a=1");
  platform.AddEntry(kProxy, Key(uint32_t{70000}), record.bytes());
  for (const char *key1 : {"0", "all", "num5"}) {
    EXPECT_EQ(Query("43", key1, "70000"),
              Framed("  ProxyPort  :  60000\n  Url        :  http://portal.example.net/%s?a=1\n"));
  }
  EXPECT_EQ(Query("43", "0", "70001"), "search result not found");
  ExpectFindsOne(NqeTableSearchProxyPortal, kProxy, record, "search 75 70110100", "0", 70000);
  ExpectOneRecordOnly(NqeTableFormatProxyPortal, 208);
  ExpectBoundedByRoom(NqeTableFormatProxyPortal, record);
}

TEST_F(UsfViewsTest, ProxyPortalTextThatFillsItsField) {
  for (const size_t length : {0, 203, 204}) {
    const std::string url(length, 'u');
    EXPECT_EQ(FormatText(NqeTableFormatProxyPortal, Proxy(url)),
              "  ProxyPort  :  60000\n  Url        :  " + url + "\n");
  }
}

// Stations of an access point.

Record VapStation(uint8_t last) {
  return Record(16).U64(0, ~uint64_t{0}).Copy(8, "\xA0\x0B\xC1\x0D\xE2").U8(13, last).U16(14, 0xEEEE);
}

class VapStationsTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    platform.AddEntry(kCtrlIfMap, Key(uint32_t{70000}), Record(16).U32(4, 0x05060708).bytes());
  }

  void AddStation(uint32_t fwdIfIndex, uint16_t vlanId, const Record &station) {
    platform.AddEntry(kVapStation, Key(fwdIfIndex, vlanId, uint16_t{0}), station.bytes());
  }

  const std::vector<Record> stations = {VapStation(0), VapStation(0x0F), VapStation(0xFF)};
  const std::vector<std::string> texts = {"  StaMac   :  a0:0b:c1:0d:e2:00\n",
                                          "  StaMac   :  a0:0b:c1:0d:e2:0f\n",
                                          "  StaMac   :  a0:0b:c1:0d:e2:ff\n"};
};

TEST_F(VapStationsTest, OfOneVlan) {
  EXPECT_EQ(Query("55", "all", "70000", "258"), "datasize empty or invalid");
  for (const Record &station : stations) {
    AddStation(0x05060708, 257, Record(16));
    AddStation(0x05060709, 258, Record(16));
    AddStation(0x05060708, 258, station);
  }
  platform.walks.clear();
  EXPECT_EQ(Query("55", "all", "70000", "258"), Framed(texts[0] + texts[1] + texts[2]));
  EXPECT_EQ(Query("55", "all", "70000", "0xFFFF0102"), Framed(texts[0] + texts[1] + texts[2]));
  EXPECT_EQ(platform.walks, std::vector<std::string>(2, "by key 81 800 0807060502010000"));
  EXPECT_EQ(Query("55", "num2", "70000", "258"), Framed(texts[0] + texts[1]));
  platform.walks.clear();
  for (const char *key1 : {"0", "ALL", kMac, "num0", "num101"}) {
    EXPECT_EQ(Query("55", key1, "70000", "258"), "invalid input param") << key1;
  }
  EXPECT_TRUE(platform.walks.empty());
  ExpectWalks(NqeTableSearchVap2Sta, kVapStation, stations, "all", 70000, 258);
}

TEST_F(VapStationsTest, InBatches) {
  std::string all;
  for (int i = 0; i < 120; ++i) {
    AddStation(0x05060708, 1, stations[i % 3]);
    all += texts[i % 3];
  }
  EXPECT_EQ(Query("55", "all", "70000", "1"), Framed(all));
  EXPECT_EQ(platform.walks.size(), 3u);
}

// The code of a failed conversion takes the index' place in the key.
TEST_F(VapStationsTest, OfAnUnknownInterface) {
  AddStation(0x05060708, 1, stations[0]);
  EXPECT_EQ(Query("55", "all", "70001", "1"), "datasize empty or invalid");
  EXPECT_EQ(platform.walks, std::vector<std::string>{"by key 81 800 f9ffffff01000000"});
  AddStation(static_cast<uint32_t>(-12), 1, stations[1]);
  platform.FailTable(kCtrlIfMap, -12);
  EXPECT_EQ(Query("55", "all", "70000", "1"), Framed(texts[1]));
}

TEST_F(VapStationsTest, LengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatVap2Sta, stations[1]);
  ExpectBoundedByRoom(NqeTableFormatVap2Sta, stations[1]);
}

}  // namespace
}  // namespace qdt::test
