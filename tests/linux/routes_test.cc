#include "host/linux/routes.h"

#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>

#include "tests/linux/mirror_fixture.h"

// Of several routes for one prefix the engine shows the one that the kernel takes.
namespace qdt::host {
namespace {

class RoutesTest : public MirrorTest {
 protected:
  RoutesTest() { objects_.SetFamilies(&hops4_, &hops6_); }

  static Leg Via(uint8_t last, uint32_t link = 2) {
    Leg leg;
    leg.link = link;
    leg.hasGateway = last != 0;
    leg.gateway[3] = last;
    return leg;
  }
  static RouteMessage Route(std::vector<Leg> legs, uint32_t metric = 0) {
    RouteMessage route;
    route.prefix = 24;
    route.type = RTN_UNICAST;
    route.table = RT_TABLE_MAIN;
    route.metric = metric;
    route.isNew = true;
    route.destination = {10, 9};
    route.legs = std::move(legs);
    for (Leg &leg : route.legs) leg.gatewayFamily = route.family;
    return route;
  }
  void Notify(RouteMessage route) { Take(route, Told::kByNotification); }
  void Append(RouteMessage route) {
    route.appends = true;
    Notify(route);
  }
  void Replace(RouteMessage route) {
    route.replaces = true;
    Notify(route);
  }
  void Delete(RouteMessage route) {
    route.isNew = false;
    Notify(route);
  }
  void Dump(const RouteMessage &route) { Take(route, Told::kByDump); }
  void Take(const RouteMessage &route, Told told) {
    if (ipv6_) {
      RouteMessage other = route;
      other.family = kIpv6;
      for (Leg &leg : other.legs) leg.gatewayFamily = kIpv6;
      routes6_.Take(other, told);
    } else {
      routes4_.Take(route, told);
    }
  }
  void End(bool complete = true) {
    while (routes4_.End(complete)) {
    }
    while (routes6_.End(complete)) {
    }
  }

  // The last byte of the gateway that is shown, 0 for none; -1 without a route.
  int Shown() {
    const std::string prefix = ipv6_ ? "ipv6_" : "";
    const std::vector<uint64_t> numbers = Values(prefix + "fib", "nhp_index");
    if (numbers.empty()) return -1;
    EXPECT_EQ(numbers.size(), 1u);
    EXPECT_EQ(Values(prefix + "fib", "multi_next_hop"), std::vector<uint64_t>{0});
    void *entry = nullptr;
    const auto key = static_cast<uint32_t>(numbers[0]);
    const TableLayout &table = *Layout::BuiltIn().FindTable(prefix + "nhp");
    if (TbmTblSearch(0, table.spec.id, &key, &entry) != 0) return 0;
    EXPECT_EQ(Values(prefix + "fib", "next_hop"), std::vector<uint64_t>{reinterpret_cast<uintptr_t>(entry)});
    const WideValue address = table.At("next_hop").Read(entry);
    return static_cast<int>(ipv6_ ? address >> 96 & 0xff : address & 0xff);
  }
  size_t Hops() { return Values(ipv6_ ? "ipv6_nhp" : "nhp", "if_index").size(); }

  bool ipv6_ = false;
  Links links_{target()};
  Neighbours neighbours_{target(), links_};
  NextHopObjects objects_;
  NextHops hops4_{target(), kIpv4, links_, neighbours_, objects_};
  NextHops hops6_{target(), kIpv6, links_, neighbours_, objects_};
  Routes<kIpv4> routes4_{target(), &hops4_};
  Routes<kIpv6> routes6_{target(), &hops6_};
};

TEST_F(RoutesTest, TheLowestMetricStandsAndTheNextOneTakesItsPlace) {
  Notify(Route({Via(2)}, 20));
  Notify(Route({Via(1)}, 10));
  Notify(Route({Via(3)}, 30));
  EXPECT_EQ(Shown(), 1);
  EXPECT_EQ(Values("fib", "re_index"), std::vector<uint64_t>{10});
  Delete(Route({Via(2)}, 20));
  EXPECT_EQ(Shown(), 1);
  Delete(Route({Via(1)}, 10));
  EXPECT_EQ(Shown(), 3);
  Delete(Route({Via(3)}, 30));
  EXPECT_EQ(Shown(), -1);
  EXPECT_EQ(Hops(), 0u);
}

TEST_F(RoutesTest, ARouteForATypeOfServiceComesAfterTheOthers) {
  RouteMessage special = Route({Via(1)}, 0);
  special.tos = 0x10;
  Notify(special);
  EXPECT_EQ(Shown(), 1);
  Notify(Route({Via(2)}, 50));
  EXPECT_EQ(Shown(), 2);
}

TEST_F(RoutesTest, OfOneMetricTheFirstStandsAndWhatIsReplacedKeepsItsPlace) {
  Notify(Route({Via(1)}));
  Append(Route({Via(2)}));
  EXPECT_EQ(Shown(), 1);
  Notify(Route({Via(3)}));  // before those that there are
  EXPECT_EQ(Shown(), 3);
  Replace(Route({Via(4)}));
  EXPECT_EQ(Shown(), 4);
  Delete(Route({Via(4)}));
  EXPECT_EQ(Shown(), 1);
  Delete(Route({Via(1)}));
  EXPECT_EQ(Shown(), 2);
  EXPECT_EQ(Hops(), 1u);
}

TEST_F(RoutesTest, WhatTheKernelHasAnewWentInSilence) {
  Notify(Route({Via(1)}));
  Append(Route({Via(2)}));
  Append(Route({Via(1)}));
  EXPECT_EQ(Shown(), 2);
  EXPECT_EQ(Hops(), 2u);
}

TEST_F(RoutesTest, ADumpTellsTheOrderAndWhatHasGone) {
  for (const uint8_t last : {1, 2, 3}) Append(Route({Via(last)}));
  routes4_.Begin();
  Dump(Route({Via(3)}));
  Dump(Route({Via(2)}));
  End();
  EXPECT_EQ(Shown(), 3);
  EXPECT_EQ(Hops(), 2u);
  EXPECT_FALSE(routes4_.TakeUnsettled());
  Delete(Route({Via(3)}));
  EXPECT_EQ(Shown(), 2);
}

TEST_F(RoutesTest, NotificationsStandAgainstTheDumpThatRuns) {
  Notify(Route({Via(1)}));
  routes4_.Begin();
  Replace(Route({Via(2)}));
  Dump(Route({Via(1)}));
  Dump(Route({Via(2)}));
  EXPECT_EQ(Shown(), 2);
  End();
  EXPECT_EQ(Shown(), 2);
  routes4_.Begin();
  Delete(Route({Via(2)}));
  Dump(Route({Via(2)}));
  End();
  EXPECT_EQ(Shown(), -1);
}

TEST_F(RoutesTest, OfSeveralThatAreTouchedWhileADumpRunsAnotherDumpHasToTell) {
  Notify(Route({Via(1)}));
  routes4_.Begin();
  Append(Route({Via(2)}));
  Dump(Route({Via(1)}));
  Dump(Route({Via(2)}));
  End();
  EXPECT_TRUE(routes4_.TakeUnsettled());
  EXPECT_FALSE(routes4_.TakeUnsettled());
}

TEST_F(RoutesTest, ManyRoutesLeaveInPieces) {
  RouteMessage route = Route({Via(1)});
  for (uint32_t i = 0; i < 5000; ++i) {
    route.destination = {10, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    Notify(route);
  }
  EXPECT_EQ(Values("fib", "prefix").size(), 5000u);
  EXPECT_EQ(Hops(), 1u);
  routes4_.Begin();
  route.destination = {10, 0, 7};
  Dump(route);
  End();
  EXPECT_EQ(Values("fib", "prefix").size(), 1u);
}

TEST_F(RoutesTest, TablesAreVpnsUpToSixteenBits) {
  RouteMessage route = Route({Via(1)});
  for (const uint32_t table : {uint32_t{RT_TABLE_LOCAL}, 1000u, 65535u, 65536u}) {
    route.table = table;
    Notify(route);
  }
  EXPECT_EQ(Values("fib", "prefix").size(), 3u);
  EXPECT_EQ(routes4_.refused(), 1u);
}

TEST_F(RoutesTest, AGroupIsMadeOnceAndLeavesWithItsLastRoute) {
  RouteMessage other = Route({Via(1), Via(2)});
  Notify(other);
  other.destination = {10, 10};
  Notify(other);
  EXPECT_EQ(Values("nhp_group", "primary_count"), std::vector<uint64_t>{2});
  EXPECT_EQ(Values("nhp_group", "primary_nhp_indexes[1]"), std::vector<uint64_t>{2});
  EXPECT_EQ(Values("fib", "multi_next_hop"), (std::vector<uint64_t>{1, 1}));
  Delete(other);
  EXPECT_EQ(Hops(), 2u);
  Delete(Route({Via(1), Via(2)}));
  EXPECT_EQ(Hops(), 0u);
  EXPECT_TRUE(Values("nhp_group", "primary_count").empty());
}

TEST_F(RoutesTest, WaysOfAnIpv6RouteComeAndGoOneByOne) {
  ipv6_ = true;
  Notify(Route({Via(1)}, 5));
  Append(Route({Via(1), Via(2)}, 5));  // the kernel tells of all
  EXPECT_EQ(Values("ipv6_fib", "multi_next_hop"), std::vector<uint64_t>{1});
  Delete(Route({Via(1)}, 5));  // but of the one that goes
  EXPECT_EQ(Shown(), 2);
  Delete(Route({Via(2)}, 5));
  EXPECT_EQ(Shown(), -1);
  EXPECT_EQ(Hops(), 0u);
}

TEST_F(RoutesTest, Ipv6RoutesOfOneMetricWithoutGatewaysAreRoutesOfTheirOwn) {
  ipv6_ = true;
  const auto links = [] { return Values("ipv6_nhp", "if_index"); };
  Notify(Route({Via(0, 2)}, 256));
  Notify(Route({Via(0, 3)}, 256));
  EXPECT_EQ(links(), (std::vector<uint64_t>{2, 3}));
  EXPECT_EQ(Values("ipv6_fib", "nhp_index"), std::vector<uint64_t>{1});
  Delete(Route({Via(0, 2)}, 256));
  EXPECT_EQ(Values("ipv6_fib", "nhp_index"), std::vector<uint64_t>{2});
}

TEST_F(RoutesTest, NextHopObjectsChangeUnderTheirRoutes) {
  const auto object = [&](uint32_t id, uint8_t last) {
    nhmsg head = {};
    head.nh_family = AF_INET;
    objects_.Take(MessageBuilder(RTM_NEWNEXTHOP, head)
                      .Number<uint32_t>(NHA_ID, id)
                      .Number<uint32_t>(NHA_OIF, 2)
                      .Bytes(NHA_GATEWAY, {0, 0, 0, last})
                      .message(),
                  Told::kByNotification);
  };
  RouteMessage route = Route({});
  route.object = 7;
  Notify(route);
  EXPECT_EQ(Shown(), 0);
  EXPECT_TRUE(hops4_.TakeMissing());
  object(7, 1);
  Notify(route);
  EXPECT_EQ(Shown(), 1);
  object(7, 2);
  EXPECT_EQ(Shown(), 2);
  nhmsg head = {};
  objects_.Take(MessageBuilder(RTM_DELNEXTHOP, head).Number<uint32_t>(NHA_ID, 7).message(),
                Told::kByNotification);
  EXPECT_TRUE(objects_.TakeSilentLoss());
  EXPECT_EQ(Hops(), 1u);  // until the route goes
  routes4_.Begin();
  End();
  EXPECT_EQ(Hops(), 0u);
}

TEST_F(RoutesTest, AGroupThatIsToldOfBeforeItsMembersGetsThem) {
  nhmsg head = {};
  objects_.Take(MessageBuilder(RTM_NEWNEXTHOP, head)
                    .Number<uint32_t>(NHA_ID, 3)
                    .Number(NHA_GROUP, nexthop_grp{8, 0, 0, 0})
                    .message(),
                Told::kByDump);
  head.nh_family = AF_INET;
  objects_.Take(
      MessageBuilder(RTM_NEWNEXTHOP, head).Number<uint32_t>(NHA_ID, 8).Number<uint32_t>(NHA_OIF, 2).message(),
      Told::kByDump);
  EXPECT_EQ(Values("nhp_group", "primary_count"), std::vector<uint64_t>{1});
}

TEST_F(RoutesTest, BehindALinkOfAVlanTheBytesBeforeAPacketHaveItsTag) {
  ifinfomsg head = {};
  head.ifi_index = 7;
  head.ifi_type = ARPHRD_ETHER;
  head.ifi_flags = IFF_UP;
  links_.Take(MessageBuilder(RTM_NEWLINK, head)
                  .Text(IFLA_IFNAME, "v0.258")
                  .Bytes(IFLA_ADDRESS, {2, 0, 0, 0, 0, 7})
                  .Nest(IFLA_LINKINFO,
                        [](MessageBuilder &info) {
                          info.Text(IFLA_INFO_KIND, "vlan").Nest(IFLA_INFO_DATA, [](MessageBuilder &data) {
                            data.Number<uint16_t>(IFLA_VLAN_ID, 258);
                          });
                        })
                  .message(),
              Told::kByNotification);
  Leg leg = Via(2, 7);
  leg.gateway[0] = 10;
  Notify(Route({leg}));
  EXPECT_EQ(Values("nhp", "arp_miss"), std::vector<uint64_t>{1});
  neighbours_.Take(ReachedNeighbour().message(), Told::kByNotification);
  for (const NeighbourId &changed : neighbours_.TakeChanged()) hops4_.NeighbourChanged(changed);
  EXPECT_EQ(Values("nhp", "arp_miss"), std::vector<uint64_t>{0});
  std::vector<uint64_t> bytes;
  for (int i = 0; i < 18; ++i) bytes.push_back(Values("nhp", "encap_data[" + std::to_string(i) + "]").at(0));
  EXPECT_EQ(bytes,
            (std::vector<uint64_t>{2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 7, 0x81, 0x00, 0x01, 0x02, 0x08, 0x00}));
  EXPECT_EQ(Values("nhp", "encap_size"), std::vector<uint64_t>{18});
  EXPECT_EQ(Values("nhp", "vlan_id"), std::vector<uint64_t>{258});
  EXPECT_EQ(Values("arp", "vlan_id"), std::vector<uint64_t>{258});
}

TEST(NumbersTest, AreGivenOnceAndRestBeforeTheyAreGivenAgain) {
  Numbers few(2);
  EXPECT_EQ(few.Take(), 1u);
  EXPECT_EQ(few.Take(), 2u);
  EXPECT_FALSE(few.TakeRoomAgain());
  EXPECT_EQ(few.Take(), 0u);
  EXPECT_EQ(few.refused(), 1u);
  EXPECT_FALSE(few.TakeRoomAgain());
  few.Return(2);
  EXPECT_TRUE(few.TakeRoomAgain());
  EXPECT_FALSE(few.TakeRoomAgain());
  EXPECT_EQ(few.Take(), 2u);
  few.Return(1);
  EXPECT_FALSE(few.TakeRoomAgain()) << "nobody has lacked it";
  Numbers many(1000);
  many.Return(many.Take());
  EXPECT_EQ(many.Take(), 2u);
}

}  // namespace
}  // namespace qdt::host
