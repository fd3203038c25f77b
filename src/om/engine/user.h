#ifndef SRC_OM_ENGINE_USER_H_
#define SRC_OM_ENGINE_USER_H_

#include "src/om/engine/layout.h"

// Wireless users: what the engine keeps of a station, of its addresses, its roaming and its EAP exchanges,
// and of portals. Addresses in host order unless they say otherwise. Flags are 1 for yes.
namespace qdt {

// Key of the tables that know a station by its MAC address.
struct StationKey {
  MacAddress mac;
  uint16_t reserved6;
};
QDT_RECORD_SIZE(StationKey, 8);
QDT_FIELD_AT(StationKey, mac, 0, 6);

struct UserAuthentication {
  uint32_t authenticated : 1, preAuthenticated : 1, denyAll : 1, httpSendToL4 : 1, portalEscape : 1,
      ipv4PreAuthAcl : 1, ipv6PreAuthAcl : 1, checkUserIp : 1, denyArp : 1, parseEapLog : 1,
      eapLogReported : 1, : 21;
  uint16_t ipv4PreAuthAclGroup;
  uint16_t ipv6PreAuthAclGroup;
  uint32_t address;
  uint32_t managementAddress;
};
QDT_RECORD_SIZE(UserAuthentication, 16);
QDT_FIELD_AT(UserAuthentication, ipv4PreAuthAclGroup, 4, 2);
QDT_FIELD_AT(UserAuthentication, ipv6PreAuthAclGroup, 6, 2);
QDT_FIELD_AT(UserAuthentication, address, 8, 4);
QDT_FIELD_AT(UserAuthentication, managementAddress, 12, 4);

// What is done with the packets of a station, and with those that it is sent.
struct UserIngressServices {
  uint32_t car : 1, stat : 1, portalPush : 1, ipv4AuthAcl : 1, ipv6AuthAcl : 1, ipv4RedirectAcl : 1,
      ipv6RedirectAcl : 1, remarkDscp : 1, remark8021p : 1, remarkLp : 1, stationFloodBlacklist : 8,
      multicastFlood : 8, sac : 1, : 5;
};
QDT_RECORD_SIZE(UserIngressServices, 4);

struct UserEgressServices {
  uint32_t car : 1, stat : 1, ipv4AuthAcl : 1, ipv6AuthAcl : 1, innerIsolate : 1, interIsolate : 1,
      remarkDscp : 1, remark8021p : 1, remarkLp : 1, sac : 1, : 22;
};
QDT_RECORD_SIZE(UserEgressServices, 4);

// Ids of the rate limits of broadcasts and multicasts, by their class.
struct UserFloodCars {
  uint16_t otherBroadcast, otherMulticast, arp, igmp, nd, dhcp, dhcpv6, mdns;
};
QDT_RECORD_SIZE(UserFloodCars, 16);
QDT_FIELD_AT(UserFloodCars, otherBroadcast, 0, 2);
QDT_FIELD_AT(UserFloodCars, otherMulticast, 2, 2);
QDT_FIELD_AT(UserFloodCars, arp, 4, 2);
QDT_FIELD_AT(UserFloodCars, igmp, 6, 2);
QDT_FIELD_AT(UserFloodCars, nd, 8, 2);
QDT_FIELD_AT(UserFloodCars, dhcp, 10, 2);
QDT_FIELD_AT(UserFloodCars, dhcpv6, 12, 2);
QDT_FIELD_AT(UserFloodCars, mdns, 14, 2);

// Traffic of a station in both directions, of one address family. Counters wrap.
struct UserTraffic {
  uint64_t inPackets, inBytes, outPackets, outBytes;
  uint32_t inUnicast, inMulticast, inBroadcast, outUnicast, outMulticast, outBroadcast;

  UserTraffic &operator+=(const UserTraffic &other) {
    inPackets += other.inPackets;
    inBytes += other.inBytes;
    outPackets += other.outPackets;
    outBytes += other.outBytes;
    inUnicast += other.inUnicast;
    inMulticast += other.inMulticast;
    inBroadcast += other.inBroadcast;
    outUnicast += other.outUnicast;
    outMulticast += other.outMulticast;
    outBroadcast += other.outBroadcast;
    return *this;
  }
};
QDT_RECORD_SIZE(UserTraffic, 56);
QDT_FIELD_AT(UserTraffic, inPackets, 0, 8);
QDT_FIELD_AT(UserTraffic, inBytes, 8, 8);
QDT_FIELD_AT(UserTraffic, outPackets, 16, 8);
QDT_FIELD_AT(UserTraffic, outBytes, 24, 8);
QDT_FIELD_AT(UserTraffic, inUnicast, 32, 4);
QDT_FIELD_AT(UserTraffic, inMulticast, 36, 4);
QDT_FIELD_AT(UserTraffic, inBroadcast, 40, 4);
QDT_FIELD_AT(UserTraffic, outUnicast, 44, 4);
QDT_FIELD_AT(UserTraffic, outMulticast, 48, 4);
QDT_FIELD_AT(UserTraffic, outBroadcast, 52, 4);

struct UserCounters {
  UserTraffic ipv4, ipv6;

  UserCounters &operator+=(const UserCounters &other) {
    ipv4 += other.ipv4;
    ipv6 += other.ipv6;
    return *this;
  }
};
QDT_RECORD_SIZE(UserCounters, 112);
QDT_FIELD_AT(UserCounters, ipv4, 0, 56);
QDT_FIELD_AT(UserCounters, ipv6, 56, 56);

// Entry of a station in the user-service table.
struct UsfUserRecord {
  StationKey station;
  UserAuthentication auth;
  UserIngressServices ingress;
  UserEgressServices egress;
  uint32_t authVlanEnable : 1, denyPush : 1, userGroup : 1, vip : 1, roamed : 1, needSendUp : 1,
      shrinkUpQueue : 1, tid6Downgrade : 1, wifiUserGlobalId : 16, pqm : 1, sacRemarkDefault : 1,
      sacStat : 1, : 5;
  uint32_t ingressCarId;
  uint32_t egressCarId;
  uint16_t statId;
  uint16_t ingressIpv4AuthAclGroup, ingressIpv6AuthAclGroup;
  uint16_t egressIpv4AuthAclGroup, egressIpv6AuthAclGroup;
  uint16_t ipv4RedirectAclGroup, ipv6RedirectAclGroup;
  uint8_t ingressNewDscp, ingressNew8021p, ingressNewLp;
  uint8_t egressNewDscp, egressNew8021p, egressNewLp;
  uint32_t addressBeforeRoaming;
  uint16_t authVlan;
  uint16_t userGroupId;
  uint8_t packetCacheType;
  uint8_t vapIndex;
  uint16_t peerId;
  UserFloodCars floodCar;
  uint16_t sessionInfo;
  uint16_t reserved94;
  uint32_t sacId;
  uint32_t reserved100[7];
  uint64_t normalSendTime;
  uint64_t reserved136[19];
  UserCounters counters[4];  // to be added up
  uint32_t learntAddress;
  uint8_t tcpWindowTurn[8];
  uint32_t reserved748[3];
};
QDT_RECORD_SIZE(UsfUserRecord, 760);
QDT_FIELD_AT(UsfUserRecord, station, 0, 8);
QDT_FIELD_AT(UsfUserRecord, auth, 8, 16);
QDT_FIELD_AT(UsfUserRecord, ingress, 24, 4);
QDT_FIELD_AT(UsfUserRecord, egress, 28, 4);
QDT_FIELD_AT(UsfUserRecord, ingressCarId, 36, 4);
QDT_FIELD_AT(UsfUserRecord, egressCarId, 40, 4);
QDT_FIELD_AT(UsfUserRecord, statId, 44, 2);
QDT_FIELD_AT(UsfUserRecord, ingressIpv4AuthAclGroup, 46, 2);
QDT_FIELD_AT(UsfUserRecord, ingressIpv6AuthAclGroup, 48, 2);
QDT_FIELD_AT(UsfUserRecord, egressIpv4AuthAclGroup, 50, 2);
QDT_FIELD_AT(UsfUserRecord, egressIpv6AuthAclGroup, 52, 2);
QDT_FIELD_AT(UsfUserRecord, ipv4RedirectAclGroup, 54, 2);
QDT_FIELD_AT(UsfUserRecord, ipv6RedirectAclGroup, 56, 2);
QDT_FIELD_AT(UsfUserRecord, ingressNewDscp, 58, 1);
QDT_FIELD_AT(UsfUserRecord, ingressNew8021p, 59, 1);
QDT_FIELD_AT(UsfUserRecord, ingressNewLp, 60, 1);
QDT_FIELD_AT(UsfUserRecord, egressNewDscp, 61, 1);
QDT_FIELD_AT(UsfUserRecord, egressNew8021p, 62, 1);
QDT_FIELD_AT(UsfUserRecord, egressNewLp, 63, 1);
QDT_FIELD_AT(UsfUserRecord, addressBeforeRoaming, 64, 4);
QDT_FIELD_AT(UsfUserRecord, authVlan, 68, 2);
QDT_FIELD_AT(UsfUserRecord, userGroupId, 70, 2);
QDT_FIELD_AT(UsfUserRecord, packetCacheType, 72, 1);
QDT_FIELD_AT(UsfUserRecord, vapIndex, 73, 1);
QDT_FIELD_AT(UsfUserRecord, peerId, 74, 2);
QDT_FIELD_AT(UsfUserRecord, floodCar, 76, 16);
QDT_FIELD_AT(UsfUserRecord, sessionInfo, 92, 2);
QDT_FIELD_AT(UsfUserRecord, sacId, 96, 4);
QDT_FIELD_AT(UsfUserRecord, normalSendTime, 128, 8);
QDT_FIELD_AT(UsfUserRecord, counters, 288, 448);
QDT_FIELD_AT(UsfUserRecord, learntAddress, 736, 4);
QDT_FIELD_AT(UsfUserRecord, tcpWindowTurn, 740, 8);

// Which station a statistics id counts.
struct UsfStatEntry {
  MacAddress mac;
  uint16_t reserved6;
};
QDT_RECORD_SIZE(UsfStatEntry, 8);
QDT_FIELD_AT(UsfStatEntry, mac, 0, 6);

// Kinds of address in UsfMacIpKey. Keys of MAC addresses carry further types.
enum UsfAddressType : uint16_t {
  kUsfIpv4 = 0,  // a word in host order
  kUsfIpv6 = 1,  // 16 bytes in network order
};

struct UsfMacIpKey {
  uint8_t address[16];
  uint16_t type;
  uint16_t reserved18;
};
QDT_RECORD_SIZE(UsfMacIpKey, 20);
QDT_FIELD_AT(UsfMacIpKey, address, 0, 16);
QDT_FIELD_AT(UsfMacIpKey, type, 16, 2);

// Binding between the addresses of a station.
struct UsfMacIpEntry {
  UsfMacIpKey key;
  uint8_t ipType;
  uint8_t learnMode;
  MacAddress mac;
  uint32_t ipv4Address;
  uint8_t ipv6Address[16];  // in network order
};
QDT_RECORD_SIZE(UsfMacIpEntry, 48);
QDT_FIELD_AT(UsfMacIpEntry, ipType, 20, 1);
QDT_FIELD_AT(UsfMacIpEntry, learnMode, 21, 1);
QDT_FIELD_AT(UsfMacIpEntry, mac, 22, 6);
QDT_FIELD_AT(UsfMacIpEntry, ipv4Address, 28, 4);
QDT_FIELD_AT(UsfMacIpEntry, ipv6Address, 32, 16);

// A station from which the device itself may be managed.
struct LocalManagementUser {
  uint32_t reserved0;
  MacAddress sourceMac;
  MacAddress destinationMac;
  uint32_t address;
  uint32_t fwdIfIndex;
  uint32_t vlanId;
};
QDT_RECORD_SIZE(LocalManagementUser, 28);
QDT_FIELD_AT(LocalManagementUser, sourceMac, 4, 6);
QDT_FIELD_AT(LocalManagementUser, destinationMac, 10, 6);
QDT_FIELD_AT(LocalManagementUser, address, 16, 4);
QDT_FIELD_AT(LocalManagementUser, fwdIfIndex, 20, 4);
QDT_FIELD_AT(LocalManagementUser, vlanId, 24, 4);

// The roaming state of a station.
struct UsfRoamEntry {
  StationKey station;
  uint16_t role : 3, interIsolate : 1, innerIsolate : 1, userIsolate : 1, tunnelPeerRole : 3, : 7;
  uint16_t userGroupId;
  uint32_t homeVapFwdIf;
  uint32_t tunnelId;
  uint32_t reserved20[3];
};
QDT_RECORD_SIZE(UsfRoamEntry, 32);
QDT_FIELD_AT(UsfRoamEntry, userGroupId, 10, 2);
QDT_FIELD_AT(UsfRoamEntry, homeVapFwdIf, 12, 4);
QDT_FIELD_AT(UsfRoamEntry, tunnelId, 16, 4);

// One station of the roaming fan-out list.
struct UsfRoamStation {
  uint16_t vlanId;
  uint16_t reserved2;
  uint32_t ipv4Address;
  uint32_t reserved8[3];
  MacAddress user;
  MacAddress homeAccessPoint;
  uint32_t userIsolate : 8, hasIpv4 : 1, : 23;
};
QDT_RECORD_SIZE(UsfRoamStation, 36);
QDT_FIELD_AT(UsfRoamStation, vlanId, 0, 2);
QDT_FIELD_AT(UsfRoamStation, ipv4Address, 4, 4);
QDT_FIELD_AT(UsfRoamStation, user, 20, 6);
QDT_FIELD_AT(UsfRoamStation, homeAccessPoint, 26, 6);

// A web proxy portal.
struct ProxyPortalEntry {
  uint16_t proxyPort;
  uint16_t reserved2;
  char url[204];
};
QDT_RECORD_SIZE(ProxyPortalEntry, 208);
QDT_FIELD_AT(ProxyPortalEntry, proxyPort, 0, 2);
QDT_FIELD_AT(ProxyPortalEntry, url, 4, 204);

struct VapStationKey {
  uint32_t fwdIfIndex;
  uint16_t vlanId;
  uint16_t reserved6;
};
QDT_RECORD_SIZE(VapStationKey, 8);
QDT_FIELD_AT(VapStationKey, fwdIfIndex, 0, 4);
QDT_FIELD_AT(VapStationKey, vlanId, 4, 2);

// One of the stations of a virtual access point.
struct VapStation {
  VapStationKey key;
  MacAddress mac;
  uint16_t reserved14;
};
QDT_RECORD_SIZE(VapStation, 16);
QDT_FIELD_AT(VapStation, mac, 8, 6);

// What the log keeps of the last EAP packet of one direction.
struct EapExtension {
  uint8_t code, id, type, reserved3;
  uint16_t length;
  uint8_t sslFlags, isFragmentError, isEncrypted, reserved9;
  uint16_t tlsOffset;
  uint32_t handshakeOffset;
  uint32_t tlsFlags;
  uint32_t handshakeFlags;
  uint8_t tlsHeader[5];
  uint8_t handshakeHeader[4];
  uint8_t reserved33[3];
};
QDT_RECORD_SIZE(EapExtension, 36);
QDT_FIELD_AT(EapExtension, code, 0, 1);
QDT_FIELD_AT(EapExtension, id, 1, 1);
QDT_FIELD_AT(EapExtension, type, 2, 1);
QDT_FIELD_AT(EapExtension, reserved3, 3, 1);
QDT_FIELD_AT(EapExtension, length, 4, 2);
QDT_FIELD_AT(EapExtension, sslFlags, 6, 1);
QDT_FIELD_AT(EapExtension, isFragmentError, 7, 1);
QDT_FIELD_AT(EapExtension, isEncrypted, 8, 1);
QDT_FIELD_AT(EapExtension, reserved9, 9, 1);
QDT_FIELD_AT(EapExtension, tlsOffset, 10, 2);
QDT_FIELD_AT(EapExtension, handshakeOffset, 12, 4);
QDT_FIELD_AT(EapExtension, tlsFlags, 16, 4);
QDT_FIELD_AT(EapExtension, handshakeFlags, 20, 4);
QDT_FIELD_AT(EapExtension, tlsHeader, 24, 5);
QDT_FIELD_AT(EapExtension, handshakeHeader, 29, 4);

struct EapLogItem {
  uint8_t packetType;
  uint8_t reserved1;
  uint16_t packetSize;
  uint32_t timeCost;
  uint8_t eapolType;
  uint8_t eapCode, eapType, eapId;
  uint32_t tlsFlags;
  uint32_t handshakeFlags;
};
QDT_RECORD_SIZE(EapLogItem, 20);
QDT_FIELD_AT(EapLogItem, packetType, 0, 1);
QDT_FIELD_AT(EapLogItem, reserved1, 1, 1);
QDT_FIELD_AT(EapLogItem, packetSize, 2, 2);
QDT_FIELD_AT(EapLogItem, timeCost, 4, 4);
QDT_FIELD_AT(EapLogItem, eapolType, 8, 1);
QDT_FIELD_AT(EapLogItem, eapCode, 9, 1);
QDT_FIELD_AT(EapLogItem, eapType, 10, 1);
QDT_FIELD_AT(EapLogItem, eapId, 11, 1);
QDT_FIELD_AT(EapLogItem, tlsFlags, 12, 4);
QDT_FIELD_AT(EapLogItem, handshakeFlags, 16, 4);

constexpr uint32_t kMaxEapLogItems = 64;

// The log of a station's EAP exchange.
struct EapLogEntry {
  StationKey station;
  uint32_t radioId;
  uint32_t vapIndex;
  uint32_t authId;
  uint8_t authStatus;
  uint8_t itemCount;
  uint16_t reserved22;
  char identity[256];
  EapLogItem item[kMaxEapLogItems];
  EapExtension lastUp;
  EapExtension lastDown;
};
QDT_RECORD_SIZE(EapLogEntry, 1632);
QDT_FIELD_AT(EapLogEntry, station, 0, 8);
QDT_FIELD_AT(EapLogEntry, radioId, 8, 4);
QDT_FIELD_AT(EapLogEntry, vapIndex, 12, 4);
QDT_FIELD_AT(EapLogEntry, authId, 16, 4);
QDT_FIELD_AT(EapLogEntry, authStatus, 20, 1);
QDT_FIELD_AT(EapLogEntry, itemCount, 21, 1);
QDT_FIELD_AT(EapLogEntry, identity, 24, 256);
QDT_FIELD_AT(EapLogEntry, item, 280, 1280);
QDT_FIELD_AT(EapLogEntry, lastUp, 1560, 36);
QDT_FIELD_AT(EapLogEntry, lastDown, 1596, 36);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_USER_H_
