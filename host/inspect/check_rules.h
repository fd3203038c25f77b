#ifndef HOST_INSPECT_CHECK_RULES_H_
#define HOST_INSPECT_CHECK_RULES_H_

#include <cstdint>
#include <initializer_list>
#include <string_view>

// What has to hold in an engine's tables beyond what their layouts say: rows of names, from which EntryRules
// makes its rules.
namespace qdt::host {

// Which of its tables a reference leads to is told by a flag beside it.
struct TargetRule {
  std::string_view table;
  std::string_view reference;
  std::string_view flag;
  std::string_view target[2];  // by the flag's value
};
constexpr TargetRule kTargetRules[] = {
    {"fib", "next_hop", "multi_next_hop", {"nhp", "nhp_group"}},
    {"ipv6_fib", "next_hop", "multi_next_hop", {"ipv6_nhp", "ipv6_nhp_group"}},
};

// A reference leads to the entry whose key is told by fields of the record's own key. It may be null while
// the flag is not set.
struct BindingRule {
  std::string_view table;
  std::string_view reference;
  std::string_view flag;
  std::string_view key[3];
};
constexpr BindingRule kBindingRules[] = {
    // Statistics stand under the rule's place in its group.
    {"acl_rule", "action.stat_entry", "action.stat", {"group_type", "group_id", "priority"}},
};

// Services run with an ACL group, the kind of which goes by the service.
struct ServiceRule {
  std::string_view table;
  std::string_view services;
  uint32_t last;    // the highest service that there is
  uint32_t layer2;  // bitmaps of the services that take a group of layer 2, and of IPv4
  uint32_t ipv4;
};
constexpr uint32_t Bits(std::initializer_list<uint32_t> numbers) {
  uint32_t bits = 0;
  for (const uint32_t number : numbers) bits |= 1u << number;
  return bits;
}
constexpr ServiceRule kServiceRules[] = {
    {"fwdif", "l1_services", 25, Bits({2, 4, 5, 6, 7, 8, 14, 15, 16, 17, 18}),
     Bits({3, 9, 10, 11, 12, 13, 19, 20, 21, 22, 23})},
    {"nhp", "l1_services", 18, Bits({1, 3, 5, 7, 9, 11, 13, 15}), Bits({2, 4, 6, 8, 10, 12, 14, 16})},
};
// Types of ACL groups.
constexpr uint32_t kAclTypeIpv4 = 0;
constexpr uint32_t kAclTypeLayer2 = 2;

// A reference leads to the route that is in force for an address, in VPN 0.
struct RouteRule {
  std::string_view table;
  std::string_view reference;
  std::string_view address;
};
constexpr RouteRule kRouteRules[] = {{"capwap_tunnel", "route", "destination"}};

// A value stands in the record a second time.
struct AgainRule {
  std::string_view table;
  std::string_view field;
  std::string_view first;
};
constexpr AgainRule kAgainRules[] = {
    {"acl_group", "data_group_id", "group_id"},
    {"acl_group", "data_group_type", "group_type"},
    {"session", "https.index", "index"},
    {"session", "iptables.index", "index"},
};

// The entry that a number leads to names the record's key in turn. Where it names another one, one of the two
// has been given to somebody else.
struct BackRule {
  std::string_view table;
  std::string_view field;
  std::string_view back;  // of the entry that `field` leads to
};
constexpr BackRule kBackRules[] = {
    {"ctrlif_map_fwdif", "fwd_if_index", "ctrl_if_index"},
    {"flowif_map_fwdif", "fwd_if_index", "flow_if_index"},
    {"sac_app_mapping", "app_index", "app_id"},
    {"sac_app_rvs_mapping", "app_id", "app_index"},
    {"usf_user", "stat_id", "mac"},
};

// A table's entries lead to lists, whose entries stand under the list's number in another table.
struct ListRule {
  std::string_view heads;
  std::string_view list;  // of both tables
  std::string_view entries;
};
constexpr ListRule kListRules[] = {
    {"portip_head", "list_id", "portip"},
    {"ipv6_portip_head", "list_id", "ipv6_portip"},
};

}  // namespace qdt::host

#endif  // HOST_INSPECT_CHECK_RULES_H_
