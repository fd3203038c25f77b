#include "host/linux/bridges.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "host/linux/neighbours.h"
#include "tests/linux/mirror_fixture.h"

// What follows from links: VLANs that a bridge filters by, isolation, VRFs.
namespace qdt::host {
namespace {

class BridgesTest : public MirrorTest {
 protected:
  using Fill = std::function<void(MessageBuilder &)>;

  MessageBuilder LinkMessage(int index, const std::string &kind, uint32_t master, const Fill &data,
                             uint16_t type) {
    ifinfomsg head = {};
    head.ifi_index = index;
    head.ifi_flags = IFF_UP;
    MessageBuilder message(type, head);
    message.Text(IFLA_IFNAME, "link" + std::to_string(index)).Number<uint8_t>(IFLA_CARRIER, 1);
    message.Number<uint32_t>(IFLA_MASTER, master);
    return message.Nest(IFLA_LINKINFO, [&](MessageBuilder &info) {
      info.Text(IFLA_INFO_KIND, kind).Nest(IFLA_INFO_DATA, data);
      const Link *of = links_.Find(master);
      if (of == nullptr || !of->IsBridge()) return;
      info.Text(IFLA_INFO_SLAVE_KIND, "bridge").Nest(IFLA_INFO_SLAVE_DATA, [](MessageBuilder &port) {
        port.Number<uint8_t>(IFLA_BRPORT_STATE, BR_STATE_FORWARDING).Number<uint8_t>(IFLA_BRPORT_ISOLATED, 1);
      });
    });
  }
  void AddLink(
      int index, const std::string &kind, uint32_t master = 0, const Fill &data = [](MessageBuilder &) {}) {
    links_.Take(LinkMessage(index, kind, master, data, RTM_NEWLINK).message(), Told::kByNotification);
  }
  void RemoveLink(int index) {
    links_.Take(LinkMessage(
                    index, "", 0, [](MessageBuilder &) {}, RTM_DELLINK)
                    .message(),
                Told::kByNotification);
  }
  void Vlans(int index, std::initializer_list<bridge_vlan_info> vlans) {
    ifinfomsg head = {};
    head.ifi_family = AF_BRIDGE;
    head.ifi_index = index;
    bridges_.Take(MessageBuilder(RTM_NEWLINK, head)
                      .Nest(IFLA_AF_SPEC,
                            [&](MessageBuilder &list) {
                              for (const bridge_vlan_info &vlan : vlans)
                                list.Number(IFLA_BRIDGE_VLAN_INFO, vlan);
                            })
                      .message());
  }
  // The values of a field by the interface that they belong to.
  static std::map<uint64_t, uint64_t> ByLink(const std::string &table, const std::string &field) {
    const std::vector<uint64_t> links = Values(table, "if_index"), values = Values(table, field);
    std::map<uint64_t, uint64_t> found;
    for (size_t i = 0; i < links.size(); ++i) found[links[i]] = values[i];
    return found;
  }
  void Settle() {
    links_.Settle();
    bridges_.Derive();
  }

  Links links_{target()};
  Bridges bridges_{target(), &links_};
};

TEST_F(BridgesTest, ABridgeThatFiltersFloodsByVlan) {
  AddLink(3, "bridge", 0, [](MessageBuilder &data) { data.Number<uint8_t>(IFLA_BR_VLAN_FILTERING, 1); });
  AddLink(7, "veth", 3);
  AddLink(8, "veth", 3);
  AddLink(9, "vlan", 0, [](MessageBuilder &data) { data.Number<uint16_t>(IFLA_VLAN_ID, 10); });
  bridges_.Begin();
  Vlans(7, {{BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 1}, {0, 10}});
  Vlans(8, {{0, 10}, {0, 4095}});
  bridges_.End(true);
  Settle();
  EXPECT_EQ(Values("bridgeinfo", "vlan_filter"), std::vector<uint64_t>{1});
  std::map<uint64_t, std::multiset<uint64_t>> flooded;
  const std::vector<uint64_t> vlans = Values("ssw_boardcast", "vlan_id"),
                              ports = Values("ssw_boardcast", "fwd_if_index");
  for (size_t i = 0; i < vlans.size(); ++i) flooded[vlans[i]].insert(ports[i]);
  EXPECT_EQ(flooded, (std::map<uint64_t, std::multiset<uint64_t>>{{1, {7}}, {10, {7, 8}}, {4095, {8}}}));
  EXPECT_TRUE(Values("ssw_global_boardcast", "fwd_if_index").empty());
  using Map = std::map<uint64_t, uint64_t>;
  EXPECT_EQ(ByLink("vlan_bitmap", "members[0]"), (Map{{3, 0}, {7, 0x402}, {8, 0x400}}));
  EXPECT_EQ(ByLink("vlan_bitmap", "members[127]"), (Map{{3, 0}, {7, 0}, {8, 0x80000000}}));
  EXPECT_EQ(ByLink("vlan_bitmap", "untagged[0]"), (Map{{3, 0}, {7, 2}, {8, 0}}));
  EXPECT_EQ(Values("vlaninfo", "vlan_id"), (std::vector<uint64_t>{1, 10, 4095}));
  EXPECT_EQ(Values("fwdif", "pvid"), (std::vector<uint64_t>{0, 1, 0, 0}));
  RemoveLink(8);
  Settle();
  EXPECT_EQ(Values("ssw_boardcast", "fwd_if_index"), (std::vector<uint64_t>{7, 7}));
  EXPECT_EQ(Values("vlaninfo", "vlan_id"), (std::vector<uint64_t>{1, 10}));
}

TEST_F(BridgesTest, ABridgeThatDoesNotFilterFloodsToAllAndIsolatesPairs) {
  AddLink(3, "bridge");
  for (const int port : {7, 8, 9}) AddLink(port, "veth", 3);
  Settle();
  EXPECT_EQ(Values("ssw_global_boardcast", "fwd_if_index").size(), 3u);
  EXPECT_EQ(Values("port_isolate", "isolate").size(), 6u);
  EXPECT_EQ(Values("port_inst_state", "state"), (std::vector<uint64_t>(3, BR_STATE_FORWARDING)));
  EXPECT_EQ(Values("fwdif", "bridge_id"), (std::vector<uint64_t>{0, 3, 3, 3}));
  AddLink(9, "veth");
  Settle();
  EXPECT_EQ(Values("port_isolate", "isolate").size(), 2u);
  RemoveLink(3);
  Settle();
  EXPECT_TRUE(Values("port_isolate", "isolate").empty());
  EXPECT_TRUE(Values("bridgeinfo", "bridge_id").empty());
  EXPECT_EQ(Values("fwdif", "bridge_id"), (std::vector<uint64_t>{0, 0, 0}));
}

TEST_F(BridgesTest, WhatIsBehindALinkOfAVrfIsInItsVpn) {
  Neighbours neighbours(target(), links_);
  AddLink(4, "vrf", 0, [](MessageBuilder &data) { data.Number<uint32_t>(IFLA_VRF_TABLE, 100); });
  AddLink(7, "veth", 4);
  const MessageBuilder neighbour = ReachedNeighbour();
  neighbours.Take(neighbour.message(), Told::kByNotification);
  const auto isThere = [](uint16_t vpn) {
    const struct {
      uint16_t reserved, vpn;
      uint32_t address;
    } key{0, vpn, 0x0a000002};
    void *entry = nullptr;
    return TbmTblSearch(0, Layout::BuiltIn().FindTable("arp")->spec.id, &key, &entry) == 0;
  };
  EXPECT_TRUE(isThere(100));
  EXPECT_EQ(Values("fwdif", "vpn"), (std::vector<uint64_t>{100, 100}));  // the VRF itself, too
  AddLink(7, "veth");
  neighbours.LinksChanged({7});
  EXPECT_FALSE(isThere(100));
  EXPECT_TRUE(isThere(0));
  AddLink(4, "vrf", 0, [](MessageBuilder &data) { data.Number<uint32_t>(IFLA_VRF_TABLE, 70000); });
  AddLink(7, "veth", 4);
  neighbours.LinksChanged({7});
  EXPECT_EQ(Values("arp", "valid").size(), 0u);  // no VPN can be that
}

TEST_F(BridgesTest, LinksOfABondAreMembersOfATrunk) {
  AddLink(3, "bond");
  AddLink(7, "veth", 3);
  AddLink(8, "veth");
  Settle();
  EXPECT_EQ(ByLink("fwdif", "trunk_member"), (std::map<uint64_t, uint64_t>{{3, 0}, {7, 1}, {8, 0}}));
  AddLink(7, "veth");
  Settle();
  EXPECT_EQ(ByLink("fwdif", "trunk_member"), (std::map<uint64_t, uint64_t>{{3, 0}, {7, 0}, {8, 0}}));
}

}  // namespace
}  // namespace qdt::host
