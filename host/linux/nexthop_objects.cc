#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include "host/linux/nexthops.h"

namespace qdt::host {

void NextHopObjects::Take(const Message &message, Told told) {
  const auto *head = message.Head<nhmsg>();
  if (head == nullptr) return;
  const Attributes<NHA_MAX> values(message.Rest<nhmsg>());
  const Id id{Number<uint32_t>(values[NHA_ID])};
  if (id.object == 0) return;
  if (message.type == RTM_DELNEXTHOP) {
    silentLoss_ = true;
    return objects_.Drop(id, [this](const Id &gone, Object &object) { Leave(gone, &object); });
  }
  const bool isNew = objects_.Find(id) == nullptr;
  Object *object = objects_.Take(id, told);
  if (object == nullptr) return;
  new_ |= isNew;
  Object now;
  now.held = object->held;
  now.heldFamily = object->heldFamily;
  FamilyOf(head->nh_family, &now.family);
  now.isBlackhole = values.Has(NHA_BLACKHOLE);
  now.leg.link = Number<uint32_t>(values[NHA_OIF]);
  now.leg.hasGateway = values.Has(NHA_GATEWAY);
  now.leg.gatewayFamily = now.family;
  now.leg.gateway = IpOf(values[NHA_GATEWAY], now.family);
  const Bytes group = Payload(values[NHA_GROUP]);
  for (size_t at = 0; at + sizeof(nexthop_grp) <= group.size(); at += sizeof(nexthop_grp)) {
    nexthop_grp member;
    std::memcpy(&member, group.data() + at, sizeof member);
    now.members.push_back({member.id, static_cast<uint16_t>(member.weight + 1)});
  }
  // Where sysctl net.ipv4.nexthop_compat_mode is 0 the kernel does not tell what becomes of the routes.
  if (!isNew)
    silentLoss_ |= object->isBlackhole != now.isBlackhole || object->leg.hasGateway != now.leg.hasGateway;
  *object = std::move(now);
  for (NextHops *family : families_) family->ObjectChanged(id.object);
  Hold(id, object);
  if (!isNew) return;
  // Groups may be told of before their members.
  objects_.ForEach([&](const Id &other, Object &groupObject) {
    for (const Member &member : groupObject.members) {
      if (member.object != id.object) continue;
      for (NextHops *family : families_) family->ObjectChanged(other.object);
      Hold(other, &groupObject);
      return;
    }
  });
}

// Gives the object its place, among the next hops of its own family; of a group that is the one of its
// members.
void NextHopObjects::Hold(const Id &id, Object *object) {
  if (object->held != 0) return;
  Family family = object->family;
  for (const Member &member : object->members) {
    const Object *known = Find(member.object);
    if (known == nullptr) return;
    family = known->family;
  }
  object->heldFamily = family;
  object->held = families_[family]->UseObject(id.object);
}

void NextHopObjects::End(bool complete) {
  objects_.End(complete, [this](const Id &gone, Object &object) { Leave(gone, &object); });
}

void NextHopObjects::Leave(const Id &, Object *object) {
  silentLoss_ = true;
  families_[object->heldFamily]->Release(object->held);
  object->held = 0;
}

}  // namespace qdt::host
