#ifndef HOST_LINUX_MIRROR_H_
#define HOST_LINUX_MIRROR_H_

#include <chrono>

#include "host/linux/bridges.h"
#include "host/linux/dump.h"
#include "host/linux/fdb.h"
#include "host/linux/links.h"
#include "host/linux/neighbours.h"
#include "host/linux/nexthops.h"
#include "host/linux/routes.h"

namespace qdt::host {

// What a network namespace forwards by, apart from its connections, in the engine's tables: follows what the kernel
// tells, and compares with a dump where the kernel does not tell.
class Mirror {
 public:
  // `buffer` bytes for notifications that wait. Throws HostError.
  Mirror(const FillTarget &target, const NetworkNamespace &where, int buffer);

  // The files to watch.
  int notifications() const { return notifications_.fd(); }
  int dumps() const { return dumpSocket_.fd(); }

  // Dumps everything and waits for it.
  void Load();
  // Some of the notifications that wait, and a piece of the dump that runs. Returns whether it has more to do though
  // none of the files may be readable.
  bool Follow();
  // Has the counters of the links read.
  void WantCounters() { dumper_.Want(BitOf(Dump::kCounters)); }
  // Takes everything out of the tables: what was mirrored is no more.
  void Clear();

  const Links &links() const { return links_; }
  // Entries that found no room so far.
  uint64_t refused() const;

 private:
  void Subscribe();
  void TakeNotification(const Message &message);
  bool FollowNotifications();
  void Begin(Dump dump);
  void TakeDump(Dump dump, const Message &message);
  bool End(Dump dump, bool complete);
  // Brings up to date what depends on what has changed, and finds out what has to be compared with a dump.
  void Settle();
  void WantSilentlyLost();
  void WantWhereRoomIs();

  NetlinkSocket notifications_, dumpSocket_;
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
  Dumper dumper_;
  RouteMessage route_;
  bool derive_ = true;
  bool lostSaid_ = false;
  bool bursting_ = false;
  std::chrono::steady_clock::time_point burst_{};
};

}  // namespace qdt::host

#endif  // HOST_LINUX_MIRROR_H_
