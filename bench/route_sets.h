#ifndef BENCH_ROUTE_SETS_H_
#define BENCH_ROUTE_SETS_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <unordered_map>
#include <vector>

#include "host/tbm/route_key.h"

// Routes and destinations to measure with, and what a program does that has nothing but the standard library:
// a hash map for each prefix length in use, asked from the longest on.
namespace qdt::bench {

// The key of a route table, for both families; of IPv4 the first four bytes of the address.
struct RouteKey {
  uint16_t length = 0;
  uint16_t vpn = 0;
  std::array<uint8_t, 16> address = {};

  bool operator==(const RouteKey &) const = default;
};

enum class RouteShape {
  kRandom,  // lengths from `least` to `most`
  kNested,  // every length of random addresses
  kForked,  // so, and every six bits one that turns off
  kGrown,   // from one of length `least`, each goes on from a random other one by one to eight random bits
};

struct RouteSet {
  const char *name;
  uint32_t addressSize;
  uint32_t count;
  uint32_t least;
  uint32_t most;
  RouteShape shape;
  uint32_t vpns;
  double goal;  // nanoseconds; 0: none
};

class Routes {
 public:
  explicit Routes(const RouteSet &set) : set_(set), random_(set.count + set.most) {
    std::unordered_map<uint64_t, std::vector<RouteKey>> known;
    while (keys_.size() < set.count) {
      const RouteKey key = set.shape == RouteShape::kGrown && !keys_.empty() ? GrownKey() : RandomKey();
      if (Nested()) AddShorter(key, &known);
      Add(key, key.length, &known);
    }
    std::shuffle(keys_.begin(), keys_.end(), random_);
  }

  const std::vector<RouteKey> &keys() const { return keys_; }

  // Destinations of random routes; or those that lie beside one, in whose prefix the last bit differs.
  std::vector<RouteKey> Destinations(size_t count, bool beside) {
    std::vector<RouteKey> destinations(count);
    for (RouteKey &key : destinations) {
      key = keys_[random_() % keys_.size()];
      if (beside && key.length != 0) Flip(&key, key.length - 1u);
      for (uint32_t bit = key.length; bit < set_.addressSize * 8; ++bit) {
        if (random_() % 2 != 0) Flip(&key, bit);
      }
      key.length = 0;
    }
    return destinations;
  }

 private:
  using Known = std::unordered_map<uint64_t, std::vector<RouteKey>>;

  static void Flip(RouteKey *key, uint32_t bit) { key->address[bit / 8] ^= 0x80 >> bit % 8; }

  bool Nested() const { return set_.shape == RouteShape::kNested || set_.shape == RouteShape::kForked; }

  void AddShorter(const RouteKey &key, Known *known) {
    for (uint32_t length = set_.least; length < set_.most; ++length) {
      Add(key, length, known);
      if (set_.shape != RouteShape::kForked || length % 6 != 5) continue;
      RouteKey beside = key;
      Flip(&beside, length - 1);
      Add(beside, length, known);
    }
  }

  RouteKey GrownKey() {
    RouteKey key = keys_[random_() % keys_.size()];
    const uint32_t length = std::min<uint32_t>(key.length + 1 + random_() % 8, set_.most);
    for (uint32_t bit = key.length; bit < length; ++bit) {
      if (random_() % 2 != 0) Flip(&key, bit);
    }
    key.length = static_cast<uint16_t>(length);
    return key;
  }

  uint32_t RandomLength() {
    if (Nested()) return set_.most;
    return set_.shape == RouteShape::kGrown ? set_.least
                                            : set_.least + random_() % (set_.most - set_.least + 1);
  }

  RouteKey RandomKey() {
    RouteKey key;
    for (uint32_t i = 0; i < set_.addressSize; ++i) key.address[i] = static_cast<uint8_t>(random_());
    key.length = static_cast<uint16_t>(RandomLength());
    key.vpn = static_cast<uint16_t>(random_() % set_.vpns);
    return key;
  }

  void Add(RouteKey key, uint32_t length, Known *known) {
    key.length = static_cast<uint16_t>(length);
    host::KeepPrefix(key.address.data(), set_.addressSize, length);
    uint64_t words[2];
    std::memcpy(words, key.address.data(), sizeof(words));
    std::vector<RouteKey> &same = (*known)[words[0] ^ words[1] * 3 ^ length << 16 ^ key.vpn];
    if (keys_.size() == set_.count || std::find(same.begin(), same.end(), key) != same.end()) return;
    same.push_back(key);
    keys_.push_back(key);
  }

  const RouteSet set_;
  std::mt19937_64 random_;
  std::vector<RouteKey> keys_;
};

class MapPerLength {
 public:
  MapPerLength(const std::vector<RouteKey> &keys, uint32_t addressSize)
      : addressSize_(addressSize), maps_(addressSize * 8 + 1) {
    for (size_t i = 0; i < keys.size(); ++i)
      maps_[keys[i].length].emplace(keys[i], static_cast<uint32_t>(i + 1));
  }

  // The number of the route, from 1 on; 0 for none.
  uint32_t Match(RouteKey key) const {
    for (size_t length = maps_.size(); length-- > 0;) {
      if (maps_[length].empty()) continue;
      key.length = static_cast<uint16_t>(length);
      host::KeepPrefix(key.address.data(), addressSize_, key.length);
      const auto found = maps_[length].find(key);
      if (found != maps_[length].end()) return found->second;
    }
    return 0;
  }

 private:
  struct Hash {
    size_t operator()(const RouteKey &key) const {
      uint64_t words[2];
      std::memcpy(words, key.address.data(), sizeof(words));
      uint64_t hash = (words[0] ^ key.vpn) * 0x9e3779b97f4a7c15;
      hash = (hash ^ hash >> 32 ^ words[1]) * 0x9e3779b97f4a7c15;
      return hash ^ hash >> 32;
    }
  };

  uint32_t addressSize_;
  std::vector<std::unordered_map<RouteKey, uint32_t, Hash>> maps_;
};

}  // namespace qdt::bench

#endif  // BENCH_ROUTE_SETS_H_
