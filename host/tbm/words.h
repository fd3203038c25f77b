#ifndef HOST_TBM_WORDS_H_
#define HOST_TBM_WORDS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/arena/table_layout.h"

// Keys and records are copied word by word with relaxed atomic accesses: a reader may meet the writer in the
// middle of one and finds that out afterwards, by the slot's serial and version.
namespace qdt::host::tbm {

inline uint64_t LoadWord(uint64_t *word) {
  return std::atomic_ref<uint64_t>(*word).load(std::memory_order_relaxed);
}

// Fills the last word up with zeros.
inline void StoreWords(uint64_t *to, const void *from, size_t size) {
  const char *at = static_cast<const char *>(from);
  for (; size != 0; ++to) {
    const size_t part = size < kWord ? size : kWord;
    uint64_t word = 0;
    std::memcpy(&word, at, part);
    std::atomic_ref<uint64_t>(*to).store(word, std::memory_order_relaxed);
    at += part;
    size -= part;
  }
}

inline void LoadWords(void *to, uint64_t *from, size_t size) {
  char *at = static_cast<char *>(to);
  for (; size >= kWord; size -= kWord, at += kWord, ++from) {
    const uint64_t word = LoadWord(from);
    std::memcpy(at, &word, kWord);
  }
  if (size == 0) return;
  const uint64_t word = LoadWord(from);
  std::memcpy(at, &word, size);
}

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_WORDS_H_
