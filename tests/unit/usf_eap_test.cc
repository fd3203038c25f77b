#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of the EAP exchange log of a station.
namespace qdt::test {
namespace {

constexpr uint32_t kEapLog = 107;
constexpr size_t kCount = 21, kIdentity = 24, kItems = 280, kLastUp = 1560, kLastDown = 1596;

const Bytes kStation = {0xA0, 0x01, 0x02, 0x03, 0x04, 0xF5, 0, 0};

class UsfEapTest : public ViewTest {
 protected:
  // What the view shows behind the identity's label.
  static std::string Identity(const Record &record) {
    const std::string text = FormatText(NqeTableFormatEapLogInfo, record);
    const std::string label = "  Identify            :  ";
    const size_t at = text.find(label) + label.size();
    return text.substr(at, text.find('\n', at) - at);
  }

  static size_t Count(const std::string &text, const std::string &word) {
    size_t count = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++count;
    return count;
  }
};

// The 33 bytes of an extension that are shown count up from `first`.
void FillExtension(Record &record, size_t at, uint8_t first) {
  for (uint8_t i = 0; i < 36; ++i) record.U8(at + i, i < 33 ? first + i : 0xEE);
  record.U16(at + 4, 60000 + first).U16(at + 10, 60001 + first);
  record.U32(at + 12, 4000000000 + first).U32(at + 16, 4000000001 + first).U32(at + 20, 4000000002 + first);
}

// The header and both extensions; no items.
Record Headers() {
  Record record(1632);
  record.Copy(0, "\xA0\x01\x02\x03\x04\xF5")
      .U16(6, 0xEEEE)
      .U32(8, 4000000008)
      .U32(12, 4000000012)
      .U32(16, 4000000016)
      .U8(20, 220)
      .U16(22, 0xEEEE)
      .Copy(kIdentity, "anonymous@example.net");
  FillExtension(record, kLastUp, 100);
  FillExtension(record, kLastDown, 200);
  return record;
}

std::string HeaderText(const std::string &count) {
  return " StaEapLog data:\n"
         "  RadioId             :  4000000008\n"
         "  VapIndex            :  4000000012\n"
         "  AuthId              :  4000000016\n"
         "  AuthStatus          :  220\n"
         "  CurLogNum           :  " +
         count +
         "\n"
         "  Identify            :  anonymous@example.net\n"
         " UpLastEapExt data:\n"
         "  UpCode                :  100\n"
         "  UpId                  :  101\n"
         "  UpType                :  102\n"
         "  UpRsv                 :  103\n"
         "  UpLen                 :  60100\n"
         "  UpSslFlags            :  106\n"
         "  UpIsFragmentErr       :  107\n"
         "  UpIsEncryped          :  108\n"
         "  UpRsv1                :  109\n"
         "  UpTlsV1Offset         :  60101\n"
         "  UpHandshakeOffset     :  4000000100\n"
         "  UpTlsV1Flags          :  4000000101\n"
         "  UpHandshakeFlags      :  4000000102\n"
         "  UpTlsV1Header[0]      :  124\n"
         "  UpTlsV1Header[1]      :  125\n"
         "  UpTlsV1Header[2]      :  126\n"
         "  UpTlsV1Header[3]      :  127\n"
         "  UpTlsV1Header[4]      :  128\n"
         "  UpHandshakeHeader[0]  :  129\n"
         "  UpHandshakeHeader[1]  :  130\n"
         "  UpHandshakeHeader[2]  :  131\n"
         "  UpHandshakeHeader[3]  :  132\n"
         " DownLastEapExt data:\n"
         "  DownCode                :  200\n"
         "  DownId                  :  201\n"
         "  DownType                :  202\n"
         "  DownRsv                 :  203\n"
         "  DownLen                 :  60200\n"
         "  DownSslFlags            :  206\n"
         "  DownIsFragmentErr       :  207\n"
         "  DownIsEncryped          :  208\n"
         "  DownRsv1                :  209\n"
         "  DownTlsV1Offset         :  60201\n"
         "  DownHandshakeOffset     :  4000000200\n"
         "  DownTlsV1Flags          :  4000000201\n"
         "  DownHandshakeFlags      :  4000000202\n"
         "  DownTlsV1Header[0]      :  224\n"
         "  DownTlsV1Header[1]      :  225\n"
         "  DownTlsV1Header[2]      :  226\n"
         "  DownTlsV1Header[3]      :  227\n"
         "  DownTlsV1Header[4]      :  228\n"
         "  DownHandshakeHeader[0]  :  229\n"
         "  DownHandshakeHeader[1]  :  230\n"
         "  DownHandshakeHeader[2]  :  231\n"
         "  DownHandshakeHeader[3]  :  232\n";
}

const std::string kItemTexts =
    " StaEapLog item:\n"
    "  Item            :  0\n"
    "  PktType         :  150\n"
    "  Rsv             :  151\n"
    "  PktSize         :  60152\n"
    "  TimeCost        :  4000000153\n"
    "  EapolType       :  154\n"
    "  EapCode         :  155\n"
    "  EapType         :  156\n"
    "  EapId           :  157\n"
    "  TlsV1Flags      :  4000000158\n"
    "  HandshakeFlags  :  4000000159\n"
    " StaEapLog item:\n"
    "  Item            :  1\n"
    "  PktType         :  0\n"
    "  Rsv             :  0\n"
    "  PktSize         :  0\n"
    "  TimeCost        :  0\n"
    "  EapolType       :  0\n"
    "  EapCode         :  0\n"
    "  EapType         :  0\n"
    "  EapId           :  0\n"
    "  TlsV1Flags      :  0\n"
    "  HandshakeFlags  :  77\n";

Record TwoItems() {
  return Headers()
      .U8(kCount, 2)
      .U8(kItems, 150)
      .U8(kItems + 1, 151)
      .U16(kItems + 2, 60152)
      .U32(kItems + 4, 4000000153)
      .U8(kItems + 8, 154)
      .U8(kItems + 9, 155)
      .U8(kItems + 10, 156)
      .U8(kItems + 11, 157)
      .U32(kItems + 12, 4000000158)
      .U32(kItems + 16, 4000000159)
      .U32(kItems + 20 + 16, 77)
      .U32(kItems + 40, 0xEEEEEEEE);  // behind the count
}

TEST_F(UsfEapTest, WholeAnswer) {
  platform.AddEntry(kEapLog, kStation, TwoItems().bytes());
  EXPECT_EQ(Query("87", "A0:01:02:03:04:F5"), Framed(HeaderText("2") + kItemTexts));
  EXPECT_EQ(Query("87", "a0:01:02:03:04:f6"), "search result not found");
  for (const char *key1 : {"0", "all", "num5", "a0:01:02:03:04"}) {
    EXPECT_EQ(Query("87", key1), "search is not supported") << key1;
  }
  ExpectFindsOne(NqeTableSearchEapLogInfo, kEapLog, TwoItems(), "search 107 a001020304f50000",
                 "a0:01:02:03:04:f5");
}

TEST_F(UsfEapTest, WithoutItems) {
  EXPECT_EQ(FormatText(NqeTableFormatEapLogInfo, Headers()), HeaderText("0"));
}

TEST_F(UsfEapTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatEapLogInfo, 1632);
  ExpectBoundedByRoom(NqeTableFormatEapLogInfo, TwoItems());
}

TEST_F(UsfEapTest, IdentityThatFillsItsField) {
  const std::string most(255, 'i'), all(256, 'i');
  EXPECT_EQ(Identity(Record(1632).Copy(kIdentity, most)), most);
  // The item behind it begins with a printable byte, which is not the identity's.
  EXPECT_EQ(Identity(Record(1632).Copy(kIdentity, all).U8(kCount, 1).U8(kItems, 'x')), all);
  EXPECT_EQ(Identity(Record(1632)), "");
}

// A full log holds 64 items; a larger count is damage.
TEST_F(UsfEapTest, ItemsThatFillTheLog) {
  for (const uint8_t count : {63, 64, 65, 255}) {
    const Record record = Headers().U8(kCount, count).U32(kItems + 63 * 20 + 16, 4000000063);
    const std::string text = FormatText(NqeTableFormatEapLogInfo, record);
    EXPECT_TRUE(text.starts_with(HeaderText(std::to_string(count)))) << text;
    EXPECT_EQ(Count(text, " StaEapLog item:\n"), count < 64 ? 63u : 64u);
    EXPECT_EQ(text.ends_with("  HandshakeFlags  :  4000000063\n"), count >= 64);
    EXPECT_EQ(Count(text, "  Item            :  63\n"), count < 64 ? 0u : 1u);
  }
}

}  // namespace
}  // namespace qdt::test
