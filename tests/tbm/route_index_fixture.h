#ifndef TESTS_TBM_ROUTE_INDEX_FIXTURE_H_
#define TESTS_TBM_ROUTE_INDEX_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "host/tbm/route_index.h"
#include "host/tbm/route_index_writer.h"

namespace qdt::host::tbm {

using Address = std::array<uint8_t, 16>;  // of IPv4 the first four bytes

inline bool BitOf(const Address &address, uint32_t bit) { return (address[bit / 8] << bit % 8 & 0x80) != 0; }
inline void FlipBit(Address *address, uint32_t bit) { (*address)[bit / 8] ^= 0x80 >> bit % 8; }

struct TestRoute {
  uint16_t vpn;
  uint32_t length;
  Address address;  // also behind the prefix: the index takes the first bits of any address
  uint32_t slot = 0;
  uint64_t serial = 0;

  bool Matches(uint16_t otherVpn, const Address &other) const {
    if (vpn != otherVpn) return false;
    for (uint32_t bit = 0; bit < length; ++bit) {
      if (BitOf(address, bit) != BitOf(other, bit)) return false;
    }
    return true;
  }
  bool SamePrefix(const TestRoute &other) const {
    return length == other.length && Matches(other.vpn, other.address);
  }
};

// An index in memory that child processes share.
class IndexArea {
 public:
  // Guarded: whatever touches a byte without storage gets a signal; for the process that writes.
  IndexArea(uint32_t addressSize, uint32_t capacity, bool guarded = true)
      : addressSize_(addressSize), size_((RouteIndexSize(capacity, addressSize) + 4095) / 4096 * 4096) {
    // A page that is never opened follows the area.
    area_ = static_cast<char *>(
        mmap(nullptr, size_ + 4096, PROT_NONE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    mprotect(area_, guarded ? kRouteHeadBytes : size_, PROT_READ | PROT_WRITE);
    guarded_ = guarded;
  }
  ~IndexArea() { munmap(area_, size_ + 4096); }
  IndexArea(const IndexArea &) = delete;
  IndexArea &operator=(const IndexArea &) = delete;

  RouteIndex index() const { return RouteIndex(area_, size_, addressSize_); }
  RouteIndexWriter writer() {
    return RouteIndexWriter(area_, size_, addressSize_, [this](uint64_t offset, uint64_t size) {
      if (size > room_) return false;
      room_ -= size;
      return !guarded_ || mprotect(area_ + offset, size, PROT_READ | PROT_WRITE) == 0;
    });
  }
  // Storage that is left.
  void SetRoom(uint64_t bytes) { room_ = bytes; }

  char *data() const { return area_; }
  RouteHead &head() const { return *reinterpret_cast<RouteHead *>(area_); }
  uint32_t bits() const { return addressSize_ * 8; }

  int32_t Insert(const TestRoute &route) {
    return writer().Insert(route.vpn, route.address.data(), route.length, route.slot, route.serial);
  }
  int32_t Remove(const TestRoute &route) {
    return writer().Remove(route.vpn, route.address.data(), route.length);
  }
  // The serial of the longest match, 0 for none, -1 for kLost.
  int64_t Match(uint16_t vpn, const Address &address, uint32_t *length = nullptr) const {
    Route route = {};
    const RouteIndex::Found found = index().Match(vpn, address.data(), &route);
    if (found == RouteIndex::Found::kLost) return -1;
    if (found == RouteIndex::Found::kNone) return 0;
    if (length != nullptr) *length = route.length;
    return route.slot == static_cast<uint32_t>(route.serial * 3) ? static_cast<int64_t>(route.serial) : -2;
  }

 private:
  uint32_t addressSize_;
  uint64_t size_;
  char *area_;
  bool guarded_;
  uint64_t room_ = UINT64_MAX;
};

inline Address RandomAddress(std::mt19937_64 *random) {
  Address address;
  for (uint8_t &byte : address) byte = static_cast<uint8_t>((*random)());
  return address;
}

inline TestRoute MakeRoute(uint16_t vpn, uint32_t length, const Address &address, uint64_t serial) {
  return {vpn, length, address, static_cast<uint32_t>(serial * 3), serial};
}

inline constexpr uint16_t kVpns[] = {0, 1, 1023, 1024, 65535};

// What the index holds, searched from end to end.
class Model {
 public:
  // The route of the same prefix, or null.
  TestRoute *Find(const TestRoute &route) {
    for (TestRoute &other : routes_) {
      if (other.SamePrefix(route)) return &other;
    }
    return nullptr;
  }
  void Insert(const TestRoute &route) {
    TestRoute *there = Find(route);
    there == nullptr ? routes_.push_back(route) : void(*there = route);
  }
  bool Remove(const TestRoute &route) {
    TestRoute *there = Find(route);
    if (there == nullptr) return false;
    *there = routes_.back();
    routes_.pop_back();
    return true;
  }
  int64_t Match(uint16_t vpn, const Address &address) const {
    const TestRoute *longest = nullptr;
    for (const TestRoute &route : routes_) {
      if (route.Matches(vpn, address) && (longest == nullptr || route.length > longest->length))
        longest = &route;
    }
    return longest == nullptr ? 0 : static_cast<int64_t>(longest->serial);
  }
  std::vector<TestRoute> &routes() { return routes_; }

 private:
  std::vector<TestRoute> routes_;
};

// Addresses that share beginnings of every length: few of them, then a change of a few bits.
class Addresses {
 public:
  Addresses(uint32_t bits, uint64_t seed) : bits_(bits), random_(seed) {
    for (Address &base : bases_) base = RandomAddress(&random_);
  }
  Address Next() {
    Address address = bases_[random_() % bases_.size()];
    for (uint64_t flips = random_() % 3; flips != 0; --flips) FlipBit(&address, random_() % bits_);
    return address;
  }
  TestRoute NextRoute(uint64_t serial) {
    return MakeRoute(kVpns[random_() % std::size(kVpns)], random_() % (bits_ + 1), Next(), serial);
  }
  uint64_t Random() { return random_(); }

 private:
  uint32_t bits_;
  std::mt19937_64 random_;
  std::array<Address, 4> bases_;
};

// One destination and a route to it that moves between prefix lengths, the new one in before the old one
// leaves, among other routes: at each moment the destination has an answer, and answers never go back.
class MovingRoute {
 public:
  MovingRoute(IndexArea *area, uint64_t seed)
      : area_(*area), random_(seed), address_(RandomAddress(&random_)) {
    for (uint32_t i = 0; i < 200; ++i) InsertOther(0, RandomAddress(&random_));
    // Beside bits all along the destination, so that its way has many nodes.
    for (uint32_t bit = 0; bit < area_.bits(); bit += area_.bits() / 16 + bit % 3) {
      Address beside = address_;
      FlipBit(&beside, bit);
      InsertOther(bit + 1, beside);
    }
    Start();
  }

  const Address &address() const { return address_; }
  uint64_t serial() const { return now_.serial; }

  void Move() {
    TestRoute next = now_;
    while (next.length == now_.length) next.length = random_() % (area_.bits() + 1);
    ++next.serial;
    next.slot = static_cast<uint32_t>(next.serial * 3);
    EXPECT_EQ(area_.Insert(next), 0);
    EXPECT_EQ(area_.Remove(now_), 0);
    now_ = next;
  }

 private:
  // These do not match the destination, and have serials that no answer may show.
  void InsertOther(uint32_t least, Address address) {
    uint32_t length = least + random_() % (area_.bits() + 1 - least);
    const TestRoute moving = MakeRoute(0, length, address_, 0);
    if (moving.Matches(0, address)) return;
    EXPECT_EQ(area_.Insert(MakeRoute(0, length, address, kOther)), 0);
  }
  void Start() {
    now_ = MakeRoute(0, random_() % (area_.bits() + 1), address_, 1);
    EXPECT_EQ(area_.Insert(now_), 0);
  }

  static constexpr uint64_t kOther = uint64_t{1} << 40;

  IndexArea &area_;
  std::mt19937_64 random_;
  Address address_;
  TestRoute now_;
};

}  // namespace qdt::host::tbm

#endif  // TESTS_TBM_ROUTE_INDEX_FIXTURE_H_
