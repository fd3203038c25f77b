#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of rate limiters, in byte and in packet mode, and its pieces.
namespace qdt::test {
namespace {

constexpr uint32_t kCar = 54;

class CarTest : public ViewTest {};

// Ticks of the processor's timer in a millisecond.
uint64_t Ticks() {
#if defined(__aarch64__)
  uint64_t frequency;
  asm("mrs %0, cntfrq_el0" : "=r"(frequency));
  return frequency / 1000;
#else
  return 1'000'000;
#endif
}

// The first byte holds the mode in bit 0 and the two offsets in bits 1-2 and 3-4.
Record FullCar(uint8_t flags) {
  return Record(144)
      .U8(0, flags)
      .U8(1, 201)
      .U16(2, 0xEEEE)  // not shown
      .U32(4, static_cast<uint32_t>(-4))
      .U32(8, 2000000008)
      .U32(12, static_cast<uint32_t>(-2000000012))
      .U64(16, 0xEEEEEEEEEEEEEEEE)  // not shown
      .U64(24, 10000000000000000024u)
      .U64(32, 10000000000000000032u)
      .U64(40, 10000000000000000040u)
      .U64(48, 7ull << 32)
      .U64(56, 3000000056ull << 32 | 57)
      .U64(64, 9ull << 32)
      .U64(72, 10000000000000000072u)
      .U64(80, 10000000000000000080u)
      .U64(88, 10000000000000000088u)
      .U32(96, 0xFFFFFFFF)
      .U32(100, 0xFFFFFFFE)
      .U32(104, 1)
      .U32(108, 0xEEEEEEEE)  // not shown
      .U64(112, 9000000000000000112u)
      .U64(120, static_cast<uint64_t>(-120))
      .U64(128, static_cast<uint64_t>(-9000000000000000128))
      .U64(136, 9000000000000000136u);
}

std::string Configuration(const char *mode, const char *cirOffset) {
  return std::string("CarCfg:\n  PktNumOrPktLen     :  ") + mode +
         "\n"
         "  CirOffset          :  " +
         cirOffset +
         "\n"
         "  CarType            :  201\n"
         "  SpinLock.locked    :  -4\n"
         "  SpinLock.pid       :  2000000008\n"
         "  SpinLock.lockId    :  -2000000012\n"
         "  Timestamp          :  10000000000000000024\n"
         "  Tc                 :  10000000000000000032\n"
         "  TpTe               :  10000000000000000040\n"
         "  Cir                :  30064771072\n"
         "  Cbs                :  12884902128518168633\n"
         "  Pir                :  38654705664\n"
         "  PbsEbs             :  10000000000000000072\n";
}

std::string UserLimits() {
  return "  CtrlCir            :  " + std::to_string(7 * Ticks()) +
         "\n"
         "  CtrlCbs            :  10000000000000000080\n"
         "  CtrlPir            :  " +
         std::to_string(9 * Ticks()) +
         "\n"
         "  CtrlPbsEbs         :  10000000000000000088\n"
         "  CirOffset          :  2\n"
         "  PirOffset          :  3\n";
}

const std::string kPacketLimit = "  Pps                :  3000000056\n";
const std::string kAction =
    "CarAction:\n"
    "  GreenActionPermit  :  1\n"
    "  YellowActionPermit :  0\n"
    "  RedActionPermit    :  1\n";
const std::string kStatistics =
    "CarStat:\n"
    "  PassStatPkt        :  9000000000000000112\n"
    "  PassStatByte       :  -120\n"
    "  DropStatPkt        :  -9000000000000000128\n"
    "  DropStatByte       :  9000000000000000136\n";

constexpr uint8_t kByteMode = 0b11111100;    // offsets 2 and 3, and bits that are the engine's own
constexpr uint8_t kPacketMode = 0b11110011;  // offsets 1 and 2

TEST_F(CarTest, ByteModeWholeAnswer) {
  platform.AddEntry(kCar, Key(uint32_t{70000}), FullCar(kByteMode).bytes());
  const std::string answer = Framed(Configuration("0", "2") + UserLimits() + kAction + kStatistics);
  for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query("31", key1, "70000"), answer);
  EXPECT_EQ(Query("31", "0", "70001"), "search result not found");
  EXPECT_TRUE(platform.walks.empty());
  ExpectFindsOne(NqeTableSearchCar, kCar, FullCar(kByteMode), "search 54 70110100", "x", 70000);
}

TEST_F(CarTest, PacketModeWholeAnswer) {
  platform.AddEntry(kCar, Key(uint32_t{5}), FullCar(kPacketMode).bytes());
  EXPECT_EQ(Query("31", "0", "5"), Framed(Configuration("1", "1") + kPacketLimit + kAction + kStatistics));
}

TEST_F(CarTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatCar, 144);
  ExpectBoundedByRoom(NqeTableFormatCar, FullCar(kByteMode));
  ExpectBoundedByRoom(NqeTableFormatCar, FullCar(kPacketMode));
}

std::string PieceText(const Record &car, int32_t (*piece)(char *, uint32_t, uint32_t, const void *)) {
  char area[1000];
  EXPECT_GT(piece(area, sizeof(area), 0, car.data()), 0);
  return area;
}

std::string Limits(uint64_t cir, uint64_t pir, const std::string &offsets = "") {
  return "  CtrlCir            :  " + std::to_string(cir) +
         "\n  CtrlCbs            :  0\n  CtrlPir            :  " + std::to_string(pir) +
         "\n  CtrlPbsEbs         :  0\n" +
         (offsets.empty() ? "  CirOffset          :  0\n  PirOffset          :  0\n" : offsets);
}

TEST_F(CarTest, RatesAreInUnitsAMillisecond) {
  const auto limits = [](uint64_t cir, uint64_t pir) {
    return PieceText(Record(144).U64(48, cir).U64(64, pir), NqeTableFormatUsrCarCfg);
  };
  EXPECT_EQ(limits(1ull << 32, 0), Limits(Ticks(), 0));
  EXPECT_EQ(limits(0, 1ull << 32), Limits(0, Ticks()));
  EXPECT_EQ(limits(1ull << 31, 3ull << 31), Limits(Ticks() / 2, 3 * Ticks() / 2));
  // A product above 64 bits wraps: this one to 2^64 - Ticks.
  EXPECT_EQ(limits(UINT64_MAX, UINT64_MAX), Limits(4294967295, 4294967295));
#if !defined(__aarch64__)
  EXPECT_EQ(limits(1ull << 32, 2ull << 32), Limits(1000000, 2000000));
  // The fraction is cut off: 4294 and 4295 millionths of 2^32 lie around one unit.
  EXPECT_EQ(limits(4294, 4295), Limits(0, 1));
  // 18446744073709 * 1000000 is the last product below 2^64; the next one wraps.
  EXPECT_EQ(limits(18446744073709, 18446744073710), Limits(4294967295, 0));
#endif
}

TEST_F(CarTest, EachOffsetBitAlone) {
  const auto limits = [](uint8_t flags) {
    return PieceText(Record(144).U8(0, flags), NqeTableFormatUsrCarCfg);
  };
  EXPECT_EQ(limits(0b00010), Limits(0, 0, "  CirOffset          :  1\n  PirOffset          :  0\n"));
  EXPECT_EQ(limits(0b00100), Limits(0, 0, "  CirOffset          :  2\n  PirOffset          :  0\n"));
  EXPECT_EQ(limits(0b01000), Limits(0, 0, "  CirOffset          :  0\n  PirOffset          :  1\n"));
  EXPECT_EQ(limits(0b10000), Limits(0, 0, "  CirOffset          :  0\n  PirOffset          :  2\n"));
  EXPECT_EQ(limits(0b11100000), Limits(0, 0));
}

TEST_F(CarTest, EachPermitAlone) {
  const auto action = [](size_t offset, uint32_t word) {
    return PieceText(Record(144).U32(offset, word), NqeTableFormatCarAction);
  };
  const std::string none =
      "CarAction:\n  GreenActionPermit  :  0\n  YellowActionPermit :  0\n  RedActionPermit    :  0\n";
  EXPECT_EQ(action(96, 1),
            "CarAction:\n  GreenActionPermit  :  1\n  YellowActionPermit :  0\n  RedActionPermit    :  0\n");
  EXPECT_EQ(action(100, 1),
            "CarAction:\n  GreenActionPermit  :  0\n  YellowActionPermit :  1\n  RedActionPermit    :  0\n");
  EXPECT_EQ(action(104, 1),
            "CarAction:\n  GreenActionPermit  :  0\n  YellowActionPermit :  0\n  RedActionPermit    :  1\n");
  for (const size_t offset : {96, 100, 104}) EXPECT_EQ(action(offset, ~1u), none);
}

TEST_F(CarTest, PiecesByThemselves) {
  const Record record = FullCar(kByteMode);  // the mode chooses nothing here
  ExpectWritesAt(NqeTableFormatCarCfg, record, Configuration("0", "2"));
  ExpectWritesAt(NqeTableFormatUsrCarCfg, record, UserLimits());
  ExpectWritesAt(NqeTableFormatCpcarCfg, record, kPacketLimit);
  ExpectWritesAt(NqeTableFormatCarAction, record, kAction);
  ExpectWritesAt(NqeTableFormatCarStat, record, kStatistics);
}

}  // namespace
}  // namespace qdt::test
