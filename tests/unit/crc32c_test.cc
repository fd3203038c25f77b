#include "src/om/common/crc32c.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// CRC-32C against published values, which are those of protocols: inverted at the end.
namespace qdt::test {
namespace {

struct Vector {
  const char *name;
  std::string data;
  uint32_t crc;
};

std::string Bytes32(int first, int step) {
  std::string bytes;
  for (int i = 0; i < 32; ++i) bytes += static_cast<char>(first + i * step);
  return bytes;
}

// An iSCSI SCSI Read (10) command PDU.
const std::string kReadPdu(
    "\x01\xC0\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
    "\x14\x00\x00\x00\x00\x00\x04\x00\x00\x00\x00\x14\x00\x00\x00\x18"
    "\x28\x00\x00\x00\x00\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00",
    48);

const std::vector<Vector> &Vectors() {
  static const std::vector<Vector> vectors = {
      {"catalogue check value", "123456789", 0xE3069283},
      {"RFC 3720 B.4, 32 zeros", Bytes32(0, 0), 0x8A9136AA},
      {"RFC 3720 B.4, 32 ones", Bytes32(0xFF, 0), 0x62A8AB43},
      {"RFC 3720 B.4, incrementing", Bytes32(0, 1), 0x46DD794E},
      {"RFC 3720 B.4, decrementing", Bytes32(31, -1), 0x113FDB5C},
      {"RFC 3720 B.4, read PDU", kReadPdu, 0xD9963A56},
      {"nothing", "", 0},
  };
  return vectors;
}

TEST(Crc32cTest, AsThisProcessorComputesIt) {
  for (const Vector &v : Vectors()) EXPECT_EQ(~Crc32c(v.data.data(), v.data.size()), v.crc) << v.name;
}

TEST(Crc32cTest, ByTable) {
  for (const Vector &v : Vectors()) EXPECT_EQ(~Crc32cByTable(v.data.data(), v.data.size()), v.crc) << v.name;
}

TEST(Crc32cTest, BothAgreeOnEveryByteLengthAndAlignment) {
  std::string data;
  for (int i = 0; i < 300; ++i) data += static_cast<char>(i * 37 + i / 7);
  for (size_t start = 0; start < 8; ++start) {
    for (size_t size = 0; size <= 256; ++size) {
      ASSERT_EQ(Crc32c(data.data() + start, size), Crc32cByTable(data.data() + start, size));
    }
  }
  for (int byte = 0; byte < 256; ++byte) {
    const auto one = static_cast<uint8_t>(byte);
    ASSERT_EQ(Crc32c(&one, 1), Crc32cByTable(&one, 1));
  }
}

}  // namespace
}  // namespace qdt::test
