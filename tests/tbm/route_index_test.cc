#include "tests/tbm/route_index_fixture.h"

#include <algorithm>
#include <string>

#include "host/tbm/route_bits.h"

// The answers of the route index, its storage and its bounds; route_move_test.cc has its readers beside the
// writer.
namespace qdt::host::tbm {
namespace {

constexpr uint16_t kVpns[] = {0, 1, 1023, 1024, 65535};

class RouteIndexTest : public ::testing::TestWithParam<uint32_t> {
 protected:
  uint32_t bits() const { return GetParam() * 8; }
};

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

// Addresses all over the family, no two the same.
Address Spread(uint32_t number) {
  const uint32_t word = number * 0x9e3779b1;
  Address address = {};
  std::memcpy(address.data(), &word, sizeof(word));
  return address;
}

TEST_P(RouteIndexTest, ZeroedMemoryIsAnEmptyIndex) {
  IndexArea area(GetParam(), 10);
  EXPECT_EQ(area.Match(0, Address{}), 0);
  EXPECT_EQ(area.Match(65535, Address{}), 0);
  EXPECT_EQ(area.Remove(MakeRoute(7, 0, Address{}, 1)), -7);
  EXPECT_EQ(RouteStorageBytes(area.head()), 4096u);
}

TEST_P(RouteIndexTest, TakesLengthsOfItsFamilyOnly) {
  IndexArea area(GetParam(), 10);
  EXPECT_EQ(area.Insert(MakeRoute(0, bits() + 1, Address{}, 1)), -2);
  EXPECT_EQ(area.Insert(MakeRoute(0, UINT32_MAX, Address{}, 1)), -2);
  EXPECT_EQ(area.Insert(MakeRoute(0, bits(), Address{}, 1)), 0);
  EXPECT_EQ(area.Remove(MakeRoute(0, bits() + 1, Address{}, 1)), -7);
  EXPECT_EQ(area.Match(0, Address{}), 1);
}

TEST_P(RouteIndexTest, ARouteTakesThePlaceOfItsPrefixsOther) {
  IndexArea area(GetParam(), 10);
  const Address address = {10, 1, 2, 3};
  for (const uint32_t length : {24u, 0u, bits()}) {
    EXPECT_EQ(area.Insert(MakeRoute(0, length, address, 1)), 0);
    EXPECT_EQ(area.Insert(MakeRoute(0, length, address, 2)), 0);
    EXPECT_EQ(area.Match(0, address), 2);
    EXPECT_EQ(area.Remove(MakeRoute(0, length, address, 2)), 0);
    EXPECT_EQ(area.Match(0, address), 0);
    EXPECT_EQ(area.Remove(MakeRoute(0, length, address, 2)), -7);
  }
}

TEST_P(RouteIndexTest, AnswersAsASearchOfAllRoutesDoes) {
  IndexArea area(GetParam(), 400);
  Addresses addresses(bits(), 1);
  Model model;
  int replaced = 0;
  int missing = 0;
  int answered = 0;
  for (uint64_t serial = 1; serial <= 20000; ++serial) {
    // Grows to 300 routes and shrinks to none, several times.
    const bool grows = serial / 1000 % 2 == 0;
    const TestRoute route = addresses.NextRoute(serial);
    if (model.routes().size() < 300 && addresses.Random() % 8 < (grows ? 6 : 1)) {
      replaced += model.Find(route) != nullptr;
      model.Insert(route);
      ASSERT_EQ(area.Insert(route), 0);
    } else if (model.routes().empty() || addresses.Random() % 4 == 0) {
      const bool there = model.Remove(route);
      missing += !there;
      ASSERT_EQ(area.Remove(route), there ? 0 : -7);
    } else {
      const TestRoute leaving = model.routes()[addresses.Random() % model.routes().size()];
      model.Remove(leaving);
      ASSERT_EQ(area.Remove(leaving), 0);
    }
    for (int i = 0; i < 5; ++i) {
      const uint16_t vpn = kVpns[addresses.Random() % std::size(kVpns)];
      const Address address = addresses.Next();
      const int64_t expected = model.Match(vpn, address);
      ASSERT_EQ(area.Match(vpn, address), expected) << "change " << serial;
      answered += expected != 0;
    }
  }
  EXPECT_GT(replaced, 50);
  EXPECT_GT(missing, 500);
  EXPECT_GT(answered, 20000);
}

TEST_P(RouteIndexTest, EveryLengthOfOneAddress) {
  std::mt19937_64 random(2);
  for (int round = 0; round < 10; ++round) {
    IndexArea area(GetParam(), 200);
    const Address address = RandomAddress(&random);
    std::vector<uint32_t> lengths(bits() + 1);
    for (uint32_t i = 0; i < lengths.size(); ++i) lengths[i] = i;
    std::shuffle(lengths.begin(), lengths.end(), random);
    for (const uint32_t length : lengths)
      ASSERT_EQ(area.Insert(MakeRoute(3, length, address, length + 1)), 0);
    uint32_t length = 999;
    EXPECT_EQ(area.Match(3, address, &length), bits() + 1);
    EXPECT_EQ(length, bits());
    for (uint32_t bit = 0; bit < bits(); ++bit) {
      Address other = address;
      FlipBit(&other, bit);
      EXPECT_EQ(area.Match(3, other, &length), bit + 1);
      EXPECT_EQ(length, bit);
    }
    std::vector<bool> there(bits() + 1, true);
    std::shuffle(lengths.begin(), lengths.end(), random);
    for (const uint32_t gone : lengths) {
      ASSERT_EQ(area.Remove(MakeRoute(3, gone, address, 0)), 0);
      there[gone] = false;
      int64_t longest = 0;
      for (uint32_t i = 0; i <= bits(); ++i) longest = there[i] ? i + 1 : longest;
      ASSERT_EQ(area.Match(3, address), longest);
    }
  }
}

// What a trie looks like from its root on: nodes and stems with their places and what they have, and routes.
template <typename Bits>
std::string ShapeOf(const IndexArea &area, RouteRef ref) {
  if (ref == 0) return "-";
  const auto *words = reinterpret_cast<const RouteWord *>(area.data() + RouteOffset(ref));
  if (IsRoute(ref)) return "/" + std::to_string(RouteBlock<Bits>(words).length());
  const NodeBlock<Bits> node(words);
  const bool isStem = node.end() != 0;
  const uint32_t routes = isStem ? CountLengths(node.lengths(), 127) : CountBits(node.routes());
  const uint32_t children = isStem ? 1 : CountBits(node.children());
  std::string shape = std::to_string(node.depth());
  if (isStem) shape += "-" + std::to_string(node.end());
  shape += "{";
  for (uint32_t i = 0; i < children + routes; ++i) shape += ShapeOf<Bits>(area, node.ref(i)) + " ";
  return shape + "}";
}

std::string ShapeOf(const IndexArea &area, uint16_t vpn) {
  const RouteRef root = reinterpret_cast<const RouteRef *>(area.data() + kRouteHeadBytes)[vpn];
  return area.bits() == 32 ? ShapeOf<Ipv4Bits>(area, root) : ShapeOf<Ipv6Bits>(area, root);
}

TEST_P(RouteIndexTest, ManyLengthsOfOneAddressAreOneStem) {
  IndexArea area(GetParam(), 10);
  const Address address = {10, 1, 2, 3};
  for (const uint32_t length : {13u, 26u, 0u, 7u, 24u})
    ASSERT_EQ(area.Insert(MakeRoute(0, length, address, 1)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0-18{24{/24 /26 } /0 /7 /13 }");
  // Beside the fifteenth bit.
  const Address beside = {10, 3, 2, 3};
  ASSERT_EQ(area.Insert(MakeRoute(0, 24, beside, 1)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0-12{12{24{/24 /26 } /24 /13 } /0 /7 }");
  ASSERT_EQ(area.Insert(MakeRoute(0, 23, beside, 1)), 0);
  ASSERT_EQ(area.Remove(MakeRoute(0, 13, address, 1)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0-12{12{24{/24 /26 } 18{/24 /23 } } /0 /7 }");
  ASSERT_EQ(area.Remove(MakeRoute(0, 24, address, 1)), 0);
  ASSERT_EQ(area.Remove(MakeRoute(0, 26, address, 1)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0-24{/24 /0 /7 /23 }");
  ASSERT_EQ(area.Remove(MakeRoute(0, 0, address, 1)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "6-24{/24 /7 /23 }");
  ASSERT_EQ(area.Remove(MakeRoute(0, 23, beside, 1)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "6{/24 /7 }");
}

// Whatever came and went before: so a search never takes longer for it.
TEST_P(RouteIndexTest, ItsShapeIsThatOfItsRoutesAlone) {
  IndexArea area(GetParam(), 400, false);
  Addresses addresses(bits(), 7);
  Model model;
  uint64_t stems = 0;
  for (uint64_t serial = 1; serial <= 20000; ++serial) {
    const TestRoute route = addresses.NextRoute(serial);
    const bool grows = serial / 500 % 2 == 0;
    if (model.routes().empty() || (model.routes().size() < 300 && addresses.Random() % 8 < (grows ? 7 : 1))) {
      model.Insert(route);
      ASSERT_EQ(area.Insert(route), 0);
    } else {
      const TestRoute leaving = model.routes()[addresses.Random() % model.routes().size()];
      model.Remove(leaving);
      ASSERT_EQ(area.Remove(leaving), 0);
    }
    if (serial % 50 != 0) continue;
    IndexArea fresh(GetParam(), 400, false);
    for (const TestRoute &there : model.routes()) ASSERT_EQ(fresh.Insert(there), 0);
    for (const uint16_t vpn : kVpns) {
      ASSERT_EQ(ShapeOf(area, vpn), ShapeOf(fresh, vpn)) << "change " << serial;
      const std::string shape = ShapeOf(area, vpn);
      stems += static_cast<uint64_t>(std::count(shape.begin(), shape.end(), '-'));
    }
  }
  EXPECT_GT(stems, 1000u);
}

// As many routes as the area is made for, in the shapes that need most of one size of node, one after the
// other: nodes with just more references than the size below has room for.
TEST_P(RouteIndexTest, HoldsItsCapacityInEveryShape) {
  constexpr uint32_t kCapacity = 3000;
  IndexArea area(GetParam(), kCapacity);
  std::mt19937_64 random(3);
  uint64_t serial = 0;
  for (uint32_t round = 0; round < 3; ++round) {
    for (uint32_t blockClass = 0; blockClass < kNodeClasses; ++blockClass) {
      uint32_t refs = 2;
      while (NodeClass(refs, GetParam()) < blockClass) ++refs;
      std::vector<TestRoute> routes;
      for (uint16_t group = 0; routes.size() + refs <= kCapacity; ++group) {
        // Children by the sixth bits behind the second node's depth; what they do not hold, routes in the
        // node.
        Address address = {};
        address[0] = static_cast<uint8_t>(group >> 8);
        address[1] = static_cast<uint8_t>(group);
        for (uint32_t i = 0; i < refs; ++i) {
          Address own = address;
          const uint32_t value = i < 64 ? i : i - 63;  // from 64 on a heap of the shorter prefixes
          uint32_t length = 24;
          uint32_t digit = value;
          if (i >= 64) {
            const uint32_t shorter = 31 - static_cast<uint32_t>(std::countl_zero(value));
            length = 18 + shorter;
            digit = (value - (1u << shorter)) << (6 - shorter);
          }
          own[2] = static_cast<uint8_t>(digit);
          routes.push_back(MakeRoute(group & 1, length, own, ++serial));
        }
      }
      std::shuffle(routes.begin(), routes.end(), random);
      for (const TestRoute &route : routes) ASSERT_EQ(area.Insert(route), 0);
      for (const TestRoute &route : routes) {
        if (route.length != 24) continue;
        ASSERT_EQ(area.Match(route.vpn, route.address), static_cast<int64_t>(route.serial));
      }
      std::shuffle(routes.begin(), routes.end(), random);
      for (const TestRoute &route : routes) ASSERT_EQ(area.Remove(route), 0);
    }
  }
  EXPECT_EQ(area.Match(0, Address{}), 0);
}

// The same with stems of all sizes.
TEST_P(RouteIndexTest, HoldsItsCapacityInStems) {
  constexpr uint32_t kCapacity = 3000;
  IndexArea area(GetParam(), kCapacity);
  std::mt19937_64 random(8);
  uint64_t serial = 0;
  for (const uint32_t lengths : {2u, 3u, 5u, 11u, 19u, 37u, 70u, 110u, 129u}) {
    std::vector<TestRoute> routes;
    while (routes.size() + lengths <= kCapacity) {
      const Address address = RandomAddress(&random);
      const uint32_t first = lengths >= bits() ? 0 : random() % (bits() + 2 - lengths);
      for (uint32_t length = first; length < first + lengths && length <= bits(); ++length) {
        routes.push_back(MakeRoute(0, length, address, ++serial));
      }
    }
    std::shuffle(routes.begin(), routes.end(), random);
    for (const TestRoute &route : routes) ASSERT_EQ(area.Insert(route), 0) << lengths << " lengths";
    std::shuffle(routes.begin(), routes.end(), random);
    for (const TestRoute &route : routes) {
      // Short ones may be those of two addresses.
      const int32_t status = area.Remove(route);
      ASSERT_TRUE(status == 0 || (status == -7 && route.length <= 24)) << status << " /" << route.length;
    }
    ASSERT_EQ(area.Match(0, routes[0].address), 0);
  }
}

TEST_P(RouteIndexTest, AFullAreaRefusesAndStaysAsItWas) {
  IndexArea area(GetParam(), 1);
  Addresses addresses(bits(), 4);
  std::vector<TestRoute> routes;
  int32_t status = 0;
  for (uint64_t serial = 1; status == 0; ++serial) {
    ASSERT_LT(serial, 10000000u);
    const TestRoute route = MakeRoute(0, bits(), Spread(static_cast<uint32_t>(serial)), serial);
    status = area.Insert(route);
    if (status == 0) routes.push_back(route);
  }
  EXPECT_EQ(status, -8);
  for (const TestRoute &route : routes)
    ASSERT_EQ(area.Match(0, route.address), static_cast<int64_t>(route.serial));
  for (const TestRoute &route : routes) ASSERT_EQ(area.Remove(route), 0);
  EXPECT_EQ(area.Insert(routes[0]), 0);
}

// Where no storage is left, insertions are refused and removals are not, however many.
TEST_P(RouteIndexTest, AFullFileSystemRefusesInsertionsAndNoRemoval) {
  uint64_t urgent = 0;  // removals for which blocks did not rest
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    IndexArea area(GetParam(), 100000);
    Addresses addresses(bits(), seed);
    Model model;
    area.SetRoom(150000 + seed * 20000);
    int32_t status = 0;
    for (uint64_t serial = 1; status == 0; ++serial) {
      TestRoute route = addresses.NextRoute(serial);
      if (seed % 2 == 0) route.address = Spread(static_cast<uint32_t>(serial));
      status = area.Insert(route);
      if (status == 0) model.Insert(route);
      ASSERT_LT(serial, 100000u);
    }
    ASSERT_EQ(status, -3);
    area.SetRoom(0);
    while (!model.routes().empty()) {
      // What still fits is taken, and leaves enough for the removals.
      const TestRoute more = addresses.NextRoute(1);
      if (addresses.Random() % 8 == 0 && model.Find(more) == nullptr) {
        status = area.Insert(more);
        ASSERT_TRUE(status == 0 || status == -3) << status;
        if (status == 0) model.Insert(more);
      }
      const TestRoute leaving = model.routes()[addresses.Random() % model.routes().size()];
      model.Remove(leaving);
      const uint64_t changes = area.head().changes;
      ASSERT_EQ(area.Remove(leaving), 0) << model.routes().size();
      urgent += area.head().changes - changes > kRouteRest;
      if (model.routes().size() % 16 != 0 || model.routes().empty()) continue;
      const TestRoute &other = model.routes()[addresses.Random() % model.routes().size()];
      ASSERT_EQ(area.Match(other.vpn, other.address), model.Match(other.vpn, other.address));
    }
    area.SetRoom(10000000);
    const TestRoute route = addresses.NextRoute(7);
    EXPECT_EQ(area.Insert(route), 0);
    EXPECT_EQ(area.Match(route.vpn, route.address), 7);
  }
  EXPECT_GT(urgent, 20u);
}

// What stands between stems leaves while storage is short, then what is in them.
TEST_P(RouteIndexTest, AFullFileSystemKeepsStemsWhole) {
  uint64_t urgent = 0;
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    IndexArea area(GetParam(), 100000);
    std::mt19937_64 random(seed);
    Model model;
    std::vector<TestRoute> forks, others;
    area.SetRoom(100000 + seed * 10000);
    uint64_t serial = 0;
    const auto insert = [&](const TestRoute &route, std::vector<TestRoute> *where) {
      if (model.Find(route) != nullptr) return true;
      if (area.Insert(route) != 0) return false;
      model.Insert(route);
      where->push_back(route);
      return true;
    };
    for (bool room = true; room;) {
      const Address address = RandomAddress(&random);
      for (uint32_t length = 8; room && length <= bits(); length += 1 + random() % 3)
        room = insert(MakeRoute(0, length, address, ++serial), &others);
      for (uint32_t length = 8; room && length <= bits(); length += 1 + random() % 30) {
        Address beside = address;
        FlipBit(&beside, length - 1);
        room = insert(MakeRoute(0, length, beside, ++serial), &forks);
      }
    }
    const auto check = [&] {
      for (int i = 0; i < 2; ++i) {
        const TestRoute &any = others[random() % others.size()];
        ASSERT_EQ(area.Match(0, any.address), model.Match(0, any.address)) << "seed " << seed;
      }
    };
    area.SetRoom(0);
    std::shuffle(forks.begin(), forks.end(), random);
    std::shuffle(others.begin(), others.end(), random);
    std::vector<TestRoute> leaving = forks;
    leaving.insert(leaving.end(), others.begin(), others.end());
    for (const TestRoute &route : leaving) {
      // Sometimes there is room for a route that has left, or for another.
      const bool comes = random() % 4 == 0;
      if (comes) {
        area.SetRoom(random() % 8 == 0 ? 100000 : 0);
        TestRoute back = leaving[random() % leaving.size()];
        back.length = random() % 4 == 0 ? random() % (bits() + 1) : back.length;
        if (model.Find(back) == nullptr && area.Insert(back) == 0) {
          model.Insert(back);
          check();
        }
        area.SetRoom(0);
      }
      const bool there = model.Remove(route);
      const uint64_t changes = area.head().changes;
      ASSERT_EQ(area.Remove(route), there ? 0 : -7);
      urgent += area.head().changes - changes > kRouteRest;
      check();
    }
    while (!model.routes().empty()) {
      const TestRoute last = model.routes().back();
      model.Remove(last);
      ASSERT_EQ(area.Remove(last), 0);
      check();
    }
  }
  EXPECT_GT(urgent, 20u);
}

// A removal while storage is short leaves a stem with nothing behind it. Later changes go on from there.
TEST_P(RouteIndexTest, AStemThatLostWhatWasBehindItGoesOn) {
  IndexArea area(GetParam(), 100000, false);
  const Address address = {10, 1, 2, 3};
  for (const uint32_t length : {0u, 7u, 13u, 14u, 26u})
    ASSERT_EQ(area.Insert(MakeRoute(0, length, address, length + 1)), 0);
  ASSERT_EQ(ShapeOf(area, 0), "0-18{/26 /0 /7 /13 /14 }");
  // As if the storage ended where removals begin to draw on the headroom.
  area.SetRoom(0);
  area.head().backed =
      area.head().used + RouteHeadroom(GetParam()) + kMaxRouteBlockBytes - NodeHeadBytes(GetParam());
  ASSERT_EQ(area.Remove(MakeRoute(0, 26, address, 0)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0-18{- /0 /7 /13 /14 }");
  EXPECT_EQ(area.Match(0, address), 15);
  EXPECT_EQ(area.Remove(MakeRoute(0, 27, address, 0)), -7);
  area.SetRoom(10000000);
  ASSERT_EQ(area.Insert(MakeRoute(0, 30, address, 31)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0-18{/30 /0 /7 /13 /14 }");
  EXPECT_EQ(area.Match(0, address), 31);
}

// Every word that readers look at, with values that lead astray, in memory that ends where the area does.
TEST_P(RouteIndexTest, DamagedWordsNeverLeadOutside) {
  IndexArea area(GetParam(), 50, false);
  Addresses addresses(bits(), 5);
  std::vector<TestRoute> routes;
  for (uint64_t serial = 1; serial <= 50; ++serial) {
    routes.push_back(addresses.NextRoute(serial));
    routes.back().vpn = 0;
    ASSERT_EQ(area.Insert(routes.back()), 0);
  }
  std::mt19937_64 random(6);
  auto *words = reinterpret_cast<uint64_t *>(area.data());
  std::vector<uint64_t> places = {0, 1, 2, kRouteHeadBytes / 8};
  for (uint64_t i = kRouteBlocksOffset / 8; i < area.head().used / 8; ++i) places.push_back(i);
  ASSERT_GT(places.size(), 300u);
  const auto search = [&] {
    uint64_t lost = 0;
    for (const TestRoute &route : routes) {
      Route found;
      const RouteIndex::Found status = area.index().Match(0, route.address.data(), &found);
      lost += status == RouteIndex::Found::kLost;
    }
    return lost;
  };
  uint64_t lost = 0;
  for (const uint64_t place : places) {
    const uint64_t good = words[place];
    const uint64_t other = words[places[random() % places.size()]];
    for (const uint64_t bad : {uint64_t{0}, ~uint64_t{0}, random(), other,
                               good ^ uint64_t{1} << random() % 64, good + (uint64_t{1} << 32), good << 1}) {
      words[place] = bad;
      lost += search();
    }
    words[place] = good;
  }
  EXPECT_GT(lost, 1000u);  // damage is often seen
  EXPECT_EQ(search(), 0u);
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::pair<uint64_t, uint64_t>> good;
    for (int i = 0; i < 20; ++i) {
      const uint64_t place = places[random() % places.size()];
      good.emplace_back(place, words[place]);
      words[place] = random() % 2 == 0 ? random() : words[places[random() % places.size()]];
    }
    search();
    for (auto it = good.rbegin(); it != good.rend(); ++it) words[it->first] = it->second;
  }
  EXPECT_EQ(search(), 0u);
}

TEST_P(RouteIndexTest, NodesThatRunInACircleEndASearch) {
  IndexArea area(GetParam(), 50, false);
  const Address address = {10, 1, 2, 3};
  for (uint32_t length = 0; length <= bits(); ++length)
    ASSERT_EQ(area.Insert(MakeRoute(0, length, address, 1)), 0);
  auto *root = reinterpret_cast<RouteRef *>(area.data() + kRouteHeadBytes);
  // The root's first child becomes the root.
  auto *refs = reinterpret_cast<RouteRef *>(area.data() + RouteOffset(*root) + NodeHeadBytes(GetParam()));
  refs[0] = *root;
  EXPECT_EQ(area.Match(0, address), -1);
}

INSTANTIATE_TEST_SUITE_P(Families, RouteIndexTest, ::testing::Values(4, 16),
                         [](const auto &size) { return size.param == 4 ? "Ipv4" : "Ipv6"; });

}  // namespace
}  // namespace qdt::host::tbm
