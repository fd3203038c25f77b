#include "src/om/common/memory_probe.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

// Reading and writing at addresses that may lead nowhere.
namespace qdt::test {
namespace {

// What the calls that copy between processes fail with; 0: they work.
int g_refusal = 0;

}  // namespace
}  // namespace qdt::test

// Stand in for the C library's, so that a sandbox which refuses the calls can be played.
extern "C" ssize_t process_vm_writev(pid_t pid, const iovec *local, unsigned long localCount,
                                     const iovec *remote, unsigned long remoteCount, unsigned long flags) {
  if (qdt::test::g_refusal != 0) {
    errno = qdt::test::g_refusal;
    return -1;
  }
  return syscall(SYS_process_vm_writev, pid, local, localCount, remote, remoteCount, flags);
}

extern "C" ssize_t process_vm_readv(pid_t pid, const iovec *local, unsigned long localCount,
                                    const iovec *remote, unsigned long remoteCount, unsigned long flags) {
  if (qdt::test::g_refusal != 0) {
    errno = qdt::test::g_refusal;
    return -1;
  }
  return syscall(SYS_process_vm_readv, pid, local, localCount, remote, remoteCount, flags);
}

namespace qdt::test {
namespace {

// The parameter is what the call is refused with.
class MemoryProbeTest : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    g_refusal = GetParam();
    const int protection = PROT_READ | PROT_WRITE;
    pages_ = static_cast<char *>(mmap(nullptr, 4 * kPage, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages_, MAP_FAILED);
    for (size_t i = 0; i < 2 * kPage; ++i) pages_[i] = static_cast<char>(i * 7 + i / 251);
    ASSERT_EQ(munmap(pages_ + 2 * kPage, kPage), 0);
    ASSERT_EQ(mprotect(pages_ + 3 * kPage, kPage, PROT_NONE), 0);
  }
  void TearDown() override {
    g_refusal = 0;
    munmap(pages_, 2 * kPage);
    munmap(pages_ + 3 * kPage, kPage);
  }

  static bool Read(const void *address, std::vector<char> &out) {
    return ReadEngineMemory(reinterpret_cast<uint64_t>(address), out.data(), out.size());
  }

  static const size_t kPage;
  char *pages_ = nullptr;  // two that hold bytes, a hole, and one that may not be read
};

const size_t MemoryProbeTest::kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

TEST_P(MemoryProbeTest, CopiesWhatIsThere) {
  for (const size_t size : {size_t{1}, size_t{16}, size_t{4096}, size_t{4097}, 2 * kPage}) {
    const char *const from = pages_ + 2 * kPage - size;  // up to the last byte
    std::vector<char> out(size);
    EXPECT_TRUE(Read(from, out)) << size;
    EXPECT_EQ(std::memcmp(out.data(), from, size), 0) << size;
  }
  EXPECT_TRUE(ReadEngineMemory(0, nullptr, 0));
}

TEST_P(MemoryProbeTest, RefusesWhatIsNotThere) {
  std::vector<char> out(16);
  const char *const hole = pages_ + 2 * kPage;
  for (const char *wild : {hole, hole + 100, hole - 1, hole - 15, hole + kPage, hole + kPage + 8}) {
    EXPECT_FALSE(Read(wild, out)) << wild - pages_;
  }
  for (const uint64_t wild :
       {uint64_t{0}, uint64_t{1}, uint64_t{0x8000000000000000}, UINT64_MAX - 15, UINT64_MAX}) {
    EXPECT_FALSE(ReadEngineMemory(wild, out.data(), out.size())) << std::hex << wild;
  }
  std::vector<char> large(2 * kPage);
  EXPECT_FALSE(Read(pages_ + 1, large));  // only its last byte is missing
}

TEST_P(MemoryProbeTest, WritesWhereThatIsAllowed) {
  for (const size_t size : {size_t{2}, size_t{4097}}) {
    const std::vector<char> from(size, 'w');
    char *const to = pages_ + 2 * kPage - size;
    EXPECT_TRUE(WriteEngineMemory(reinterpret_cast<uint64_t>(to), from.data(), size));
    EXPECT_EQ(std::memcmp(to, from.data(), size), 0) << size;
    EXPECT_NE(to[-1], 'w');
  }
}

TEST_P(MemoryProbeTest, RefusesToWriteElsewhere) {
  const uint16_t value = 0x7777;
  ASSERT_EQ(mprotect(pages_, kPage, PROT_READ), 0);
  for (const char *wild : {pages_, pages_ + kPage - 2, pages_ + 2 * kPage, pages_ + 3 * kPage})
    EXPECT_FALSE(WriteEngineMemory(reinterpret_cast<uint64_t>(wild), &value, sizeof(value))) << wild - pages_;
  EXPECT_EQ(pages_[7], 49) << "what may only be read stays";
  for (const uint64_t wild : {uint64_t{0}, uint64_t{0x8000000000000000}, UINT64_MAX - 1})
    EXPECT_FALSE(WriteEngineMemory(wild, &value, sizeof(value))) << std::hex << wild;
}

TEST_P(MemoryProbeTest, KeepsNothingOpen) {
  std::vector<char> out(16);
  const int before = dup(STDERR_FILENO);
  close(before);
  EXPECT_TRUE(Read(pages_, out));
  EXPECT_FALSE(Read(pages_ + 2 * kPage, out));
  const int after = dup(STDERR_FILENO);
  close(after);
  EXPECT_EQ(after, before);
}

INSTANTIATE_TEST_SUITE_P(Calls, MemoryProbeTest, ::testing::Values(0, ENOSYS, EPERM));

TEST(MemoryProbe, OtherRefusalsAreAnswers) {
  uint64_t value = 42, out = 0;
  for (const int refusal : {EFAULT, ENOMEM}) {
    g_refusal = refusal;
    EXPECT_FALSE(ReadEngineMemory(reinterpret_cast<uint64_t>(&value), &out, sizeof(out)));
  }
  g_refusal = 0;
}

TEST(MemoryProbe, WithoutFilesToOpenTheAddressCountsAsWild) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  uint64_t value = 42, out = 0;
  g_refusal = ENOSYS;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_FALSE(ReadEngineMemory(reinterpret_cast<uint64_t>(&value), &out, sizeof(out)));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(ReadEngineMemory(reinterpret_cast<uint64_t>(&value), &out, sizeof(out)));
  EXPECT_EQ(out, 42u);
  g_refusal = 0;
}

}  // namespace
}  // namespace qdt::test
