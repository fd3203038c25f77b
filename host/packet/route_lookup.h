#ifndef HOST_PACKET_ROUTE_LOOKUP_H_
#define HOST_PACKET_ROUTE_LOOKUP_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"

namespace qdt::host {

// Where routes lead to.
struct RoutedHop {
  uint16_t discardReason = 0;  // why a packet cannot go there, or 0
  uint32_t interface = 0;      // 0 where that is not known
};

// Routes, next hops, groups and neighbours of one IP version, in the engine's tables.
class RouteLookup {
 public:
  enum class Version : uint8_t { kIpv4, kIpv6 };

  // Throws HostError when `layout` lacks one of the tables or fields.
  RouteLookup(const Layout &layout, Version version);

  // `flow` chooses among the next hops of a group: packets of one flow take the same one.
  RoutedHop Find(WideValue destination, uint16_t vpn, uint64_t flow) const;

 private:
  struct Reasons {
    uint16_t noRoute, noNextHop, noGroup, noNeighbour;
  };
  static const Reasons kReasons[];

  // The number of the next hop that the group gives to the flow; 0: none.
  uint32_t OfGroup(uint32_t group, uint64_t flow) const;
  bool HasNeighbour(WideValue address, uint16_t vpn) const;
  bool HasMac(uint32_t interface) const;

  // A table whose keys are an address in a VPN.
  struct AddressTable {
    AddressTable(const TableLayout &table, std::string_view addressName);
    std::vector<uint8_t> Key(WideValue address, uint16_t vpn) const;

    uint32_t id;
    uint32_t keySize;
    FieldRef vpn, address;
  };

  const Reasons &reasons_;
  const AddressTable routes_, neighbours_;
  uint32_t hops_, groups_, interfaces_;  // tables
  FieldRef isGroup_, isDirect_, hopIndex_;
  FieldRef hopInterface_, hopAddress_, hopMisses_;
  FieldRef primaryCount_, backupCount_, primaries_, backups_;
  uint32_t most_ = 0;  // members of a group
  FieldRef neighbourValid_;
  FieldRef interfaceMac_;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_ROUTE_LOOKUP_H_
