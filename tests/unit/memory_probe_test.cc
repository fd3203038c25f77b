#include "src/om/common/memory_probe.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/kernel_calls.h"

// Reading and writing at addresses that may lead nowhere.
namespace qdt::test {
namespace {

// What the calls are refused with, and whether a query remembers what it has seen.
struct Circumstances {
  int refusal;
  bool scoped;
};

void PrintTo(const Circumstances &c, std::ostream *out) {
  *out << "refusal " << c.refusal << (c.scoped ? ", in a scope" : "");
}

class MemoryProbeTest : public ::testing::TestWithParam<Circumstances> {
 protected:
  void SetUp() override {
    KernelCalls::refusal = GetParam().refusal;
    if (GetParam().scoped) scope_.emplace();
    const int protection = PROT_READ | PROT_WRITE;
    pages_ = static_cast<char *>(mmap(nullptr, 4 * kPage, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages_, MAP_FAILED);
    for (size_t i = 0; i < 2 * kPage; ++i) pages_[i] = static_cast<char>(i * 7 + i / 251);
    ASSERT_EQ(munmap(pages_ + 2 * kPage, kPage), 0);
    ASSERT_EQ(mprotect(pages_ + 3 * kPage, kPage, PROT_NONE), 0);
  }
  void TearDown() override {
    KernelCalls::refusal = 0;
    munmap(pages_, 2 * kPage);
    munmap(pages_ + 3 * kPage, kPage);
  }

  static bool Read(const void *address, std::vector<char> &out) {
    return ReadEngineMemory(reinterpret_cast<uint64_t>(address), out.data(), out.size());
  }

  static const size_t kPage;
  std::optional<EngineMemoryScope> scope_;
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

TEST_P(MemoryProbeTest, WritesNeitherMoreNorLess) {
  for (const size_t size : {1, 2, 3, 4, 5, 7, 8, 9, 16, 17, 600}) {
    for (const size_t shift : {0, 1, 2, 4, 7}) {
      std::memset(pages_, '-', 700);
      std::string expected(700, '-');
      expected.replace(8 + shift, size, size, 'w');
      const std::string from(size, 'w');
      ASSERT_TRUE(WriteEngineMemory(reinterpret_cast<uint64_t>(pages_) + 8 + shift, from.data(), size));
      EXPECT_EQ(std::string(pages_, 700), expected) << size << " at " << shift;
      expected.replace(8 + shift, size, size, '\0');
      ASSERT_TRUE(ClearEngineMemory(reinterpret_cast<uint64_t>(pages_) + 8 + shift, size));
      EXPECT_EQ(std::string(pages_, 700), expected) << size << " at " << shift;
    }
  }
}

TEST_P(MemoryProbeTest, WhatCanBeReadNeedNotBeWritable) {
  std::vector<char> out(16);
  ASSERT_EQ(mprotect(pages_, kPage, PROT_READ), 0);
  EXPECT_TRUE(Read(pages_, out));
  EXPECT_FALSE(WriteEngineMemory(reinterpret_cast<uint64_t>(pages_), out.data(), 16));
  EXPECT_FALSE(ClearEngineMemory(reinterpret_cast<uint64_t>(pages_), 16));
  // Nor does a place that may be written vouch for the one in front of it.
  EXPECT_TRUE(WriteEngineMemory(reinterpret_cast<uint64_t>(pages_ + kPage), out.data(), 16));
  EXPECT_FALSE(WriteEngineMemory(reinterpret_cast<uint64_t>(pages_ + kPage - 8), out.data(), 16));
}

TEST_P(MemoryProbeTest, LooksWithoutCopying) {
  const auto address = reinterpret_cast<uint64_t>(pages_);
  for (const size_t size : {size_t{0}, size_t{1}, kPage, 2 * kPage})
    EXPECT_TRUE(IsEngineMemory(address, size));
  EXPECT_FALSE(IsEngineMemory(address, 2 * kPage + 1));
  EXPECT_FALSE(IsEngineMemory(address + 2 * kPage - 1, 2));
  EXPECT_FALSE(IsEngineMemory(address + 3 * kPage, 1));
  EXPECT_FALSE(IsEngineMemory(8, 8));
  EXPECT_FALSE(IsEngineMemory(UINT64_MAX - 3, 8));
}

// The pages of a mapping behind the end of its file may be touched by nobody.
TEST_P(MemoryProbeTest, AFileThatWasCutShort) {
  const int file = memfd_create("cut", 0);
  ASSERT_EQ(ftruncate(file, static_cast<off_t>(6 * kPage)), 0);
  auto *const mapped =
      static_cast<char *>(mmap(nullptr, 6 * kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  ASSERT_NE(mapped, MAP_FAILED);
  mapped[kPage] = 'x';
  ASSERT_EQ(ftruncate(file, static_cast<off_t>(kPage + 100)), 0);
  std::vector<char> out(16);
  EXPECT_TRUE(Read(mapped, out));
  EXPECT_TRUE(Read(mapped + kPage, out));
  EXPECT_EQ(out[0], 'x');
  EXPECT_TRUE(Read(mapped + 2 * kPage - 16, out));
  for (const size_t at : {2 * kPage - 8, 2 * kPage, 4 * kPage, 6 * kPage - 16}) {
    EXPECT_FALSE(Read(mapped + at, out)) << at;
    EXPECT_FALSE(WriteEngineMemory(reinterpret_cast<uint64_t>(mapped + at), out.data(), 16)) << at;
  }
  munmap(mapped, 6 * kPage);
  close(file);
}

// What a wild pointer leads to may be memory that a sanitizer watches.
TEST_P(MemoryProbeTest, MemoryThatNobodyOwns) {
  auto block = std::make_unique<char[]>(64);
  const auto address = reinterpret_cast<uint64_t>(block.get());
  block.reset();
  std::vector<char> out(64);
  EXPECT_TRUE(ReadEngineMemory(address, out.data(), out.size()));
}

TEST_P(MemoryProbeTest, KeepsNothingOpen) {
  scope_.reset();
  std::vector<char> out(16);
  const int before = dup(STDERR_FILENO);
  close(before);
  {
    std::optional<EngineMemoryScope> scope;
    if (GetParam().scoped) scope.emplace();
    for (size_t at = 0; at < 2 * kPage; at += kPage) EXPECT_TRUE(Read(pages_ + at, out));
    EXPECT_FALSE(Read(pages_ + 2 * kPage, out));
  }
  const int after = dup(STDERR_FILENO);
  close(after);
  EXPECT_EQ(after, before);
}

// What is known of a page says nothing about those around it, wherever the page lies.
TEST(MemoryProbe, APageVouchesForNoOther) {
  constexpr size_t kPages = 256;
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto *const pages = static_cast<char *>(
      mmap(nullptr, kPages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(pages, MAP_FAILED);
  for (size_t i = 1; i < kPages; i += 2) ASSERT_EQ(munmap(pages + i * page, page), 0);
  const EngineMemoryScope scope;
  const auto isThere = [&](size_t number) {
    char byte;
    return ReadEngineMemory(reinterpret_cast<uint64_t>(pages + number * page), &byte, 1);
  };
  for (size_t i = 0; i < kPages; i += 2) EXPECT_TRUE(isThere(i)) << i;
  for (size_t i = 1; i < kPages; i += 2) EXPECT_FALSE(isThere(i)) << i;
  for (size_t i = 0; i < kPages; i += 2) munmap(pages + i * page, page);
}

// To ask about a page of a file with holes takes storage.
TEST(MemoryProbe, AsksAboutNoPageForNothing) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const int file = memfd_create("holes", 0);
  ASSERT_EQ(ftruncate(file, static_cast<off_t>(64 * page)), 0);
  auto *const pages = static_cast<char *>(mmap(nullptr, 64 * page, PROT_READ, MAP_SHARED, file, 0));
  ASSERT_NE(pages, MAP_FAILED);
  const EngineMemoryScope scope;
  for (const size_t number : {0, 10, 20, 30}) {
    char byte;
    EXPECT_TRUE(ReadEngineMemory(reinterpret_cast<uint64_t>(pages + number * page), &byte, 1)) << number;
  }
  struct stat status {};
  ASSERT_EQ(fstat(file, &status), 0);
  EXPECT_EQ(static_cast<size_t>(status.st_blocks) * 512, 4 * page);
  munmap(pages, 64 * page);
  close(file);
}

// A process that has closed its standard input gets 0 as the next descriptor.
TEST(PipeTest, DescriptorZeroIsOneLikeOthers) {
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  const auto nextFree = [] {
    const int next = dup(STDERR_FILENO);
    close(next);
    return next;
  };
  ASSERT_EQ(nextFree(), 0);
  {
    Pipe pipe;
    ASSERT_TRUE(pipe.Open());
    const int next = nextFree();
    EXPECT_GT(next, 0);
    EXPECT_TRUE(pipe.Open());
    EXPECT_EQ(nextFree(), next) << "it is open already";
  }
  EXPECT_EQ(nextFree(), 0);
  if (input < 0) return;
  dup2(input, STDIN_FILENO);
  close(input);
}

INSTANTIATE_TEST_SUITE_P(Calls, MemoryProbeTest,
                         ::testing::Values(Circumstances{0, false}, Circumstances{ENOSYS, false},
                                           Circumstances{EPERM, false}, Circumstances{0, true},
                                           Circumstances{ENOSYS, true}, Circumstances{EPERM, true}));

TEST(MemoryProbe, OtherRefusalsAreAnswers) {
  uint64_t value = 42, out = 0;
  for (const int refusal : {EFAULT, ENOMEM}) {
    KernelCalls::refusal = refusal;
    EXPECT_FALSE(ReadEngineMemory(reinterpret_cast<uint64_t>(&value), &out, sizeof(out)));
    EXPECT_FALSE(IsEngineMemory(reinterpret_cast<uint64_t>(&value), sizeof(value)));
  }
  KernelCalls::refusal = 0;
}

TEST(MemoryProbe, WithoutFilesToOpenTheAddressCountsAsWild) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  uint64_t value = 42, out = 0;
  KernelCalls::refusal = ENOSYS;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_FALSE(ReadEngineMemory(reinterpret_cast<uint64_t>(&value), &out, sizeof(out)));
  EXPECT_FALSE(IsEngineMemory(reinterpret_cast<uint64_t>(&value), sizeof(value)));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(ReadEngineMemory(reinterpret_cast<uint64_t>(&value), &out, sizeof(out)));
  EXPECT_EQ(out, 42u);
  KernelCalls::refusal = 0;
}

// What a query learns.

constexpr size_t kPageSize = 4096;

// Pages of this process; the n-th begins with the number n.
class Pages {
 public:
  explicit Pages(size_t count) : count_(count) {
    memory_ = mmap(nullptr, count * kPageSize, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    EXPECT_NE(memory_, MAP_FAILED);
    for (size_t i = 0; i < count; ++i)
      std::memcpy(static_cast<char *>(memory_) + i * kPageSize, &i, sizeof(i));
  }
  ~Pages() { munmap(memory_, count_ * kPageSize); }

  uint64_t At(size_t page) const { return reinterpret_cast<uint64_t>(memory_) + page * kPageSize; }
  void Protect(size_t page, int protection) const {
    EXPECT_EQ(mprotect(reinterpret_cast<void *>(At(page)), kPageSize, protection), 0);
  }

  // Whether the page can be read; then it must be this page.
  bool Read(size_t page) const {
    size_t number = SIZE_MAX;
    if (!ReadEngineMemory(At(page), &number, sizeof(number))) return false;
    EXPECT_EQ(number, page);
    return true;
  }

 private:
  void *memory_;
  size_t count_;
};

class MemoryScopeTest : public ::testing::Test {
 protected:
  void SetUp() override { KernelCalls::count = 0; }

  // Whether the calls that copy between processes work here; emulators do not have them. Each that is refused
  // is followed by another one.
  static bool AreCallsOffered() {
    char from = 0, to;
    const iovec local = {&to, 1}, remote = {&from, 1};
    return process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == 1;
  }
};

TEST_F(MemoryScopeTest, AsksThePagesAndNotThePointers) {
  const Pages pages(256);
  {
    const EngineMemoryScope scope;
    size_t number;
    for (uint64_t i = 0; i < 65536; ++i)
      ASSERT_TRUE(ReadEngineMemory(pages.At(0) + i * 12345 % 65528 * 16, &number, sizeof(number)));
    EXPECT_LE(KernelCalls::count.load(), 256 + 1);
    KernelCalls::count = 0;
    EXPECT_TRUE(pages.Read(255));
    EXPECT_EQ(KernelCalls::count.load(), 0);
  }
  {
    const EngineMemoryScope scope;
    for (size_t i = 0; i < 256; ++i) EXPECT_TRUE(pages.Read(i));
    EXPECT_GE(KernelCalls::count.load(), 1) << "each scope learns";
    EXPECT_LE(KernelCalls::count.load(), 16) << "and neighbours together";
  }
  KernelCalls::count = 0;
  EXPECT_TRUE(pages.Read(0));
  EXPECT_TRUE(pages.Read(0));
  EXPECT_GE(KernelCalls::count.load(), 2) << "there is no scope any more";
}

TEST_F(MemoryScopeTest, AsksNothingAboutThePageOfARecordThatWasHandedOut) {
  const Pages pages(4);
  pages.Protect(2, PROT_NONE);
  const auto handOut = [&pages](uint64_t at) {
    EngineMemoryScope::NoteDelivered(reinterpret_cast<const void *>(pages.At(0) + at), 192);
  };
  handOut(0);  // without a scope it means nothing
  const EngineMemoryScope scope;
  size_t number;
  EXPECT_FALSE(ReadEngineMemory(0x10, &number, sizeof(number)));
  KernelCalls::count = 0;
  handOut(kPageSize - 8);  // ends in page 1
  EXPECT_TRUE(ReadEngineMemory(pages.At(1) + 184, &number, sizeof(number)));
  EXPECT_EQ(KernelCalls::count.load(), 0);
  EXPECT_FALSE(ReadEngineMemory(pages.At(2) - 4, &number, sizeof(number)));
  EXPECT_FALSE(ReadEngineMemory(pages.At(2), &number, sizeof(number)));
  EXPECT_FALSE(ReadEngineMemory(0x10, &number, sizeof(number)));
  EXPECT_TRUE(pages.Read(0));
  EXPECT_GE(KernelCalls::count.load(), 4);
}

TEST_F(MemoryScopeTest, WritesAskThePagesAsWell) {
  const Pages pages(4);
  const EngineMemoryScope scope;
  for (uint64_t at = 0; at < 4 * kPageSize; at += 8) {
    const uint64_t value = at / kPageSize;
    ASSERT_TRUE(WriteEngineMemory(pages.At(0) + at, &value, sizeof(value)));
  }
  EXPECT_GE(KernelCalls::count.load(), 4);
  EXPECT_LE(KernelCalls::count.load(), 2 * 4);
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(pages.Read(i));
}

TEST_F(MemoryScopeTest, EachLearnsAnew) {
  const Pages pages(8);
  {
    const EngineMemoryScope scope;
    const uint64_t page = 1;
    for (size_t i = 0; i < 8; ++i) EXPECT_TRUE(pages.Read(i));
    EXPECT_TRUE(WriteEngineMemory(pages.At(1), &page, sizeof(page)));
  }
  pages.Protect(3, PROT_NONE);
  pages.Protect(1, PROT_READ);
  {
    const EngineMemoryScope scope;
    const uint64_t page = 1;
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(pages.Read(i), i != 3) << i;
    EXPECT_FALSE(WriteEngineMemory(pages.At(1), &page, sizeof(page)));
    // Nothing is remembered as missing: what is added meanwhile is seen.
    pages.Protect(3, PROT_READ);
    EXPECT_TRUE(pages.Read(3));
  }
}

TEST_F(MemoryScopeTest, HolesBetweenPages) {
  const Pages pages(64);
  for (size_t i = 0; i < 64; i += 5) pages.Protect(i, PROT_NONE);
  const EngineMemoryScope scope;
  for (int round = 0; round < 2; ++round) {
    for (size_t i = 0; i < 64; ++i) EXPECT_EQ(pages.Read(i), i % 5 != 0) << i;
    for (size_t i = 64; i-- > 0;) EXPECT_EQ(pages.Read(i), i % 5 != 0) << i;
  }
}

TEST_F(MemoryScopeTest, MorePagesThanItRemembers) {
  constexpr size_t kPages = 80 * 256;  // of 80 MiB
  const Pages pages(kPages);
  pages.Protect(kPages - 64, PROT_NONE);
  const EngineMemoryScope scope;
  for (int round = 0; round < 3; ++round) {
    for (size_t i = 0; i < kPages; i += 64) EXPECT_EQ(pages.Read(i), i != kPages - 64) << i;
    const uint64_t page = 0;
    EXPECT_TRUE(WriteEngineMemory(pages.At(0), &page, sizeof(page)));
    EXPECT_FALSE(WriteEngineMemory(pages.At(kPages - 64), &page, sizeof(page)));
  }
  EXPECT_LE(KernelCalls::count.load(), 3 * 2 * (80 * 4 + 2)) << "at worst as without a scope";
}

TEST_F(MemoryScopeTest, WithoutDescriptorsItAsksPageByPage) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  const Pages pages(64);
  pages.Protect(7, PROT_NONE);
  const bool offered = AreCallsOffered();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  {
    const EngineMemoryScope scope;
    for (size_t i = 0; i < 64; ++i) EXPECT_EQ(pages.Read(i), offered && i != 7) << i;
  }
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(MemoryScopeTest, AnInnerScopeSharesWhatTheOuterOneKnows) {
  const Pages pages(1);
  const EngineMemoryScope outer;
  EXPECT_TRUE(pages.Read(0));
  KernelCalls::count = 0;
  {
    const EngineMemoryScope inner;
    EXPECT_TRUE(pages.Read(0));
  }
  EXPECT_TRUE(pages.Read(0));
  EXPECT_EQ(KernelCalls::count.load(), 0);
}

TEST_F(MemoryScopeTest, EveryThreadHasItsOwn) {
  const Pages pages(128);
  for (size_t i = 3; i < 128; i += 4) pages.Protect(i, PROT_NONE);
  const EngineMemoryScope scope;
  EXPECT_TRUE(pages.Read(0));
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (size_t start = 0; start < 4; ++start) {
    threads.emplace_back([&pages, &wrong, start] {
      for (int round = 0; round < 50; ++round) {
        const EngineMemoryScope own;
        for (size_t i = 0; i < 128; ++i) {
          const size_t page = (i * 37 + start) % 128;
          size_t number = page;
          wrong += ReadEngineMemory(pages.At(page), &number, sizeof(number)) != (page % 4 != 3);
          wrong += number != page;
        }
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(pages.Read(1));
}

}  // namespace
}  // namespace qdt::test
