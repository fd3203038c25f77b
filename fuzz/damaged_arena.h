#ifndef FUZZ_DAMAGED_ARENA_H_
#define FUZZ_DAMAGED_ARENA_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qdt::fuzz {

// A saved arena of the example site whose words an input changes. The file stays; damage is taken back after
// each input.
class DamagedArena {
 public:
  DamagedArena();

  const std::string &path() const { return path_; }
  // Another file, which nobody damages.
  std::string CopyOfWhole() const;

  // Changes up to `most` words: of each ten bytes of input two choose among the words that are not 0, or that
  // follow one of those, and eight are what it becomes. Returns how many bytes of the input that took.
  size_t Damage(const uint8_t *data, size_t size, size_t most);
  // Writes back what stood there.
  void Mend();

 private:
  uint64_t Exchange(uint64_t offset, uint64_t word);

  std::string path_;
  int fd_;
  std::vector<uint64_t> offsets_;                     // of words worth changing
  std::vector<std::pair<uint64_t, uint64_t>> whole_;  // offset, word
};

}  // namespace qdt::fuzz

#endif  // FUZZ_DAMAGED_ARENA_H_
