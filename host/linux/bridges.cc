#include "host/linux/bridges.h"

#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

#include <bitset>
#include <set>

namespace qdt::host {
namespace {

constexpr uint32_t kVlans = 4096;
constexpr uint32_t kWordBits = 32;
// Where a bridge's number stands in 16 bits.
constexpr uint32_t kMostShortBridge = 0xffff;

}  // namespace

Bridges::Bridges(const FillTarget &target, Links *links)
    : links_(*links),
      bridges_(target, "bridgeinfo"),
      states_(target, "port_inst_state"),
      isolation_(target, "port_isolate"),
      flood_(target, "ssw_boardcast"),
      floodAll_(target, "ssw_global_boardcast"),
      members_(target, "vlan_bitmap"),
      vlanTable_(target, "vlaninfo") {
  MirrorTable &bridges = bridges_.table();
  bridgeKey_ = bridges.Key("index");
  bridgeId_ = bridges.Value("bridge_id");
  bridgeIf_ = bridges.Value("if_index");
  bridgeFilter_ = bridges.Value("vlan_filter");
  bridgeAging_ = bridges.Value("mac_aging_time");
  bridgeCount_ = bridges.Value("mac_count");
  stateIfKey_ = states_.table().Key("fwd_if_index");
  stateIf_ = states_.table().Value("fwd_if_index");
  state_ = states_.table().Value("state");
  fromKey_ = isolation_.table().Key("source_if_index");
  toKey_ = isolation_.table().Key("destination_if_index");
  from_ = isolation_.table().Value("source_if_index");
  to_ = isolation_.table().Value("destination_if_index");
  isolate_ = isolation_.table().Value("isolate");
  floodBridgeKey_ = flood_.table().Key("bridge_id");
  floodVlanKey_ = flood_.table().Key("vlan_id");
  floodBridge_ = flood_.table().Value("bridge_id");
  floodVlan_ = flood_.table().Value("vlan_id");
  floodIf_ = flood_.table().Value("fwd_if_index");
  floodAllIf_ = floodAll_.table().Value("fwd_if_index");
  membersKey_ = members_.table().Key("if_index");
  membersIf_ = members_.table().Value("if_index");
  for (uint32_t word = 0; word < kVlans / kWordBits; ++word) {
    const std::string index = "[" + std::to_string(word) + "]";
    member_.push_back(members_.table().Value("members" + index));
    untagged_.push_back(members_.table().Value("untagged" + index));
  }
  vlanKey_ = vlanTable_.table().Key("vlan_id");
  vlanBridgeKey_ = vlanTable_.table().Key("bridge_id");
  vlanId_ = vlanTable_.table().Value("vlan_id");
  vlanLearning_ = vlanTable_.table().Value("mac_learning");
  vlanSnooping_ = vlanTable_.table().Value("igmp_snooping");
  vlanIf_ = vlanTable_.table().Value("if_index");
}

void Bridges::Take(const Message &message) {
  const auto *head = message.Head<ifinfomsg>();
  if (head == nullptr || head->ifi_family != AF_BRIDGE) return;
  links_.TakePort(message);
  coming_[static_cast<uint32_t>(head->ifi_index)] = ReadPortVlans(message);
}

void Bridges::End(bool complete) {
  if (!complete) return;
  vlans_ = std::move(coming_);
  coming_.clear();
}

const Bridges::Vlans &Bridges::VlansOf(uint32_t index) const {
  static const Vlans kNone;
  const auto at = vlans_.find(index);
  return at == vlans_.end() ? kNone : at->second;
}

void Bridges::Derive() {
  std::map<uint32_t, Ports> all;
  links_.ForEach([&](const Link &link) {
    if (link.IsBridge()) all[link.index].bridge = &link;
    if (const Link *bridge = links_.BridgeOf(link)) all[bridge->index].links.push_back(&link);
  });
  DeriveCounts();
  for (DerivedTable *table : tables()) table->Begin();
  for (const auto &[index, ports] : all) {
    if (ports.bridge == nullptr) continue;
    DerivePorts(ports);
    DeriveIsolation(ports);
    if (ports.bridge->bridge.vlanFiltering) DeriveVlans(ports);
  }
  for (DerivedTable *table : tables()) table->End();
}

void Bridges::DeriveCounts() {
  bridges_.Begin();
  links_.ForEach([this](const Link &link) {
    if (link.IsBridge()) DeriveBridge(link);
  });
  bridges_.End();
}

uint64_t Bridges::refused() {
  uint64_t sum = bridges_.table().refused();
  for (DerivedTable *table : tables()) sum += table->table().refused();
  return sum;
}

void Bridges::DeriveBridge(const Link &bridge) {
  MirrorTable &table = bridges_.table().New();
  table.SetKey(bridgeKey_, bridge.index).Set(bridgeId_, bridge.index).Set(bridgeIf_, bridge.index);
  table.Set(bridgeFilter_, bridge.bridge.vlanFiltering).Set(bridgeAging_, bridge.bridge.agingTime);
  table.Set(bridgeCount_, links_.MacCount(bridge.index));
  bridges_.Want();
}

void Bridges::DerivePorts(const Ports &ports) {
  for (const Link *port : ports.links) {
    states_.table().New().SetKey(stateIfKey_, port->index).Set(stateIf_, port->index);
    states_.table().Set(state_, port->port.state);
    states_.Want();
    if (ports.bridge->bridge.vlanFiltering) continue;
    floodAll_.table().New().Set(floodAllIf_, port->index);
    floodAll_.Want();
  }
}

void Bridges::DeriveIsolation(const Ports &ports) {
  for (const Link *from : ports.links) {
    for (const Link *to : ports.links) {
      if (from == to || !from->port.isolated || !to->port.isolated) continue;
      MirrorTable &table = isolation_.table().New();
      table.SetKey(fromKey_, from->index).SetKey(toKey_, to->index);
      table.Set(from_, from->index).Set(to_, to->index).Set(isolate_, 1);
      isolation_.Want();
    }
  }
}

void Bridges::DeriveVlans(const Ports &ports) {
  const uint32_t bridge = ports.bridge->index;
  std::set<uint16_t> known;
  const auto add = [&](const Link &link, bool isPort) {
    uint16_t pvid = 0;
    MirrorTable &table = members_.table().New();
    table.SetKey(membersKey_, link.index).Set(membersIf_, link.index);
    std::vector<uint32_t> words(member_.size()), bare(member_.size());
    for (const PortVlan &vlan : VlansOf(link.index)) {
      if (vlan.vlan >= kVlans) continue;
      known.insert(vlan.vlan);
      const uint32_t bit = 1u << vlan.vlan % kWordBits;
      words[vlan.vlan / kWordBits] |= bit;
      if (vlan.untagged) bare[vlan.vlan / kWordBits] |= bit;
      if (vlan.pvid) pvid = vlan.vlan;
      if (!isPort || bridge > kMostShortBridge) continue;
      MirrorTable &flood = flood_.table().New();
      flood.SetKey(floodBridgeKey_, bridge).SetKey(floodVlanKey_, vlan.vlan);
      flood.Set(floodBridge_, bridge).Set(floodVlan_, vlan.vlan).Set(floodIf_, link.index);
      flood_.Want();
    }
    for (size_t i = 0; i < words.size(); ++i) table.Set(member_[i], words[i]).Set(untagged_[i], bare[i]);
    members_.Want();
    links_.SetPvid(link.index, pvid);
  };
  add(*ports.bridge, false);
  for (const Link *port : ports.links) add(*port, true);
  if (bridge > kMostShortBridge) return;

  std::map<uint16_t, uint32_t> gateways;  // the VLAN's interface on the bridge
  links_.ForEach([&](const Link &link) {
    if (link.kind == "vlan" && link.lower == bridge) gateways[link.vlan] = link.index;
  });
  for (const uint16_t vlan : known) {
    MirrorTable &table = vlanTable_.table().New();
    table.SetKey(vlanKey_, vlan).SetKey(vlanBridgeKey_, bridge).Set(vlanId_, vlan).Set(vlanLearning_, 1);
    table.Set(vlanSnooping_, ports.bridge->bridge.multicastSnooping).Set(vlanIf_, gateways[vlan]);
    vlanTable_.Want();
  }
}

}  // namespace qdt::host
