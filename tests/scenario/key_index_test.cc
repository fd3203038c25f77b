#include "host/scenario/key_index.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace qdt::host {
namespace {

// Keys of 12 bytes that count up in their last ones, as MAC addresses of one bridge do.
std::vector<uint8_t> CountingKeys(uint32_t count) {
  std::vector<uint8_t> keys(size_t{count} * 12);
  for (uint32_t i = 0; i < count; ++i) {
    uint8_t *key = keys.data() + size_t{i} * 12;
    key[0] = 1;
    key[9] = static_cast<uint8_t>(i >> 16);
    key[10] = static_cast<uint8_t>(i >> 8);
    key[11] = static_cast<uint8_t>(i);
  }
  return keys;
}

TEST(KeyIndexTest, FindsEachOfManyKeysAndNoOther) {
  constexpr uint32_t kCount = 100'000;
  const std::vector<uint8_t> keys = CountingKeys(kCount + 1000);
  KeyIndex index(12);
  EXPECT_EQ(index.Find(keys.data(), keys.data()), std::nullopt);
  EXPECT_EQ(index.Add(keys.data(), 0, 1), std::nullopt);
  EXPECT_EQ(index.Add(keys.data(), 1, 3), std::nullopt);
  EXPECT_EQ(index.Add(keys.data(), 4, kCount - 4), std::nullopt);
  for (uint32_t i = 0; i < kCount; ++i) ASSERT_EQ(index.Find(keys.data(), &keys[size_t{i} * 12]), i);
  for (uint32_t i = kCount; i < kCount + 1000; ++i)
    ASSERT_EQ(index.Find(keys.data(), &keys[size_t{i} * 12]), std::nullopt);
}

TEST(KeyIndexTest, NamesTheEntryThatHasAKeyAlready) {
  for (const uint32_t copied : {0u, 7u, 98u}) {
    std::vector<uint8_t> keys = CountingKeys(100);
    std::memcpy(&keys[size_t{99} * 12], &keys[size_t{copied} * 12], 12);
    KeyIndex all(12), oneByOne(12);
    EXPECT_EQ(all.Add(keys.data(), 0, 100), copied);
    for (uint32_t i = 0; i < 99; ++i) ASSERT_EQ(oneByOne.Add(keys.data(), i, 1), std::nullopt);
    EXPECT_EQ(oneByOne.Add(keys.data(), 99, 1), copied);
  }
}

}  // namespace
}  // namespace qdt::host
