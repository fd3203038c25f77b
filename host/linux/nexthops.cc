#include "host/linux/nexthops.h"

#include <net/ethernet.h>
#include <syslog.h>

#include <algorithm>
#include <string>

namespace qdt::host {
namespace {

constexpr uint32_t kMostNumber = 0xffff;  // a route has 16 bits for it
constexpr size_t kResting = 256;          // numbers
constexpr size_t kMostMembers = 32;       // of a group's record
constexpr uint32_t kMostMtu = 0xffff;
constexpr uint32_t kEthernet = 1;     // type of the encapsulation
constexpr uint32_t kMostHeader = 18;  // Ethernet with a VLAN tag

}  // namespace

uint32_t Numbers::Take() {
  if (used_ < most_ && resting_.size() < kResting) return ++used_;
  if (resting_.empty()) {
    isLacking_ = true;
    if (refused_++ == 0)
      syslog(LOG_WARNING,
             "no more than %u next hops, and groups of them, are shown: routes have 16 bits for their number",
             most_);
    return 0;
  }
  const uint32_t number = resting_.front();
  resting_.pop_front();
  return number;
}

void Numbers::Return(uint32_t number) {
  resting_.push_back(number);
  roomAgain_ |= std::exchange(isLacking_, false);
}

NextHops::NextHops(const FillTarget &target, Family family, const Links &links, const Neighbours &neighbours,
                   const NextHopObjects &objects)
    : family_(family),
      links_(links),
      neighbours_(neighbours),
      objects_(objects),
      hops_(1),
      groups_(1),
      freeHops_(kMostNumber),
      freeGroups_(kMostNumber),
      hopTable_(target, family == kIpv4 ? "nhp" : "ipv6_nhp"),
      groupTable_(target, family == kIpv4 ? "nhp_group" : "ipv6_nhp_group") {
  hopKey_ = hopTable_.Key("index");
  hopIf_ = hopTable_.Value("if_index");
  hopAddress_ = hopTable_.Value("next_hop");
  hopMtu_ = hopTable_.Value("mtu");
  hopMiss_ = hopTable_.Value(family == kIpv4 ? "arp_miss" : "nd_miss");
  encapType_ = hopTable_.Value("encap_type");
  encapSize_ = hopTable_.Value("encap_size");
  fwdifCount_ = hopTable_.Value("fwdif_count");
  fwdif_ = hopTable_.Value("fwdifs[0]");
  dmac_ = hopTable_.Optional("dmac");
  smac_ = hopTable_.Optional("smac");
  etherType_ = hopTable_.Optional("eth_type");
  vlan_ = hopTable_.Optional("vlan_id");
  for (uint32_t i = 0; i < kMostHeader; ++i)
    encapData_.push_back(hopTable_.Optional("encap_data[" + std::to_string(i) + "]"));
  groupKey_ = groupTable_.Key("index");
  memberCount_ = groupTable_.Value("primary_count");
  memberBitmap_ = groupTable_.Value("primary_bitmap");
  for (size_t i = 0; i < kMostMembers; ++i) {
    const std::string index = "[" + std::to_string(i) + "]";
    memberNumbers_.push_back(groupTable_.Value("primary_nhp_indexes" + index));
    memberEntries_.push_back(groupTable_.Value("primary_next_hops" + index));
  }
}

Destination NextHops::Use(std::span<const Leg> legs) {
  if (legs.empty()) return 0;
  if (legs.size() == 1) {
    Leg identity = legs[0];
    identity.weight = 1;
    return UseHop(identity, identity);
  }
  return UseGroup(GroupIdentity(legs.begin(), legs.end()));
}

Destination NextHops::UseObject(uint32_t object) {
  const NextHopObjects::Object *known = objects_.Find(object);
  missing_ |= known == nullptr;
  if (known == nullptr || known->isBlackhole) return 0;
  Leg identity;
  identity.object = object;
  return known->members.empty() ? UseHop(identity, known->leg) : UseGroup({identity});
}

void NextHops::UseAgain(Destination destination) {
  if (destination == 0) return;
  ++((destination & kGroup) != 0 ? groups_[destination & ~kGroup].users : hops_[destination].users);
}

Destination NextHops::UseHop(Leg identity, const Leg &leg) {
  const auto [at, isNew] = hopNumbers_.try_emplace(identity);
  if (isNew) {
    at->second = freeHops_.Take();
    const uint32_t number = at->second;
    if (number == 0) {
      hopNumbers_.erase(at);
      return 0;
    }
    if (number >= hops_.size()) hops_.resize(number + 1);
    hops_[number] = {identity, {}, 0, nullptr};
    Lead(number, leg);
  }
  ++hops_[at->second].users;
  return at->second;
}

Destination NextHops::UseGroup(const GroupIdentity &identity) {
  const auto [at, isNew] = groupNumbers_.try_emplace(identity);
  if (isNew) {
    at->second = freeGroups_.Take();
    const uint32_t number = at->second;
    if (number == 0) {
      groupNumbers_.erase(at);
      return 0;
    }
    if (number >= groups_.size()) groups_.resize(number + 1);
    groups_[number] = {identity, {}, 0, nullptr};
    WriteGroup(number, MembersOf(identity));
  }
  ++groups_[at->second].users;
  return at->second | kGroup;
}

// One user more for each of the members.
std::vector<Destination> NextHops::MembersOf(const GroupIdentity &identity) {
  std::vector<Destination> members;
  if (identity.size() == 1 && identity[0].object != 0) {
    const NextHopObjects::Object *object = objects_.Find(identity[0].object);
    if (object == nullptr) return members;
    for (const NextHopObjects::Member &member : object->members) {
      const NextHopObjects::Object *known = objects_.Find(member.object);
      const bool isGroup = known != nullptr && !known->members.empty();  // which groups have none of
      if (!isGroup) members.push_back(UseObject(member.object));
    }
  } else {
    for (const Leg &leg : identity) members.push_back(Use({&leg, 1}));
  }
  std::erase(members, 0u);
  return members;
}

void NextHops::Release(Destination destination) {
  if (destination == 0) return;
  const uint32_t number = destination & ~kGroup;
  if ((destination & kGroup) != 0) {
    Group &group = groups_[number];
    if (--group.users != 0) return;
    groupTable_.Remove(&group.entry);
    groupNumbers_.erase(group.identity);
    const std::vector<Destination> members = std::move(group.members);
    group = {};
    freeGroups_.Return(number);
    for (const Destination member : members) Release(member);
    return;
  }
  Hop &hop = hops_[number];
  if (--hop.users != 0) return;
  Lead(number, {});
  hopTable_.Remove(&hop.entry);
  hopNumbers_.erase(hop.identity);
  hop = {};
  freeHops_.Return(number);
}

NextHops::Bound NextHops::At(Destination destination) const {
  const uint32_t number = destination & ~kGroup;
  if (destination == 0) return {};
  if ((destination & kGroup) != 0) {
    const Group &group = groups_[number];
    const bool direct = std::ranges::all_of(group.members, [this](Destination d) { return At(d).direct; });
    return {static_cast<uint16_t>(number), true, direct && !group.members.empty(), group.entry};
  }
  return {static_cast<uint16_t>(number), false, !hops_[number].leg.hasGateway, hops_[number].entry};
}

std::vector<Leg> NextHops::LegsOf(Destination destination) const {
  if (destination == 0) return {};
  if ((destination & kGroup) != 0) return groups_[destination & ~kGroup].identity;
  return {hops_[destination].identity};
}

NeighbourId NextHops::NeighbourOf(const Leg &leg) const {
  return {leg.link, leg.gatewayFamily, {}, leg.gateway};
}

// Has the next hop lead there; what it depends on is known by its neighbour. Leading nowhere is its end.
void NextHops::Lead(uint32_t number, const Leg &leg) {
  Hop &hop = hops_[number];
  if (hop.leg.hasGateway) {
    const auto at = byNeighbour_.find(NeighbourOf(hop.leg));
    at->second.erase(number);
    if (at->second.empty()) byNeighbour_.erase(at);
  }
  hop.leg = leg;
  if (leg.hasGateway) byNeighbour_[NeighbourOf(leg)].insert(number);
  if (leg != Leg{} || hop.identity.object != 0) Write(number);
}

void NextHops::Write(uint32_t number) {
  Hop &hop = hops_[number];
  const Leg &leg = hop.leg;
  const Link *link = links_.Find(leg.link);
  void *entry = links_.Entry(leg.link);
  const MacAddress *mac = leg.hasGateway ? neighbours_.Resolve(NeighbourOf(leg)) : nullptr;
  const bool resolves = link != nullptr && link->ResolvesNeighbours();
  hopTable_.New().SetKey(hopKey_, number).Set(hopIf_, leg.link);
  if (leg.hasGateway && leg.gatewayFamily == family_)
    hopTable_.Set(hopAddress_, NumberOf(leg.gateway, family_));
  if (link != nullptr) hopTable_.Set(hopMtu_, std::min(link->mtu, kMostMtu));
  hopTable_.Set(hopMiss_, resolves && mac == nullptr);
  hopTable_.Set(fwdifCount_, entry != nullptr).Set(fwdif_, reinterpret_cast<uintptr_t>(entry));
  const uint32_t type = family_ == kIpv4 ? ETHERTYPE_IP : ETHERTYPE_IPV6;
  const uint32_t vlan = link != nullptr ? link->vlan : 0;
  hopTable_.Set(etherType_, type).Set(vlan_, vlan);
  if (link != nullptr) hopTable_.SetBytes(smac_, link->mac.data(), link->mac.size());
  if (resolves && mac != nullptr) {
    std::vector<uint8_t> header(mac->begin(), mac->end());
    header.insert(header.end(), link->mac.begin(), link->mac.end());
    const auto add = [&](uint32_t word) { header.insert(header.end(), {uint8_t(word >> 8), uint8_t(word)}); };
    if (vlan != 0) add(ETHERTYPE_VLAN);
    if (vlan != 0) add(vlan);
    add(type);
    hopTable_.Set(encapType_, kEthernet)
        .Set(encapSize_, header.size())
        .SetBytes(dmac_, mac->data(), mac->size());
    for (size_t i = 0; i < header.size(); ++i) hopTable_.Set(encapData_[i], header[i]);
  }
  hopTable_.Put(&hop.entry);
}

// The members come with one user more each: the group.
void NextHops::WriteGroup(uint32_t number, std::vector<Destination> members) {
  const std::vector<Destination> before = std::exchange(groups_[number].members, std::move(members));
  Group &group = groups_[number];
  const size_t count = std::min(group.members.size(), kMostMembers);
  groupTable_.New().SetKey(groupKey_, number).Set(memberCount_, count);
  groupTable_.Set(memberBitmap_, (uint64_t{1} << count) - 1);
  for (size_t i = 0; i < count; ++i) {
    const Bound member = At(group.members[i]);
    groupTable_.Set(memberNumbers_[i], member.number);
    groupTable_.Set(memberEntries_[i], reinterpret_cast<uintptr_t>(member.entry));
  }
  groupTable_.Put(&group.entry);
  for (const Destination member : before) Release(member);
}

void NextHops::ObjectChanged(uint32_t object) {
  const NextHopObjects::Object *known = objects_.Find(object);
  if (known == nullptr) return;
  Leg identity;
  identity.object = object;
  if (const auto hop = hopNumbers_.find(identity); hop != hopNumbers_.end()) Lead(hop->second, known->leg);
  if (const auto group = groupNumbers_.find({identity}); group != groupNumbers_.end())
    WriteGroup(group->second, MembersOf({identity}));
}

bool NextHops::EnterWhereRoomIs() {
  const bool hops = hopTable_.TakeRoomAgain(), groups = groupTable_.TakeRoomAgain();
  const bool hopNumbers = freeHops_.TakeRoomAgain(), groupNumbers = freeGroups_.TakeRoomAgain();
  if (!hops && !groups) return hopNumbers || groupNumbers;
  for (uint32_t number = 1; number < hops_.size(); ++number) {
    if (hops_[number].users != 0 && hops_[number].entry == nullptr) Write(number);
  }
  // Their members may have come.
  for (uint32_t number = 1; number < groups_.size(); ++number) {
    if (groups_[number].users != 0) WriteGroup(number, MembersOf(groups_[number].identity));
  }
  return true;
}

void NextHops::NeighbourChanged(const NeighbourId &neighbour) {
  const auto at = byNeighbour_.find(neighbour);
  if (at == byNeighbour_.end()) return;
  for (const uint32_t number : at->second) Write(number);
}

void NextHops::LinksChanged(const std::set<uint32_t> &links) {
  for (uint32_t number = 1; number < hops_.size(); ++number) {
    if (hops_[number].users != 0 && links.contains(hops_[number].leg.link)) Write(number);
  }
}

}  // namespace qdt::host
