#include "src/om/nqe_cli/table_usage.h"

#include <array>

#include "src/om/common/names.h"

namespace qdt {
namespace {

// In the order in which they are printed. A line without a name is a further form of the table above it,
// except for the one of table 23 that stands behind table 37's.
constexpr TableUsage kRows[kTableUsageCount] = {
    {" 0. fwdif", "0 0 ctrl-if-Index 0 0"},
    {" 1. ctrlif_map_fwdif", "1 0 ctrl-if-index 0 0"},
    {" 2. flowif_map_fwdif", "2 0 pct-index 0 0"},
    {" 3. fib", "3 dip prefix vpn 0"},
    {" 4. nhp", "4 0 nhp-index 0 0"},
    {" 5. nhp_group", "5 0 nhp-group 0 0"},
    {" 6. arp", "6 nexthop vpn 0 0"},
    {" 7. arp_miss_cache", "7 all|nexthop vpn 0 0"},
    {" 8. portip", "8 0 ctrl-if-index 0 0"},
    {" 9. bridgeinfo", "9 0 br-index 0 0"},
    {"10. global", "10 0 0 0 0"},
    {"11. acl_group", "11 0 groupType groupId 0"},
    {"", "11 all|num(eg:num5) 0 0 0"},
    {"12. acl_rule", "12 0 groupType groupId priority"},
    {"13. acl_stat", "13 0 groupType groupId statId"},
    {"", "13 all|num(eg:num5) 0 0 0"},
    {"15. attack_smac", "15 all|num(eg:num5) 0 0 0"},
    {"16. attack_sip", "16 all|num(eg:num5) 0 0 0"},
    {"17. attack_sdata", "17 all|num(eg:num5) 0 0 0"},
    {"18. capture_cfg", "18 0 capture-index 0 0"},
    {"19. mirr_observe", "19 0 observe-id 0 0"},
    {"20. vlaninfo", "20 0 br-id vlan-id 0"},
    {"21. vlan_bitmap", "21 0 ctrl-if-index 0 0"},
    {"22. ssw_boardcast", "22 all|num(eg:num5) br-id vlan-id 0"},
    {"23. ssw_macinfo", "23 mac br-id vlan-id 0"},
    {"", "23 all|num(eg:num5) 0 0 0"},
    {"25. port_isolate", "25 0 src-ctrl-if-index dst-ctrl-if-index 0"},
    {"26. port_tag", "26 0 portId 0 0"},
    {"", "26 all|num(eg:num5) 0 0 0"},
    {"27. afpacket_filter", "27 eth-protocol(eg:0x0806) 0 0 0"},
    {"28. usf_user", "28 mac 0 0 0"},
    {"29. usf_stat", "29 0 statId 0 0"},
    {"30. usf_macip", "30 ip keytype(0:ipv4,1:ipv6) 0 0"},
    {"31. car", "31 0 carId 0 0"},
    {"32. capwap_tunnel", "32 0 tunnelId 0 0"},
    {"33. capwap_decap", "33 sip:dip dport 0 0"},
    {"34. buf_cache_stat", "34 0 key 0 0"},
    {"35. cpcar_pro", "35 0 pro_type_id wireless 0"},
    {"", "35 pro_type_name 0 wireless 0"},
    {"", "35 all|num(eg:num5) 0 0 0"},
    {"36. hsec_global_cfg", "36 0 0 0 0"},
    {"37. timer_stat", "37 0 key 0 0"},
    {"", "23 all|num(eg:num5) 0 0 0"},
    {"38. local_mng_user", "38 user-ip 0 0 0"},
    {"39. usf_roam", "39 mac 0 0 0"},
    {"40. usf_roam_ap2sta_elb", "40 all 0 0 0"},
    {"41. http_portal_port", "41 0 0 0 0"},
    {"42. arp_dup_mac", "42 all|num(eg:num5) 0 0 0"},
    {"43. web_proxy_portal", "43 0 proxyPortalId 0 0"},
    {"44. trunk", "44 0 trunkId 0 0"},
    {"45. cpcar_pro_pps", "45 0 pro_type_id wireless 0"},
    {"", "45 pro_type_name 0 wireless 0"},
    {"", "45 all|num(eg:num5) 0 0 0"},
    {"46. priority", "46 0 vapIndex 0 0"},
    {"47. tbm_memory_stat", "47 0 0 0 0"},
    {"48. mac_carId", "48 mac 0 0 0"},
    {"49. ssw_global_boardcast", "49 all 0 0 0"},
    {"50. session", "50 sip:dip srcPort dstPort protocol"},
    {"", "50 sip:dip 0 0 protocol"},
    {"", "50 sip:dip 0 0 0"},
    {"", "50 sip|dip(sip:xxx | dip:xxx) 0 0 0"},
    {"", "50 all|num(eg:num5) 0 0 0"},
    {"51. mc_route_port", "51 all 0 vlan-id 0"},
    {"52. mc_elb", "52 gip:sip 0 vlan-id 0"},
    {"53. exclude_mc_elb", "53 all 0 vlan-id 0"},
    {"54. mc2uc_elb", "54 gip:sip 0 vlan-id ctrl-if-index"},
    {"55. vap_to_sta", "55 all|num(eg:num5) ctrl-if-index vlan-id 0"},
    {"56. dhcp_snooping_bind", "56 all 0 0 0"},
    {"57. session_cpcar", "57 all 0 0 0"},
    {"58. station_trace", "58 0 0 0 0"},
    {"59. acl_whole_machine_spec", "59 0 0 0 0"},
    {"60. cpcar_port_map", "60 all 0 0 0"},
    {"61. usf_map_fwdif", "61 0 peer-id 0 0"},
    {"62. nat_arp_pool_section", "62 startIp 0 0 0"},
    {"63. nat_arp_pool_exclude", "63 startIp 0 0 0"},
    {"64. nat_arp_host", "64 startIp 0 0 0"},
    {"65. mod_info", "65 all 0 0 0"},
    {"66. dns_domain", "66 all 0 0 0"},
    {"67. nat_policy", "67 rule_name 0 0 0"},
    {"68. ipv6_fib", "68 dip prefix vpn 0"},
    {"69. ipv6_nhp", "69 0 nhp-index 0 0"},
    {"70. ipv6_nhp_group", "70 0 nhp-group 0 0"},
    {"71. nd", "71 nexthop vpn 0 0"},
    {"72. nd_miss_cache", "72 all|nexthop vpn 0 0"},
    {"73. ipv6_portip", "73 0 ctrl-if-index 0 0"},
    {"74. port_inst_state", "74 0 0 inst-id ctrl-if-index"},
    {"75. mfib_dummy", "75 all 0 0 0"},
    {"76. cause", "76 all 0 0 0"},
    {"77. dropid", "77 0 dropid 0 0"},
    {"78. sac_profile", "78 0 sac_id 0 0"},
    {"79. sac_policy_carid", "79 0 sacid appid apptype"},
    {"80. sac_app_group", "80 0 group-id 0 0"},
    {"81. sac_protocol_mapping", "81 0 protocol-id 0 0"},
    {"82. sac_app_mapping", "82 0 app-id 0 0"},
    {"83. sac_app_rvs_mapping", "83 0 app-index 0 0"},
    {"84. sac_priority_mapping", "84 0 app-id 0 0"},
    {"85. sac_if_stat", "85 0 ctrl-if-Index 0 0"},
    {"86. sac_usf_stat", "86 0 mac 0 0"},
    {"87. eaplog_info", "87 mac 0 0 0"},
    {"88. arp_simulator", "88 all 0 0 0"},
};

constexpr auto kList = [] {
  std::array<const char *, 2 * kTableUsageCount> list{};
  for (size_t i = 0; i < list.size(); ++i) list[i] = i % 2 == 0 ? kRows[i / 2].name : kRows[i / 2].keys;
  return list;
}();
constexpr auto kTexts = PackNames<kList>();

}  // namespace

TableUsage UsageOf(int line) { return {kTexts[2 * line], kTexts[2 * line + 1]}; }

}  // namespace qdt
