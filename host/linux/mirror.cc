#include "host/linux/mirror.h"

#include <linux/rtnetlink.h>

#include <utility>

namespace qdt::host {
namespace {

constexpr uint32_t kDumps = 2 * BitOf(Dump::kCounters) - 1;  // those up to it

}  // namespace

Mirror::Mirror(const FillTarget &target, const NetworkNamespace &where, int buffer)
    : Feed(where, NETLINK_ROUTE, kDumps, buffer),
      links_(target),
      bridges_(target, &links_),
      fdb_(target),
      multicast_(target),
      neighbours_(target, links_),
      addresses_(target),
      nextHops4_(target, kIpv4, links_, neighbours_, objects_),
      nextHops6_(target, kIpv6, links_, neighbours_, objects_),
      routes4_(target, &nextHops4_),
      routes6_(target, &nextHops6_) {
  objects_.SetFamilies(&nextHops4_, &nextHops6_);
  // A kernel without some of them has nothing to tell there.
  constexpr int kGroups[] = {RTNLGRP_LINK,        RTNLGRP_NEIGH,      RTNLGRP_IPV4_IFADDR,
                             RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE,
                             RTNLGRP_NEXTHOP,     RTNLGRP_MDB,        RTNLGRP_BRVLAN};
  Join(kGroups);
}

void Mirror::WantCounters() { Want(BitOf(Dump::kCounters)); }

void Mirror::TakeNotification(const Message &message) {
  const auto family = message.Head<uint8_t>() != nullptr ? *message.Head<uint8_t>() : 0;
  switch (message.type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      if (family != AF_BRIDGE) return links_.Take(message, Told::kByNotification);
      // Tells of a port, but not always of all its VLANs.
      links_.TakePort(message);
      return Want(BitOf(Dump::kPorts));
    case RTM_NEWVLAN:
    case RTM_DELVLAN:
      return Want(BitOf(Dump::kPorts));
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return addresses_.Take(message, Told::kByNotification);
    case RTM_NEWNEIGH:
    case RTM_DELNEIGH:
      return family == AF_BRIDGE ? fdb_.Take(message, Told::kByNotification)
                                 : neighbours_.Take(message, Told::kByNotification);
    case RTM_NEWMDB:
    case RTM_DELMDB:
      return multicast_.Take(message, Told::kByNotification);
    case RTM_NEWNEXTHOP:
    case RTM_DELNEXTHOP:
      return objects_.Take(message, Told::kByNotification);
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      if (!ReadRoute(message, &route_)) return;
      return route_.family == kIpv4 ? routes4_.Take(route_, Told::kByNotification)
                                    : routes6_.Take(route_, Told::kByNotification);
    default:
      return;
  }
}

void Mirror::Begin(Dump dump) {
  switch (dump) {
    case Dump::kLinks:
      return links_.Begin();
    case Dump::kPorts:
      return bridges_.Begin();
    case Dump::kAddresses:
      return addresses_.Begin();
    case Dump::kNeighbours:
      return neighbours_.Begin();
    case Dump::kFdb:
      return fdb_.Begin();
    case Dump::kMulticast:
      return multicast_.Begin();
    case Dump::kNextHops:
      return objects_.Begin();
    case Dump::kRoutes4:
      return routes4_.Begin();
    case Dump::kRoutes6:
      return routes6_.Begin();
    default:
      return;
  }
}

void Mirror::TakeDump(Dump dump, const Message &message) {
  constexpr Told kTold = Told::kByDump;
  switch (dump) {
    case Dump::kLinks:
      return links_.Take(message, kTold);
    case Dump::kPorts:
      return bridges_.Take(message);
    case Dump::kAddresses:
      return addresses_.Take(message, kTold);
    case Dump::kNeighbours:
      return neighbours_.Take(message, kTold);
    case Dump::kFdb:
      return fdb_.Take(message, kTold);
    case Dump::kMulticast:
      return multicast_.Take(message, kTold);
    case Dump::kNextHops:
      return objects_.Take(message, kTold);
    case Dump::kRoutes4:
      if (ReadRoute(message, &route_) && route_.family == kIpv4) routes4_.Take(route_, kTold);
      return;
    case Dump::kRoutes6:
      if (ReadRoute(message, &route_) && route_.family == kIpv6) routes6_.Take(route_, kTold);
      return;
    case Dump::kCounters:
      return links_.TakeCounters(message);
    default:
      return;
  }
}

bool Mirror::End(Dump dump, bool complete) {
  switch (dump) {
    case Dump::kLinks:
      links_.End(complete);
      break;
    case Dump::kPorts:
      bridges_.End(complete);
      derive_ = true;
      break;
    case Dump::kAddresses:
      addresses_.End(complete);
      break;
    case Dump::kNeighbours:
      neighbours_.End(complete);
      break;
    case Dump::kFdb:
      fdb_.End(complete);
      break;
    case Dump::kMulticast:
      multicast_.End(complete);
      break;
    case Dump::kNextHops:
      objects_.End(complete);
      break;
    case Dump::kRoutes4:
      return routes4_.End(complete);
    case Dump::kRoutes6:
      return routes6_.End(complete);
    default:
      break;
  }
  return false;
}

void Mirror::Settle() {
  links_.Settle();
  const std::set<uint32_t> changed = links_.TakeChanged();
  if (!changed.empty()) {
    neighbours_.LinksChanged(changed);
    nextHops4_.LinksChanged(changed);
    nextHops6_.LinksChanged(changed);
    derive_ = true;
  }
  for (const NeighbourId &neighbour : neighbours_.TakeChanged()) {
    nextHops4_.NeighbourChanged(neighbour);
    nextHops6_.NeighbourChanged(neighbour);
  }
  if (fdb_.TellCounts(&links_)) bridges_.DeriveCounts();
  if (std::exchange(derive_, false)) bridges_.Derive();
  WantSilentlyLost();
  WantWhereRoomIs();
}

void Mirror::WantSilentlyLost() {
  if (links_.TakeSilentLoss())
    Want(kRouteDumps | BitOf(Dump::kNeighbours) | BitOf(Dump::kFdb) | BitOf(Dump::kMulticast) |
         BitOf(Dump::kPorts) | BitOf(Dump::kAddresses));
  const bool addressGone = addresses_.TakeSilentLoss(), objectGone = objects_.TakeSilentLoss();
  if (addressGone) Want(BitOf(Dump::kNextHops) | BitOf(Dump::kRoutes4));
  missing_ |= nextHops4_.TakeMissing();
  missing_ |= nextHops6_.TakeMissing();
  const bool come = objects_.TakeNew() && missing_;
  if (come) missing_ = false;
  if (objectGone || come) Want(kRouteDumps);
  if (routes4_.TakeUnsettled()) Want(BitOf(Dump::kRoutes4));
  if (routes6_.TakeUnsettled()) Want(BitOf(Dump::kRoutes6));
}

void Mirror::WantWhereRoomIs() {
  if (links_.TakeRoomAgain()) Want(BitOf(Dump::kLinks));
  if (fdb_.TakeRoomAgain()) Want(BitOf(Dump::kFdb));
  if (multicast_.TakeRoomAgain()) Want(BitOf(Dump::kMulticast));
  if (neighbours_.TakeRoomAgain()) Want(BitOf(Dump::kNeighbours));
  if (addresses_.TakeRoomAgain()) Want(BitOf(Dump::kAddresses));
  if (nextHops4_.EnterWhereRoomIs()) Want(BitOf(Dump::kRoutes4));
  if (nextHops6_.EnterWhereRoomIs()) Want(BitOf(Dump::kRoutes6));
  if (routes4_.TakeRoomAgain()) Want(BitOf(Dump::kRoutes4));
  if (routes6_.TakeRoomAgain()) Want(BitOf(Dump::kRoutes6));
}

uint64_t Mirror::refused() {
  return links_.refused() + bridges_.refused() + multicast_.refused() + fdb_.refused() +
         neighbours_.refused() + addresses_.refused() + nextHops4_.refused() + nextHops6_.refused() +
         routes4_.refused() + routes6_.refused();
}

}  // namespace qdt::host
