#include "host/netlink/route_message.h"

#include <linux/rtnetlink.h>

namespace qdt::host {
namespace {

// The gateway that the attributes name, of either family.
void ReadGateway(const nlattr *gateway, const nlattr *via, Family family, Leg *leg) {
  if (Payload(gateway).size() == BytesOf(family)) {
    leg->hasGateway = true;
    leg->gatewayFamily = family;
    leg->gateway = IpOf(gateway, family);
    return;
  }
  const Bytes bytes = Payload(via);
  Family other;
  if (bytes.size() < sizeof(uint16_t) || !FamilyOf(static_cast<uint8_t>(Number<uint16_t>(via)), &other))
    return;
  const Bytes address = bytes.subspan(sizeof(uint16_t));
  if (address.size() != BytesOf(other)) return;
  leg->hasGateway = true;
  leg->gatewayFamily = other;
  std::ranges::copy(address, leg->gateway.begin());
}

void ReadLegs(Bytes bytes, Family family, std::vector<Leg> *legs) {
  while (bytes.size() >= sizeof(rtnexthop)) {
    rtnexthop hop;
    std::memcpy(&hop, bytes.data(), sizeof hop);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > bytes.size()) return;
    const Attributes<RTA_MAX> values(bytes.subspan(sizeof hop, hop.rtnh_len - sizeof hop));
    Leg leg;
    leg.link = static_cast<uint32_t>(hop.rtnh_ifindex);
    leg.weight = static_cast<uint16_t>(hop.rtnh_hops + 1);
    ReadGateway(values[RTA_GATEWAY], values[RTA_VIA], family, &leg);
    if (leg.link != 0) legs->push_back(leg);
    bytes = bytes.subspan(std::min<size_t>(RTNH_ALIGN(hop.rtnh_len), bytes.size()));
  }
}

bool LeadsSomewhere(uint8_t type) {
  return type == RTN_UNICAST || type == RTN_LOCAL || type == RTN_BROADCAST || type == RTN_ANYCAST ||
         type == RTN_MULTICAST;
}

}  // namespace

bool ReadRoute(const Message &message, RouteMessage *route) {
  const auto *head = message.Head<rtmsg>();
  if (head == nullptr || !FamilyOf(head->rtm_family, &route->family)) return false;
  if (head->rtm_dst_len > 8 * BytesOf(route->family) || head->rtm_src_len != 0) return false;
  if ((head->rtm_flags & RTM_F_CLONED) != 0) return false;
  const Attributes<RTA_MAX> values(message.Rest<rtmsg>());
  route->prefix = head->rtm_dst_len;
  route->tos = head->rtm_tos;
  route->type = head->rtm_type;
  route->protocol = head->rtm_protocol;
  route->table = Number<uint32_t>(values[RTA_TABLE], head->rtm_table);
  route->metric = Number<uint32_t>(values[RTA_PRIORITY]);
  route->isNew = message.type == RTM_NEWROUTE;
  route->replaces = (message.flags & NLM_F_REPLACE) != 0;
  route->appends = (message.flags & NLM_F_APPEND) != 0;
  route->destination = IpOf(values[RTA_DST], route->family);
  route->legs.clear();
  const bool leads = LeadsSomewhere(route->type);
  route->object = leads ? Number<uint32_t>(values[RTA_NH_ID]) : 0;
  if (!leads || route->object != 0) return true;
  if (values.Has(RTA_MULTIPATH)) {
    ReadLegs(Payload(values[RTA_MULTIPATH]), route->family, &route->legs);
    return true;
  }
  Leg leg;
  leg.link = Number<uint32_t>(values[RTA_OIF]);
  ReadGateway(values[RTA_GATEWAY], values[RTA_VIA], route->family, &leg);
  if (leg.link != 0) route->legs.push_back(leg);
  return true;
}

}  // namespace qdt::host
