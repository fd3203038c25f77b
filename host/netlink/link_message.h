#ifndef HOST_NETLINK_LINK_MESSAGE_H_
#define HOST_NETLINK_LINK_MESSAGE_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/netlink/message.h"

namespace qdt::host {

using MacAddress = std::array<uint8_t, 6>;

// What a link has as the port of a bridge.
struct BridgePort {
  uint8_t state = 0;  // of the spanning tree, BR_STATE_...
  bool isolated = false;
  bool learning = true;

  bool operator==(const BridgePort &) const = default;
};

// What a link has as a bridge.
struct Bridge {
  uint32_t agingTime = 0;  // seconds
  bool vlanFiltering = false;
  bool spanningTree = false;
  bool multicastSnooping = false;

  bool operator==(const Bridge &) const = default;
};

struct LinkCounters {
  uint64_t inBytes = 0, inPackets = 0, inMulticast = 0, outBytes = 0, outPackets = 0;
  uint64_t inDropped = 0, outDropped = 0;
};

// A network device.
struct Link {
  uint32_t index = 0;
  uint32_t flags = 0;  // IFF_...
  uint16_t type = 0;   // ARPHRD_...
  bool carrier = false;
  std::string name, kind;
  uint32_t mtu = 0;
  MacAddress mac{};
  uint32_t master = 0;  // the bridge, VRF or bond that it belongs to
  uint32_t lower = 0;   // of VLANs and the like, the link that they stand on
  uint16_t vlan = 0;    // of VLANs
  uint32_t table = 0;   // of VRFs
  bool isPort = false;  // of a bridge
  Bridge bridge;
  BridgePort port;
  LinkCounters counters;

  bool IsBridge() const { return kind == "bridge"; }
  bool IsUp() const;
  // Whether neighbours have addresses that have to be found out.
  bool ResolvesNeighbours() const;
};

// Reads a message about a link; false for one that is cut or says nothing of a link. A message may tell of
// some things only: `link` keeps what it has of the others.
bool ReadLink(const Message &message, Link *link);

// Reads a message of the bridges (AF_BRIDGE) about one of their ports: what it tells of the port.
bool ReadBridgePort(const Message &message, BridgePort *port);

// VLANs of a bridge's port or of the bridge itself.
struct PortVlan {
  uint16_t vlan;
  bool untagged;
  bool pvid;
};
std::vector<PortVlan> ReadPortVlans(const Message &message);

// The counters in an answer to RTM_GETSTATS; false when there are none. *index is the link's.
bool ReadLinkCounters(const Message &message, uint32_t *index, LinkCounters *counters);

}  // namespace qdt::host

#endif  // HOST_NETLINK_LINK_MESSAGE_H_
