#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <memory>
#include <random>

#include "host/linux/bridges.h"
#include "host/linux/fdb.h"
#include "host/linux/kernel_statistics.h"
#include "host/linux/neighbours.h"
#include "host/linux/nexthops.h"
#include "host/netlink/connection_message.h"
#include "host/netlink/link_message.h"
#include "host/netlink/netlink.h"
#include "host/netlink/route_message.h"
#include "tests/linux/mirror_fixture.h"

// What the kernel's messages say, and that those which are cut or lie about their lengths lead nowhere.
namespace qdt::host {
namespace {

MessageBuilder PortOfBridge() {
  ifinfomsg head = {};
  head.ifi_index = 7;
  head.ifi_type = 1;
  head.ifi_flags = IFF_UP;
  MessageBuilder message(RTM_NEWLINK, head);
  message.Text(IFLA_IFNAME, "port7").Number<uint32_t>(IFLA_MTU, 1500).Number<uint8_t>(IFLA_CARRIER, 1);
  message.Bytes(IFLA_ADDRESS, {2, 0, 0, 0, 0, 7}).Number<uint32_t>(IFLA_MASTER, 3);
  rtnl_link_stats64 stats = {};
  stats.rx_bytes = 1000;
  stats.tx_packets = 9;
  message.Number(IFLA_STATS64, stats);
  message.Nest(IFLA_LINKINFO, [](MessageBuilder &info) {
    info.Text(IFLA_INFO_KIND, "veth").Text(IFLA_INFO_SLAVE_KIND, "bridge");
    info.Nest(IFLA_INFO_SLAVE_DATA, [](MessageBuilder &data) {
      data.Number<uint8_t>(IFLA_BRPORT_STATE, BR_STATE_FORWARDING).Number<uint8_t>(IFLA_BRPORT_ISOLATED, 1);
      data.Number<uint8_t>(IFLA_BRPORT_LEARNING, 0);
    });
  });
  return message;
}

TEST(LinkMessageTest, TellsOfAPortOfABridge) {
  Link link;
  ASSERT_TRUE(ReadLink(PortOfBridge().message(), &link));
  EXPECT_EQ(link.index, 7u);
  EXPECT_EQ(link.name, "port7");
  EXPECT_EQ(link.kind, "veth");
  EXPECT_EQ(link.mtu, 1500u);
  EXPECT_EQ(link.mac, (MacAddress{2, 0, 0, 0, 0, 7}));
  EXPECT_EQ(link.master, 3u);
  EXPECT_TRUE(link.IsUp() && link.carrier && link.isPort && link.port.isolated);
  EXPECT_FALSE(link.port.learning);
  EXPECT_EQ(link.port.state, BR_STATE_FORWARDING);
  EXPECT_EQ(link.counters.inBytes, 1000u);
  EXPECT_EQ(link.counters.outPackets, 9u);
}

TEST(LinkMessageTest, TellsOfVlansVrfsAndBridges) {
  ifinfomsg head = {};
  head.ifi_index = 8;
  const auto read = [&](const std::string &kind, uint32_t lower,
                        const std::function<void(MessageBuilder &)> &data) {
    MessageBuilder message(RTM_NEWLINK, head);
    message.Text(IFLA_IFNAME, "x").Number<uint32_t>(IFLA_LINK, lower);
    message.Nest(IFLA_LINKINFO,
                 [&](MessageBuilder &info) { info.Text(IFLA_INFO_KIND, kind).Nest(IFLA_INFO_DATA, data); });
    Link link;
    EXPECT_TRUE(ReadLink(message.message(), &link));
    return link;
  };
  const Link vlan = read("vlan", 5, [](MessageBuilder &data) { data.Number<uint16_t>(IFLA_VLAN_ID, 42); });
  EXPECT_EQ(vlan.vlan, 42u);
  EXPECT_EQ(vlan.lower, 5u);
  EXPECT_EQ(read("veth", 5, [](MessageBuilder &) {}).lower, 0u);
  EXPECT_EQ(read("vrf", 0, [](MessageBuilder &data) { data.Number<uint32_t>(IFLA_VRF_TABLE, 100); }).table,
            100u);
  const Link bridge = read("bridge", 0, [](MessageBuilder &data) {
    data.Number<uint32_t>(IFLA_BR_AGEING_TIME, 30000).Number<uint8_t>(IFLA_BR_VLAN_FILTERING, 1);
    data.Number<uint32_t>(IFLA_BR_STP_STATE, 1).Number<uint8_t>(IFLA_BR_MCAST_SNOOPING, 1);
  });
  EXPECT_TRUE(bridge.IsBridge() && bridge.bridge.vlanFiltering && bridge.bridge.spanningTree);
  EXPECT_EQ(bridge.bridge.agingTime, 300u);
}

MessageBuilder VlansOfPort() {
  ifinfomsg head = {};
  head.ifi_family = AF_BRIDGE;
  head.ifi_index = 7;
  MessageBuilder message(RTM_NEWLINK, head);
  return message.Nest(IFLA_AF_SPEC, [](MessageBuilder &list) {
    list.Number(IFLA_BRIDGE_VLAN_INFO,
                bridge_vlan_info{BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 1});
    list.Number(IFLA_BRIDGE_VLAN_INFO, bridge_vlan_info{BRIDGE_VLAN_INFO_RANGE_BEGIN, 10});
    list.Number(IFLA_BRIDGE_VLAN_INFO, bridge_vlan_info{BRIDGE_VLAN_INFO_RANGE_END, 12});
  });
}

TEST(LinkMessageTest, TellsOfAPortsVlans) {
  std::vector<uint32_t> numbers;
  const std::vector<PortVlan> vlans = ReadPortVlans(VlansOfPort().message());
  for (const PortVlan &vlan : vlans) numbers.push_back(vlan.vlan);
  EXPECT_EQ(numbers, (std::vector<uint32_t>{1, 10, 11, 12}));
  EXPECT_TRUE(vlans[0].pvid && vlans[0].untagged);
  EXPECT_FALSE(vlans[1].pvid || vlans[1].untagged);
}

void AddWay(MessageBuilder *message, int link, uint8_t hops, std::initializer_list<uint8_t> gateway) {
  rtnexthop way = {};
  way.rtnh_len = static_cast<uint16_t>(sizeof way + NLA_HDRLEN + gateway.size());
  way.rtnh_ifindex = link;
  way.rtnh_hops = hops;
  message->Raw(&way, sizeof way).Bytes(RTA_GATEWAY, gateway);
}

MessageBuilder MultipathRoute() {
  rtmsg head = {};
  head.rtm_family = AF_INET;
  head.rtm_dst_len = 16;
  head.rtm_type = RTN_UNICAST;
  head.rtm_table = RT_TABLE_COMPAT;
  MessageBuilder message(RTM_NEWROUTE, head, NLM_F_REPLACE);
  message.Bytes(RTA_DST, {10, 9, 0, 0}).Number<uint32_t>(RTA_TABLE, 1000).Number<uint32_t>(RTA_PRIORITY, 20);
  return message.Nest(RTA_MULTIPATH, [](MessageBuilder &ways) {
    AddWay(&ways, 2, 0, {10, 0, 0, 2});
    AddWay(&ways, 3, 4, {10, 0, 1, 2});
  });
}

TEST(RouteMessageTest, TellsOfSeveralWays) {
  RouteMessage route;
  ASSERT_TRUE(ReadRoute(MultipathRoute().message(), &route));
  EXPECT_EQ(route.table, 1000u);
  EXPECT_EQ(route.metric, 20u);
  EXPECT_EQ(route.prefix, 16);
  EXPECT_TRUE(route.isNew && route.replaces && !route.appends);
  ASSERT_EQ(route.legs.size(), 2u);
  EXPECT_EQ(route.legs[0].link, 2u);
  EXPECT_EQ(route.legs[1].weight, 5u);
  EXPECT_EQ(NumberOf(route.legs[1].gateway, kIpv4), 0x0a000102u);
}

TEST(RouteMessageTest, TellsOfAGatewayOfTheOtherFamily) {
  rtmsg head = {};
  head.rtm_family = AF_INET;
  head.rtm_type = RTN_UNICAST;
  MessageBuilder message(RTM_NEWROUTE, head);
  message.Number<uint32_t>(RTA_OIF, 2);
  message.Bytes(RTA_VIA, {AF_INET6, 0, 0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9});
  RouteMessage route;
  ASSERT_TRUE(ReadRoute(message.message(), &route));
  ASSERT_EQ(route.legs.size(), 1u);
  EXPECT_EQ(route.legs[0].gatewayFamily, kIpv6);
  EXPECT_EQ(route.legs[0].gateway[15], 9);
}

TEST(RouteMessageTest, PassesOverWhatIsNoRouteOfTheTables) {
  RouteMessage route;
  rtmsg head = {};
  head.rtm_family = AF_INET;
  head.rtm_type = RTN_UNICAST;
  const auto reads = [&](const std::function<void(rtmsg &)> &change) {
    rtmsg changed = head;
    change(changed);
    return ReadRoute(MessageBuilder(RTM_NEWROUTE, changed).message(), &route);
  };
  EXPECT_TRUE(reads([](rtmsg &) {}));
  EXPECT_FALSE(reads([](rtmsg &h) { h.rtm_family = RTNL_FAMILY_IPMR; }));
  EXPECT_FALSE(reads([](rtmsg &h) { h.rtm_dst_len = 33; }));
  EXPECT_FALSE(reads([](rtmsg &h) { h.rtm_src_len = 8; }));
  EXPECT_FALSE(reads([](rtmsg &h) { h.rtm_flags = RTM_F_CLONED; }));
}

MessageBuilder TranslatedConnection() {
  const nfgenmsg head{AF_INET, NFNETLINK_V0, 0};
  MessageBuilder message(NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_NEW, head);
  const auto tuple = [&](uint16_t type, std::initializer_list<uint8_t> from,
                         std::initializer_list<uint8_t> to, uint16_t sourcePort, uint16_t port) {
    message.Nest(type, [&](MessageBuilder &parts) {
      parts.Nest(CTA_TUPLE_IP,
                 [&](MessageBuilder &ip) { ip.Bytes(CTA_IP_V4_SRC, from).Bytes(CTA_IP_V4_DST, to); });
      parts.Nest(CTA_TUPLE_PROTO, [&](MessageBuilder &proto) {
        proto.Number<uint8_t>(CTA_PROTO_NUM, 6).Number<uint16_t>(CTA_PROTO_SRC_PORT, htobe16(sourcePort));
        proto.Number<uint16_t>(CTA_PROTO_DST_PORT, htobe16(port));
      });
    });
  };
  tuple(CTA_TUPLE_ORIG, {10, 0, 0, 1}, {10, 0, 0, 2}, 40000, 443);
  tuple(CTA_TUPLE_REPLY, {10, 0, 0, 2}, {192, 0, 2, 1}, 443, 5000);
  message.Number<uint32_t>(CTA_STATUS, htobe32(0x10)).Number<uint32_t>(CTA_TIMEOUT, htobe32(120));
  return message.Nest(CTA_PROTOINFO, [](MessageBuilder &info) {
    info.Nest(CTA_PROTOINFO_TCP,
              [](MessageBuilder &tcp) { tcp.Number<uint8_t>(CTA_PROTOINFO_TCP_STATE, 3); });
  });
}

TEST(ConnectionMessageTest, TellsOfBothDirections) {
  ConnectionMessage connection;
  ASSERT_TRUE(ReadConnection(TranslatedConnection().message(), &connection));
  EXPECT_EQ(NumberOf(connection.original.source, kIpv4), 0x0a000001u);
  EXPECT_EQ(connection.original.destinationPort, 443);
  EXPECT_EQ(NumberOf(connection.reply.destination, kIpv4), 0xc0000201u);
  EXPECT_EQ(connection.reply.destinationPort, 5000);
  EXPECT_EQ(connection.timeout, 120u);
  EXPECT_EQ(connection.tcpState, 3);
  EXPECT_FALSE(connection.gone);
}

TEST(StatisticsTextTest, PairsOfLinesAndLinesOfPairs) {
  KernelCounters counters;
  ReadPairs("Ip: Forwarding InReceives OutRequests\nIp: 1 42 17\nTcp: MaxConn InSegs\nTcp: -1 5\n",
            &counters);
  ReadLines("Ip6InReceives                   \t7\nIp6Bad x\n\n", &counters);
  EXPECT_EQ(counters, (KernelCounters{{"Ip.Forwarding", 1},
                                      {"Ip.InReceives", 42},
                                      {"Ip.OutRequests", 17},
                                      {"Tcp.InSegs", 5},
                                      {"Ip6InReceives", 7}}));
  counters.clear();
  ReadPairs("Ip: A B\nUdp: 1 2\n", &counters);
  ReadPairs("Ip: A B C\nIp: 1", &counters);
  ReadPairs("", &counters);
  EXPECT_EQ(counters, (KernelCounters{{"Ip.A", 1}}));
}

// Whoever reads messages, with all of them.
class AllReaders : public MirrorTest {
 protected:
  AllReaders() { objects_.SetFamilies(&hops4_, &hops6_); }

  void Read(const Message &message) {
    Link link;
    BridgePort port;
    RouteMessage route;
    ConnectionMessage connection;
    Expectation expectation;
    LinkCounters counters;
    uint32_t index;
    ReadLink(message, &link);
    ReadBridgePort(message, &port);
    ReadPortVlans(message);
    ReadRoute(message, &route);
    ReadConnection(message, &connection);
    ReadExpectation(message, &expectation);
    ReadLinkCounters(message, &index, &counters);
    for (const Told told : {Told::kByDump, Told::kByNotification}) {
      links_.Take(message, told);
      fdb_.Take(message, told);
      multicast_.Take(message, told);
      neighbours_.Take(message, told);
      addresses_.Take(message, told);
      objects_.Take(message, told);
    }
  }

  // Has the one read it that it is for.
  void Dispatch(const Message &message) {
    const bool isBridge = *message.Head<uint8_t>() == AF_BRIDGE;
    if (message.type == RTM_NEWLINK && !isBridge) links_.Take(message, Told::kByDump);
    if (message.type == RTM_NEWNEIGH && isBridge) fdb_.Take(message, Told::kByDump);
    if (message.type == RTM_NEWNEIGH && !isBridge) neighbours_.Take(message, Told::kByDump);
    if (message.type == RTM_NEWADDR) addresses_.Take(message, Told::kByDump);
    if (message.type == RTM_NEWNEXTHOP) objects_.Take(message, Told::kByDump);
    if (message.type == RTM_NEWMDB) multicast_.Take(message, Told::kByDump);
  }

  // The payload in a block of its own size, so that a sanitizer sees who reads behind it.
  void ReadAlone(const MessageBuilder &message, Bytes payload) {
    const std::unique_ptr<uint8_t[]> block(new uint8_t[payload.size()]);
    std::ranges::copy(payload, block.get());
    Read(message.Cut({block.get(), payload.size()}));
  }

  static std::vector<MessageBuilder> Samples() {
    std::vector<MessageBuilder> samples = {PortOfBridge(), VlansOfPort(), MultipathRoute(),
                                           TranslatedConnection(), ReachedNeighbour()};
    ndmsg neighbour = {};
    neighbour.ndm_family = AF_BRIDGE;
    neighbour.ndm_ifindex = 7;
    neighbour.ndm_state = NUD_REACHABLE;
    samples.push_back(MessageBuilder(RTM_NEWNEIGH, neighbour)
                          .Bytes(NDA_LLADDR, {2, 0, 0, 0, 0, 3})
                          .Number<uint32_t>(NDA_MASTER, 3)
                          .Number(NDA_CACHEINFO, nda_cacheinfo{}));
    ifaddrmsg address = {};
    address.ifa_family = AF_INET;
    address.ifa_prefixlen = 24;
    address.ifa_index = 7;
    samples.push_back(
        MessageBuilder(RTM_NEWADDR, address).Bytes(IFA_LOCAL, {10, 0, 0, 1}).Number<uint32_t>(IFA_FLAGS, 1));
    nhmsg object = {};
    object.nh_family = AF_INET;
    samples.push_back(MessageBuilder(RTM_NEWNEXTHOP, object)
                          .Number<uint32_t>(NHA_ID, 5)
                          .Number<uint32_t>(NHA_OIF, 7)
                          .Bytes(NHA_GATEWAY, {10, 0, 0, 2}));
    samples.push_back(MessageBuilder(RTM_NEWNEXTHOP, object)
                          .Number<uint32_t>(NHA_ID, 6)
                          .Number(NHA_GROUP, nexthop_grp{5, 0, 0, 0}));
    br_port_msg bridge = {};
    bridge.ifindex = 3;
    samples.push_back(MessageBuilder(RTM_NEWMDB, bridge).Nest(MDBA_MDB, [](MessageBuilder &list) {
      list.Nest(MDBA_MDB_ENTRY, [](MessageBuilder &entry) {
        br_mdb_entry info = {};
        info.ifindex = 7;
        info.addr.proto = htobe16(0x0800);
        entry.Number(MDBA_MDB_ENTRY_INFO, info);
      });
    }));
    return samples;
  }

  Links links_{target()};
  Fdb fdb_{target()};
  Multicast multicast_{target()};
  Neighbours neighbours_{target(), links_};
  Addresses addresses_{target()};
  NextHopObjects objects_;
  NextHops hops4_{target(), kIpv4, links_, neighbours_, objects_};
  NextHops hops6_{target(), kIpv6, links_, neighbours_, objects_};
};

TEST_F(AllReaders, SeeWhatTheSamplesSay) {
  for (const MessageBuilder &sample : Samples()) Dispatch(sample.message());
  EXPECT_EQ(Values("fwdif", "if_index"), std::vector<uint64_t>{7});
  EXPECT_EQ(Values("ssw_macinfo", "mac"), std::vector<uint64_t>{0x020000000003});
  EXPECT_EQ(Values("arp", "dmac"), std::vector<uint64_t>{0x020000000002});
  EXPECT_EQ(Values("portip", "address"), std::vector<uint64_t>{0x0a000001});
  EXPECT_EQ(Values("nhp", "next_hop"), std::vector<uint64_t>{0x0a000002});
  EXPECT_EQ(Values("nhp_group", "primary_count"), std::vector<uint64_t>{1});
  EXPECT_EQ(Values("mc_elb", "fwd_if_index"), std::vector<uint64_t>{7});
}

TEST_F(AllReaders, StayInsideMessagesThatAreCut) {
  for (const MessageBuilder &sample : Samples()) {
    for (size_t size = 0; size <= sample.payload().size(); ++size)
      ReadAlone(sample, Bytes(sample.payload()).first(size));
  }
  Read(MessageBuilder(RTM_NEWLINK, ifinfomsg{}).message());
}

TEST_F(AllReaders, StayInsideMessagesThatLie) {
  std::mt19937 random(7);
  for (const MessageBuilder &sample : Samples()) {
    for (int round = 0; round < 400; ++round) {
      std::vector<uint8_t> payload = sample.payload();
      for (int i = 0; i < 3; ++i) payload[random() % payload.size()] = static_cast<uint8_t>(random());
      ReadAlone(sample, payload);
    }
  }
}

TEST(BufferTest, IsSplitIntoMessagesUpToWhereItIsCut) {
  std::vector<uint32_t> buffer(12);
  auto *first = reinterpret_cast<nlmsghdr *>(buffer.data());
  first->nlmsg_len = 20;
  first->nlmsg_type = 30;
  auto *second = reinterpret_cast<nlmsghdr *>(buffer.data() + 5);
  second->nlmsg_len = 400;
  const auto count = [&] {
    uint32_t messages = 0;
    ForEachMessage({reinterpret_cast<const uint8_t *>(buffer.data()), 48},
                   [&](const Message &message) { messages += message.payload.size() < 400; });
    return messages;
  };
  EXPECT_EQ(count(), 1u);
  second->nlmsg_len = 28;
  EXPECT_EQ(count(), 2u);
  second->nlmsg_len = 15;
  EXPECT_EQ(count(), 1u);
}

}  // namespace
}  // namespace qdt::host
