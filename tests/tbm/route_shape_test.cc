#include "tests/tbm/route_index_fixture.h"

#include <algorithm>
#include <string>

#include "host/tbm/route_bits.h"

// The shape of a route index's tries: what stands in one block, and that no history spoils it.
namespace qdt::host::tbm {
namespace {

class RouteShapeTest : public ::testing::TestWithParam<uint32_t> {
 protected:
  uint32_t bits() const { return GetParam() * 8; }
};

// What a trie looks like from its root on: its nodes with their places and what they have, whether they are
// blocks of their own or stand in a stem, and routes. `blocks` counts nodes and stems, `longest` the most of
// them on a way.
template <typename Bits>
class Shape {
 public:
  Shape(const IndexArea &area, RouteRef root) : area_(area) { text = Of(root, 0); }

  std::string text;
  uint32_t blocks = 0;
  uint32_t longest = 0;

 private:
  std::string Of(RouteRef ref, uint32_t above) {
    if (ref == 0) return "-";
    const auto *words = reinterpret_cast<const RouteWord *>(area_.data() + RouteOffset(ref));
    if (IsRoute(ref)) return "/" + std::to_string(RouteBlock<Bits>(words).length());
    ++blocks;
    longest = std::max(longest, above + 1);
    const NodeBlock<Bits> node(words);
    if (node.end() != 0) return OfStem(node, node.depth(), 1, above + 1);
    std::string shape = std::to_string(node.depth()) + "{";
    for (uint32_t i = 0; i < CountBits(node.children()) + CountBits(node.routes()); ++i)
      shape += Of(node.ref(i), above + 1) + " ";
    return shape + "}";
  }

  // The nodes of a stem from `depth` on; `index` is the number of the next route's reference.
  std::string OfStem(const NodeBlock<Bits> &stem, uint32_t depth, uint32_t index, uint32_t above) {
    if (depth >= stem.end()) return Of(stem.ref(0), above);
    const auto side = stem.side((depth - stem.depth()) / kRouteStride);
    const uint64_t here = static_cast<uint64_t>(stem.lengths() >> depth) & Below(kRouteStride);
    if (here == 0 && side.children == 0 && side.routes == 0)
      return OfStem(stem, depth + kRouteStride, index, above);
    const uint32_t way = Digit(stem.path(), depth);
    uint64_t routes = side.routes;
    for (uint32_t length = 0; length < kRouteStride; ++length)
      routes |= (here >> length & 1) << RouteBit(way, length);
    std::string shape = std::to_string(depth) + "{";
    uint32_t aside = side.first;
    for (uint32_t digit = 0; digit < 64; ++digit) {
      if (digit == way && (depth + kRouteStride < stem.end() || stem.ref(0) != 0))
        shape += OfStem(stem, depth + kRouteStride, index + CountBits(here), above) + " ";
      else if ((side.children >> digit & 1) != 0)
        shape += Of(stem.ref(aside++), above) + " ";
    }
    for (uint32_t bit = 1; bit < 64; ++bit) {
      if ((routes >> bit & 1) == 0) continue;
      shape += Of(stem.ref((side.routes >> bit & 1) != 0 ? aside++ : index++), above) + " ";
    }
    return shape + "}";
  }

  const IndexArea &area_;
};

struct Measures {
  std::string text;
  uint32_t blocks;
  uint32_t longest;
};

Measures MeasuresOf(const IndexArea &area, uint16_t vpn) {
  const RouteRef root = reinterpret_cast<const RouteRef *>(area.data() + kRouteHeadBytes)[vpn];
  const auto of = [](const auto &shape) { return Measures{shape.text, shape.blocks, shape.longest}; };
  return area.bits() == 32 ? of(Shape<Ipv4Bits>(area, root)) : of(Shape<Ipv6Bits>(area, root));
}

std::string ShapeOf(const IndexArea &area, uint16_t vpn) { return MeasuresOf(area, vpn).text; }

TEST_P(RouteShapeTest, ManyLengthsOfOneAddressAreOneStem) {
  IndexArea area(GetParam(), 10);
  const Address address = {10, 1, 2, 3};
  const auto expect = [&](const char *shape, uint32_t blocks) {
    const Measures measures = MeasuresOf(area, 0);
    EXPECT_EQ(measures.text, shape);
    EXPECT_EQ(measures.blocks, blocks) << shape;
  };
  for (const uint32_t length : {13u, 26u, 0u, 7u, 24u})
    ASSERT_EQ(area.Insert(MakeRoute(0, length, address, 1)), 0);
  expect("0{6{12{24{/24 /26 } /13 } /7 } /0 }", 1);
  // Beside the fifteenth bit.
  const Address beside = {10, 3, 2, 3};
  ASSERT_EQ(area.Insert(MakeRoute(0, 24, beside, 1)), 0);
  expect("0{6{12{24{/24 /26 } /24 /13 } /7 } /0 }", 1);
  ASSERT_EQ(area.Insert(MakeRoute(0, 23, beside, 1)), 0);
  ASSERT_EQ(area.Remove(MakeRoute(0, 13, address, 1)), 0);
  expect("0{6{12{24{/24 /26 } 18{/24 /23 } } /7 } /0 }", 2);
  ASSERT_EQ(area.Remove(MakeRoute(0, 24, address, 1)), 0);
  ASSERT_EQ(area.Remove(MakeRoute(0, 26, address, 1)), 0);
  expect("0{6{18{/24 /23 } /7 } /0 }", 1);
  ASSERT_EQ(area.Remove(MakeRoute(0, 0, address, 1)), 0);
  expect("6{18{/24 /23 } /7 }", 1);
  ASSERT_EQ(area.Remove(MakeRoute(0, 23, beside, 1)), 0);
  expect("6{/24 /7 }", 1);
}

// Whatever came and went before, the nodes are those of the routes alone, and no way has more blocks than it
// has nodes.
TEST_P(RouteShapeTest, ItsNodesAreThoseOfItsRoutesAlone) {
  IndexArea area(GetParam(), 400, false);
  Addresses addresses(bits(), 7);
  Model model;
  uint64_t nodes = 0;
  uint64_t blocks = 0;
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
      const Measures measures = MeasuresOf(area, vpn);
      ASSERT_EQ(measures.text, ShapeOf(fresh, vpn)) << "change " << serial;
      nodes += static_cast<uint64_t>(std::count(measures.text.begin(), measures.text.end(), '{'));
      blocks += measures.blocks;
    }
  }
  EXPECT_GT(nodes, 1000u);
  EXPECT_LT(blocks * 2, nodes);
}

// Beside each node of a long way something turns off. It is a few blocks long all the same, in whatever order
// its routes came, and however many have left and come again.
TEST_P(RouteShapeTest, AWayWithForksIsAFewBlocksLong) {
  std::mt19937_64 random(9);
  for (int round = 0; round < 10; ++round) {
    IndexArea area(GetParam(), 1000);
    const Address address = RandomAddress(&random);
    std::vector<TestRoute> routes;
    for (uint32_t length = 0; length <= bits(); ++length) {
      routes.push_back(MakeRoute(0, length, address, length + 1));
      if (length % 3 != 1) continue;
      Address beside = address;
      FlipBit(&beside, length - 1);
      routes.push_back(
          MakeRoute(0, std::min(length + random() % 9, uint64_t{bits()}), beside, 1000 + length));
    }
    std::shuffle(routes.begin(), routes.end(), random);
    for (const TestRoute &route : routes) ASSERT_EQ(area.Insert(route), 0);
    for (int change = 0; change < 1000; ++change) {
      const TestRoute &route = routes[random() % routes.size()];
      ASSERT_EQ(area.Remove(route), 0);
      ASSERT_EQ(area.Insert(route), 0);
    }
    const Measures measures = MeasuresOf(area, 0);
    const auto nodes = std::count(measures.text.begin(), measures.text.end(), '{');
    EXPECT_GE(nodes, bits() / kRouteStride) << measures.text;
    EXPECT_LE(measures.longest, bits() == 32 ? 2u : 6u) << measures.text;
    EXPECT_EQ(area.Match(0, address), bits() + 1);
  }
}

// A removal while storage is short leaves a stem with nothing behind it. Later changes go on from there.
TEST_P(RouteShapeTest, AStemThatLostWhatWasBehindItGoesOn) {
  IndexArea area(GetParam(), 100000, false);
  const Address address = {10, 1, 2, 3};
  for (const uint32_t length : {0u, 7u, 13u, 14u, 26u})
    ASSERT_EQ(area.Insert(MakeRoute(0, length, address, length + 1)), 0);
  ASSERT_EQ(ShapeOf(area, 0), "0{6{12{/26 /13 /14 } /7 } /0 }");
  // As if the storage ended where removals begin to draw on the headroom.
  area.SetRoom(0);
  area.head().backed = area.head().used + RouteHeadroom(GetParam()) + kRouteReach - NodeHeadBytes(GetParam());
  ASSERT_EQ(area.Remove(MakeRoute(0, 26, address, 0)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0{6{12{/13 /14 } /7 } /0 }");
  EXPECT_EQ(area.Match(0, address), 15);
  EXPECT_EQ(area.Remove(MakeRoute(0, 27, address, 0)), -7);
  area.SetRoom(10000000);
  ASSERT_EQ(area.Insert(MakeRoute(0, 30, address, 31)), 0);
  EXPECT_EQ(ShapeOf(area, 0), "0{6{12{/30 /13 /14 } /7 } /0 }");
  EXPECT_EQ(area.Match(0, address), 31);
}

INSTANTIATE_TEST_SUITE_P(Families, RouteShapeTest, ::testing::Values(4, 16),
                         [](const auto &size) { return size.param == 4 ? "Ipv4" : "Ipv6"; });

}  // namespace
}  // namespace qdt::host::tbm
