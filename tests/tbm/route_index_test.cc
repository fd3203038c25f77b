#include "tests/tbm/route_index_fixture.h"

#include <algorithm>
#include <string>

#include "host/tbm/route_bits.h"

// The answers of the route index, its storage and its bounds; route_move_test.cc has its readers beside the
// writer.
namespace qdt::host::tbm {
namespace {

class RouteIndexTest : public ::testing::TestWithParam<uint32_t> {
 protected:
  uint32_t bits() const { return GetParam() * 8; }
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
      while (NodeClass(NodeBytes(refs, GetParam())) < blockClass) ++refs;
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
  EXPECT_GT(lost, 500u);  // damage is often seen, more or less as the compiler draws the routes
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
