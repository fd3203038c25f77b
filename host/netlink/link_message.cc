#include "host/netlink/link_message.h"

#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>

namespace qdt::host {
namespace {

constexpr uint32_t kTicks = 100;  // a second, of the bridges' times

void ReadPort(const nlattr *nest, BridgePort *port) {
  const Attributes<IFLA_BRPORT_MAX> values(nest);
  port->state = Number<uint8_t>(values[IFLA_BRPORT_STATE], port->state);
  port->isolated = Number<uint8_t>(values[IFLA_BRPORT_ISOLATED], port->isolated) != 0;
  port->learning = Number<uint8_t>(values[IFLA_BRPORT_LEARNING], port->learning) != 0;
}

void ReadBridge(const nlattr *nest, Bridge *bridge) {
  const Attributes<IFLA_BR_MAX> values(nest);
  bridge->agingTime = Number<uint32_t>(values[IFLA_BR_AGEING_TIME]) / kTicks;
  bridge->vlanFiltering = Number<uint8_t>(values[IFLA_BR_VLAN_FILTERING]) != 0;
  bridge->spanningTree = Number<uint32_t>(values[IFLA_BR_STP_STATE]) != 0;
  bridge->multicastSnooping = Number<uint8_t>(values[IFLA_BR_MCAST_SNOOPING]) != 0;
}

void ReadKind(const nlattr *nest, Link *link) {
  const Attributes<IFLA_INFO_MAX> info(nest);
  link->kind = Text(info[IFLA_INFO_KIND]);
  const nlattr *data = info[IFLA_INFO_DATA];
  if (link->kind == "bridge") ReadBridge(data, &link->bridge);
  if (link->kind == "vlan") link->vlan = Number<uint16_t>(Attributes<IFLA_VLAN_MAX>(data)[IFLA_VLAN_ID]);
  if (link->kind == "vrf") link->table = Number<uint32_t>(Attributes<IFLA_VRF_MAX>(data)[IFLA_VRF_TABLE]);
  link->isPort = Text(info[IFLA_INFO_SLAVE_KIND]) == "bridge";
  if (link->isPort) ReadPort(info[IFLA_INFO_SLAVE_DATA], &link->port);
}

bool ReadCounters(const nlattr *attribute, LinkCounters *counters) {
  // The kernel's structure has grown at its end, and may be longer or shorter than ours.
  rtnl_link_stats64 stats = {};
  const Bytes bytes = Payload(attribute);
  if (bytes.empty()) return false;
  std::memcpy(&stats, bytes.data(), std::min(bytes.size(), sizeof stats));
  *counters = {stats.rx_bytes,   stats.rx_packets, stats.multicast, stats.tx_bytes,
               stats.tx_packets, stats.rx_dropped, stats.tx_dropped};
  return true;
}

}  // namespace

bool Link::IsUp() const { return (flags & IFF_UP) != 0; }

bool Link::ResolvesNeighbours() const {
  return (flags & (IFF_NOARP | IFF_LOOPBACK | IFF_POINTOPOINT)) == 0 && type == ARPHRD_ETHER;
}

bool ReadLink(const Message &message, Link *link) {
  const auto *head = message.Head<ifinfomsg>();
  if (head == nullptr || head->ifi_index <= 0) return false;
  const Attributes<IFLA_MAX> values(message.Rest<ifinfomsg>());
  if (!values.Has(IFLA_IFNAME)) return false;
  LinkCounters counters = link->counters;
  *link = {};
  link->index = static_cast<uint32_t>(head->ifi_index);
  link->flags = head->ifi_flags;
  link->type = head->ifi_type;
  link->name = Text(values[IFLA_IFNAME]);
  link->mtu = Number<uint32_t>(values[IFLA_MTU]);
  link->carrier = Number<uint8_t>(values[IFLA_CARRIER], (head->ifi_flags & IFF_LOWER_UP) != 0) != 0;
  link->master = Number<uint32_t>(values[IFLA_MASTER]);
  const Bytes mac = Payload(values[IFLA_ADDRESS]);
  if (mac.size() == link->mac.size()) std::ranges::copy(mac, link->mac.begin());
  if (values.Has(IFLA_LINKINFO)) ReadKind(values[IFLA_LINKINFO], link);
  // A pair of virtual links name each other, and none stands on the other; nor does one in another namespace.
  if (link->kind != "veth" && !values.Has(IFLA_LINK_NETNSID))
    link->lower = Number<uint32_t>(values[IFLA_LINK]);
  if (link->lower == link->index) link->lower = 0;
  if (!ReadCounters(values[IFLA_STATS64], &link->counters)) link->counters = counters;
  return true;
}

bool ReadBridgePort(const Message &message, BridgePort *port) {
  const Attributes<IFLA_MAX> values(message.Rest<ifinfomsg>());
  if (!values.Has(IFLA_PROTINFO)) return false;
  ReadPort(values[IFLA_PROTINFO], port);
  return true;
}

std::vector<PortVlan> ReadPortVlans(const Message &message) {
  std::vector<PortVlan> vlans;
  const Attributes<IFLA_MAX> values(message.Rest<ifinfomsg>());
  uint16_t from = 0;
  ForEachAttribute(Payload(values[IFLA_AF_SPEC]), [&](const nlattr *attribute) {
    const Bytes bytes = Payload(attribute);
    bridge_vlan_info info;
    if (nla_type(attribute) != IFLA_BRIDGE_VLAN_INFO || bytes.size() < sizeof info) return;
    std::memcpy(&info, bytes.data(), sizeof info);
    if ((info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) != 0) {
      from = info.vid;
      return;
    }
    if ((info.flags & BRIDGE_VLAN_INFO_RANGE_END) == 0) from = info.vid;
    for (uint32_t vlan = from; vlan <= info.vid && vlan < 4096; ++vlan) {
      vlans.push_back({static_cast<uint16_t>(vlan), (info.flags & BRIDGE_VLAN_INFO_UNTAGGED) != 0,
                       (info.flags & BRIDGE_VLAN_INFO_PVID) != 0});
    }
  });
  return vlans;
}

bool ReadLinkCounters(const Message &message, uint32_t *index, LinkCounters *counters) {
  const auto *head = message.Head<if_stats_msg>();
  if (head == nullptr) return false;
  *index = head->ifindex;
  const Attributes<IFLA_STATS_MAX> values(message.Rest<if_stats_msg>());
  return ReadCounters(values[IFLA_STATS_LINK_64], counters);
}

}  // namespace qdt::host
