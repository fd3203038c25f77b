#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

#include "host/linux/fdb.h"

namespace qdt::host {

Multicast::Multicast(const FillTarget &target)
    : table_(target, "mc_elb"), routerTable_(target, "mc_route_port") {
  keyVlan_ = table_.Key("vlan_id");
  keyGroup_ = table_.Key("group");
  keySource_ = table_.Key("source");
  vlan_ = table_.Value("vlan_id");
  group_ = table_.Value("group");
  source_ = table_.Value("source");
  port_ = table_.Value("fwd_if_index");
  routerPort_ = routerTable_.Value("fwd_if_index");
}

void Multicast::Begin() {
  receivers_.Begin();
  routers_.Begin();
}

void Multicast::Take(const Message &message, Told told) {
  const auto *head = message.Head<br_port_msg>();
  if (head == nullptr) return;
  const bool gone = message.type == RTM_DELMDB;
  const Attributes<MDBA_MAX> values(message.Rest<br_port_msg>());
  ForEachAttribute(Payload(values[MDBA_MDB]), [&](const nlattr *entry) {
    ForEachAttribute(Payload(entry), [&](const nlattr *info) { TakeEntry(head->ifindex, info, gone, told); });
  });
  TakeRouters(head->ifindex, values[MDBA_ROUTER], gone, told);
}

void Multicast::TakeEntry(uint32_t bridge, const nlattr *info, bool gone, Told told) {
  const Bytes bytes = Payload(info);
  br_mdb_entry entry;
  if (bytes.size() < sizeof entry) return;
  std::memcpy(&entry, bytes.data(), sizeof entry);
  constexpr uint16_t kIpv4 = 0x0008;  // ETH_P_IP in network order
  if (entry.addr.proto != kIpv4) return;
  const Attributes<MDBA_MDB_EATTR_MAX> more(
      bytes.subspan(NLMSG_ALIGN(sizeof entry) <= bytes.size() ? NLMSG_ALIGN(sizeof entry) : bytes.size()));
  const uint32_t source = Number<uint32_t>(more[MDBA_MDB_EATTR_SOURCE]);
  const Id id{bridge, entry.ifindex, entry.addr.u.ip4, source, entry.vid, 0};
  if (gone) {
    receivers_.Drop(id, [this](const Id &, Known &known) { table_.Remove(&known.entry); });
    return;
  }
  Known *known = receivers_.Take(id, told);
  if (known == nullptr) return;
  const WideValue group = FromNetwork(&id.group, sizeof id.group),
                  sender = FromNetwork(&id.source, sizeof id.source);
  table_.New().SetKey(keyVlan_, id.vlan).SetKey(keyGroup_, group).SetKey(keySource_, sender);
  table_.Set(vlan_, id.vlan).Set(group_, group).Set(source_, sender).Set(port_, id.port);
  table_.Put(&known->entry);
}

void Multicast::TakeRouters(uint32_t bridge, const nlattr *routers, bool gone, Told told) {
  ForEachAttribute(Payload(routers), [&](const nlattr *port) {
    if (nla_type(port) != MDBA_ROUTER_PORT) return;
    const Router id{bridge, Number<uint32_t>(port)};
    if (gone) {
      routers_.Drop(id, [this](const Router &, Known &known) { routerTable_.Remove(&known.entry); });
      return;
    }
    Known *known = routers_.Take(id, told);
    if (known == nullptr) return;
    routerTable_.New().Set(routerPort_, id.port);
    routerTable_.Put(&known->entry);
  });
}

void Multicast::End(bool complete) {
  receivers_.End(complete, [this](const Id &, Known &known) { table_.Remove(&known.entry); });
  routers_.End(complete, [this](const Router &, Known &known) { routerTable_.Remove(&known.entry); });
}

}  // namespace qdt::host
