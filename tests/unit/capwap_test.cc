#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of CAPWAP tunnels and of the table that leads arriving packets to them.
namespace qdt::test {
namespace {

constexpr uint32_t kFib = 1, kDecap = 52, kTunnel = 53;

class CapwapTest : public ViewTest {
 protected:
  void *AddRoute(uint32_t networkOrderDestination) {
    return platform.AddEntry(kFib, Key(uint16_t{0}, uint16_t{0}, networkOrderDestination),
                             Record(16).bytes());
  }
};

Record FullTunnel() {
  return Record(112)
      .U8(0, 0b11011001)  // valid, BsAc2AcTnl 6, encrypted; the uppermost bit is the engine's own
      .U8(1, 0xEE)
      .U16(2, 40002)
      .U32(4, 3000000004u)
      .U32(8, 3000000008u)
      .U32(12, 0xC0A80163)
      .U32(16, 0x0A010007)
      .U16(20, 40020)
      .U16(22, 40022)
      .Bits(24, 0, 201)
      .Bits(24, 8, 17)
      .Bits(24, 13, 18)
      .Bits(24, 18, 19)
      .Bits(24, 23, 0b1101010101)  // T, L, M; the upper three bits are not shown
      .Copy(28, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U8(34, 0xEE)
      .U8(35, 9)
      .U32(36, 0xEEEEEEEE)
      .Copy(40, "\xA1\x02\x03\x04\x05\x06\x07\xF8\x99");
}

const std::string kFields =
    "  Valid             :  1\n"
    "  TnlState          :  0\n"
    "  BsAc2AcTnl        :  6\n"
    "  BsServerOrClient  :  0\n"
    "  BsEncryptEn       :  1\n"
    "  TnlMtu            :  40002\n"
    "  TnlIfIndex        :  3000000004\n"
    "  TnlDtlsIndex      :  3000000008\n"
    "  Sip               :  192.168.1.99\n"
    "  Dip               :  10.1.0.7\n"
    "  Sport             :  40020\n"
    "  Dport             :  40022\n"
    "  CwPreamble        :  201\n"
    "  Hlen              :  17\n"
    "  Rid               :  18\n"
    "  Wbid              :  19\n"
    "  Tflag             :  1\n"
    "  Fflag             :  0\n"
    "  Lflag             :  1\n"
    "  Wflag             :  0\n"
    "  Mflag             :  1\n"
    "  Kflag             :  0\n"
    "  Encapsize         :  9\n"
    "  ApMac             :  a0:0b:c1:0d:e2:0f\n";
const std::string kEncapsulation =
    "  CapwapTunnelEncap:\n"
    "   a1 02 03 04  05 06 07 f8\n"
    "   99\n";

TEST_F(CapwapTest, TunnelWholeAnswer) {
  const Record tunnel = FullTunnel().Address(104, AddRoute(0x0700010A));
  platform.AddEntry(kTunnel, Key(uint32_t{70000}), tunnel.bytes());
  const std::string answer = Framed(kFields + kEncapsulation + "  CapwapTunnel-Fast: OK\n");
  for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query("32", key1, "70000"), answer);
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_EQ(platform.searches.front(), "search 53 70110100");
  EXPECT_EQ(platform.searches[1], "match 1 000000000a010007");
  EXPECT_EQ(Query("32", "70000"), "search result not found");
}

TEST_F(CapwapTest, TunnelSearch) {
  platform.AddEntry(kTunnel, Key(uint32_t{70000}), FullTunnel().bytes());
  ExpectFindsOne(NqeTableSearchCapwapTunnel, kTunnel, FullTunnel(), "search 53 70110100", "x", 70000);
}

// One flag or number of the tunnel's words alone: its line, and 0 in all others.
struct Field {
  size_t offset;
  int bit;
  const char *label;
  const char *value;
};

TEST_F(CapwapTest, EachBitAlone) {
  const std::vector<Field> fields = {
      {0, 0, "  Valid             ", "1"},    {0, 1, "  TnlState          ", "1"},
      {0, 2, "  BsAc2AcTnl        ", "1"},    {0, 3, "  BsAc2AcTnl        ", "2"},
      {0, 4, "  BsAc2AcTnl        ", "4"},    {0, 5, "  BsServerOrClient  ", "1"},
      {0, 6, "  BsEncryptEn       ", "1"},    {24, 0, "  CwPreamble        ", "1"},
      {24, 7, "  CwPreamble        ", "128"}, {24, 8, "  Hlen              ", "1"},
      {24, 12, "  Hlen              ", "16"}, {24, 13, "  Rid               ", "1"},
      {24, 17, "  Rid               ", "16"}, {24, 18, "  Wbid              ", "1"},
      {24, 22, "  Wbid              ", "16"}, {24, 23, "  Tflag             ", "1"},
      {24, 24, "  Fflag             ", "1"},  {24, 25, "  Lflag             ", "1"},
      {24, 26, "  Wflag             ", "1"},  {24, 27, "  Mflag             ", "1"},
      {24, 28, "  Kflag             ", "1"},
  };
  const std::string zero = FormatText(NqeTableFormatCapwapTunnel, Record(112));
  for (const Field &field : fields) {
    const std::string label = std::string(field.label) + ":  ";
    std::string expected = zero;
    ASSERT_NE(zero.find(label + "0\n"), std::string::npos) << label;
    expected.replace(zero.find(label), label.size() + 1, label + field.value);
    EXPECT_EQ(FormatText(NqeTableFormatCapwapTunnel, Record(112).Bits(field.offset, field.bit, 1)), expected);
  }
  const Record unshown = Record(112).U16(0, 0xFF80).U32(24, 0xE0000000).U8(34, 0xFF).U32(36, 0xFFFFFFFF);
  EXPECT_EQ(FormatText(NqeTableFormatCapwapTunnel, unshown), zero);
}

TEST_F(CapwapTest, TunnelLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatCapwapTunnel, 112);
  ExpectBoundedByRoom(NqeTableFormatCapwapTunnel, FullTunnel());  // in every piece
}

using Piece = int32_t (*)(char *, uint32_t, const void *);

std::string PieceText(Piece piece, const Record &tunnel) {
  char area[1000];
  const int32_t size = piece(area, sizeof(area), tunnel.data());
  if (size < 0) return "code " + std::to_string(size);
  EXPECT_EQ(std::strlen(area), static_cast<size_t>(size));
  return area;
}

TEST_F(CapwapTest, EncapsulationRows) {
  Record tunnel(112);
  for (int i = 0; i < 64; ++i) tunnel.U8(40 + i, static_cast<uint8_t>(0x40 + i));
  const auto rows = [&](uint8_t size) { return PieceText(NqeTableCapwapEncapFormat, tunnel.U8(35, size)); };
  EXPECT_EQ(rows(0), "  CapwapTunnelEncap:\n");
  EXPECT_EQ(rows(1), "  CapwapTunnelEncap:\n   40\n");
  EXPECT_EQ(rows(4), "  CapwapTunnelEncap:\n   40 41 42 43\n");
  EXPECT_EQ(rows(5), "  CapwapTunnelEncap:\n   40 41 42 43  44\n");
  EXPECT_EQ(rows(8), "  CapwapTunnelEncap:\n   40 41 42 43  44 45 46 47\n");
  EXPECT_EQ(rows(9), "  CapwapTunnelEncap:\n   40 41 42 43  44 45 46 47\n   48\n");
  EXPECT_EQ(rows(64),
            "  CapwapTunnelEncap:\n"
            "   40 41 42 43  44 45 46 47\n"
            "   48 49 4a 4b  4c 4d 4e 4f\n"
            "   50 51 52 53  54 55 56 57\n"
            "   58 59 5a 5b  5c 5d 5e 5f\n"
            "   60 61 62 63  64 65 66 67\n"
            "   68 69 6a 6b  6c 6d 6e 6f\n"
            "   70 71 72 73  74 75 76 77\n"
            "   78 79 7a 7b  7c 7d 7e 7f\n");
}

TEST_F(CapwapTest, TooLongAnEncapsulationFailsTheView) {
  for (const uint8_t size : {65, 128, 255}) {
    EXPECT_EQ(PieceText(NqeTableCapwapEncapFormat, FullTunnel().U8(35, size)), "code -120");
    EXPECT_EQ(FormatText(NqeTableFormatCapwapTunnel, FullTunnel().U8(35, size)), "code -120");
  }
  platform.AddEntry(kTunnel, Key(uint32_t{1}), FullTunnel().U8(35, 65).bytes());
  EXPECT_EQ(Query("32", "0", "1"), "parse data format fail");
}

TEST_F(CapwapTest, FastPath) {
  const auto fast = [](const void *route, uint32_t destination = 0x0A010007) {
    return PieceText(NqeTableCapwapFastFormat, FullTunnel().U32(16, destination).Address(104, route));
  };
  const std::string missing = "  CapwapTunnel-Fast: Error, ret=-7, vpn=0, dip=0x0a010007\n";
  EXPECT_EQ(fast(nullptr), missing);
  void *const route = AddRoute(0x0700010A);
  void *const other = AddRoute(0x0800010A);
  EXPECT_EQ(fast(route), "  CapwapTunnel-Fast: OK\n");
  EXPECT_EQ(fast(other), "  CapwapTunnel-Fast: Error, ret=0, vpn=0, dip=0x0a010007\n");
  EXPECT_EQ(fast(nullptr), "  CapwapTunnel-Fast: Error, ret=0, vpn=0, dip=0x0a010007\n");
  EXPECT_EQ(fast(other, 0x0A010008), "  CapwapTunnel-Fast: OK\n");
  EXPECT_EQ(fast(other, 0), "  CapwapTunnel-Fast: Error, ret=-7, vpn=0, dip=0x00000000\n");
  platform.FailTable(kFib, 5);
  EXPECT_EQ(fast(route), "  CapwapTunnel-Fast: Error, ret=5, vpn=0, dip=0x0a010007\n");
  platform.FailTable(kFib, 0);
  platform.ClearTable(kFib);
  EXPECT_EQ(fast(route), missing);
}

TEST_F(CapwapTest, PiecesByThemselves) {
  struct Case {
    Piece format;
    std::string text;
    uint32_t firstText;  // a room for less than this fails with `code`
    int32_t code;
  };
  const std::string fast = "  CapwapTunnel-Fast: Error, ret=-7, vpn=0, dip=0x0a010007\n";
  const Record tunnel = FullTunnel();
  for (const Case &c :
       {Case{NqeTableCapwapParseFormat, kFields, 0, 0},
        {NqeTableCapwapEncapFormat, kEncapsulation, 20, QDT_TBL_RAW_DATA},
        {NqeTableCapwapFastFormat, fast, static_cast<uint32_t>(fast.size()), QDT_TBL_RAW_DATA}}) {
    EXPECT_EQ(PieceText(c.format, tunnel), c.text);
    for (uint32_t room = 0; room <= c.text.size(); ++room) {
      const auto area = std::make_unique<char[]>(room);
      EXPECT_EQ(c.format(area.get(), room, tunnel.data()), room <= c.firstText && c.code != 0 ? c.code : -120)
          << c.text << room;
    }
    char area[] = "#";
    EXPECT_EQ(c.format(area, 1, nullptr), QDT_TBL_DATA_SIZE);
    EXPECT_STREQ(area, "#");
  }
}

// Decapsulation.

Record Decap() {
  return Record(20)
      .U32(0, 0xC0A80163)
      .U32(4, 0x0A010007)
      .U16(8, 40008)
      .U16(10, 0xEEEE)  // not shown
      .U32(12, 3000000012u)
      .U32(16, 3000000016u);
}

// The ten bytes of the engine's key.
Bytes DecapKey(uint32_t source, uint32_t destination, uint16_t port) {
  return Key(source, destination, port);
}

TEST_F(CapwapTest, DecapWholeAnswer) {
  platform.AddEntry(kDecap, DecapKey(0xC0A80163, 0x0A010007, 5247), Decap().bytes());
  const std::string answer = Framed(
      "  Sip       :  192.168.1.99\n"
      "  Dip       :  10.1.0.7\n"
      "  Port      :  40008\n"
      "  TunnelId  :  3000000012\n"
      "  IfIndex   :  3000000016\n");
  EXPECT_EQ(Query("33", "192.168.1.99:10.1.0.7", "5247"), answer);
  EXPECT_EQ(Query("33", "192.168.1.99:10.1.0.7", "70783"), answer);  // the low 16 bits count
  EXPECT_EQ(Query("33", "192.168.1.99:10.1.0.7", "5246"), "search result not found");
  EXPECT_EQ(Query("33", "10.1.0.7:192.168.1.99", "5247"), "search result not found");
  ExpectFindsOne(NqeTableSearchCapwapDecap, kDecap, Decap(), "search 52 6301a8c00700010a7f14",
                 "192.168.1.99:10.1.0.7", 5247);
}

TEST_F(CapwapTest, DecapKeyTexts) {
  platform.AddEntry(kDecap, DecapKey(0xFFFFFFFF, 0, 1), Decap().bytes());
  for (const char *key1 : {"0", "all", "num5", "", ":", "10.1.0.7", ":10.1.0.7",
                           "10.1.0.7:", "192.168.100.1000:1.1.1.1", "1.1.1.1:192.168.100.1000"}) {
    EXPECT_EQ(Query("33", key1, "1"), "search is not supported") << key1;
  }
  EXPECT_TRUE(platform.searches.empty());
  EXPECT_EQ(platform.log.front(), (LogLine{3, "[ErrCode: -6]not support this input for 0\n"}));
  platform.log.clear();
  // 15 characters fit; what is no address is all ones, as the C library has it.
  EXPECT_EQ(Query("33", "255.255.255.255:0", "1").find("search"), std::string::npos);
  EXPECT_EQ(Query("33", "controller:0.0.0.0", "1").find("search"), std::string::npos);
  EXPECT_EQ(platform.searches, std::vector<std::string>(2, "search 52 ffffffff000000000100"));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(CapwapTest, DecapLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatCapwapDecap, 20);
  ExpectBoundedByRoom(NqeTableFormatCapwapDecap, Decap());
}

}  // namespace
}  // namespace qdt::test
