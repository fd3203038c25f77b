#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of the rate limits of traffic to the control plane: by protocol, by session and by port.
namespace qdt::test {
namespace {

constexpr uint32_t kCar = 54, kCpcar = 62, kPortMap = 83, kSession = 84;

class CpcarTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    platform.protocols = {{7, "dhcp-client"}, {300, "capwap-ctrl"}};
  }

  void AddCpcar(uint16_t protocol, uint16_t wireless, const Record &record) {
    platform.AddEntry(kCpcar, Key(protocol, wireless), record.bytes());
  }
};

Record Cpcar(uint16_t protocol, uint16_t wireless, uint32_t carId = 3000000004u) {
  return Record(20)
      .U16(0, protocol)
      .U16(2, wireless)
      .U32(4, carId)
      .U32(8, 3000000008u)
      .U32(12, 2000000012)
      .U32(16, static_cast<uint32_t>(-16));
}

std::string CpcarText(const std::string &protocol, const std::string &name, const std::string &wireless) {
  return "  HostProType     :  " + protocol + "\n  HostProName     :  " + name +
         "\n  Wireless        :  " + wireless +
         "\n"
         "  Priority        :  3000000008\n"
         "  CarId           :  3000000004\n"
         "  TotalCarPassPkt :  2000000012\n"
         "  TotalCarDropPkt :  -16\n\n";
}

TEST_F(CpcarTest, ProtocolByNumber) {
  AddCpcar(300, 1, Cpcar(300, 1));
  EXPECT_EQ(Query("35", "0", "300", "1"), Framed(CpcarText("300", "capwap-ctrl", "1")));
  EXPECT_EQ(Query("35", "0", "300", "0"), "search result not found");
  EXPECT_EQ(Query("35", "0", "65836", "65537"), Framed(CpcarText("300", "capwap-ctrl", "1")));
  EXPECT_EQ(platform.searches,
            (std::vector<std::string>{"search 62 2c010100", "search 62 2c010000", "search 62 2c010100"}));
}

TEST_F(CpcarTest, ProtocolByName) {
  AddCpcar(7, 0, Cpcar(7, 0));
  EXPECT_EQ(Query("35", "dhcp-client"), Framed(CpcarText("7", "dhcp-client", "0")));
  EXPECT_EQ(Query("35", "dhcp-client", "300"), Framed(CpcarText("7", "dhcp-client", "0")));  // key2 is unused
  EXPECT_EQ(Query("35", "capwap-ctrl"), "search result not found");
  platform.searches.clear();
  for (const char *key1 : {"dhcp", "DHCP-CLIENT", "ALL", "", "00"}) {
    EXPECT_EQ(Query("35", key1, "7"), "search fail") << key1;
    EXPECT_EQ(Query("45", key1, "7"), "search fail") << key1;
  }
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(CpcarTest, ProtocolWithoutAName) {
  AddCpcar(65535, 65534, Cpcar(65535, 65534));
  EXPECT_EQ(Query("35", "0", "65535", "65534"), Framed(CpcarText("65535", "", "65534")));
}

TEST_F(CpcarTest, AllProtocols) {
  EXPECT_EQ(Query("35", "all"), "datasize empty or invalid");
  AddCpcar(7, 0, Cpcar(7, 0));
  AddCpcar(7, 1, Cpcar(7, 1));
  AddCpcar(300, 1, Cpcar(300, 1));
  const std::string two = CpcarText("7", "dhcp-client", "0") + CpcarText("7", "dhcp-client", "1");
  EXPECT_EQ(Query("35", "all", "7", "1"), Framed(two + CpcarText("300", "capwap-ctrl", "1")));
  EXPECT_EQ(Query("35", "num2"), Framed(two));
}

TEST_F(CpcarTest, Searches) {
  const std::vector<Record> entries = {Cpcar(7, 0), Cpcar(7, 1), Cpcar(300, 1)};
  for (const Record &entry : entries) platform.AddEntry(kCpcar, entry.bytes(), entry.bytes());
  for (const uint32_t loopNum : {1, 2}) {
    TbmTblTravContextInit(&context);
    EXPECT_EQ(Call(NqeTableSearchCpcarPro, loopNum, "0").record.size(), loopNum * 20);
  }
  EXPECT_EQ(Call(NqeTableSearchCpcarPro, 2, "x"), (Found{0, entries[2].bytes()}));
  platform.FailAllocation(0);
  EXPECT_EQ(Query("35", "all"), "nqecli malloc fail");
  platform.FailWalk(kCpcar, 0, -11);
  EXPECT_EQ(Query("45", "all"), "the search continues,a node is deleted");
}

TEST_F(CpcarTest, KeySearch) {
  AddCpcar(300, 1, Cpcar(300, 1));
  EXPECT_EQ(Call(NqeTableSearchCpcarPro, 0, "0", 300, 1), (Found{0, Cpcar(300, 1).bytes()}));
  EXPECT_EQ(platform.allocations.back().size, 20u);
  platform.FailAllocation(0);
  EXPECT_EQ(Call(NqeTableSearchCpcarPro, 0, "0", 300, 1).code, QDT_TBL_NO_MEMORY);
  platform.FailTable(kCpcar, -116);
  EXPECT_EQ(Query("35", "0", "300", "1"), "search not ready");
}

TEST_F(CpcarTest, ProtocolLengthsAndRoom) {
  ExpectFormatsWhole(NqeTableFormatCpcarPro, Cpcar(7, 1));
  ExpectBoundedByRoom(NqeTableFormatCpcarPro, Cpcar(7, 1));
}

TEST_F(CpcarTest, ProtocolsThatCannotBeCounted) {
  AddCpcar(7, 0, Cpcar(7, 0));
  for (const int32_t code : {-1, -116, 1, 2}) {
    platform.FailCount(kCpcar, code);
    EXPECT_EQ(FormatText(NqeTableFormatCpcarPro, Cpcar(7, 0)), "code -120");
    EXPECT_EQ(FormatText(NqeTableFormatCpcarPps, Cpcar(7, 0)), "code -120");
    EXPECT_EQ(FormatText(NqeTableFormatCpcarPro, Record(19)), "code -119");
    EXPECT_EQ(FormatText(NqeTableFormatCpcarPps, Record(0)), "code -119");
  }
  EXPECT_EQ(Query("35", "0", "7"), "parse data format fail");
}

// Limits in packets a second.

Record Car(uint32_t pps) { return Record(144).U8(0, 1).U64(56, uint64_t{pps} << 32 | 0xFFFFFFFF); }

std::string PpsText(const std::string &protocol, const std::string &name, const std::string &wireless,
                    const std::string &pps) {
  return "  HostProType    :  " + protocol + "\n  HostProName    :  " + name +
         "\n  Wireless       :  " + wireless + "\n  Pps            :  " + pps + "\n\n";
}

TEST_F(CpcarTest, PpsWholeAnswer) {
  platform.AddEntry(kCar, Key(uint32_t{3000000004}), Car(4294967295).bytes());
  platform.AddEntry(kCar, Key(uint32_t{70000}), Car(128).bytes());
  AddCpcar(7, 40001, Cpcar(7, 40001));
  AddCpcar(40000, 1, Cpcar(40000, 1, 70000));
  const std::string first = PpsText("7", "dhcp-client", "40001", "4294967295");
  EXPECT_EQ(Query("45", "all"), Framed(first + PpsText("40000", "", "1", "128")));
  EXPECT_EQ(Query("45", "num1"), Framed(first));
  EXPECT_EQ(Query("45", "dhcp-client", "0", "40001"), Framed(first));
  EXPECT_EQ(Query("45", "0", "7", "40001"), Framed(first));
}

TEST_F(CpcarTest, PpsStopsAtTheFirstMissingCar) {
  platform.AddEntry(kCar, Key(uint32_t{1}), Car(5).bytes());
  AddCpcar(7, 0, Cpcar(7, 0, 1));
  AddCpcar(7, 1, Cpcar(7, 1, 2));
  AddCpcar(7, 2, Cpcar(7, 2, 1));
  EXPECT_EQ(Query("45", "all"), "search result not found");
  EXPECT_EQ(platform.searches, (std::vector<std::string>{"search 54 01000000", "search 54 02000000"}));
  EXPECT_EQ(Query("45", "num1"), Framed(PpsText("7", "dhcp-client", "0", "5")));
  for (const int32_t code : {-1, -3, -116}) {
    platform.FailTable(kCar, code);
    EXPECT_EQ(FormatText(NqeTableFormatCpcarPps, Cpcar(7, 0, 1)), "code " + std::to_string(code));
  }
  platform.FailTable(kCar, 2);
  char area[200];
  EXPECT_EQ(NqeTableFormatCpcarPps(area, sizeof(area), Cpcar(7, 0, 1).data(), 20), 2);
}

TEST_F(CpcarTest, PpsLengthsAndRoom) {
  platform.AddEntry(kCar, Key(uint32_t{3000000004}), Car(4294967295).bytes());
  ExpectFormatsWhole(NqeTableFormatCpcarPps, Cpcar(7, 1));
  ExpectBoundedByRoom(NqeTableFormatCpcarPps, Cpcar(7, 1));
}

// Sessions and ports.

Record Session(uint32_t carId) {
  return Record(24)
      .U32(0, 0xC0A80163)
      .U32(4, 0x0A010007)
      .U16(8, 40008)
      .U16(10, 40010)
      .U32(12, 0xEEEEEE00)  // three bytes not shown
      .U8(12, 212)
      .U32(16, carId)
      .U32(20, 0xEEEEEEEE);
}

std::string SessionText(const std::string &carId) {
  return "  Sip      :  192.168.1.99\n"
         "  Dip      :  10.1.0.7\n"
         "  Sport    :  40008\n"
         "  Dport    :  40010\n"
         "  Protocol :  212\n"
         "  CarId    :  " +
         carId + "\n\n";
}

TEST_F(CpcarTest, SessionWholeTable) {
  EXPECT_EQ(Query("57", "all"), "datasize empty or invalid");
  const std::vector<Record> entries = {Session(0), Session(2000000016), Session(UINT32_MAX)};
  for (uint32_t i = 0; i < 3; ++i) platform.AddEntry(kSession, Key(i), entries[i].bytes());
  const std::string two = SessionText("0") + SessionText("2000000016");
  EXPECT_EQ(Query("57", "all"), Framed(two + SessionText("-1")));
  EXPECT_EQ(Query("57", "num2"), Framed(two));
  EXPECT_EQ(Query("57", "0"), "invalid input param");
  ExpectWalks(NqeTableSearchSessCpcar, kSession, entries, "all");
}

TEST_F(CpcarTest, SessionLengthsAndRoom) {
  ExpectFormatsWhole(NqeTableFormatSessCpcar, Session(1));
  ExpectBoundedByRoom(NqeTableFormatSessCpcar, Session(UINT32_MAX));
}

Record Port(uint16_t port) {
  return Record(8).U16(0, port).U8(2, 202).U8(3, 203).U16(4, 40004).U16(6, 0xEEEE);
}

std::string PortText(const std::string &port) {
  return "  PortId       :  " + port +
         "\n"
         "  Protocol     :  202\n"
         "  isSrc        :  203\n"
         "  hostType     :  40004\n\n";
}

TEST_F(CpcarTest, PortMapWholeTable) {
  EXPECT_EQ(Query("60", "all"), "datasize empty or invalid");
  const std::vector<Record> entries = {Port(0), Port(5246), Port(65535)};
  for (uint32_t i = 0; i < 3; ++i) platform.AddEntry(kPortMap, Key(i), entries[i].bytes());
  EXPECT_EQ(Query("60", "all"), Framed(PortText("0") + PortText("5246") + PortText("65535")));
  EXPECT_EQ(Query("60", "num1"), Framed(PortText("0")));
  EXPECT_EQ(Query("60", "0"), "invalid input param");
  ExpectWalks(NqeTableSearchCpcarPortMap, kPortMap, entries, "all");
}

TEST_F(CpcarTest, PortMapLengthsAndRoom) {
  ExpectFormatsWhole(NqeTableFormatCpcarPortMap, Port(1));
  ExpectBoundedByRoom(NqeTableFormatCpcarPortMap, Port(65535));
}

}  // namespace
}  // namespace qdt::test
