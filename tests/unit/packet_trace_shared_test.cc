#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "tests/unit/packet_trace_fixture.h"

// The packet-trace block is read and written by the engine while the command runs.
namespace qdt::test {
namespace {

// Two pages of which the test protects one.
class PacketTraceSharedTest : public PacketTraceTest {
 protected:
  void SetUp() override {
    PacketTraceTest::SetUp();
    pages_ = mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages_, MAP_FAILED);
  }
  void TearDown() override {
    munmap(pages_, 2 * kPage);
    PacketTraceTest::TearDown();
  }

  static constexpr size_t kPage = 65536;  // of any processor, in whole pages
  void *pages_ = nullptr;
};

// The mask ends one page and the fields begin the next.
TEST_F(PacketTraceSharedTest, TheMaskIsWrittenOnlyWhenABitOfItChanges) {
  struct Case {
    int32_t (*set)(OutputBuffer *, const char *, const char *, void *, void *);
    const char *argument;
    const char *text;
    size_t offset;
    Bytes value;
  };
  const Case cases[] = {
      {PktTraceSetTimeout, "300", "packet trace set timeout ok", 24, {0x2C, 0x01, 0, 0}},
      {PktTraceSetSip, "1.2.3.4", "packet trace set sip ok", 32, {1, 2, 3, 4}},
      {PktTraceSetCapwapFrag, nullptr, "packet trace set capwap fragment ok", 12, {0x40}},
  };
  uint8_t *const block = static_cast<uint8_t *>(pages_) + kPage - 8;
  const uint64_t mask = 1u << 11 | 1u << 14 | 1u << 28 | 1u << 5;
  std::memcpy(block, &mask, sizeof(mask));
  ASSERT_EQ(mprotect(pages_, kPage, PROT_READ), 0);
  for (const Case &one : cases) {
    const std::string text = Capture([&](OutputBuffer *out) {
      EXPECT_EQ(one.set(out, "keyword", one.argument, block, block + 104), 0);  // and is not stopped
    });
    EXPECT_EQ(text, one.text);
    EXPECT_EQ(Bytes(block + one.offset, block + one.offset + one.value.size()), one.value) << one.text;
  }
}

// What the engine changes when the output reaches the protected page.
uint8_t *g_block = nullptr;
void *g_page = nullptr;
size_t g_pageSize = 0;

void ChangeBlock(int) {
  mprotect(g_page, g_pageSize, PROT_READ | PROT_WRITE);
  std::memset(g_block, 0, 104);  // mask and conditions
}

TEST_F(PacketTraceSharedTest, AShowReadsTheBlockOnce) {
  SetBlock(Record(224).U64(0, 0x20).U32(24, 300).U16(88, 80).U16(90, 443));
  ASSERT_EQ(PktTraceAttach(), 0);
  const std::string expected = Capture(PktTraceShow);
  ASSERT_NE(expected.find("\n Timeout                  : 300\n"), expected.npos) << expected;
  ASSERT_NE(expected.find("\n TcpUdpSrcPort            : 80\n"), expected.npos) << expected;

  g_block = static_cast<uint8_t *>(Block());
  g_pageSize = kPage;
  g_page = static_cast<char *>(pages_) + kPage;
  for (const size_t ahead :
       {size_t{1}, size_t{100}, expected.find("Timeout"), expected.find("TcpUdpSrcPort")}) {
    SetBlock(Record(224).U64(0, 0x20).U32(24, 300).U16(88, 80).U16(90, 443));
    ASSERT_EQ(mprotect(g_page, kPage, PROT_NONE), 0);
    struct sigaction change {
    }, before{};
    change.sa_handler = ChangeBlock;
    ASSERT_EQ(sigaction(SIGSEGV, &change, &before), 0);
    OutputBuffer out = {static_cast<char *>(g_page) - ahead, 0};
    PktTraceShow(&out);
    ASSERT_EQ(sigaction(SIGSEGV, &before, nullptr), 0);
    EXPECT_EQ(std::string(out.buf), expected) << ahead;
    EXPECT_EQ(BlockBytes(), Bytes(224)) << "the block was not changed in between";
  }
}

}  // namespace
}  // namespace qdt::test
