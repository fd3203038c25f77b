#include "host/linux/links.h"

#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

#include <algorithm>

namespace qdt::host {
namespace {

constexpr uint32_t kMostMtu = 0xffff;  // the loopback has one more

bool SameButCounters(const Link &a, const Link &b) {
  return a.flags == b.flags && a.carrier == b.carrier && a.mtu == b.mtu && a.mac == b.mac &&
         a.master == b.master && a.lower == b.lower && a.vlan == b.vlan && a.table == b.table &&
         a.kind == b.kind && a.name == b.name && a.isPort == b.isPort && a.port == b.port &&
         a.bridge == b.bridge;
}

}  // namespace

Links::Links(const FillTarget &target) : table_(target, "fwdif"), map_(target, "ctrlif_map_fwdif") {
  key_ = table_.Key("if_index");
  const auto value = [this](const char *path) { return table_.Value(path); };
  fields_ = {value("if_index"),
             value("enable"),
             value("down"),
             value("virtual"),
             value("layer3"),
             value("ctrl_if_index"),
             value("flags"),
             value("father_if_index"),
             value("link_type"),
             value("source_mac"),
             value("pvid"),
             value("bridge_id"),
             value("mac_learning"),
             value("igmp_snooping"),
             value("vlan_id"),
             value("mac_count"),
             value("trunk_member"),
             value("port_isolate"),
             value("stp_enable"),
             value("stp_block"),
             value("stp_forward_enable"),
             value("vpn"),
             value("mtu"),
             value("ipv6_vpn"),
             value("ipv6_mtu"),
             value("counters[0].in_bytes"),
             value("counters[0].in_packets"),
             value("counters[0].in_multicast"),
             value("counters[0].out_bytes"),
             value("counters[0].out_packets")};
  mapKey_ = map_.Key("ctrl_if_index");
  mapControl_ = map_.Value("ctrl_if_index");
  mapForward_ = map_.Value("fwd_if_index");
}

void Links::Take(const Message &message, Told told) {
  Link link;
  const auto *head = message.Head<ifinfomsg>();
  if (head == nullptr || head->ifi_index <= 0) return;
  const Id id{static_cast<uint32_t>(head->ifi_index)};
  if (message.type == RTM_DELLINK) {
    links_.Drop(id, [this](const Id &, Known &known) { Leave(&known); });
    return;
  }
  if (const Known *known = links_.Find(id)) link = known->link;
  if (!ReadLink(message, &link)) return;
  Known *known = links_.Take(id, told);
  if (known == nullptr) return;
  const bool usable = link.IsUp() && link.carrier;
  if (known->link.IsUp() && known->link.carrier && !usable) silentLoss_ = true;
  if (known->link.master != link.master) silentLoss_ |= known->link.index != 0;
  if (!SameButCounters(known->link, link) || known->entry == nullptr) changed_.insert(id.index);
  known->link = std::move(link);
  Write(known);
}

void Links::TakePort(const Message &message) {
  const auto *head = message.Head<ifinfomsg>();
  if (head == nullptr) return;
  Known *known = links_.Find({static_cast<uint32_t>(head->ifi_index)});
  // What a link is no more when it leaves its bridge, a message about the link tells.
  if (known == nullptr || message.type != RTM_NEWLINK) return;
  BridgePort port = known->link.port;
  if (!ReadBridgePort(message, &port) || port == known->link.port) return;
  known->link.port = port;
  changed_.insert(known->link.index);
  Write(known);
}

void Links::TakeCounters(const Message &message) {
  uint32_t index = 0;
  LinkCounters counters;
  if (!ReadLinkCounters(message, &index, &counters)) return;
  Known *known = links_.Find({index});
  if (known == nullptr || std::memcmp(&known->link.counters, &counters, sizeof counters) == 0) return;
  known->link.counters = counters;
  Write(known);
}

void Links::End(bool complete) {
  links_.End(complete, [this](const Id &, Known &known) { Leave(&known); });
}

void Links::Settle() {
  if (changed_.empty()) return;
  // A port says something of its bridge, and of the VRF that the bridge belongs to.
  for (int level = 0; level < 2; ++level) {
    links_.ForEach([this](const Id &, Known &known) {
      if (known.link.master == 0 || !changed_.contains(known.link.master)) return;
      changed_.insert(known.link.index);
      Write(&known);
    });
  }
}

void Links::Leave(Known *known) {
  changed_.insert(known->link.index);
  silentLoss_ = true;
  map_.Remove(&known->mapEntry);
  table_.Remove(&known->entry);
}

void Links::SetMacCount(uint32_t index, uint32_t count) {
  Known *known = links_.Find({index});
  if (known == nullptr || known->macCount == count) return;
  known->macCount = count;
  Write(known);
}

void Links::SetPvid(uint32_t index, uint16_t vlan) {
  Known *known = links_.Find({index});
  if (known == nullptr || known->pvid == vlan) return;
  known->pvid = vlan;
  Write(known);
}

void Links::Write(Known *known) {
  const Link &link = known->link;
  const Link *bridge = BridgeOf(link);
  const Link *master = Find(link.master);
  const uint32_t vpn = std::min(VpnOf(link.index), kMostVpn), mtu = std::min(link.mtu, kMostMtu);
  const Fields &f = fields_;
  table_.New().SetKey(key_, link.index).Set(f.index, link.index);
  table_.Set(f.enable, link.IsUp()).Set(f.down, !link.IsUp() || !link.carrier);
  table_.Set(f.isVirtual, !link.kind.empty()).Set(f.layer3, !link.isPort).Set(f.control, link.index);
  table_.Set(f.flags, link.flags).Set(f.father, link.lower).Set(f.linkType, link.type);
  table_.SetBytes(f.mac, link.mac.data(), link.mac.size()).Set(f.pvid, known->pvid);
  table_.Set(f.bridge, bridge != nullptr ? bridge->index : 0)
      .Set(f.learning, link.isPort && link.port.learning);
  table_.Set(f.snooping, bridge != nullptr && bridge->bridge.multicastSnooping).Set(f.vlan, link.vlan);
  table_.Set(f.macCount, known->macCount).Set(f.trunkMember, master != nullptr && master->kind == "bond");
  table_.Set(f.isolate, link.isPort && link.port.isolated);
  table_.Set(f.stp, bridge != nullptr && bridge->bridge.spanningTree);
  table_.Set(f.stpBlock, link.isPort && link.port.state == BR_STATE_BLOCKING);
  table_.Set(f.stpForward, link.isPort && link.port.state == BR_STATE_FORWARDING);
  table_.Set(f.vpn, vpn).Set(f.mtu, mtu).Set(f.vpn6, vpn).Set(f.mtu6, mtu);
  table_.Set(f.inBytes, link.counters.inBytes).Set(f.inPackets, link.counters.inPackets);
  table_.Set(f.inMulticast, link.counters.inMulticast);
  table_.Set(f.outBytes, link.counters.outBytes).Set(f.outPackets, link.counters.outPackets);
  table_.Put(&known->entry);
  map_.New().SetKey(mapKey_, link.index).Set(mapControl_, link.index).Set(mapForward_, link.index);
  map_.Put(&known->mapEntry);
}

const Link *Links::Find(uint32_t index) const {
  const Known *known = links_.Find({index});
  return known == nullptr ? nullptr : &known->link;
}

const Link *Links::BridgeOf(const Link &link) const {
  const Link *master = link.isPort ? Find(link.master) : nullptr;
  return master != nullptr && master->IsBridge() ? master : nullptr;
}

void *Links::Entry(uint32_t index) const {
  const Known *known = links_.Find({index});
  return known == nullptr ? nullptr : known->entry;
}

uint32_t Links::MacCount(uint32_t index) const {
  const Known *known = links_.Find({index});
  return known == nullptr ? 0 : known->macCount;
}

uint32_t Links::VpnOf(uint32_t index) const {
  const Link *link = Find(index);
  // A bridge's ports belong to the bridge's VRF.
  for (int depth = 0; link != nullptr && depth < 8; ++depth, link = Find(link->master)) {
    if (link->kind == "vrf") return link->table;
  }
  return 0;
}

std::set<uint32_t> Links::TakeChanged() { return std::exchange(changed_, {}); }
bool Links::TakeSilentLoss() { return std::exchange(silentLoss_, false); }

LinkCounters Links::Total() const {
  LinkCounters total;
  ForEach([&](const Link &link) {
    total.inBytes += link.counters.inBytes;
    total.inPackets += link.counters.inPackets;
    total.inMulticast += link.counters.inMulticast;
    total.outBytes += link.counters.outBytes;
    total.outPackets += link.counters.outPackets;
    total.inDropped += link.counters.inDropped;
    total.outDropped += link.counters.outDropped;
  });
  return total;
}

}  // namespace qdt::host
