#ifndef HOST_LINUX_FDB_H_
#define HOST_LINUX_FDB_H_

#include <set>
#include <unordered_map>

#include "host/linux/mirror_table.h"
#include "host/netlink/kernel_set.h"
#include "host/netlink/link_message.h"

namespace qdt::host {

class Links;

// The MAC addresses that the bridges know. What cards filter by themselves ("self") is no bridging and left
// out.
class Fdb {
 public:
  explicit Fdb(const FillTarget &target);

  void Begin() { macs_.Begin(); }
  void Take(const Message &message, Told told);
  void End(bool complete);

  // Tells the links how many addresses are at each, and on each bridge; whether any number has changed.
  bool TellCounts(Links *links);
  bool TakeRoomAgain() { return table_.TakeRoomAgain(); }
  uint64_t refused() const { return table_.refused(); }

 private:
  struct Id {
    uint32_t bridge;
    uint16_t vlan;
    MacAddress mac;
  };
  struct Known {
    uint32_t port = 0;
    void *entry = nullptr;
  };
  void Count(const Id &id, uint32_t port, int change);
  void Leave(const Id &id, Known *known);

  KernelSet<Id, Known> macs_;
  std::unordered_map<uint32_t, uint32_t> counts_;  // by link
  std::set<uint32_t> counted_;                     // whose count has changed
  MirrorTable table_;
  FieldRef keyBridge_, keyVlan_, keyMac_, bridge_, vlan_, mac_, static_, local_, aging_, port_;
};

// Groups of multicast receivers on the bridges (IPv4), and the ports that lead to multicast routers.
class Multicast {
 public:
  explicit Multicast(const FillTarget &target);

  void Begin();
  void Take(const Message &message, Told told);
  void End(bool complete);
  bool TakeRoomAgain() {
    const bool receivers = table_.TakeRoomAgain(), routers = routerTable_.TakeRoomAgain();
    return receivers || routers;
  }
  uint64_t refused() const { return table_.refused() + routerTable_.refused(); }

 private:
  struct Id {
    uint32_t bridge, port, group, source;
    uint16_t vlan, reserved;
  };
  struct Router {
    uint32_t bridge, port;
  };
  struct Known {
    void *entry = nullptr;
  };
  void TakeEntry(uint32_t bridge, const nlattr *info, bool gone, Told told);
  void TakeRouters(uint32_t bridge, const nlattr *routers, bool gone, Told told);

  KernelSet<Id, Known> receivers_;
  KernelSet<Router, Known> routers_;
  MirrorTable table_, routerTable_;
  FieldRef keyVlan_, keyGroup_, keySource_, vlan_, group_, source_, port_, routerPort_;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_FDB_H_
