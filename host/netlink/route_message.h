#ifndef HOST_NETLINK_ROUTE_MESSAGE_H_
#define HOST_NETLINK_ROUTE_MESSAGE_H_

#include <vector>

#include "host/netlink/ip_address.h"

namespace qdt::host {

// A route as the kernel tells of it.
struct RouteMessage {
  Family family = kIpv4;
  uint8_t prefix = 0;
  uint8_t tos = 0;
  uint8_t type = 0;      // RTN_...
  uint8_t protocol = 0;  // RTPROT_...
  uint32_t table = 0;
  uint32_t metric = 0;
  uint32_t object = 0;  // next-hop object, then there are no legs
  bool isNew = false;
  bool replaces = false, appends = false;
  IpBytes destination{};
  std::vector<Leg> legs;
};

// False for what is no route of the tables: one that is cut, a cached one, one of multicast routing, or one
// that depends on where packets come from. `route` is overwritten; its room is used again.
bool ReadRoute(const Message &message, RouteMessage *route);

}  // namespace qdt::host

#endif  // HOST_NETLINK_ROUTE_MESSAGE_H_
