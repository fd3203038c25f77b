#include <sys/mman.h>

#include <cerrno>
#include <cstdint>

#include "host/arena/arena_layout.h"
#include "tests/host/host_fixture.h"

// Pages of another size than this machine's: the linker leads all calls of the arena that name pages through
// here
// (--wrap), where they are refused or widened as a kernel with such pages does it.

namespace {

// Of the pages that are played; 0: none, calls pass as they are.
uint64_t played = 0;
uint64_t calls = 0;  // that were looked at

bool Misplaced(uint64_t place) {
  if (played == 0) return false;
  ++calls;
  if (place % played == 0) return false;
  errno = EINVAL;
  return true;
}

size_t WholePages(size_t length) { return played == 0 ? length : (length + played - 1) / played * played; }

uint64_t Number(void *address) { return reinterpret_cast<uint64_t>(address); }

}  // namespace

extern "C" {

void *__real_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_munmap(void *address, size_t length);
int __real_mprotect(void *address, size_t length, int protection);
int __real_madvise(void *address, size_t length, int advice);

void *__wrap_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset) {
  const bool fixed = (flags & (MAP_FIXED | MAP_FIXED_NOREPLACE)) != 0;
  if (Misplaced(static_cast<uint64_t>(offset)) || (fixed && Misplaced(Number(address)))) return MAP_FAILED;
  if (fixed || played == 0) return __real_mmap(address, WholePages(length), protection, flags, fd, offset);
  // Anywhere, that is where such a page may begin.
  const size_t whole = WholePages(length);
  void *room =
      __real_mmap(nullptr, whole + played, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (room == MAP_FAILED) return MAP_FAILED;
  char *begin = static_cast<char *>(room);
  char *place = begin + (played - Number(room) % played) % played;
  if (place != begin) __real_munmap(begin, static_cast<size_t>(place - begin));
  if (const size_t rest = played - static_cast<size_t>(place - begin); rest != 0)
    __real_munmap(place + whole, rest);
  return __real_mmap(place, whole, protection, flags | MAP_FIXED, fd, offset);
}

int __wrap_munmap(void *address, size_t length) {
  return Misplaced(Number(address)) ? -1 : __real_munmap(address, WholePages(length));
}

int __wrap_mprotect(void *address, size_t length, int protection) {
  return Misplaced(Number(address)) ? -1 : __real_mprotect(address, WholePages(length), protection);
}

int __wrap_madvise(void *address, size_t length, int advice) {
  return Misplaced(Number(address)) ? -1 : __real_madvise(address, WholePages(length), advice);
}

}  // extern "C"

namespace qdt::host {
namespace {

constexpr uint64_t kSizes[] = {4 << 10, 16 << 10, 64 << 10};

class PageSizeTest : public HostTest, public ::testing::WithParamInterface<uint64_t> {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    played = GetParam();
    calls = 0;
  }
  void TearDown() override {
    Stop();
    played = 0;
    HostTest::TearDown();
  }

  // An engine with an entry in tables of each kind.
  void StartWithEntries() {
    Start();
    for (const uint32_t table : kTables) ASSERT_NE(Add(table, 1, 10 + table), nullptr) << table;
  }

  // Looks all of it up, and uses whatever a client maps in a way of its own.
  static std::string Use(Arena *arena) {
    const uint32_t key = 1;
    for (const uint32_t table : kTables) {
      void *entry = nullptr;
      if (TbmTblSearch(0, table, &key, &entry) != 0) return "no entry in table " + std::to_string(table);
      if (static_cast<Record *>(entry)->id != 10 + table)
        return "wrong entry in table " + std::to_string(table);
      static_cast<Record *>(entry)->body[0] = 99;  // in the process's own copy
    }
    arena->NoteCopies();
    arena->DropCopies();
    void *region = arena->FindRegion("PKT_TRACE_CTX_PTR", nullptr);
    if (region == nullptr) return "no region";
    *static_cast<char *>(region) = 1;
    return "good";
  }

  static constexpr uint32_t kTables[] = {kUniqueTable, kManyTable, kSessionTable};
};

TEST_P(PageSizeTest, WhatIsMappedInAWayOfItsOwnBeginsAtAPage) {
  StartWithEntries();
  const ArenaHeader &header = *engine_->header();
  for (const uint64_t place : {header.base, header.recordsOffset, header.tailOffset, header.totalSize})
    EXPECT_EQ(place % (64 << 10), 0u);
  EXPECT_LT(header.recordsOffset, header.tailOffset);
  EXPECT_LT(header.tailOffset, header.totalSize);
  EXPECT_GT(calls, 0u);
}

TEST_P(PageSizeTest, ClientsWork) {
  StartWithEntries();
  EXPECT_EQ(AsClient([](Arena *client) { return Use(client); }), "good");
  // What the client stored in its copies has reached nobody.
  const uint32_t key = 1;
  void *entry = nullptr;
  ASSERT_EQ(TbmTblSearch(0, kSessionTable, &key, &entry), 0);
  EXPECT_TRUE(static_cast<Record *>(entry)->Whole());
}

TEST_P(PageSizeTest, SnapshotsAreReadWithPagesOfAnySize) {
  StartWithEntries();
  const std::string copy = Snapshot();
  Stop();
  for (const uint64_t size : kSizes) {
    EXPECT_EQ(InChild(nullptr,
                      [&] {
                        played = size;
                        const auto arena = Arena::Attach(copy, Arena::Access::kSnapshot);
                        Arena::SetCurrent(arena.get());
                        return Use(arena.get());
                      }),
              "good")
        << size;
    EXPECT_EQ(InChild(nullptr,
                      [&]() -> std::string {
                        played = size;
                        Arena::Look(copy, Arena::Access::kSnapshot);
                        return "good";
                      }),
              "good")
        << size;
  }
}

// The test finds what it looks for.
TEST_P(PageSizeTest, PagesOfOtherSizesAreRefused) {
  void *const place = mmap(nullptr, 2 * GetParam(), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(place, MAP_FAILED);
  EXPECT_EQ(Number(place) % GetParam(), 0u);
  EXPECT_EQ(mprotect(static_cast<char *>(place) + GetParam() / 2, 8, PROT_NONE), -1);
  EXPECT_EQ(munmap(static_cast<char *>(place) + GetParam() / 2, 8), -1);
  EXPECT_EQ(munmap(place, 2 * GetParam()), 0);
}

INSTANTIATE_TEST_SUITE_P(Pages, PageSizeTest, ::testing::ValuesIn(kSizes),
                         [](const auto &info) { return "Kib" + std::to_string(info.param >> 10); });

}  // namespace
}  // namespace qdt::host
