#ifndef HOST_SCENARIO_KEY_INDEX_H_
#define HOST_SCENARIO_KEY_INDEX_H_

#include <cstdint>
#include <optional>
#include <vector>

namespace qdt::host {

// Finds the entries of a planned table by their keys. It holds numbers of entries only: the keys stand one
// behind the other where the table has them, and each call is told where that is, as they move when the table
// grows.
class KeyIndex {
 public:
  explicit KeyIndex(uint32_t keySize) : keySize_(keySize) {}

  // Adds `count` entries from `first` on. When one of them has the key of another one, gives the latter; from
  // there on nothing is added.
  std::optional<uint32_t> Add(const uint8_t *keys, uint32_t first, uint32_t count);

  std::optional<uint32_t> Find(const uint8_t *keys, const uint8_t *key) const;

 private:
  // Open addressing with linear probing, at most half full.
  struct Place {
    uint32_t hash;
    uint32_t entry;  // from 1 on; 0: free
  };

  uint32_t HashOf(const uint8_t *key) const;
  // The place of the key, or the free one where it belongs.
  size_t PlaceOf(const uint8_t *keys, const uint8_t *key, uint32_t hash) const;
  void Reserve(uint32_t entries);
  void Resize(size_t places);

  uint32_t keySize_;
  uint32_t count_ = 0;
  std::vector<Place> places_;
};

}  // namespace qdt::host

#endif  // HOST_SCENARIO_KEY_INDEX_H_
