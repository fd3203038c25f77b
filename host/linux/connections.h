#ifndef HOST_LINUX_CONNECTIONS_H_
#define HOST_LINUX_CONNECTIONS_H_

#include <unordered_set>

#include "host/linux/mirror_table.h"
#include "host/linux/nexthops.h"
#include "host/netlink/connection_message.h"
#include "host/netlink/feed.h"
#include "host/netlink/kernel_set.h"

namespace qdt::host {

// The kernel's tracked connections as the engine's sessions, and those that it expects as server maps.
class Connections : public Feed {
 public:
  // Throws HostError without the right to see them.
  Connections(const FillTarget &target, const NetworkNamespace &where, int buffer);

  // Whether the kernel has shown what it has: it may have been built without.
  bool shown() const { return shown_; }

  // The engine takes the entry out, as a client asks for the session's end: ends the connection.
  void Leaves(uint32_t table, const void *entry);
  uint64_t refused() const { return sessions_.refused() + maps_.refused(); }

 private:
  struct Known {
    void *entry = nullptr;
    uint32_t number = 0;
    uint32_t id = 0;
    uint32_t created = 0;  // seconds since 1970
    uint16_t agingTime = 0;
    uint8_t state = 0;
    uint32_t refreshed = 0;  // seconds of the monotonic clock
  };
  struct ExpectationId {
    uint32_t id;
  };
  struct Expected {
    void *entry = nullptr;
  };

  void TakeNotification(const Message &message) override;
  void Begin(Dump dump) override;
  void TakeDump(Dump dump, const Message &message) override;
  bool End(Dump dump, bool complete) override;
  void Settle() override;

  void TakeConnection(const Message &message, Told told);
  void TakeExpectation(const Message &message, Told told);
  void Write(const ConnectionMessage &connection, Known *known);
  void WriteTranslation(const ConnectionMessage &connection);
  void WriteKeys(const ConnectionMessage &connection, const Known &known);
  void Leave(Known *known);

  KernelSet<Tuple, Known> known_;
  KernelSet<ExpectationId, Expected> expected_;
  std::unordered_map<const void *, Tuple> byEntry_;
  Numbers numbers_;
  bool shown_ = false;
  MirrorTable sessions_, maps_;

  struct KeyFields {
    FieldRef pointer, source, destination, sourcePort, destinationPort, protocol, vpn;
    uint32_t at = 0;
  };
  KeyFields KeyOf(const std::string &name);
  KeyFields positive_[2], negative_[2];
  FieldRef key_, index_, refreshed_, isIpv6_, valid_, state_, agingTime_, service_, parent_, created_;
  FieldRef natSource_, natDestination_, natSourcePort_, natDestinationPort_;
  FieldRef newSource_, newDestination_, newSourcePort_, newDestinationPort_;
  FieldRef replySource_, replyDestination_, replySourcePort_, replyDestinationPort_;
  struct MapFields {
    FieldRef source, destination, sourcePort, destinationPort, vrf, protocol, type;
  };
  MapFields mapKey_, map_;
  FieldRef mapAging_, mapRefreshed_;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_CONNECTIONS_H_
