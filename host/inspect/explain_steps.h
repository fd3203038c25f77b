#ifndef HOST_INSPECT_EXPLAIN_STEPS_H_
#define HOST_INSPECT_EXPLAIN_STEPS_H_

#include <cstdint>
#include <string_view>

// What is looked for, where, to explain an address: rows of names that ExplainAddress follows. Lists of
// fields are joined by commas.
namespace qdt::host {

// What a step begins with.
enum class Clue : uint8_t {
  kIpv4,
  kIpv6,
  kMac,
  kEntry,  // of the step's table: a field has led to it
  kField,  // a value of the step's field, which another table's field shares
};

// How it looks.
enum class Search : uint8_t {
  kKey,    // the entry whose key has the clue in the field; of the key's other fields vpn is asked for, the
           // rest 0
  kAll,    // all entries that have the clue in any of the fields
  kRoute,  // the route with the longest prefix
};

enum StepFlag : uint8_t {
  kAlways = 0,
  kQuiet = 1 << 0,  // is not said when nothing is found
  kAsked = 1 << 1,  // only for the address that is to be explained, not for those that are found on the way
};

struct ExplainRow {
  std::string_view step;
  Clue clue;
  std::string_view table;
  Search search;
  std::string_view fields;
  uint8_t flags;
  // Fields that matter to people; with "?" only where they are not 0.
  std::string_view shows;
  // Fields whose values are followed: addresses; numbers and references to where they lead; with ">TABLE" to
  // the entries of a table with a kField row.
  std::string_view follows;
};

constexpr std::string_view kSessionShows =
    "state?,ingress,egress,positive.source,positive.source_port,positive.destination,positive.destination_"
    "port,"
    "positive.protocol,positive6.source,positive6.source_port,positive6.destination,positive6.destination_"
    "port,"
    "positive6.protocol,new_source,new_source_port?,new_destination,new_destination_port?";
constexpr std::string_view kNeighbourShows = "valid,fake?,dmac,fwd_if_index,l3_fwd_if_index,vlan_id?";

constexpr ExplainRow kExplainRows[] = {
    // Who has the address.
    {"station", Clue::kIpv4, "usf_user", Search::kAll, "ipv4_address,learnt_address", kAsked,
     "authenticated,pre_auth?,roamed?,vap_index,peer_id,auth_vlan?", "mac,peer_id"},
    {"station", Clue::kMac, "usf_user", Search::kKey, "mac", kAlways,
     "authenticated,pre_auth?,roamed?,ipv4_address,vap_index,peer_id,auth_vlan?", "peer_id,ipv4_address"},
    {"manager", Clue::kIpv4, "local_mng_user", Search::kKey, "address", kQuiet | kAsked,
     "source_mac,fwd_if_index,vlan_id", "source_mac,fwd_if_index"},
    {"binding", Clue::kIpv4, "usf_macip", Search::kAll, "address,ipv4_address", kAsked, "mac,learn_mode",
     "mac"},
    {"binding", Clue::kIpv6, "usf_macip", Search::kAll, "address,ipv6_address", kAsked, "mac,learn_mode",
     "mac"},
    {"binding", Clue::kMac, "usf_macip", Search::kAll, "address,mac", kAsked,
     "ipv4_address,ipv6_address,learn_mode", "ipv4_address,ipv6_address"},
    {"own address", Clue::kIpv4, "portip", Search::kAll, "address", kQuiet | kAsked, "address,mask,type",
     "list_id>portip_head"},
    {"own address", Clue::kIpv6, "ipv6_portip", Search::kAll, "address", kQuiet | kAsked,
     "address,prefix,type", "list_id>ipv6_portip_head"},
    {"list of addresses", Clue::kField, "portip_head", Search::kAll, "list_id", kAlways, "list_id",
     "fwd_if_index"},
    {"list of addresses", Clue::kField, "ipv6_portip_head", Search::kAll, "list_id", kAlways, "list_id",
     "fwd_if_index"},

    // Where it is.
    {"MAC entry", Clue::kMac, "ssw_macinfo", Search::kAll, "mac", kAlways,
     "static?,drop?,local?,roam?,out_if_index", "out_if_index"},
    {"VAP", Clue::kMac, "vap_to_sta", Search::kAll, "mac", kQuiet, "", "fwd_if_index"},
    {"roaming", Clue::kMac, "usf_roam", Search::kKey, "mac", kQuiet, "role,home_vap_fwd_if_index,tunnel_id",
     "home_vap_fwd_if_index,tunnel_id"},
    {"neighbour", Clue::kIpv4, "arp", Search::kKey, "next_hop", kAlways, kNeighbourShows,
     "dmac,fwd_if_index,l3_fwd_if_index"},
    {"neighbour", Clue::kIpv6, "nd", Search::kKey, "next_hop", kAlways, kNeighbourShows,
     "dmac,fwd_if_index,l3_fwd_if_index"},
    {"neighbour", Clue::kMac, "arp", Search::kAll, "dmac", kAsked, kNeighbourShows,
     "next_hop,fwd_if_index,l3_fwd_if_index"},
    {"neighbour", Clue::kMac, "nd", Search::kAll, "dmac", kAsked, kNeighbourShows,
     "next_hop,fwd_if_index,l3_fwd_if_index"},
    {"waiting packet", Clue::kIpv4, "arp_miss_cache", Search::kAll, "next_hop", kQuiet | kAsked,
     "source,destination,ttl", ""},
    {"waiting packet", Clue::kIpv6, "nd_miss_cache", Search::kAll, "next_hop", kQuiet | kAsked,
     "source,destination,ttl", ""},
    {"DHCP binding", Clue::kIpv4, "dhcp_snooping_bind", Search::kAll, "ipv4_address", kAsked,
     "fwd_if_index,protocol,bind_type", "mac,fwd_if_index"},
    {"DHCP binding", Clue::kIpv6, "dhcp_snooping_bind", Search::kAll, "ipv6_address", kAsked,
     "fwd_if_index,protocol,bind_type", "mac,fwd_if_index"},
    {"DHCP binding", Clue::kMac, "dhcp_snooping_bind", Search::kAll, "mac", kAsked,
     "fwd_if_index,protocol,bind_type", "ipv4_address,ipv6_address,fwd_if_index"},
    {"attacker", Clue::kIpv4, "attack_sip", Search::kKey, "address", kQuiet | kAsked, "", ""},
    {"attacker", Clue::kIpv4, "attack_sdata", Search::kAll, "address", kQuiet | kAsked,
     "last_count,total_count", ""},
    {"attacker", Clue::kMac, "attack_smac", Search::kKey, "mac", kQuiet, "", ""},
    {"duplicate", Clue::kMac, "arp_dup_mac", Search::kAll, "source_mac", kQuiet, "", "if_index"},

    // How packets get there.
    {"route", Clue::kIpv4, "fib", Search::kRoute, "destination", kAsked,
     "direct?,default?,nhp_index,next_hop", "next_hop"},
    {"route", Clue::kIpv6, "ipv6_fib", Search::kRoute, "destination", kAsked,
     "direct?,default?,nhp_index,next_hop", "next_hop"},
    {"next hop", Clue::kEntry, "nhp", Search::kKey, "", kAlways, "if_index,next_hop,mtu,arp_miss?,fwdifs",
     "next_hop>arp,if_index,fwdifs"},
    {"next hop", Clue::kEntry, "ipv6_nhp", Search::kKey, "", kAlways, "if_index,next_hop,mtu,nd_miss?,fwdifs",
     "next_hop>nd,if_index,fwdifs"},
    {"next-hop group", Clue::kEntry, "nhp_group", Search::kKey, "", kAlways,
     "primary_count,backup_count,primary_next_hops,next_hops", "primary_next_hops,next_hops"},
    {"next-hop group", Clue::kEntry, "ipv6_nhp_group", Search::kKey, "", kAlways,
     "primary_count,backup_count,primary_next_hops,next_hops", "primary_next_hops,next_hops"},
    {"router", Clue::kField, "arp", Search::kKey, "next_hop", kAlways, kNeighbourShows, "fwd_if_index"},
    {"router", Clue::kField, "nd", Search::kKey, "next_hop", kAlways, kNeighbourShows, "fwd_if_index"},
    {"interface", Clue::kEntry, "fwdif", Search::kKey, "", kAlways,
     "if_type,enable,down?,vlan_id?,ctrl_if_index", "ctrl_if_index"},
    {"control interface", Clue::kEntry, "ctrlif_map_fwdif", Search::kKey, "", kAlways, "fwd_if_index",
     "fwd_if_index"},
    {"user map", Clue::kEntry, "usf_map_fwdif", Search::kKey, "", kAlways, "fwd_if_index", "fwd_if_index"},
    {"tunnel", Clue::kEntry, "capwap_tunnel", Search::kKey, "", kAlways,
     "valid,source,destination,ap_mac,route", ""},
    {"tunnel", Clue::kIpv4, "capwap_tunnel", Search::kAll, "source,destination", kQuiet | kAsked,
     "valid,source,destination,ap_mac,route", ""},

    // What goes there.
    {"session", Clue::kIpv4, "session", Search::kAll,
     "positive.source,positive.destination,negative.source,negative.destination,new_source,new_destination,"
     "reply_new_source,reply_new_destination,iptables.destination",
     kAlways, kSessionShows, ""},
    {"session", Clue::kIpv6, "session", Search::kAll,
     "positive6.source,positive6.destination,negative6.source,negative6.destination", kAlways, kSessionShows,
     ""},
    {"session", Clue::kMac, "session", Search::kAll, "https.source_mac,https.destination_mac",
     kQuiet | kAsked, kSessionShows, ""},
    {"server map", Clue::kIpv4, "server_map", Search::kAll,
     "source,destination,nat.address,no_pat.first,no_pat.second,aspf.first,aspf.second", kAlways,
     "zone,nat.address,nat.port?,no_pat.first,no_pat.second,aspf.first,aspf.second", ""},
    {"NAT address", Clue::kIpv4, "nat_arp_host", Search::kAll, "start", kQuiet | kAsked, "address_count", ""},
};

// What is remarkable about a record that was found.
struct StateNote {
  std::string_view table;
  std::string_view field;
  uint64_t value;
  std::string_view note;
};
constexpr StateNote kStateNotes[] = {
    {"usf_user", "deny_all", 1, "everything is denied"},
    {"ssw_macinfo", "drop", 1, "packets of the address are dropped"},
    {"arp", "valid", 0, "not resolved"},
    {"arp", "fake", 1, "a fake"},
    {"nd", "valid", 0, "not resolved"},
    {"nd", "fake", 1, "a fake"},
    {"fwdif", "enable", 0, "not enabled"},
    {"fwdif", "down", 1, "down"},
    {"session", "valid", 0, "not in use"},
    {"capwap_tunnel", "valid", 0, "not in use"},
};

// Fields that say which station has the address and where it is: all of them should say the same.
struct ClaimField {
  std::string_view table;
  std::string_view field;
};
constexpr ClaimField kMacClaims[] = {
    {"usf_user", "mac"}, {"usf_macip", "mac"},          {"arp", "dmac"},
    {"nd", "dmac"},      {"dhcp_snooping_bind", "mac"}, {"local_mng_user", "source_mac"},
};
constexpr ClaimField kInterfaceClaims[] = {
    {"ssw_macinfo", "out_if_index"},
    {"vap_to_sta", "fwd_if_index"},
    {"arp", "fwd_if_index"},
    {"nd", "fwd_if_index"},
    {"usf_map_fwdif", "fwd_if_index"},
    {"dhcp_snooping_bind", "fwd_if_index"},
    {"local_mng_user", "fwd_if_index"},
};

}  // namespace qdt::host

#endif  // HOST_INSPECT_EXPLAIN_STEPS_H_
