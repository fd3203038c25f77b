#ifndef SRC_OM_ENGINE_TABLE_IDS_H_
#define SRC_OM_ENGINE_TABLE_IDS_H_

#include <cstdint>

// Ids of the engine's tables in its table manager. They are another numbering than the diag table ids.
namespace qdt {

// The engine's only table-manager instance.
constexpr uint32_t kEngineInstance = 0;

// Tables of the engine that this library knows; their ids are 0 to kEngineTables - 1.
constexpr uint32_t kEngineTables = 109;

enum EngineTable : uint32_t {
  kTableGlobal = 0,                // the one global record
  kTableFib = 1,                   // FibKey -> RouteEntry
  kTableNextHop = 2,               // next-hop index -> NextHopEntry
  kTableNextHopGroup = 3,          // group index -> NextHopGroupEntry
  kTableArp = 4,                   // ArpKey -> ArpEntry
  kTableIpv6Fib = 5,               // Ipv6FibKey -> RouteEntry
  kTableIpv6NextHop = 6,           // next-hop index -> Ipv6NextHopEntry
  kTableIpv6NextHopGroup = 7,      // group index -> NextHopGroupEntry
  kTableNd = 8,                    // NdKey -> NdEntry
  kTableCtrlIfMap = 11,            // control-interface index -> InterfaceMapEntry
  kTableFlowIfMap = 12,            // flow (pct) index -> InterfaceMapEntry
  kTableTrunk = 13,                // trunk id -> TrunkEntry
  kTablePortIpHead = 14,           // forwarding-interface index -> PortAddressHead
  kTablePortIp = 15,               // list key -> several PortAddress
  kTablePortIpv6Head = 16,         // forwarding-interface index -> PortAddressHead
  kTablePortIpv6 = 17,             // list key -> several Ipv6PortAddress
  kTableVlan = 22,                 // VlanKey -> VlanEntry
  kTableArpPoolSection = 23,       // NatArpKey -> NatArpEntry
  kTableAclGroup = 24,             // AclGroupKey -> AclGroupEntry, found behind its key
  kTableAclStat = 25,              // AclStatKey -> AclStatEntry
  kTableMac = 26,                  // MacKey -> MacEntry
  kTableBridge = 27,               // bridge index -> BridgeEntry
  kTableCapture = 28,              // capture index -> CaptureEntry
  kTableFwdIf = 29,                // forwarding-interface index -> ForwardingInterface
  kTableArpPoolExclude = 30,       // NatArpKey -> NatArpEntry
  kTableMirrorObserve = 36,        // observe id -> ObservePort
  kTableAttackSourceData = 37,     // AttackSourceData
  kTableAttackSourceMac = 38,      // AttackSourceMac
  kTableAttackSourceIp = 39,       // AttackSourceAddress
  kTableVlanBitmap = 40,           // forwarding-interface index -> VlanBitmapEntry
  kTablePortTag = 41,              // port id -> PortTagEntry
  kTableBroadcast = 42,            // VlanListKey -> several VlanListEntry
  kTablePortIsolate = 43,          // PortIsolateKey -> PortIsolateEntry
  kTableArpHost = 44,              // NatArpKey -> NatArpEntry
  kTableUsfUser = 45,              // StationKey -> UsfUserRecord
  kTableUsfStat = 46,              // statistics id -> UsfStatEntry
  kTableUsfRoam = 47,              // StationKey -> UsfRoamEntry
  kTableUsfRoamStation = 48,       // UsfRoamStation
  kTablePortalPort = 51,           // 32-bit port
  kTableCapwapDecap = 52,          // CapwapDecapKey -> CapwapDecapEntry
  kTableCapwapTunnel = 53,         // tunnel id -> CapwapTunnelEntry
  kTableCar = 54,                  // CAR id -> CarEntry
  kTablePacketSocket = 55,         // PacketSocketKey -> several PacketSocketEntry
  kTableUsfMacIp = 56,             // UsfMacIpKey -> UsfMacIpEntry
  kTableArpMiss = 57,              // ArpKey -> several ArpMissEntry
  kTablePacketCache = 61,          // statistics key -> PacketCacheStat
  kTableCpcar = 62,                // CpcarKey -> CpcarEntry
  kTableSession = 65,              // session index -> SessionRecord
  kTableHsecGlobalCfg = 68,        // the one HsecGlobalCfg
  kTablePriority = 69,             // VAP index -> PriorityMaps
  kTableLocalManagementUser = 70,  // IPv4 address -> LocalManagementUser
  kTableTimer = 71,                // timer key -> TimerStat
  kTableArpDuplicateMac = 72,      // DuplicateMacEntry
  kTableModule = 74,               // module id -> id and name
  kTableProxyPortal = 75,          // portal id -> ProxyPortalEntry
  kTableGlobalBroadcast = 76,      // 0 -> several GlobalBroadcastEntry
  kTableMcRoutePort = 77,          // VlanListKey -> several VlanListEntry
  kTableMulticast = 78,            // MulticastKey -> several MulticastEntry
  kTableExcludedMulticast = 79,    // VlanListKey -> several VlanListEntry
  kTableMulticastUser = 80,        // MulticastUserKey -> several MulticastUserEntry
  kTableVapStation = 81,           // VapStationKey -> several VapStation
  kTableDhcpSnooping = 82,         // DhcpSnoopingBinding
  kTableCpcarPort = 83,            // CpcarPortEntry
  kTableSessionCpcar = 84,         // SessionCpcarEntry
  kTableUserIfMap = 85,            // user (peer) id -> InterfaceMapEntry
  kTableNdMiss = 89,               // NdKey -> several NdMissEntry
  kTableDnsDomain = 90,            // DnsDomainEntry
  kTableSacAppMapping = 92,        // application id -> SacAppMapping
  kTableSacAppReverse = 93,        // application index -> SacAppReverseMapping
  kTableSacAppGroup = 94,          // group id -> SacAppGroup
  kTableSacProtocol = 95,          // protocol id -> SacProtocolMapping
  kTablePortInstance = 96,         // PortInstanceKey -> PortInstanceEntry
  kTableDummyMulticastRoute = 97,  // DummyMulticastRoute
  kTableCause = 98,                // CauseEntry
  kTableSacProfile = 99,           // SAC id -> SacProfile
  kTableSacPriority = 101,         // application id -> SacPriorityMapping
  kTableSacPolicyCar = 102,        // SacPolicyCarKey -> SacPolicyCar
  kTableSacInterfaceStat = 103,    // VAP index -> SacInterfaceStatistics
  kTableSacUserStat = 104,         // StationKey -> SacUserEntry
  kTableEapLog = 107,              // StationKey -> EapLogEntry
  kTableArpSimulator = 108,        // ArpSimulatorEntry
};

}  // namespace qdt

#endif  // SRC_OM_ENGINE_TABLE_IDS_H_
