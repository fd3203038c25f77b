#ifndef HOST_NETLINK_DUMP_H_
#define HOST_NETLINK_DUMP_H_

#include <cstdint>
#include <functional>

#include "host/netlink/netlink.h"

namespace qdt::host {

// What is dumped, in the order in which dumps are made: what others refer to comes first.
enum class Dump : uint8_t {
  kLinks,
  kPorts,  // of bridges, with their VLANs
  kAddresses,
  kNeighbours,
  kFdb,
  kMulticast,
  // The kernel tells of a next hop or an address that goes before it drops the routes that need it. The dump
  // of the next-hop objects waits until it has.
  kNextHops,
  kRoutes4,
  kRoutes6,
  kCounters,
  kConnections,
  kExpectations,
};
constexpr uint32_t BitOf(Dump dump) { return 1u << static_cast<uint8_t>(dump); }
constexpr uint32_t kRouteDumps = BitOf(Dump::kNextHops) | BitOf(Dump::kRoutes4) | BitOf(Dump::kRoutes6);

// Asks for one dump after the other on a socket of their own, and goes on with them piece by piece.
class Dumper {
 public:
  struct Receiver {
    std::function<void(Dump)> begin;
    std::function<void(Dump, const Message &)> take;
    // False for a dump that was interrupted or failed, which does not tell what has gone. Returns whether it
    // has to be called again.
    std::function<bool(Dump, bool complete)> end;
  };
  Dumper(NetlinkSocket *socket, uint32_t kinds, Receiver receiver);

  // Dumps that are to be made, by their bits; those that are not the dumper's are left out. One that runs
  // already is made once more.
  void Want(uint32_t dumps) { wanted_ |= dumps & kinds_; }
  bool running() const { return running_; }
  bool ending() const { return ending_; }
  bool waiting() const { return !running_ && wanted_ != 0; }
  bool idle() const { return !running_ && wanted_ == 0; }

  // Begins with the next dump, if none runs.
  void Start();
  // One piece of the dump that runs. Waits for it when told to. Takes away what waits on the socket without
  // one.
  void Step(bool wait);

 private:
  bool Ask(Dump dump);
  void Finish();

  NetlinkSocket &socket_;
  const uint32_t kinds_;
  Receiver receiver_;
  uint32_t wanted_ = 0;
  Dump now_ = Dump::kLinks;
  bool running_ = false;
  bool over_ = false;      // its last message has come
  bool complete_ = false;  // nothing has disturbed it so far
  bool interrupted_ = false;
  uint32_t asked_ = 0;   // the number of the request
  bool ending_ = false;  // the receiver has more to do about its end
};

}  // namespace qdt::host

#endif  // HOST_NETLINK_DUMP_H_
