#include "host/netlink/dump.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <utility>

namespace qdt::host {
namespace {

template <typename Head>
std::vector<uint8_t> RequestOf(const Head &head) {
  const auto *bytes = reinterpret_cast<const uint8_t *>(&head);
  return {bytes, bytes + sizeof head};
}

// With the VLANs of the bridges' ports.
struct PortRequest {
  ifinfomsg head;
  nlattr attribute;
  uint32_t filter;
};

struct Request {
  uint16_t type;
  std::vector<uint8_t> bytes;
};

Request RequestFor(Dump dump) {
  ndmsg neighbour = {};
  rtmsg route = {};
  if_stats_msg stats = {};
  br_port_msg port = {};
  nfgenmsg netfilter = {AF_UNSPEC, NFNETLINK_V0, 0};
  switch (dump) {
    case Dump::kLinks:
      return {RTM_GETLINK, RequestOf(ifinfomsg{})};
    case Dump::kPorts: {
      PortRequest request = {};
      request.head.ifi_family = AF_BRIDGE;
      request.attribute = {NLA_HDRLEN + sizeof request.filter, IFLA_EXT_MASK};
      request.filter = RTEXT_FILTER_BRVLAN_COMPRESSED;
      return {RTM_GETLINK, RequestOf(request)};
    }
    case Dump::kAddresses:
      return {RTM_GETADDR, RequestOf(ifaddrmsg{})};
    case Dump::kNeighbours:
      return {RTM_GETNEIGH, RequestOf(neighbour)};
    case Dump::kFdb:
      neighbour.ndm_family = AF_BRIDGE;
      return {RTM_GETNEIGH, RequestOf(neighbour)};
    case Dump::kMulticast:
      port.family = AF_BRIDGE;
      return {RTM_GETMDB, RequestOf(port)};
    case Dump::kNextHops:
      return {RTM_GETNEXTHOP, RequestOf(nhmsg{})};
    case Dump::kRoutes4:
    case Dump::kRoutes6:
      route.rtm_family = dump == Dump::kRoutes4 ? AF_INET : AF_INET6;
      return {RTM_GETROUTE, RequestOf(route)};
    case Dump::kCounters:
      stats.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
      return {RTM_GETSTATS, RequestOf(stats)};
    case Dump::kConnections:
      return {NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_GET, RequestOf(netfilter)};
    case Dump::kExpectations:
      return {NFNL_SUBSYS_CTNETLINK_EXP << 8 | IPCTNL_MSG_EXP_GET, RequestOf(netfilter)};
  }
  return {};
}

}  // namespace

Dumper::Dumper(NetlinkSocket *socket, uint32_t kinds, Receiver receiver)
    : socket_(*socket), kinds_(kinds), receiver_(std::move(receiver)) {}

void Dumper::Start() {
  while (!running_ && wanted_ != 0) {
    now_ = static_cast<Dump>(__builtin_ctz(wanted_));
    wanted_ &= ~BitOf(now_);
    const Request request = RequestFor(now_);
    receiver_.begin(now_);
    running_ = complete_ = true;
    over_ = interrupted_ = false;
    asked_ = socket_.Ask(request.type, NLM_F_DUMP, request.bytes);
    if (asked_ != 0) return;
    complete_ = false;
    Finish();
  }
}

void Dumper::Step(bool wait) {
  if (ending_) return Finish();
  if (!running_) {
    // What comes without a dump is an answer that nobody waits for.
    socket_.Receive(false, [](const Message &) {});
    return;
  }
  const auto result = socket_.Receive(wait, [this](const Message &message) {
    if (over_ || message.header->nlmsg_seq != asked_) return;
    interrupted_ |= (message.flags & NLM_F_DUMP_INTR) != 0;
    if (message.type == NLMSG_DONE || message.type == NLMSG_ERROR) {
      over_ = true;
      complete_ &= ErrorOf(message) == 0;
    } else if (message.type >= NLMSG_MIN_TYPE) {
      receiver_.take(now_, message);
    }
  });
  if (result == NetlinkSocket::Received::kLost || result == NetlinkSocket::Received::kFailed) {
    complete_ = false;
    over_ = true;
    interrupted_ |= result == NetlinkSocket::Received::kLost;
  }
  if (!over_) return;
  // What was interrupted is made once more; what the kernel does not have, or does not let us see, is not.
  complete_ &= !interrupted_;
  if (interrupted_) wanted_ |= BitOf(now_);
  Finish();
}

void Dumper::Finish() {
  ending_ = receiver_.end(now_, complete_);
  running_ = ending_;
}

}  // namespace qdt::host
