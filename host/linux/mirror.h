#ifndef HOST_LINUX_MIRROR_H_
#define HOST_LINUX_MIRROR_H_

#include "host/linux/bridges.h"
#include "host/linux/fdb.h"
#include "host/linux/links.h"
#include "host/linux/neighbours.h"
#include "host/linux/nexthops.h"
#include "host/linux/routes.h"
#include "host/netlink/feed.h"

namespace qdt::host {

// What a network namespace forwards by, apart from its connections, in the engine's tables: follows what the
// kernel tells, and compares with a dump where the kernel does not tell.
class Mirror : public Feed {
 public:
  // As Feed.
  Mirror(const FillTarget &target, const NetworkNamespace &where, int buffer);

  // Has the counters of the links read.
  void WantCounters();

  const Links &links() const { return links_; }
  // How often an entry has found no room so far.
  uint64_t refused();

 private:
  void TakeNotification(const Message &message) override;
  void Begin(Dump dump) override;
  void TakeDump(Dump dump, const Message &message) override;
  bool End(Dump dump, bool complete) override;
  void Settle() override;
  void WantSilentlyLost();
  void WantWhereRoomIs();

  Links links_;
  Bridges bridges_;
  Fdb fdb_;
  Multicast multicast_;
  Neighbours neighbours_;
  Addresses addresses_;
  NextHopObjects objects_;
  NextHops nextHops4_, nextHops6_;
  Routes<kIpv4> routes4_;
  Routes<kIpv6> routes6_;
  RouteMessage route_;
  bool derive_ = true;
  bool missing_ = false;  // a route leads to an object that is not known yet
};

}  // namespace qdt::host

#endif  // HOST_LINUX_MIRROR_H_
