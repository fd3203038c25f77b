/*
 * The engine tables that the "diag" command shows: return codes, the registry of table views, and the views.
 *
 * A view is a pair of operations. Its search fetches raw records of one engine table; its format turns such
 * records into text. Everything runs in the caller's thread; the table manager makes reads safe against the
 * engine's changes.
 */
#ifndef QDT_TABLES_H_
#define QDT_TABLES_H_

#include <stdint.h>

#include "platform/tbm.h"
#include "qdt/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The return codes of searches and formats, with the message that a failed query shows: X(name, code,
 * message). -1 to -12 and -113 to -116 come from the table manager, and from views for failures of the same
 * kind; -117 and below are this library's own. The messages are part of the interface, as they stand.
 */
#define QDT_TABLE_CODES(X)                                                   \
  X(QDT_TBL_FAIL, -1, "search fail")                                         \
  X(QDT_TBL_BAD_PARAM, -2, "search param wrong")                             \
  X(QDT_TBL_MEMORY, -3, "memory operation error")                            \
  X(QDT_TBL_EMPTY, -4, "search result is empty")                             \
  X(QDT_TBL_EXISTS, -5, "table already exist")                               \
  X(QDT_TBL_UNSUPPORTED, -6, "search is not supported")                      \
  X(QDT_TBL_NOT_FOUND, -7, "search result not found")                        \
  X(QDT_TBL_FULL, -8, "table is full")                                       \
  X(QDT_TBL_CONTINUE, -9, "search continue")                                 \
  X(QDT_TBL_STOP, -10, "stop this search")                                   \
  X(QDT_TBL_CONTINUE_DELETED, -11, "the search continues,a node is deleted") \
  X(QDT_TBL_STOP_DELETED, -12, "stop the search,a node is deleted")          \
  X(QDT_TBL_PROTOCOL, -113, "search return error protocal")                  \
  X(QDT_TBL_DUPLICATE, -114, "search duplicate")                             \
  X(QDT_TBL_INTERNAL, -115, "search internal error")                         \
  X(QDT_TBL_NOT_READY, -116, "search not ready")                             \
  X(QDT_TBL_NO_MEMORY, -117, "nqecli malloc fail")                           \
  X(QDT_TBL_RAW_DATA, -118, "format raw data fail")                          \
  X(QDT_TBL_DATA_SIZE, -119, "datasize empty or invalid")                    \
  X(QDT_TBL_FORMAT, -120, "parse data format fail")                          \
  X(QDT_TBL_INVALID_INPUT, -121, "invalid input param")

#define QDT_TABLE_CODE_ENUM(name, code, message) name = (code),
enum { QDT_TABLE_CODES(QDT_TABLE_CODE_ENUM) };
#undef QDT_TABLE_CODE_ENUM

/* What a query shows for a code outside the list. */
#define QDT_UNKNOWN_CODE_MESSAGE "Invalid error code"

/* Diag table ids are 0 to QDT_DIAG_TABLE_COUNT - 1. */
#define QDT_DIAG_TABLE_COUNT 89

/*
 * Search operation. loopNum 0 looks up the one entry that the keys name; above 0 it fetches the next batch of
 * at most loopNum entries behind `ctx`. `key1` is the fourth command word as typed, key2 to key4 the parsed
 * ones.
 *
 * 0: records delivered, nothing more to fetch; 1: a batch delivered, more remain; anything else is a failure,
 * a code of the list above. *record is allocated with malloc_ex, *recordLen is its length in bytes; the
 * caller releases *record with free_ex whenever it is not null, after a failure too.
 */
typedef int32_t (*TableSearch)(void **record, uint32_t *recordLen, TbmTravContext *ctx, uint32_t loopNum,
                               const char *key1, uint32_t key2, uint32_t key3, uint32_t key4);

/*
 * Format operation: writes the text of all records at `record` (recordLen bytes) to `out`, which has `room`
 * bytes. The bytes written (the terminating NUL not counted); QDT_TBL_DATA_SIZE when recordLen does not fit
 * the view, QDT_TBL_FORMAT when the text does not fit the room. Does not free the record.
 */
typedef int32_t (*TableFormat)(char *out, uint32_t room, const void *record, int32_t recordLen);

/* One registry row; both pointers are null in a row without a view. */
typedef struct TableOps {
  TableSearch search;
  TableFormat format;
} TableOps;

/* The registry, indexed by diag table id. */
QDT_API extern const TableOps g_nqeTblOps[QDT_DIAG_TABLE_COUNT];

/* 1 for a table whose search always walks all entries that share the given key; such queries are always
 * traversals. */
QDT_API extern const uint8_t g_qdtTblGetAllItemsOfOneKey[QDT_DIAG_TABLE_COUNT];

/*
 * Runs one query and writes the whole answer to `out` from offset 0: dashes, the records, dashes; or, on any
 * failure, the one message of its code. `key1` is "all" (every entry), "num" and a count from 1 to 100 (that
 * many entries), or a key text. Returns the length of the last piece written (end line or message).
 */
QDT_API int32_t CliNqeTblSearch(char *out, uint32_t room, uint32_t tableId, const char *key1, uint32_t key2,
                                uint32_t key3, uint32_t key4);

/* Declares a view's search and format operation. */
#define QDT_TABLE_SEARCH(name)                                                                    \
  QDT_API int32_t name(void **record, uint32_t *recordLen, TbmTravContext *ctx, uint32_t loopNum, \
                       const char *key1, uint32_t key2, uint32_t key3, uint32_t key4)
#define QDT_TABLE_FORMAT(name) \
  QDT_API int32_t name(char *out, uint32_t room, const void *record, int32_t recordLen)

/* Forwarding interfaces. One entry by key, whatever loopNum says. */
QDT_TABLE_SEARCH(NqeTableSearchFwdif);       /* 0 fwdif: key2 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatFwdif);       /* one 1544-byte record */
QDT_TABLE_SEARCH(NqeTableSearchCtrlIfMap);   /* 1 ctrlif_map_fwdif: key2 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatCtrlIfMap);   /* one 16-byte record */
QDT_TABLE_SEARCH(NqeTableSearchFlowIfMap);   /* 2 flowif_map_fwdif: key2 = flow (pct) index */
QDT_TABLE_FORMAT(NqeTableFormatFlowIfMap);   /* one 16-byte record */
QDT_TABLE_SEARCH(NqeTableSearchPfeVapIfMap); /* 61 usf_map_fwdif: key2 = peer (user) id */
QDT_TABLE_FORMAT(NqeTableFormatPfeVapIfMap); /* one 16-byte record */

/*
 * The ingress ACL block of one forwarding interface (its 1544-byte record) alone. The bytes written;
 * QDT_TBL_DATA_SIZE for a null entry, QDT_TBL_FORMAT when it does not fit the room.
 */
QDT_API int32_t NqeTableFwdifIngAclEnInfo(char *out, uint32_t room, const void *entry);

/* IPv4 routing and neighbours. One entry by key, whatever loopNum says, except for the lists. */
QDT_TABLE_SEARCH(NqeTableSearchFib);      /* 3 fib: key1 = destination, key2 = prefix length, key3 = VPN */
QDT_TABLE_FORMAT(NqeTableFormatFib);      /* one 16-byte record */
QDT_TABLE_SEARCH(NqeTableSearchNhp);      /* 4 nhp: key2 = next-hop index */
QDT_TABLE_FORMAT(NqeTableFormatNhp);      /* one 608-byte record */
QDT_TABLE_SEARCH(NqeTableSearchNhpGroup); /* 5 nhp_group: key2 = group index */
QDT_TABLE_FORMAT(NqeTableFormatNhpGroup); /* one 784-byte record */
QDT_TABLE_SEARCH(NqeTableSearchArp);      /* 6 arp: key1 = next hop, key2 = VPN */
QDT_TABLE_FORMAT(NqeTableFormatArp);      /* one 44-byte record */
QDT_TABLE_SEARCH(
    NqeTableSearchArpMissCache); /* 7 arp_miss_cache: list; key1 = "all", or next hop with key2 = VPN */
QDT_TABLE_FORMAT(NqeTableFormatArpMissCache); /* 32-byte records */
QDT_TABLE_SEARCH(NqeTableSearchPortIpList);   /* 8 portip: list; key2 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatPortIpList);   /* 20-byte records */
QDT_TABLE_SEARCH(NqeTableSearchBridge);       /* 9 bridgeinfo: key2 = bridge index */
QDT_TABLE_FORMAT(NqeTableFormatBridge);       /* one 24-byte record */
QDT_TABLE_SEARCH(NqeTableSearchArpUdpMac);    /* 42 arp_dup_mac: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatArpDupMac);    /* 20-byte records */
QDT_TABLE_SEARCH(NqeTableSearchTrunk);        /* 44 trunk: key2 = trunk id */
QDT_TABLE_FORMAT(NqeTableFormatTrunk); /* a 1032-byte record; a shorter one counts as zero behind its end */
QDT_TABLE_SEARCH(NqeTableSearchArpPoolSection); /* 62 nat_arp_pool_section: key1 = start address */
QDT_TABLE_SEARCH(NqeTableSearchArpPoolExclude); /* 63 nat_arp_pool_exclude: key1 = start address */
QDT_TABLE_SEARCH(NqeTableSearchArpHost);        /* 64 nat_arp_host: key1 = address */
QDT_TABLE_FORMAT(NqeTableFormatNatArp);         /* one 24-byte record of 62, 63 or 64 */
QDT_TABLE_SEARCH(NqeTableSearchNatPolicy);      /* 67 nat_policy: key1 = rule name, asked of the engine */
QDT_TABLE_FORMAT(NqeTableFormatNatPolicy);      /* a text; its length is not checked */

/* The global record and the session aging times; keys are not looked at. */
QDT_TABLE_SEARCH(NqeTableSearchGlobal); /* 10 global */
QDT_TABLE_FORMAT(NqeTableFormatGlobal); /* one 14672-byte record */

/* IPv6 routing and neighbours. */
QDT_TABLE_SEARCH(
    NqeTableSearchIpv6Fib); /* 68 ipv6_fib: key1 = destination, key2 = prefix length, key3 = VPN */
QDT_TABLE_FORMAT(NqeTableFormatIpv6Fib);      /* one 16-byte record */
QDT_TABLE_SEARCH(NqeTableSearchIpv6Nhp);      /* 69 ipv6_nhp: key2 = next-hop index */
QDT_TABLE_FORMAT(NqeTableFormatIpv6Nhp);      /* one 72-byte record */
QDT_TABLE_SEARCH(NqeTableSearchIpv6NhpGroup); /* 70 ipv6_nhp_group: key2 = group index */
QDT_TABLE_FORMAT(NqeTableFormatIpv6NhpGroup); /* one 784-byte record */
QDT_TABLE_SEARCH(NqeTableSearchNd);           /* 71 nd: key1 = next hop, key2 = VPN */
QDT_TABLE_FORMAT(NqeTableFormatNd);           /* one 56-byte record */
QDT_TABLE_SEARCH(
    NqeTableSearchNdMissCache); /* 72 nd_miss_cache: list; key1 = "all", or next hop with key2 = VPN */
QDT_TABLE_FORMAT(NqeTableFormatNdMissCache);    /* 72-byte records */
QDT_TABLE_SEARCH(NqeTableSearchIpv6PortIpList); /* 73 ipv6_portip: list; key2 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatIpv6PortIpList); /* 32-byte records */

/* Mirroring and modules. */
QDT_TABLE_SEARCH(NqeTableSearchNqeMirrObserve); /* 19 mirr_observe: key2 = observe id */
QDT_TABLE_FORMAT(NqeTableFormatNqeMirrObserve); /* one 8-byte record */
QDT_TABLE_SEARCH(NqeTableSearchModInfo);        /* 65 mod_info: list of at most 50 modules, in one batch */
QDT_TABLE_FORMAT(
    NqeTableFormatModInfo); /* 32-bit name size N, then entries of 32-bit id and N bytes of name */

/* Access-control lists. */
QDT_TABLE_SEARCH(NqeTableSearchAclGroup);   /* 11 acl_group: list, or key2 = group type, key3 = group id */
QDT_TABLE_FORMAT(NqeTableFormatAclGroup);   /* 40-byte records; asks for each group's active rules */
QDT_TABLE_SEARCH(NqeTableSearchAclRule);    /* 12 acl_rule: the group's keys, key4 = priority; never a list */
QDT_TABLE_FORMAT(NqeTableFormatAclRule);    /* a 268-byte record; zero where the buffer is shorter */
QDT_TABLE_SEARCH(NqeTableSearchAclStat);    /* 13 acl_stat: list, or the group's keys, key4 = statistics id */
QDT_TABLE_FORMAT(NqeTableFormatAclStat);    /* 208-byte records */
QDT_TABLE_SEARCH(NqeTableSearchAclTbmRule); /* 59 acl_whole_machine_spec: delivers no record */
QDT_TABLE_FORMAT(NqeTableFormatAclTbmRule); /* asks the table manager, which may not support it */

/* Host security. Lists of whole tables, and one record. */
QDT_TABLE_SEARCH(NqeTableSearchAttackSmac);    /* 15 attack_smac: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatAttackSmac);    /* 16-byte records */
QDT_TABLE_SEARCH(NqeTableSearchAttackSip);     /* 16 attack_sip: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatAttackSip);     /* 12-byte records */
QDT_TABLE_SEARCH(NqeTableSearchAttackSdata);   /* 17 attack_sdata: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatAttackSdata);   /* 48-byte records */
QDT_TABLE_SEARCH(NqeTableSearchHsecGlobalCfg); /* 36 hsec_global_cfg: no keys */
QDT_TABLE_FORMAT(NqeTableFormatHsecGlobalCfg); /* one 328-byte record */

/*
 * Declares an operation that writes one piece of a view alone, for one record of that view. The bytes
 * written, or a negative code: QDT_TBL_DATA_SIZE without a record, QDT_TBL_FORMAT when the text does not fit
 * the room.
 */
#define QDT_TABLE_PIECE(name) QDT_API int32_t name(char *out, uint32_t room, const void *entry)

/* The blocks of view 36 in their order. */
QDT_TABLE_PIECE(NqeTableHsecGlobalAtkSrcCfg);
QDT_TABLE_PIECE(NqeTableHsecGlobalBlacklistCfg);
QDT_TABLE_PIECE(NqeTableHsecGlobalFloodAtkCfg);
QDT_TABLE_PIECE(NqeTableHsecGlobalHostCpCarCfg);
QDT_TABLE_PIECE(NqeTableHsecGlobalTotalCpCarCfg);

/* Rate limiters (CAR), also those of traffic to the control plane (CPCAR). */
QDT_TABLE_SEARCH(NqeTableSearchCar);          /* 31 car: key2 = CAR id */
QDT_TABLE_FORMAT(NqeTableFormatCar);          /* one 144-byte record */
QDT_TABLE_SEARCH(NqeTableSearchCpcarPro);     /* 35, 45: list, or key1 = protocol name ("0": key2 = protocol),
                                                 key3 = wireless */
QDT_TABLE_FORMAT(NqeTableFormatCpcarPro);     /* 35 cpcar_pro: 20-byte records */
QDT_TABLE_FORMAT(NqeTableFormatCpcarPps);     /* 45 cpcar_pro_pps: 20-byte records; looks their CARs up */
QDT_TABLE_SEARCH(NqeTableSearchMacCarId);     /* 48 mac_carId: key1 = MAC address */
QDT_TABLE_FORMAT(NqeTableFormatMacCarId);     /* one 16-bit CAR id */
QDT_TABLE_SEARCH(NqeTableSearchSessCpcar);    /* 57 session_cpcar: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatSessCpcar);    /* 24-byte records */
QDT_TABLE_SEARCH(NqeTableSearchCpcarPortMap); /* 60 cpcar_port_map: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatCpcarPortMap); /* 8-byte records */

/*
 * Declares an operation that writes one piece of a view for one record of it, behind the `offset` bytes that
 * are in use of the `room` bytes at `out`. Returns as QDT_TABLE_PIECE does.
 */
#define QDT_TABLE_PIECE_AT(name) \
  QDT_API int32_t name(char *out, uint32_t room, uint32_t offset, const void *entry)

/* The pieces of view 31. */
QDT_TABLE_PIECE_AT(NqeTableFormatCarCfg); /* the record's mode, lock and rates as they are stored */
QDT_TABLE_PIECE_AT(
    NqeTableFormatUsrCarCfg); /* the limits of a CAR in byte mode, rates in units a millisecond */
QDT_TABLE_PIECE_AT(NqeTableFormatCpcarCfg);  /* the limit of a CAR in packet mode */
QDT_TABLE_PIECE_AT(NqeTableFormatCarAction); /* which packets may pass */
QDT_TABLE_PIECE_AT(NqeTableFormatCarStat);   /* packets and bytes passed and dropped */

/* Packet captures and CAPWAP tunnels. One entry by key, whatever loopNum says. */
QDT_TABLE_SEARCH(NqeTableSearchCaptureCfg);   /* 18 capture_cfg: key2 = capture index */
QDT_TABLE_FORMAT(NqeTableFormatCaptureCfg);   /* one 64-byte record */
QDT_TABLE_SEARCH(NqeTableSearchCapwapTunnel); /* 32 capwap_tunnel: key2 = tunnel id */
QDT_TABLE_FORMAT(NqeTableFormatCapwapTunnel); /* one 112-byte record; looks its route up */
QDT_TABLE_SEARCH(NqeTableSearchCapwapDecap);  /* 33 capwap_decap: key1 = source:destination, key2 = port */
QDT_TABLE_FORMAT(NqeTableFormatCapwapDecap);  /* one 20-byte record */

/* The pieces of view 32. QDT_TBL_RAW_DATA when even the first text of the second, or the third, does not fit.
 */
QDT_TABLE_PIECE(NqeTableCapwapParseFormat); /* the tunnel's fields */
QDT_TABLE_PIECE(NqeTableCapwapEncapFormat); /* its headers; QDT_TBL_FORMAT when they are above 64 bytes */
QDT_TABLE_PIECE(NqeTableCapwapFastFormat);  /* whether its route is the one in force */

/*
 * Layer-2 switching. One entry by key, whatever loopNum says, or a list, or either. The lists of one key show
 * a line for each receiver.
 */
QDT_TABLE_SEARCH(NqeTableSearchVlan);       /* 20 vlaninfo: key2 = bridge id, key3 = VLAN id */
QDT_TABLE_FORMAT(NqeTableFormatVlan);       /* one 24-byte record */
QDT_TABLE_SEARCH(NqeTableSearchVlanBitmap); /* 21 vlan_bitmap: key2 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatVlanBitmap); /* one 1028-byte record */
QDT_TABLE_SEARCH(
    NqeTableSearchSswBoardcast); /* 22 ssw_boardcast: list of one key; key2 = bridge id, key3 = VLAN id */
QDT_TABLE_FORMAT(NqeTableFormatSswBoardcast); /* 8-byte records */
QDT_TABLE_SEARCH(NqeTableSearchMacInfo);     /* 23 ssw_macinfo: list, or key1 = MAC address, key2 = bridge id,
                                                key3 = VLAN id */
QDT_TABLE_FORMAT(NqeTableFormatMacInfo);     /* 20-byte records */
QDT_TABLE_SEARCH(NqeTableSearchPortIsolate); /* 25 port_isolate: key2, key3 = source and destination
                                                control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatPortIsolate); /* one 12-byte record */
QDT_TABLE_SEARCH(NqeTableSearchPortTag);     /* 26 port_tag: list, or key2 = port id */
QDT_TABLE_FORMAT(NqeTableFormatPortTag);     /* 8-byte records */
QDT_TABLE_SEARCH(NqeTableSearchSswGlobalBoardcast); /* 49 ssw_global_boardcast: list of the key 0 */
QDT_TABLE_FORMAT(NqeTableFormatSswGlobalBoardcast); /* 4-byte records */
QDT_TABLE_SEARCH(NqeTableSearchSswMcRoutePortElb);  /* 51 mc_route_port: list of one key, as 22 */
QDT_TABLE_FORMAT(NqeTableFormatSswMcRoutePortElb);  /* 8-byte records */
QDT_TABLE_SEARCH(NqeTableSearchSswMcElb); /* 52 mc_elb: list of one key, as 22 and key1 = group:source */
QDT_TABLE_FORMAT(NqeTableFormatSswMcElb); /* 16-byte records */
QDT_TABLE_SEARCH(NqeTableSearchSswExcludeMcElb); /* 53 exclude_mc_elb: list of one key, as 22 */
QDT_TABLE_FORMAT(NqeTableFormatSswExcludeMcElb); /* 8-byte records */
QDT_TABLE_SEARCH(
    NqeTableSearchSswMc2UcElb); /* 54 mc2uc_elb: list of one key, as 52 and key4 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatSswMc2UcElb);   /* 24-byte records */
QDT_TABLE_SEARCH(NqeTableSearchPortInstState); /* 74 port_inst_state: list, or key2 = bridge id, key3 =
                                                  instance id, key4 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatPortInstState); /* 12-byte records */
QDT_TABLE_SEARCH(NqeTableSearchMFibDummy);     /* 75 mfib_dummy: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatMFibDummy);     /* 16-byte records */
QDT_TABLE_SEARCH(NqeTableSearchCause);         /* 76 cause: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatCause);         /* 16-byte records */

/* Bytes that toBinary writes, its NUL included. */
#define QDT_BINARY_SIZE 37

/* Writes the bits of `value` as '0' and '1' from the most significant down, a blank after every eighth. */
QDT_API void toBinary(char *buffer, uint32_t value);

/* The two bitmaps of view 21, each under its heading. QDT_TBL_FAIL when the text does not fit the room. */
QDT_TABLE_PIECE(NqeTableVlanBitmapParseBitmap);
QDT_TABLE_PIECE(NqeTableVlanBitmapParseUntagBitmap);

/* DHCP snooping and DNS domains. Lists of whole tables. */
QDT_TABLE_SEARCH(NqeTableSearchDhcpSnpBind); /* 56 dhcp_snooping_bind */
QDT_TABLE_FORMAT(NqeTableFormatDhcpSnpBind); /* 44-byte records */
QDT_TABLE_SEARCH(NqeTableSearchDnsDomain);   /* 66 dns_domain */
QDT_TABLE_FORMAT(NqeTableFormatDnsDomain);   /* 136-byte records */

/* What the engine counts of itself. One entry by key, whatever loopNum says. */
QDT_TABLE_SEARCH(NqeTableSearchPktCacheStat); /* 34 buf_cache_stat: key2 = key */
QDT_TABLE_FORMAT(NqeTableFormatPktCacheStat); /* one 2192-byte record; reads task names from the engine's
                                                 memory, up to 4095 characters of each */
QDT_TABLE_SEARCH(NqeTableSearchTimerStat);    /* 37 timer_stat: key2 = key */
QDT_TABLE_FORMAT(NqeTableFormatTimerStat);    /* one 32-byte record */

/* Wireless users. One entry by key, whatever loopNum says, unless a list is said. */
QDT_TABLE_SEARCH(NqeTableSearchUsfUser);          /* 28 usf_user: key1 = station MAC address */
QDT_TABLE_FORMAT(NqeTableFormatUsfUser);          /* one 760-byte record */
QDT_TABLE_SEARCH(NqeTableSearchUsfStat);          /* 29 usf_stat: key2 = statistics id */
QDT_TABLE_FORMAT(NqeTableFormatUsfStat);          /* one 8-byte record */
QDT_TABLE_SEARCH(NqeTableSearchUsfMacIp);         /* 30 usf_macip: key1 = IPv4 (key2 = 0), IPv6 (1) or MAC
                                                     address (2: key3 = type of the key) */
QDT_TABLE_FORMAT(NqeTableFormatUsfMacIp);         /* one 48-byte record */
QDT_TABLE_SEARCH(NqeTableSearchUsfLocalMngUser);  /* 38 local_mng_user: key1 = IPv4 address */
QDT_TABLE_FORMAT(NqeTableFormatUsfLocalMngUser);  /* one 28-byte record */
QDT_TABLE_SEARCH(NqeTableSearchUsfRoam);          /* 39 usf_roam: key1 = station MAC address */
QDT_TABLE_FORMAT(NqeTableFormatUsfRoam);          /* one 32-byte record */
QDT_TABLE_SEARCH(NqeTableSearchUsfRoamAp2StaElb); /* 40 usf_roam_ap2sta_elb: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatUsfRoamAp2StaElb); /* 36-byte records */
QDT_TABLE_SEARCH(
    NqeTableSearchUsfPortalHttpPort); /* 41 http_portal_port: the first eight ports, in one batch */
QDT_TABLE_FORMAT(NqeTableFormatUsfPortalHttpPort); /* 4-byte records */
QDT_TABLE_SEARCH(NqeTableSearchProxyPortal);       /* 43 web_proxy_portal: key2 = portal id */
QDT_TABLE_FORMAT(NqeTableFormatProxyPortal);       /* one 208-byte record */
QDT_TABLE_SEARCH(NqeTableSearchVap2Sta);           /* 55 vap_to_sta: list of one key; key2 = control-interface
                                                      index, key3 = VLAN id */
QDT_TABLE_FORMAT(NqeTableFormatVap2Sta);           /* 16-byte records */
QDT_TABLE_SEARCH(NqeTableSearchEapLogInfo);        /* 87 eaplog_info: key1 = station MAC address */
QDT_TABLE_FORMAT(NqeTableFormatEapLogInfo);        /* one 1632-byte record */

/* The pieces of view 28 in their order, each for the whole 760-byte record. */
QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserSvc);       /* services of both directions */
QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserSvcParam1); /* parameters of the services */
QDT_TABLE_PIECE_AT(
    NqeTableFormatUsfUserSvcParam2);               /* rate limits of broadcasts and multicasts, TCP windows */
QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserAuth);     /* authentication */
QDT_TABLE_PIECE_AT(NqeTableFormatUsfUserStat);     /* the sum of the four counter blocks */
QDT_TABLE_PIECE_AT(NqeTableFormmatUsfUserIpLearn); /* the address learnt; the name is spelt so */

/* One address family's counters, 56 bytes: the first or second half of a counter block. */
QDT_TABLE_PIECE_AT(NqeTableShowFormatUsfStat);

/*
 * Adds one 112-byte counter block of a station to the 112 bytes at `sum`, field by field: four 64-bit and six
 * 32-bit counters for IPv4, then the same for IPv6. All of them wrap. Neither pointer may be null.
 */
QDT_API void NqeTableAddUsfStat(void *sum, const void *block);

/* Application control (SAC). One entry by key, whatever loopNum says. */
QDT_TABLE_SEARCH(NqeTableSearchSacProfile);         /* 78 sac_profile: key2 = SAC id */
QDT_TABLE_FORMAT(NqeTableFormatSacProfile);         /* one 392-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacPolicyCarid);     /* 79 sac_policy_carid: key2 = SAC id, key3 = application
                                                       id, key4 = application type */
QDT_TABLE_FORMAT(NqeTableFormatSacPolicyCarid);     /* one 12-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacAppGroup);        /* 80 sac_app_group: key2 = group id */
QDT_TABLE_FORMAT(NqeTableFormatSacAppGroup);        /* one 64-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacProtocolMapping); /* 81 sac_protocol_mapping: key2 = protocol id */
QDT_TABLE_FORMAT(NqeTableFormatSacProtocolMapping); /* one 8-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacAppMapping);      /* 82 sac_app_mapping: key2 = application id */
QDT_TABLE_FORMAT(NqeTableFormatSacAppMapping);      /* one 40-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacAppRvsMapping);   /* 83 sac_app_rvs_mapping: key2 = application index */
QDT_TABLE_FORMAT(NqeTableFormatSacAppRvsMapping);   /* one 40-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacPriorityMapping); /* 84 sac_priority_mapping: key2 = application id */
QDT_TABLE_FORMAT(NqeTableFormatSacPriorityMapping); /* one 4-byte record */
QDT_TABLE_SEARCH(NqeTableSearchSacIfStat);          /* 85 sac_if_stat: key2 = control-interface index */
QDT_TABLE_FORMAT(NqeTableFormatSacIfStat);          /* one 16104-byte record; reads the global table */
QDT_TABLE_SEARCH(NqeTableSearchSacUsfStat);         /* 86 sac_usf_stat: key1 = MAC address */
QDT_TABLE_FORMAT(NqeTableFormatSacUsfStat);         /* one 3472-byte record; reads the global table */

/*
 * A statistics block alone: 201 application slots (16104 bytes) of an interface, 43 (3464 bytes) of a user.
 * QDT_TBL_FORMAT also when the global table cannot be read.
 */
QDT_TABLE_PIECE(NqeTableFormatSacStatForIf);
QDT_TABLE_PIECE(NqeTableFormatSacStatForUsf);

/* QoS priority maps of a VAP. One entry by key, whatever loopNum says. */
QDT_TABLE_SEARCH(NqeTableSearchPriority); /* 46 priority: key2 = VAP index */
QDT_TABLE_FORMAT(NqeTableFormatPriority); /* one 224-byte record; the last values are left out when they do
                                             not fit the room */

/* Declares the label of one map, written behind the `position` bytes of `out` that are in use. The bytes
 * written, or QDT_TBL_FORMAT when they do not fit. */
#define QDT_PRIORITY_HEAD(name) QDT_API int32_t name(char *out, uint32_t room, uint32_t position)

/* Declares the values of one map of the 224-byte record. The bytes written: values that do not fit are left
 * out and logged, which is no failure. */
#define QDT_PRIORITY_DATA(name) \
  QDT_API int32_t name(char *out, uint32_t room, uint32_t position, const void *record)

/* The writers of view 46. The first label is a whole line. */
QDT_PRIORITY_HEAD(Up2DscpHead);
QDT_PRIORITY_DATA(Up2DscpData); /* not called by the view */
QDT_PRIORITY_HEAD(UpTo8021pHead);
QDT_PRIORITY_DATA(UpTo8021pData);
QDT_PRIORITY_HEAD(P8021p2UpHead);
QDT_PRIORITY_DATA(P8021p2UpData);
QDT_PRIORITY_HEAD(Up2TnlDscpHead);
QDT_PRIORITY_DATA(Up2TnlDscpData);
QDT_PRIORITY_HEAD(DscpTo8021pHead);
QDT_PRIORITY_DATA(DscpTo8021pData);
QDT_PRIORITY_HEAD(Dscp2UpHead);
QDT_PRIORITY_DATA(Dscp2UpData);
QDT_PRIORITY_HEAD(Dscp2TnlDscpHead);
QDT_PRIORITY_DATA(Dscp2TnlDscpData);

/* What the engine is made to trace and test, and what its tables take. */
QDT_TABLE_SEARCH(NqeTableSearchAfPacketListen); /* 27 afpacket_filter: list of one key; key1 = Ethernet type
                                                   (0x0806) */
QDT_TABLE_FORMAT(NqeTableFormatAfPacketListen); /* 12-byte records */
QDT_TABLE_SEARCH(NqeTableSearchTbmMemStat);     /* 47 tbm_memory_stat: no keys, no record */
QDT_TABLE_FORMAT(NqeTableFormatTbmMemStat);     /* asks the table manager; QDT_TBL_UNSUPPORTED when that has
                                                   other than 109 tables */
QDT_TABLE_SEARCH(NqeTableSearchStationTrace);   /* 58 station_trace: no keys; attaches the packet-trace block
                                                   once, QDT_TBL_INTERNAL when there is none */
QDT_TABLE_FORMAT(NqeTableFormatStationTrace);   /* one 224-byte record; stations that do not fit the room are
                                                   left out */
QDT_TABLE_SEARCH(NqeTableSearchDropId);         /* 77 dropid: key2 = discard reason, 0 to 273 */
QDT_TABLE_FORMAT(NqeTableFormatDropIdDesc);     /* one 128-byte record, the reason's name */
QDT_TABLE_SEARCH(NqeTableSearchArpSimulator);   /* 88 arp_simulator: list of the whole table */
QDT_TABLE_FORMAT(NqeTableFormatArpSimulator);   /* 56-byte records */

/* View 58 of a record whose length is known. */
QDT_TABLE_PIECE(NqeTableStationTraceParseFormat);

/*
 * Sessions; their view's pieces are in qdt/session.h. The search collects all of its records in one walk,
 * whatever loopNum says: at most 682, or as many as "numN" says.
 */
QDT_TABLE_SEARCH(NqeTableSearchSession); /* 50 session: key1 = "all", "numN" or addresses, key2 and key3 =
                                            source and destination port, key4 = protocol */
QDT_TABLE_FORMAT(NqeTableFormatSession); /* 192-byte records; reads the records that they lead to */

#ifdef __cplusplus
}
#endif

#endif /* QDT_TABLES_H_ */
