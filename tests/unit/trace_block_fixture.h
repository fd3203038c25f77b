#ifndef TESTS_UNIT_TRACE_BLOCK_FIXTURE_H_
#define TESTS_UNIT_TRACE_BLOCK_FIXTURE_H_

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "tests/fake_platform/fake_platform.h"

namespace qdt::test {

// A packet-trace block of zeros for what keeps its attachment for the life of the process: it stands in the
// same memory in all tests.
class TraceBlockTest : public PlatformTest {
 protected:
  static constexpr char kRegion[] = "PKT_TRACE_CTX_PTR";
  static constexpr size_t kBlockSize = 224;

  void SetUp() override {
    PlatformTest::SetUp();
    std::memset(&shared_, 0, sizeof(shared_));
    std::memset(shared_.behind, 0xEE, sizeof(shared_.behind));
    platform.lentRegions[kRegion] = shared_.block;
  }

  void TearDown() override {
    for (const uint8_t byte : shared_.behind) EXPECT_EQ(byte, 0xEE) << "written behind the block";
    PlatformTest::TearDown();
  }

  static void *Block() { return shared_.block; }
  static void SetBlock(const Record &record) { std::memcpy(shared_.block, record.data(), kBlockSize); }
  static void ClearBlock() { SetBlock(Record(kBlockSize)); }
  static Bytes BlockBytes() { return {std::begin(shared_.block), std::end(shared_.block)}; }

  // The whole block, and its bytes as a test names them.
  static void ExpectBlock(const Record &expected, const std::string &what = "") {
    for (size_t i = 0; i < kBlockSize; ++i)
      EXPECT_EQ(shared_.block[i], expected.bytes()[i]) << "byte " << i << " " << what;
  }

 private:
  struct Shared {
    alignas(8) uint8_t block[kBlockSize];
    uint8_t behind[32];
  };
  static inline Shared shared_;
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_TRACE_BLOCK_FIXTURE_H_
