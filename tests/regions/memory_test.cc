#include "platform/memory.h"

#include <sys/mman.h>

#include <cstring>
#include <random>
#include <thread>

#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

class MemoryTest : public ::testing::Test {
 protected:
  void SetUp() override { TakeLog(); }
};

void *Take(size_t size) { return malloc_ex(g_mallocHandle, "src/om/test", __LINE__, size); }

TEST_F(MemoryTest, BlocksAreTakenAndFreed) {
  auto *block = static_cast<char *>(Take(100));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
  std::memset(block, 1, 100);
  free_ex(g_mallocHandle, block);
  auto *zeroed = static_cast<char *>(calloc_ex(g_mallocHandle, "src/om/test", __LINE__, 10, 10));
  for (int i = 0; i < 100; ++i) ASSERT_EQ(zeroed[i], 0);
  free_ex(g_mallocHandle, zeroed);
  free_ex(g_mallocHandle, nullptr);
  void *empty = Take(0);
  EXPECT_NE(empty, nullptr);
  free_ex(g_mallocHandle, empty);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{});
}

TEST_F(MemoryTest, WhatDoesNotFitIsNull) {
  volatile size_t half = SIZE_MAX / 2 + 2;
  EXPECT_EQ(calloc_ex(g_mallocHandle, "src/om/test", __LINE__, half, 2), nullptr);
}

TEST_F(MemoryTest, ForeignPointersAreLoggedAndIgnored) {
  static const char kText[] = "egn help";
  void *unreadable = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  int local = 0;
  for (const void *foreign : {static_cast<const void *>(kText), static_cast<const void *>(&local),
                              static_cast<const void *>(unreadable), reinterpret_cast<const void *>(1)}) {
    free_ex(g_mallocHandle, const_cast<void *>(foreign));
    char expected[100];
    std::snprintf(expected, sizeof(expected), "3 free_ex: %p was not allocated here and is left alone\n",
                  foreign);
    EXPECT_EQ(TakeLog(), std::vector<std::string>{expected});
  }
  munmap(unreadable, 4096);
}

TEST_F(MemoryTest, SecondFreeIsForeign) {
  void *block = Take(10);
  void *inside = static_cast<char *>(block) + 1;
  free_ex(g_mallocHandle, inside);
  EXPECT_EQ(TakeLog().size(), 1u);
  free_ex(g_mallocHandle, block);
  EXPECT_EQ(TakeLog().size(), 0u);
  free_ex(g_mallocHandle, block);
  EXPECT_EQ(TakeLog().size(), 1u);
}

TEST_F(MemoryTest, ManyBlocksInAnyOrder) {
  std::mt19937 random(1);
  std::vector<void *> blocks;
  for (int i = 0; i < 20000; ++i) {
    if (random() % 3 != 0 || blocks.empty()) {
      blocks.push_back(Take(random() % 64));
    } else {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      free_ex(g_mallocHandle, blocks.back());
      blocks.pop_back();
    }
  }
  for (void *block : blocks) free_ex(g_mallocHandle, block);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{});
}

TEST_F(MemoryTest, ThreadsShareTheAllocator) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 5000; ++i) {
        void *first = Take(16);
        void *second = Take(16);
        free_ex(g_mallocHandle, first);
        free_ex(g_mallocHandle, second);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(TakeLog(), std::vector<std::string>{});
}

}  // namespace
}  // namespace qdt::host
