#include <string>
#include <vector>

#include "tests/unit/session_fixture.h"

// The diag view of sessions: what it prints of a record.
namespace qdt::test {
namespace {

constexpr char kKeyText[] =
    "Session POS key:\n"
    "  PosSrcIp     :  0x0a000001\n"
    "  PosDstIp     :  0xc0a80002\n"
    "  PosSrcPort   :  60001\n"
    "  PosDstPort   :  8001\n"
    "  PosProtocol  :  206\n"
    "Session NEG key:\n"
    "  NegSrcIp     :  0xc0a80003\n"
    "  NegDstIp     :  0x0a000004\n"
    "  NegSrcPort   :  8002\n"
    "  NegDstPort   :  60002\n"
    "  NegProtocol  :  217\n";
constexpr char kNodeText[] =
    "SessionNode:\n"
    "  Valid      :  1\n"
    "  SessIdx    :  3000000001\n"
    "  TimeStamp  :  3000000002\n"
    "  AgingTime  :  60003\n"
    "  IsIpv6     :  0\n";
constexpr char kHttpsText[] =
    "HttpsSession:\n"
    "  SessIdx   :  3000000011\n"
    "  FwdIfIdx  :  3000000012\n"
    "  DstMac    :  02:00:5e:00:53:0f\n"
    "  SrcMac    :  fe:dc:ba:98:76:54\n"
    "  VlanId    :  60013\n"
    "  EthType   :  60014\n";
constexpr char kNatText[] =
    "NatSession:\n"
    "  SessIdx             :  3000000004\n"
    "  ParentSessionIndex  :  205\n"
    "  ServerMapIndex      :  206\n"
    "  PolicyId            :  1\n"
    "  AgingTime           :  0\n"
    "  PosNewSip           :  0x0b000007\n"
    "  PosNewDip           :  0x0b000008\n"
    "  PosNewSport         :  60009\n"
    "  PosNewDport         :  60010\n"
    "  NegNewSip           :  0x0b00000b\n"
    "  NegNewDip           :  0x0b00000c\n"
    "  NegNewSport         :  60015\n"
    "  NegNewDport         :  60016\n";
constexpr char kIptablesText[] =
    "IptablesSession:\n"
    "  SessIdx             :  3000000021\n"
    "  DstIp               :  0x0c000016\n"
    "  DstPort             :  60023\n"
    "  Rsv1                :  60024\n";

class SessionViewTest : public SessionTest {
 protected:
  // A different value in every field; what is not shown is 0xEE.
  Record Whole() {
    Record record(192);
    for (const auto &[from, to] : {std::pair{20, 28}, {52, 54}, {56, 112}, {128, 152}, {168, 192}}) {
      for (int i = from; i < to; ++i) record.U8(i, 0xEE);
    }
    return record.U32(0, 3000000001)
        .U32(4, 3000000002)
        .U8(8, kValidFlag)
        .U8(9, 0xEE)
        .U16(10, 60003)
        .U32(12, 3000000004)
        .U32(16, 1 << 7)
        .U32(28, 0x0B000007)
        .U32(32, 0x0B000008)
        .U16(36, 60009)
        .U16(38, 60010)
        .U32(40, 0x0B00000B)
        .U32(44, 0x0B00000C)
        .U16(48, 60015)
        .U16(50, 60016)
        .U8(54, 205)
        .U8(55, 206)
        .Address(112, Keep(Ipv4Key(0x0A000001, 0xC0A80002, 60001, 8001, 206, 0xEEEE)))
        .Address(120, Keep(Ipv4Key(0xC0A80003, 0x0A000004, 8002, 60002, 217, 0xEEEE)))
        .Address(152, Keep(Https()))
        .Address(160, Keep(Iptables()));
  }

  static Record Https() {
    return Record(24)
        .U32(0, 3000000011)
        .U32(4, 3000000012)
        .Copy(8, "\xFE\xDC\xBA\x98\x76\x54")
        .Copy(14, std::string_view("\x02\x00\x5E\x00\x53\x0F", 6))
        .U16(20, 60013)
        .U16(22, 60014);
  }

  static Record Iptables() {
    return Record(12).U32(0, 3000000021).U32(4, 0x0C000016).U16(8, 60023).U16(10, 60024);
  }

  static std::string Text(const Record &record) { return FormatText(NqeTableFormatSession, record); }
};

const std::string kWhole = std::string(kKeyText) + kNodeText + kHttpsText + kNatText + kIptablesText + "\n";

TEST_F(SessionViewTest, WholeRecord) { EXPECT_EQ(Text(Whole()), kWhole); }

TEST_F(SessionViewTest, EveryFlagAlone) {
  const std::string none = std::string(
      "SessionNode:\n  Valid      :  0\n  SessIdx    :  0\n  TimeStamp  :  0\n  AgingTime  :  0\n"
      "  IsIpv6     :  0\nNatSession:\n  SessIdx             :  0\n  ParentSessionIndex  :  0\n"
      "  ServerMapIndex      :  0\n  PolicyId            :  0\n  AgingTime           :  0\n"
      "  PosNewSip           :  0x00000000\n  PosNewDip           :  0x00000000\n"
      "  PosNewSport         :  0\n  PosNewDport         :  0\n  NegNewSip           :  0x00000000\n"
      "  NegNewDip           :  0x00000000\n  NegNewSport         :  0\n  NegNewDport         :  0\n\n");
  const auto with = [&](const std::string &line) {
    std::string text = none;
    const size_t at = text.find(line + "0\n");
    EXPECT_NE(at, std::string::npos);
    return text.replace(at, line.size() + 1, line + "1");
  };
  EXPECT_EQ(Text(Record(192)), none);
  for (int bit = 0; bit < 8; ++bit) {
    const std::string expected = bit == 0   ? with("  IsIpv6     :  ")
                                 : bit == 5 ? with("  Valid      :  ")
                                            : none;
    EXPECT_EQ(Text(Record(192).U8(8, static_cast<uint8_t>(1 << bit))), expected) << bit;
  }
  for (int bit = 0; bit < 32; ++bit) {
    const std::string expected = bit == 7   ? with("  PolicyId            :  ")
                                 : bit == 8 ? with("  AgingTime           :  ")
                                            : none;
    EXPECT_EQ(Text(Record(192).Bits(16, bit, 1)), expected) << bit;
  }
}

TEST_F(SessionViewTest, SectionsThatASessionDoesNotHave) {
  const std::string node = kNodeText, nat = kNatText, keys = kKeyText, https = kHttpsText;
  for (const uint64_t nothing : {uint64_t{0}, kWildAddresses[0], kWildAddresses[1]}) {
    EXPECT_EQ(Text(Whole().U64(112, nothing)), node + https + nat + kIptablesText + "\n");
    EXPECT_EQ(Text(Whole().U64(120, nothing)), node + https + nat + kIptablesText + "\n");
    EXPECT_EQ(Text(Whole().U64(152, nothing)), keys + node + nat + kIptablesText + "\n");
    EXPECT_EQ(Text(Whole().U64(160, nothing)), keys + node + https + nat + "\n");
  }
}

TEST_F(SessionViewTest, AnIpv6KeyIsShownAsTheBytesOfAnIpv4Key) {
  const Record ipv6 = Session(Ipv6Key(1, 2, 3, 4, 5)).Address(120, Keep(Ipv6Key(6, 7, 8, 9, 10)));
  const std::string keys =
      "Session POS key:\n"
      "  PosSrcIp     :  0x20010db8\n"
      "  PosDstIp     :  0x00000000\n"
      "  PosSrcPort   :  0\n"
      "  PosDstPort   :  0\n"
      "  PosProtocol  :  1\n"
      "Session NEG key:\n"
      "  NegSrcIp     :  0x20010db8\n"
      "  NegDstIp     :  0x00000000\n"
      "  NegSrcPort   :  0\n"
      "  NegDstPort   :  0\n"
      "  NegProtocol  :  6\n"
      "SessionNode:\n";
  EXPECT_EQ(Text(ipv6).substr(0, keys.size()), keys);
}

TEST_F(SessionViewTest, EachRecordOfAList) {
  const Record one = Whole();
  const std::string bytes(reinterpret_cast<const char *>(one.data()), 192);
  EXPECT_EQ(Text(Record(384).Copy(0, bytes).Copy(192, bytes)), kWhole + kWhole);
  EXPECT_EQ(Text(Record(383).Copy(0, bytes)), kWhole);
  char area[8] = "#";
  for (const int32_t length : {INT32_MIN, -192, -1, 0})
    EXPECT_EQ(NqeTableFormatSession(area, sizeof(area), one.data(), length), QDT_TBL_DATA_SIZE);
  EXPECT_EQ(NqeTableFormatSession(area, sizeof(area), nullptr, 192), QDT_TBL_DATA_SIZE);
  EXPECT_STREQ(area, "#");
}

TEST_F(SessionViewTest, ARoomThatIsTooSmall) {
  const Record record = Whole();
  EXPECT_EQ(NqeTableFormatSession(nullptr, 0, record.data(), 192), -120);  // no section was tried
  const auto length = static_cast<uint32_t>(kWhole.size());
  for (uint32_t room = 1; room <= length + 1; ++room) {
    const auto area = std::make_unique<char[]>(room);  // a sanitizer sees every byte beyond
    const int32_t code = NqeTableFormatSession(area.get(), room, record.data(), 192);
    if (room == length + 1) {
      EXPECT_EQ(code, static_cast<int32_t>(length));
      EXPECT_EQ(area.get(), kWhole);
    } else {
      // The last character is not a section's.
      EXPECT_EQ(code, room == length ? -120 : -1) << room;
    }
  }
}

struct Piece {
  int32_t (*print)(char *, uint32_t, const void *);
  const char *text;
};
constexpr Piece kPieces[] = {{NqeTableParseSessKey, kKeyText},
                             {NqeTableParseSessNode, kNodeText},
                             {NqeTableParseHttpsSess, kHttpsText},
                             {NqeTableParseNatSess, kNatText},
                             {NqeTableParseIptablesSess, kIptablesText}};

TEST_F(SessionViewTest, PiecesAlone) {
  const Record record = Whole();
  for (const Piece &piece : kPieces) {
    const auto length = static_cast<uint32_t>(std::strlen(piece.text));
    for (uint32_t room = 0; room <= length; ++room) {
      const auto area = std::make_unique<char[]>(room);
      EXPECT_EQ(piece.print(area.get(), room, record.data()), -120) << room;
    }
    std::string area(length + 1, '#');
    EXPECT_EQ(piece.print(area.data(), length + 1, record.data()), static_cast<int32_t>(length));
    EXPECT_STREQ(area.c_str(), piece.text);
    EXPECT_EQ(piece.print(area.data(), length + 1, nullptr), QDT_TBL_DATA_SIZE);
  }
}

TEST_F(SessionViewTest, PiecesThatASessionDoesNotHaveAreEmpty) {
  const Record record(192);
  for (const auto print : {NqeTableParseSessKey, NqeTableParseHttpsSess, NqeTableParseIptablesSess}) {
    char area[8] = "#";
    EXPECT_EQ(print(area, sizeof(area), record.data()), 0);
    EXPECT_STREQ(area, "");
  }
}

TEST_F(SessionViewTest, WholeAnswers) {
  EXPECT_EQ(Query("50", "all"), "datasize empty or invalid");
  Add(Whole());
  Add(Whole().U64(120, 0));  // is never shown
  Add(Whole());
  EXPECT_EQ(Query("50", "all"), Framed(kWhole + kWhole));
  EXPECT_EQ(Query("50", "num1"), Framed(kWhole));
  EXPECT_EQ(Query("50", "num100"), Framed(kWhole + kWhole));
  EXPECT_EQ(Query("50", "10.0.0.1:192.168.0.2"), Framed(kWhole + kWhole));
  EXPECT_EQ(Query("50", "10.0.0.1:192.168.0.2", "60001", "8001", "206"), Framed(kWhole + kWhole));
  EXPECT_EQ(Query("50", "sip:10.0.0.1"), Framed(kWhole + kWhole));
  EXPECT_EQ(Query("50", "10.0.0.9:192.168.0.2"), "datasize empty or invalid");
  EXPECT_EQ(Query("50", "num0"), "invalid input param");
  EXPECT_EQ(Query("50", "num101"), "invalid input param");
  EXPECT_EQ(Query("50", "1234567890123456789012345678901"), "parse data format fail");
  platform.FailTable(kSessionTable, -116);
  EXPECT_EQ(Query("50", "all"), "search fail");
}

}  // namespace
}  // namespace qdt::test
