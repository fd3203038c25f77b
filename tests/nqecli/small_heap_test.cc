#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>

#include <cstdint>
#include <random>
#include <vector>

// The heap beside the C library's, which the test itself goes on using.
#define malloc small_malloc
#define free small_free
#define calloc small_calloc
#define realloc small_realloc
#define memalign small_memalign
#define aligned_alloc small_aligned_alloc
#define posix_memalign small_posix_memalign
#define malloc_usable_size small_malloc_usable_size
#include "tools/nqecli/small_heap.cc"
#undef malloc
#undef free
#undef calloc
#undef realloc
#undef memalign
#undef aligned_alloc
#undef posix_memalign
#undef malloc_usable_size

namespace {

struct Block {
  uint8_t *bytes;
  size_t size;
  uint8_t mark;
};

Block Marked(void *pointer, size_t size, uint8_t mark) {
  EXPECT_NE(pointer, nullptr);
  EXPECT_GE(small_malloc_usable_size(pointer), size);
  memset(pointer, mark, size);
  return {static_cast<uint8_t *>(pointer), size, mark};
}

bool IsWhole(const Block &block, size_t size) {
  return std::all_of(block.bytes, block.bytes + size, [&](uint8_t byte) { return byte == block.mark; });
}

// Blocks of all sizes come, grow and go; none is ever written to by another one's owner.
TEST(SmallHeapTest, BlocksKeepTheirBytes) {
  std::mt19937 random(1);
  std::vector<Block> blocks;
  for (int step = 0; step < 20'000; ++step) {
    const size_t size = random() % 8 == 0 ? random() % 300'000 : random() % 400;
    const auto mark = static_cast<uint8_t>(random());
    const size_t at = blocks.empty() ? 0 : random() % blocks.size();
    switch (blocks.size() < 40 ? 0 : random() % 4) {
      case 0: {
        const size_t alignment = size_t{1} << random() % 13;
        const bool isPlain = random() % 4 != 0;
        void *pointer = isPlain ? small_malloc(size) : small_memalign(alignment, size);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(pointer) % (isPlain ? 16 : std::max<size_t>(alignment, 16)),
                  0u);
        blocks.push_back(Marked(pointer, size, mark));
        break;
      }
      case 1: {
        Block old = blocks[at];
        old.bytes = static_cast<uint8_t *>(small_realloc(old.bytes, size));
        ASSERT_TRUE(IsWhole(old, std::min(old.size, size)));
        blocks[at] = Marked(old.bytes, size, mark);
        break;
      }
      default:
        ASSERT_TRUE(IsWhole(blocks[at], blocks[at].size));
        small_free(blocks[at].bytes);
        blocks[at] = blocks.back();
        blocks.pop_back();
    }
  }
  for (const Block &block : blocks) {
    EXPECT_TRUE(IsWhole(block, block.size));
    small_free(block.bytes);
  }
}

TEST(SmallHeapTest, WhatComesBackIsUsedAgainAndZeroedWhereThatIsAsked) {
  for (const size_t size : {1u, 40u, 5000u, 100'000u}) {
    void *first = small_malloc(size);
    memset(first, 0xee, size);
    small_free(first);
    auto *second = static_cast<uint8_t *>(small_calloc(1, size));
    EXPECT_EQ(second, first);
    EXPECT_TRUE(std::all_of(second, second + size, [](uint8_t byte) { return byte == 0; })) << size;
    small_free(second);
  }
}

TEST(SmallHeapTest, ImpossibleSizesAreRefused) {
  errno = 0;
  EXPECT_EQ(small_malloc(SIZE_MAX), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(small_calloc(SIZE_MAX / 2, 3), nullptr);
  EXPECT_EQ(small_malloc(size_t{1} << 60), nullptr);
  EXPECT_EQ(small_aligned_alloc(3, 8), nullptr);
  EXPECT_EQ(errno, EINVAL);
  void *pointer = nullptr;
  EXPECT_EQ(small_posix_memalign(&pointer, 4, 8), EINVAL);
  EXPECT_EQ(small_posix_memalign(&pointer, 4096, 8), 0);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 4096, 0u);
  small_free(pointer);
  small_free(nullptr);
}

}  // namespace
