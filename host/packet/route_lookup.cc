#include "host/packet/route_lookup.h"

#include <algorithm>

#include "host/packet/needed_table.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

constexpr uint16_t kBlackhole = 108;

struct Names {
  const char *routes, *hops, *groups, *neighbours, *misses;
};
constexpr Names kNames[] = {{"fib", "nhp", "nhp_group", "arp", "arp_miss"},
                            {"ipv6_fib", "ipv6_nhp", "ipv6_nhp_group", "nd", "nd_miss"}};

FieldRef Element(const FieldRef &first, uint32_t number) { return first.At(number * first.size); }

}  // namespace

constexpr RouteLookup::Reasons RouteLookup::kReasons[] = {{16, 226, 227, 1}, {17, 236, 249, 6}};

RouteLookup::AddressTable::AddressTable(const TableLayout &table, std::string_view addressName)
    : id(table.spec.id),
      keySize(table.spec.keySize),
      vpn(KeyField(table, "vpn")),
      address(KeyField(table, addressName)) {}

std::vector<uint8_t> RouteLookup::AddressTable::Key(WideValue value, uint16_t ofVpn) const {
  std::vector<uint8_t> key(keySize);
  vpn.Set(key.data(), ofVpn);
  address.Write(key.data(), value);
  return key;
}

RouteLookup::RouteLookup(const Layout &layout, Version version)
    : reasons_(kReasons[static_cast<size_t>(version)]),
      routes_(NeededTable(layout, kNames[static_cast<size_t>(version)].routes), "destination"),
      neighbours_(NeededTable(layout, kNames[static_cast<size_t>(version)].neighbours), "next_hop") {
  const Names &names = kNames[static_cast<size_t>(version)];
  const TableLayout &routes = NeededTable(layout, names.routes);
  isGroup_ = routes.At("multi_next_hop");
  isDirect_ = routes.At("direct");
  hopIndex_ = routes.At("nhp_index");
  const TableLayout &hops = NeededTable(layout, names.hops);
  hops_ = hops.spec.id;
  hopInterface_ = hops.At("if_index");
  hopAddress_ = hops.At("next_hop");
  hopMisses_ = hops.At(names.misses);
  const TableLayout &groups = NeededTable(layout, names.groups);
  groups_ = groups.spec.id;
  primaryCount_ = groups.At("primary_count");
  backupCount_ = groups.At("backup_count");
  primaries_ = groups.At("primary_nhp_indexes[0]");
  backups_ = groups.At("nhp_indexes[0]");
  most_ =
      std::min(groups.fields.Find("primary_nhp_indexes")->count, groups.fields.Find("nhp_indexes")->count);
  neighbourValid_ = NeededTable(layout, names.neighbours).At("valid");
  const TableLayout &interfaces = NeededTable(layout, "fwdif");
  interfaces_ = interfaces.spec.id;
  interfaceMac_ = interfaces.At("source_mac");
}

RoutedHop RouteLookup::Find(WideValue destination, uint16_t vpn, uint64_t flow) const {
  void *route = nullptr;
  if (TbmTblMatch(0, routes_.id, routes_.Key(destination, vpn).data(), &route) != 0)
    return {reasons_.noRoute, 0};
  auto number = static_cast<uint32_t>(hopIndex_.Get(route));
  if (isGroup_.Get(route) != 0) {
    number = OfGroup(number, flow);
    if (number == 0) return {reasons_.noGroup, 0};
  } else if (number == 0) {
    return {kBlackhole, 0};
  }
  // By number, not by the address in the route: that may be stale.
  void *hop = nullptr;
  if (TbmTblSearch(0, hops_, &number, &hop) != 0) return {reasons_.noNextHop, 0};
  const auto interface = static_cast<uint32_t>(hopInterface_.Get(hop));
  const bool isDirect = isDirect_.Get(route) != 0 || hopAddress_.Read(hop) == 0;
  const bool misses =
      isDirect ? HasMac(interface) && !HasNeighbour(destination, vpn) : hopMisses_.Get(hop) != 0;
  return {misses ? reasons_.noNeighbour : uint16_t{0}, interface};
}

uint32_t RouteLookup::OfGroup(uint32_t group, uint64_t flow) const {
  void *record = nullptr;
  if (TbmTblSearch(0, groups_, &group, &record) != 0) return 0;
  const auto primaries = std::min(static_cast<uint32_t>(primaryCount_.Get(record)), most_);
  const auto backups = std::min(static_cast<uint32_t>(backupCount_.Get(record)), most_);
  if (primaries != 0) return static_cast<uint32_t>(Element(primaries_, flow % primaries).Get(record));
  return backups != 0 ? static_cast<uint32_t>(Element(backups_, flow % backups).Get(record)) : 0;
}

bool RouteLookup::HasNeighbour(WideValue address, uint16_t vpn) const {
  void *neighbour = nullptr;
  return TbmTblSearch(0, neighbours_.id, neighbours_.Key(address, vpn).data(), &neighbour) == 0 &&
         neighbourValid_.Get(neighbour) != 0;
}

// Who has none has no neighbours to resolve: tunnels, the loopback.
bool RouteLookup::HasMac(uint32_t interface) const {
  void *record = nullptr;
  return TbmTblSearch(0, interfaces_, &interface, &record) == 0 && interfaceMac_.Read(record) != 0;
}

}  // namespace qdt::host
