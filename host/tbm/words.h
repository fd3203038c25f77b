#ifndef HOST_TBM_WORDS_H_
#define HOST_TBM_WORDS_H_

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/arena/table_layout.h"

// Keys and records are copied word by word. A reader may meet the writer in the middle of one and finds that
// out afterwards, by the slot's serial and version: every word is stored with release and loaded with
// acquire, so that who has seen a word sees what the writer had said about it before.
namespace qdt::host::tbm {

inline uint64_t LoadWord(const uint64_t *word) {
  return std::atomic_ref<uint64_t>(*const_cast<uint64_t *>(word)).load(std::memory_order_acquire);
}

inline void StoreWord(uint64_t *to, uint64_t word) {
  std::atomic_ref<uint64_t>(*to).store(word, std::memory_order_release);
}

// The first `size` bytes at `from`, at most a word, filled up with zeros.
inline uint64_t PartOfWord(const char *from, size_t size) {
  uint64_t word = 0;
  if (size >= kWord) {
    std::memcpy(&word, from, kWord);
    return word;
  }
  for (size_t at = 0; at < size;) {
    const size_t piece = size - at >= 4 ? 4 : size - at >= 2 ? 2 : 1;
    uint32_t part = 0;
    if (piece == 4) std::memcpy(&part, from + at, 4);
    if (piece == 2) std::memcpy(&part, from + at, 2);
    if (piece == 1) std::memcpy(&part, from + at, 1);
    if constexpr (std::endian::native == std::endian::little) {
      word |= uint64_t{part} << (at * 8);
    } else {
      std::memcpy(reinterpret_cast<char *>(&word) + at, from + at, piece);
    }
    at += piece;
  }
  return word;
}

// Fills the last word up with zeros.
inline void StoreWords(uint64_t *to, const void *from, size_t size) {
  const char *at = static_cast<const char *>(from);
  for (; size >= kWord; ++to, at += kWord, size -= kWord) StoreWord(to, PartOfWord(at, kWord));
  if (size != 0) StoreWord(to, PartOfWord(at, size));
}

inline void LoadWords(void *to, const uint64_t *from, size_t size) {
  char *at = static_cast<char *>(to);
  for (; size >= 4 * kWord; size -= 4 * kWord, at += 4 * kWord, from += 4) {
    const uint64_t a = LoadWord(from), b = LoadWord(from + 1), c = LoadWord(from + 2), d = LoadWord(from + 3);
    std::memcpy(at, &a, kWord);
    std::memcpy(at + kWord, &b, kWord);
    std::memcpy(at + 2 * kWord, &c, kWord);
    std::memcpy(at + 3 * kWord, &d, kWord);
  }
  for (; size >= kWord; size -= kWord, at += kWord, ++from) {
    const uint64_t word = LoadWord(from);
    std::memcpy(at, &word, kWord);
  }
  if (size == 0) return;
  // Parts of known sizes, which are stores and no calls.
  const uint64_t word = LoadWord(from);
  const char *part = reinterpret_cast<const char *>(&word);
  if (size & 4) {
    std::memcpy(at, part, 4);
    at += 4;
    part += 4;
  }
  if (size & 2) {
    std::memcpy(at, part, 2);
    at += 2;
    part += 2;
  }
  if (size & 1) *at = *part;
}

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_WORDS_H_
