#ifndef HOST_BASE_MIX_H_
#define HOST_BASE_MIX_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qdt::host {

constexpr uint64_t kMixSeed = 0x9e3779b97f4a7c15;

// One round of the mixing function of sums and hashes, over one 64-bit word. For a fixed word it is
// one-to-one in the state and for a fixed state one-to-one in the word, so a sum over many words always
// changes with any single one of them.
constexpr uint64_t MixWord(uint64_t state, uint64_t word) {
  state = (state ^ word) * 0xff51afd7ed558ccd;
  return state ^ (state >> 32);
}

// Sum of the bytes, 8 at a time, the last word filled up with zeros. Tells damage, not malice.
inline uint64_t MixBytes(const void *bytes, size_t size, uint64_t state = kMixSeed) {
  const char *at = static_cast<const char *>(bytes);
  for (; size >= sizeof(uint64_t); size -= sizeof(uint64_t), at += sizeof(uint64_t)) {
    uint64_t word;
    std::memcpy(&word, at, sizeof(word));
    state = MixWord(state, word);
  }
  uint64_t word = 0;
  if (size != 0) std::memcpy(&word, at, size);
  return MixWord(state, word);
}

}  // namespace qdt::host

#endif  // HOST_BASE_MIX_H_
