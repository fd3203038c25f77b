#ifndef HOST_NETLINK_CONNECTION_MESSAGE_H_
#define HOST_NETLINK_CONNECTION_MESSAGE_H_

#include <optional>
#include <vector>

#include "host/netlink/ip_address.h"

namespace qdt::host {

// One direction of a tracked connection. Of ICMP the ports are its id, and type and code in one number.
struct Tuple {
  IpBytes source{}, destination{};
  uint16_t sourcePort = 0, destinationPort = 0;
  uint8_t protocol = 0;
  Family family = kIpv4;
  uint16_t zone = 0;
};

struct ConnectionMessage {
  Tuple original, reply;
  std::optional<Tuple> master;  // of a connection that was expected
  uint32_t status = 0;          // IPS_...
  uint32_t id = 0;
  std::optional<uint32_t> timeout;  // seconds
  std::optional<uint8_t> tcpState;  // TCP_CONNTRACK_...
  uint64_t start = 0;               // nanoseconds since 1970, 0 where the kernel does not keep it
  bool gone = false;
};

// False for a message that is cut or of another kind.
bool ReadConnection(const Message &message, ConnectionMessage *connection);

// A connection that another one has announced: what of its first packet may be anything is 0.
struct Expectation {
  Tuple tuple, mask;
  uint32_t id = 0;
  uint32_t timeout = 0;
  bool gone = false;
};
bool ReadExpectation(const Message &message, Expectation *expectation);

// The request that ends a connection.
std::vector<uint8_t> DeletionOf(const Tuple &original, uint32_t id);
extern const uint16_t kDeleteConnection;  // its type

}  // namespace qdt::host

#endif  // HOST_NETLINK_CONNECTION_MESSAGE_H_
