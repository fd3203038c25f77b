#include "qdt/tables.h"

// The registry of table views. A row without a view is refused as an invalid parameter.
namespace {

constexpr TableOps kNoView = {nullptr, nullptr};

}  // namespace

const TableOps g_nqeTblOps[QDT_DIAG_TABLE_COUNT] = {
    {NqeTableSearchFwdif, NqeTableFormatFwdif},                            // 0 fwdif
    {NqeTableSearchCtrlIfMap, NqeTableFormatCtrlIfMap},                    // 1 ctrlif_map_fwdif
    {NqeTableSearchFlowIfMap, NqeTableFormatFlowIfMap},                    // 2 flowif_map_fwdif
    {NqeTableSearchFib, NqeTableFormatFib},                                // 3 fib
    {NqeTableSearchNhp, NqeTableFormatNhp},                                // 4 nhp
    {NqeTableSearchNhpGroup, NqeTableFormatNhpGroup},                      // 5 nhp_group
    {NqeTableSearchArp, NqeTableFormatArp},                                // 6 arp
    {NqeTableSearchArpMissCache, NqeTableFormatArpMissCache},              // 7 arp_miss_cache
    {NqeTableSearchPortIpList, NqeTableFormatPortIpList},                  // 8 portip
    {NqeTableSearchBridge, NqeTableFormatBridge},                          // 9 bridgeinfo
    {NqeTableSearchGlobal, NqeTableFormatGlobal},                          // 10 global
    {NqeTableSearchAclGroup, NqeTableFormatAclGroup},                      // 11 acl_group
    {NqeTableSearchAclRule, NqeTableFormatAclRule},                        // 12 acl_rule
    {NqeTableSearchAclStat, NqeTableFormatAclStat},                        // 13 acl_stat
    kNoView,                                                               // 14
    {NqeTableSearchAttackSmac, NqeTableFormatAttackSmac},                  // 15 attack_smac
    {NqeTableSearchAttackSip, NqeTableFormatAttackSip},                    // 16 attack_sip
    {NqeTableSearchAttackSdata, NqeTableFormatAttackSdata},                // 17 attack_sdata
    {NqeTableSearchCaptureCfg, NqeTableFormatCaptureCfg},                  // 18 capture_cfg
    {NqeTableSearchNqeMirrObserve, NqeTableFormatNqeMirrObserve},          // 19 mirr_observe
    {NqeTableSearchVlan, NqeTableFormatVlan},                              // 20 vlaninfo
    {NqeTableSearchVlanBitmap, NqeTableFormatVlanBitmap},                  // 21 vlan_bitmap
    {NqeTableSearchSswBoardcast, NqeTableFormatSswBoardcast},              // 22 ssw_boardcast
    {NqeTableSearchMacInfo, NqeTableFormatMacInfo},                        // 23 ssw_macinfo
    kNoView,                                                               // 24
    {NqeTableSearchPortIsolate, NqeTableFormatPortIsolate},                // 25 port_isolate
    {NqeTableSearchPortTag, NqeTableFormatPortTag},                        // 26 port_tag
    {NqeTableSearchAfPacketListen, NqeTableFormatAfPacketListen},          // 27 afpacket_filter
    {NqeTableSearchUsfUser, NqeTableFormatUsfUser},                        // 28 usf_user
    {NqeTableSearchUsfStat, NqeTableFormatUsfStat},                        // 29 usf_stat
    {NqeTableSearchUsfMacIp, NqeTableFormatUsfMacIp},                      // 30 usf_macip
    {NqeTableSearchCar, NqeTableFormatCar},                                // 31 car
    {NqeTableSearchCapwapTunnel, NqeTableFormatCapwapTunnel},              // 32 capwap_tunnel
    {NqeTableSearchCapwapDecap, NqeTableFormatCapwapDecap},                // 33 capwap_decap
    {NqeTableSearchPktCacheStat, NqeTableFormatPktCacheStat},              // 34 buf_cache_stat
    {NqeTableSearchCpcarPro, NqeTableFormatCpcarPro},                      // 35 cpcar_pro
    {NqeTableSearchHsecGlobalCfg, NqeTableFormatHsecGlobalCfg},            // 36 hsec_global_cfg
    {NqeTableSearchTimerStat, NqeTableFormatTimerStat},                    // 37 timer_stat
    {NqeTableSearchUsfLocalMngUser, NqeTableFormatUsfLocalMngUser},        // 38 local_mng_user
    {NqeTableSearchUsfRoam, NqeTableFormatUsfRoam},                        // 39 usf_roam
    {NqeTableSearchUsfRoamAp2StaElb, NqeTableFormatUsfRoamAp2StaElb},      // 40 usf_roam_ap2sta_elb
    {NqeTableSearchUsfPortalHttpPort, NqeTableFormatUsfPortalHttpPort},    // 41 http_portal_port
    {NqeTableSearchArpUdpMac, NqeTableFormatArpDupMac},                    // 42 arp_dup_mac
    {NqeTableSearchProxyPortal, NqeTableFormatProxyPortal},                // 43 web_proxy_portal
    {NqeTableSearchTrunk, NqeTableFormatTrunk},                            // 44 trunk
    {NqeTableSearchCpcarPro, NqeTableFormatCpcarPps},                      // 45 cpcar_pro_pps
    {NqeTableSearchPriority, NqeTableFormatPriority},                      // 46 priority
    {NqeTableSearchTbmMemStat, NqeTableFormatTbmMemStat},                  // 47 tbm_memory_stat
    {NqeTableSearchMacCarId, NqeTableFormatMacCarId},                      // 48 mac_carId
    {NqeTableSearchSswGlobalBoardcast, NqeTableFormatSswGlobalBoardcast},  // 49 ssw_global_boardcast
    {NqeTableSearchSession, NqeTableFormatSession},                        // 50 session
    {NqeTableSearchSswMcRoutePortElb, NqeTableFormatSswMcRoutePortElb},    // 51 mc_route_port
    {NqeTableSearchSswMcElb, NqeTableFormatSswMcElb},                      // 52 mc_elb
    {NqeTableSearchSswExcludeMcElb, NqeTableFormatSswExcludeMcElb},        // 53 exclude_mc_elb
    {NqeTableSearchSswMc2UcElb, NqeTableFormatSswMc2UcElb},                // 54 mc2uc_elb
    {NqeTableSearchVap2Sta, NqeTableFormatVap2Sta},                        // 55 vap_to_sta
    {NqeTableSearchDhcpSnpBind, NqeTableFormatDhcpSnpBind},                // 56 dhcp_snooping_bind
    {NqeTableSearchSessCpcar, NqeTableFormatSessCpcar},                    // 57 session_cpcar
    {NqeTableSearchStationTrace, NqeTableFormatStationTrace},              // 58 station_trace
    {NqeTableSearchAclTbmRule, NqeTableFormatAclTbmRule},                  // 59 acl_whole_machine_spec
    {NqeTableSearchCpcarPortMap, NqeTableFormatCpcarPortMap},              // 60 cpcar_port_map
    {NqeTableSearchPfeVapIfMap, NqeTableFormatPfeVapIfMap},                // 61 usf_map_fwdif
    {NqeTableSearchArpPoolSection, NqeTableFormatNatArp},                  // 62 nat_arp_pool_section
    {NqeTableSearchArpPoolExclude, NqeTableFormatNatArp},                  // 63 nat_arp_pool_exclude
    {NqeTableSearchArpHost, NqeTableFormatNatArp},                         // 64 nat_arp_host
    {NqeTableSearchModInfo, NqeTableFormatModInfo},                        // 65 mod_info
    {NqeTableSearchDnsDomain, NqeTableFormatDnsDomain},                    // 66 dns_domain
    {NqeTableSearchNatPolicy, NqeTableFormatNatPolicy},                    // 67 nat_policy
    {NqeTableSearchIpv6Fib, NqeTableFormatIpv6Fib},                        // 68 ipv6_fib
    {NqeTableSearchIpv6Nhp, NqeTableFormatIpv6Nhp},                        // 69 ipv6_nhp
    {NqeTableSearchIpv6NhpGroup, NqeTableFormatIpv6NhpGroup},              // 70 ipv6_nhp_group
    {NqeTableSearchNd, NqeTableFormatNd},                                  // 71 nd
    {NqeTableSearchNdMissCache, NqeTableFormatNdMissCache},                // 72 nd_miss_cache
    {NqeTableSearchIpv6PortIpList, NqeTableFormatIpv6PortIpList},          // 73 ipv6_portip
    {NqeTableSearchPortInstState, NqeTableFormatPortInstState},            // 74 port_inst_state
    {NqeTableSearchMFibDummy, NqeTableFormatMFibDummy},                    // 75 mfib_dummy
    {NqeTableSearchCause, NqeTableFormatCause},                            // 76 cause
    {NqeTableSearchDropId, NqeTableFormatDropIdDesc},                      // 77 dropid
    {NqeTableSearchSacProfile, NqeTableFormatSacProfile},                  // 78 sac_profile
    {NqeTableSearchSacPolicyCarid, NqeTableFormatSacPolicyCarid},          // 79 sac_policy_carid
    {NqeTableSearchSacAppGroup, NqeTableFormatSacAppGroup},                // 80 sac_app_group
    {NqeTableSearchSacProtocolMapping, NqeTableFormatSacProtocolMapping},  // 81 sac_protocol_mapping
    {NqeTableSearchSacAppMapping, NqeTableFormatSacAppMapping},            // 82 sac_app_mapping
    {NqeTableSearchSacAppRvsMapping, NqeTableFormatSacAppRvsMapping},      // 83 sac_app_rvs_mapping
    {NqeTableSearchSacPriorityMapping, NqeTableFormatSacPriorityMapping},  // 84 sac_priority_mapping
    {NqeTableSearchSacIfStat, NqeTableFormatSacIfStat},                    // 85 sac_if_stat
    {NqeTableSearchSacUsfStat, NqeTableFormatSacUsfStat},                  // 86 sac_usf_stat
    {NqeTableSearchEapLogInfo, NqeTableFormatEapLogInfo},                  // 87 eaplog_info
    {NqeTableSearchArpSimulator, NqeTableFormatArpSimulator},              // 88 arp_simulator
};

const uint8_t g_qdtTblGetAllItemsOfOneKey[QDT_DIAG_TABLE_COUNT] = {
    0, 0, 0, 0, 0, 0, 0, 1, 1, 0,  // 7 arp_miss_cache, 8 portip
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
    0, 0, 0, 0, 0, 0, 0, 1, 0, 0,  // 27 afpacket_filter
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
    0, 0, 1, 0, 1, 0, 0, 0, 0, 0,  // 52 mc_elb, 54 mc2uc_elb
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
    0, 0, 1, 1, 0, 0, 0, 0, 0, 0,  // 72 nd_miss_cache, 73 ipv6_portip
    0, 0, 0, 0, 0, 0, 0, 0, 0,     //
};
