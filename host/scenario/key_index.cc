#include "host/scenario/key_index.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "host/base/mix.h"

namespace qdt::host {
namespace {

constexpr size_t kLeastPlaces = 16;
constexpr uint32_t kLookAhead = 16;

}  // namespace

uint32_t KeyIndex::HashOf(const uint8_t *key) const {
  // One round more than a sum takes: keys that count up in their last bytes must not pile up.
  return static_cast<uint32_t>(MixWord(MixBytes(key, keySize_), keySize_) >> 32);
}

size_t KeyIndex::PlaceOf(const uint8_t *keys, const uint8_t *key, uint32_t hash) const {
  const size_t mask = places_.size() - 1;
  size_t at = hash & mask;
  for (; places_[at].entry != 0; at = (at + 1) & mask) {
    const Place &place = places_[at];
    if (place.hash == hash && std::memcmp(keys + size_t{place.entry - 1} * keySize_, key, keySize_) == 0)
      break;
  }
  return at;
}

void KeyIndex::Resize(size_t places) {
  const std::vector<Place> old = std::exchange(places_, std::vector<Place>(places));
  for (const Place &place : old) {
    if (place.entry == 0) continue;
    size_t at = place.hash & (places - 1);
    while (places_[at].entry != 0) at = (at + 1) & (places - 1);
    places_[at] = place;
  }
}

void KeyIndex::Reserve(uint32_t entries) {
  const size_t places = std::bit_ceil(std::max(size_t{entries} * 2, kLeastPlaces));
  if (places > places_.size()) Resize(places);
}

std::optional<uint32_t> KeyIndex::Add(const uint8_t *keys, uint32_t first, uint32_t count) {
  Reserve(count_ + count);
  const auto keyOf = [&](uint32_t entry) { return keys + size_t{entry} * keySize_; };
  // The places of the next entries are on their way from memory while this one is added.
  std::array<uint32_t, kLookAhead> hashes;
  const auto announce = [&](uint32_t i) {
    if (i >= count) return;
    const uint32_t hash = hashes[i % kLookAhead] = HashOf(keyOf(first + i));
    __builtin_prefetch(&places_[hash & (places_.size() - 1)], 1);
  };
  for (uint32_t i = 0; i < kLookAhead; ++i) announce(i);
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t hash = hashes[i % kLookAhead];
    Place &place = places_[PlaceOf(keys, keyOf(first + i), hash)];
    if (place.entry != 0) return place.entry - 1;
    place = {hash, first + i + 1};
    announce(i + kLookAhead);
  }
  count_ += count;
  return std::nullopt;
}

std::optional<uint32_t> KeyIndex::Find(const uint8_t *keys, const uint8_t *key) const {
  if (places_.empty()) return std::nullopt;
  const Place &place = places_[PlaceOf(keys, key, HashOf(key))];
  if (place.entry == 0) return std::nullopt;
  return place.entry - 1;
}

}  // namespace qdt::host
