#include "src/om/common/mapping.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

// Where the mapping ends that an address belongs to.
namespace qdt::test {
namespace {

const uint64_t kPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));

class MappingTest : public ::testing::Test {
 protected:
  // Twelve pages of addresses for a test to map what it wants over.
  void SetUp() override {
    void *const place = mmap(nullptr, 12 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(place, MAP_FAILED);
    begin_ = reinterpret_cast<uint64_t>(place);
    ASSERT_EQ(munmap(place, 12 * kPage), 0);
  }
  void TearDown() override { munmap(reinterpret_cast<void *>(begin_), 12 * kPage); }

  uint64_t At(uint64_t page) const { return begin_ + page * kPage; }

  // Maps `pages` of a file from its page `offset` on, or nobody's memory when `file` is -1.
  void Map(uint64_t page, uint64_t pages, int file, uint64_t offset,
           int protection = PROT_READ | PROT_WRITE) {
    const int kind = file < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
    ASSERT_NE(mmap(reinterpret_cast<void *>(At(page)), pages * kPage, protection, kind | MAP_FIXED, file,
                   static_cast<off_t>(offset * kPage)),
              MAP_FAILED);
  }

  static int File(const char *name) {
    const int file = memfd_create(name, 0);
    EXPECT_EQ(ftruncate(file, static_cast<off_t>(16 * kPage)), 0);
    return file;
  }

 private:
  uint64_t begin_ = 0;
};

TEST_F(MappingTest, EndsWithItsFile) {
  const int first = File("a name\nof two lines"), second = File("second");
  Map(0, 3, first, 0);
  Map(3, 2, second, 3);  // begins where the other would go on
  for (const uint64_t at : {At(0), At(0) + 1, At(2), At(3) - 1}) EXPECT_EQ(EndOfMapping(at), At(3));
  EXPECT_EQ(EndOfMapping(At(3)), At(5));
  close(first);
  close(second);
}

TEST_F(MappingTest, GoesOnWhereOtherThingsAreAllowed) {
  const int file = File("parts");
  Map(0, 6, file, 1);
  ASSERT_EQ(mprotect(reinterpret_cast<void *>(At(2)), kPage, PROT_READ), 0);
  ASSERT_EQ(mprotect(reinterpret_cast<void *>(At(4)), kPage, PROT_NONE), 0);
  for (uint64_t page = 0; page < 6; ++page) EXPECT_EQ(EndOfMapping(At(page)), At(6)) << page;
  close(file);
}

TEST_F(MappingTest, AnotherPlaceOfTheFileIsAnotherMapping) {
  const int file = File("twice");
  Map(0, 2, file, 0);
  Map(2, 2, file, 4);
  EXPECT_EQ(EndOfMapping(At(1)), At(2));
  EXPECT_EQ(EndOfMapping(At(2)), At(4));
  close(file);
}

TEST_F(MappingTest, WhereNothingIsItEndsAtOnce) {
  const int file = File("hole");
  Map(0, 2, file, 0);
  Map(3, 1, file, 3);
  EXPECT_EQ(EndOfMapping(At(0)), At(2));
  EXPECT_EQ(EndOfMapping(At(2)), At(2));
  EXPECT_EQ(EndOfMapping(At(2) + 7), At(2) + 7);
  EXPECT_EQ(EndOfMapping(0), 0u);
  EXPECT_EQ(EndOfMapping(8), 8u);
  EXPECT_EQ(EndOfMapping(UINT64_MAX), UINT64_MAX);
  close(file);
}

TEST_F(MappingTest, MemoryWithoutAFile) {
  Map(0, 2, -1, 0);
  ASSERT_EQ(mprotect(reinterpret_cast<void *>(At(1)), kPage, PROT_READ), 0);
  EXPECT_GE(EndOfMapping(At(0)), At(2));
  int here = 0;
  EXPECT_GT(EndOfMapping(reinterpret_cast<uint64_t>(&here)), reinterpret_cast<uint64_t>(&here));
}

// Long lists of mappings, whose lines are cut anywhere by the reading.
TEST_F(MappingTest, ManyMappings) {
  const int file = File("one of many");
  void *const place =
      mmap(nullptr, 400 * kPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(place, MAP_FAILED);
  const auto begin = reinterpret_cast<uint64_t>(place);
  for (uint64_t i = 0; i < 400; i += 2)
    ASSERT_NE(mmap(reinterpret_cast<void *>(begin + i * kPage), kPage, PROT_READ, MAP_SHARED | MAP_FIXED,
                   file, static_cast<off_t>(i % 16 * kPage)),
              MAP_FAILED);
  for (uint64_t i = 0; i < 398; ++i) EXPECT_EQ(EndOfMapping(begin + i * kPage), begin + (i + 1) * kPage) << i;
  munmap(place, 400 * kPage);
  close(file);
}

TEST_F(MappingTest, AListThatCannotBeReadBoundsNothing) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  Map(0, 2, -1, 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(EndOfMapping(At(0)), UINT64_MAX);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_NE(EndOfMapping(At(0)), UINT64_MAX);
}

}  // namespace
}  // namespace qdt::test
