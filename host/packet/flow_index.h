#ifndef HOST_PACKET_FLOW_INDEX_H_
#define HOST_PACKET_FLOW_INDEX_H_

#include <array>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "host/headers/packet_headers.h"
#include "host/layout/layout.h"
#include "host/tbm/table_sweep.h"

namespace qdt::host {

// What tells one direction of a session from all others.
struct FlowKey {
  WideValue source = 0, destination = 0;
  uint16_t sourcePort = 0, destinationPort = 0;  // of ICMP echoes the id, and type and code
  uint16_t vpn = 0;
  uint8_t protocol = 0;
  bool isIpv6 = false;

  bool operator==(const FlowKey &) const = default;
};

// The flow of a packet whose layer 4 is known; nothing for others.
std::optional<FlowKey> FlowOf(const PacketHeaders &headers, uint16_t vpn);
// The address as a number, as fields have it.
WideValue AddressNumber(const PacketHeaders &headers, const PacketAddress &address);

// A session as the engine's table has it now, seen from one of its directions.
struct FoundSession {
  uint32_t index = 0;
  bool isReply = false;
  WideValue newDestination = 0;  // where packets of this direction go: translated, or as they say
  uint32_t egress = 0;           // interface that packets of this direction go to; 0: not known
};

// Leads from flows to the sessions of the engine's table, which has them by number. Follows the table: new
// sessions are taken in before each batch of packets, and one is believed only while its entry says the same.
class FlowIndex {
 public:
  // Throws HostError when `layout` has no such table or fields.
  explicit FlowIndex(const Layout &layout);

  // Takes in what has come since the last call, and looks again at a part of what is there.
  void Refresh();

  std::optional<FoundSession> Find(const FlowKey &key) const;

 private:
  enum Direction : uint8_t { kPositive, kNegative };
  struct KeyFields {
    FieldRef source, destination, sourcePort, destinationPort, protocol, vpn;
    uint32_t pointer = 0;
  };
  // Hosts choose their ports: nobody may know which of them share a bucket.
  struct Hash {
    uint64_t seed;
    size_t operator()(const FlowKey &key) const;
  };
  struct Hit {
    uint32_t slot;
    Direction direction;
  };

  static int32_t TakeEntry(void *entry, void *context);
  void Take(void *entry);
  FlowKey KeyOf(const void *entry, Direction direction) const;
  FoundSession Describe(const void *entry, const FlowKey &key, Direction direction) const;

  uint32_t table_;
  std::array<std::array<KeyFields, 2>, 2> keys_;  // by IP version and direction
  FieldRef index_, isIpv6_, valid_, ingress_, egress_, translated_, newDestination_, replyNewDestination_;
  std::unordered_map<FlowKey, Hit, Hash> hits_;
  std::vector<std::array<FlowKey, 2>> known_;  // by slot: the keys under which it is in hits_
  tbm::Place last_;                            // the newest entry that was taken in
  TableSweep sweep_;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_FLOW_INDEX_H_
