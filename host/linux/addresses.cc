#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

#include "host/linux/neighbours.h"

namespace qdt::host {
namespace {

constexpr uint32_t kPrimary = 1;
constexpr uint32_t kSecondary = 2;

}  // namespace

Addresses::Tables::Tables(const FillTarget &target, Family family)
    : heads(target, family == kIpv4 ? "portip_head" : "ipv6_portip_head"),
      list(target, family == kIpv4 ? "portip" : "ipv6_portip") {
  headKey = heads.Key("fwd_if_index");
  headList = heads.Value("list_id");
  listKey = list.Key("list_id");
  address = list.Value("address");
  mask = list.Value(family == kIpv4 ? "mask" : "prefix");
  type = list.Value("type");
}

Addresses::Addresses(const FillTarget &target) : tables_{{target, kIpv4}, {target, kIpv6}} {}

void Addresses::Take(const Message &message, Told told) {
  const auto *head = message.Head<ifaddrmsg>();
  Id id{};
  if (head == nullptr || !FamilyOf(head->ifa_family, &id.family)) return;
  const Attributes<IFA_MAX> values(message.Rest<ifaddrmsg>());
  // Of point-to-point links the address is the other end's, and the own one stands apart.
  const nlattr *own = values.Has(IFA_LOCAL) ? values[IFA_LOCAL] : values[IFA_ADDRESS];
  if (Payload(own).size() != BytesOf(id.family) || head->ifa_prefixlen > 8 * BytesOf(id.family)) return;
  id.link = head->ifa_index;
  id.prefix = head->ifa_prefixlen;
  id.address = IpOf(own, id.family);
  id.peer = IpOf(values[IFA_ADDRESS], id.family);
  if (message.type == RTM_DELADDR) {
    silentLoss_ = true;
    return known_.Drop(id, [this](const Id &gone, Known &known) { Leave(gone, &known); });
  }
  Known *known = known_.Take(id, told);
  if (known == nullptr) return;
  Tables &t = tables_[id.family];
  const bool isNew = known->entry == nullptr;
  const uint32_t flags = Number<uint32_t>(values[IFA_FLAGS], head->ifa_flags);
  const WideValue mask = id.family == kIpv6 ? id.prefix
                         : id.prefix == 0   ? 0
                                            : ~uint32_t{0} << (32 - id.prefix);
  t.list.New().SetKey(t.listKey, id.link).Set(t.address, NumberOf(id.address, id.family)).Set(t.mask, mask);
  t.list.Set(t.type, (flags & IFA_F_SECONDARY) != 0 ? kSecondary : kPrimary);
  t.list.Put(&known->entry);
  // A list has a head as long as anything is in it.
  if (known->entry == nullptr) return;
  Head &list = heads_[id.family][id.link];
  if (isNew) ++list.count;
  t.heads.New().SetKey(t.headKey, id.link).Set(t.headList, id.link);
  t.heads.Put(&list.entry);
}

void Addresses::End(bool complete) {
  known_.End(complete, [this](const Id &gone, Known &known) { Leave(gone, &known); });
}

void Addresses::Leave(const Id &id, Known *known) {
  if (known->entry == nullptr) return;
  Tables &t = tables_[id.family];
  t.list.Remove(&known->entry);
  const auto list = heads_[id.family].find(id.link);
  if (--list->second.count != 0) return;
  t.heads.Remove(&list->second.entry);
  heads_[id.family].erase(list);
}

bool Addresses::TakeRoomAgain() {
  bool any = false;
  for (Tables &t : tables_) {
    any |= t.heads.TakeRoomAgain();
    any |= t.list.TakeRoomAgain();
  }
  return any;
}

uint64_t Addresses::refused() const {
  uint64_t sum = 0;
  for (const Tables &t : tables_) sum += t.heads.refused() + t.list.refused();
  return sum;
}

}  // namespace qdt::host
