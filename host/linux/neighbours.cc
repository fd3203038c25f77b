#include "host/linux/neighbours.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <time.h>

namespace qdt::host {
namespace {

constexpr uint16_t kResolved = NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT;
constexpr uint16_t kUnresolved = NUD_INCOMPLETE | NUD_FAILED;

uint32_t UptimeSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

}  // namespace

Neighbours::Tables::Tables(const FillTarget &target, Family family)
    : resolved(target, family == kIpv4 ? "arp" : "nd"),
      missed(target, family == kIpv4 ? "arp_miss_cache" : "nd_miss_cache") {
  vpn = resolved.Key("vpn");
  nextHop = resolved.Key("next_hop");
  valid = resolved.Value("valid");
  control = resolved.Value("ctrl_if_index");
  forward = resolved.Value("fwd_if_index");
  control3 = resolved.Value("l3_ctrl_if_index");
  forward3 = resolved.Value("l3_fwd_if_index");
  mac = resolved.Value("dmac");
  vlan = resolved.Value("vlan_id");
  missedVpn = missed.Key("vpn");
  missedKey = missed.Key("next_hop");
  missedNextHop = missed.Value("next_hop");
  missedSince = missed.Value("create_time");
}

Neighbours::Neighbours(const FillTarget &target, const Links &links)
    : links_(links), tables_{{target, kIpv4}, {target, kIpv6}} {}

void Neighbours::Take(const Message &message, Told told) {
  const auto *head = message.Head<ndmsg>();
  NeighbourId id{};
  if (head == nullptr || !FamilyOf(head->ndm_family, &id.family) || (head->ndm_flags & NTF_PROXY) != 0)
    return;
  const Attributes<NDA_MAX> values(message.Rest<ndmsg>());
  if (Payload(values[NDA_DST]).size() != BytesOf(id.family)) return;
  id.link = static_cast<uint32_t>(head->ndm_ifindex);
  id.address = IpOf(values[NDA_DST], id.family);
  const auto leave = [this](const NeighbourId &gone, Known &known) { Leave(gone, &known); };
  if (message.type == RTM_DELNEIGH) return known_.Drop(id, leave);
  Known *known = known_.Take(id, told);
  if (known == nullptr) return;
  Known now{head->ndm_state, {}, links_.VpnOf(id.link), known->since, nullptr};
  if ((known->state & kUnresolved) == 0) now.since = UptimeSeconds();
  const Bytes mac = Payload(values[NDA_LLADDR]);
  if (mac.size() == now.mac.size()) std::ranges::copy(mac, now.mac.begin());
  const auto differ = [&](uint16_t states) {
    return ((known->state & states) != 0) != ((now.state & states) != 0);
  };
  if (known->vpn != now.vpn || differ(kResolved) || differ(kUnresolved)) Leave(id, known);
  now.missed = known->missed;
  *known = now;
  Join(id, known);
}

void Neighbours::End(bool complete) {
  known_.End(complete, [this](const NeighbourId &gone, Known &known) { Leave(gone, &known); });
}

void Neighbours::LinksChanged(const std::set<uint32_t> &links) {
  known_.ForEach([&](const NeighbourId &id, Known &known) {
    if (!links.contains(id.link)) return;
    const uint32_t vpn = links_.VpnOf(id.link);
    const uint16_t state = known.state;
    if (known.vpn != vpn) Leave(id, &known);
    known.state = state;
    known.vpn = vpn;
    Join(id, &known);
  });
}

Neighbours::Place Neighbours::PlaceOf(const NeighbourId &id, const Known &known) const {
  return {known.vpn, id.family, {}, id.address};
}

// Enters it among those that are resolved or among those that are not.
void Neighbours::Join(const NeighbourId &id, Known *known) {
  changed_.push_back(id);
  if (known->vpn > kMostVpn) return;
  if ((known->state & kResolved) != 0) {
    const Place place = PlaceOf(id, *known);
    shown_[place].links.insert(id.link);
    Show(place);
  } else if ((known->state & kUnresolved) != 0) {
    Tables &t = tables_[id.family];
    const WideValue address = NumberOf(id.address, id.family);
    t.missed.New().SetKey(t.missedVpn, known->vpn).SetKey(t.missedKey, address);
    t.missed.Set(t.missedNextHop, address).Set(t.missedSince, known->since);
    t.missed.Put(&known->missed);
  }
}

void Neighbours::Leave(const NeighbourId &id, Known *known) {
  changed_.push_back(id);
  tables_[id.family].missed.Remove(&known->missed);
  const Place place = PlaceOf(id, *known);
  const auto at = shown_.find(place);
  known->state = 0;
  if (at == shown_.end() || at->second.links.erase(id.link) == 0) return;
  Show(place);
}

void Neighbours::Show(const Place &place) {
  Shown &shown = shown_.at(place);
  Tables &t = tables_[place.family];
  if (shown.links.empty()) {
    t.resolved.Remove(&shown.entry);
    shown_.erase(place);
    return;
  }
  const uint32_t link = *shown.links.begin();
  const MacAddress *mac = Resolve({link, place.family, {}, place.address});
  const Link *device = links_.Find(link);
  t.resolved.New().SetKey(t.vpn, place.vpn).SetKey(t.nextHop, NumberOf(place.address, place.family));
  t.resolved.Set(t.valid, 1)
      .Set(t.control, link)
      .Set(t.forward, link)
      .Set(t.control3, link)
      .Set(t.forward3, link);
  if (mac != nullptr) t.resolved.SetBytes(t.mac, mac->data(), mac->size());
  t.resolved.Set(t.vlan, device != nullptr ? device->vlan : 0);
  t.resolved.Put(&shown.entry);
}

const MacAddress *Neighbours::Resolve(const NeighbourId &id) const {
  const Known *known = known_.Find(id);
  return known != nullptr && (known->state & kResolved) != 0 ? &known->mac : nullptr;
}

bool Neighbours::TakeRoomAgain() {
  bool any = false;
  for (Tables &t : tables_) {
    any |= t.resolved.TakeRoomAgain();
    any |= t.missed.TakeRoomAgain();
  }
  return any;
}

uint64_t Neighbours::refused() const {
  uint64_t sum = 0;
  for (const Tables &t : tables_) sum += t.resolved.refused() + t.missed.refused();
  return sum;
}

}  // namespace qdt::host
