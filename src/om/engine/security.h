#ifndef SRC_OM_ENGINE_SECURITY_H_
#define SRC_OM_ENGINE_SECURITY_H_

#include "src/om/engine/layout.h"

// Host security: the sources of attacks that the engine has seen, and what it does about attacks.
namespace qdt {

struct AttackSourceMac {
  MacAddress mac;
  uint8_t reserved6[10];
};
QDT_RECORD_SIZE(AttackSourceMac, 16);
QDT_FIELD_AT(AttackSourceMac, mac, 0, 6);

struct AttackSourceAddress {
  uint32_t address;  // host order
  uint32_t reserved4[2];
};
QDT_RECORD_SIZE(AttackSourceAddress, 12);
QDT_FIELD_AT(AttackSourceAddress, address, 0, 4);

// What is counted of one attacker.
struct AttackSourceData {
  uint32_t address;  // host order
  MacAddress mac;
  uint8_t reserved10[6];
  uint32_t lastSecond;
  uint32_t lastCount;
  uint32_t lastAlarmSecond;
  uint32_t published;
  uint64_t totalCount;
  uint32_t penaltyCycles;
  uint32_t alarmCycles;
};
QDT_RECORD_SIZE(AttackSourceData, 48);
QDT_FIELD_AT(AttackSourceData, address, 0, 4);
QDT_FIELD_AT(AttackSourceData, mac, 4, 6);
QDT_FIELD_AT(AttackSourceData, lastSecond, 16, 4);
QDT_FIELD_AT(AttackSourceData, lastCount, 20, 4);
QDT_FIELD_AT(AttackSourceData, lastAlarmSecond, 24, 4);
QDT_FIELD_AT(AttackSourceData, published, 28, 4);
QDT_FIELD_AT(AttackSourceData, totalCount, 32, 8);
QDT_FIELD_AT(AttackSourceData, penaltyCycles, 40, 4);
QDT_FIELD_AT(AttackSourceData, alarmCycles, 44, 4);

// Rate limits by MAC address: stations whose addresses have the same hash share one.
constexpr uint32_t kMacCarSlots = 128;

// The one record of the host-security configuration.
struct HsecGlobalCfg {
  uint8_t alarm : 1, penalty : 1, : 6;
  uint8_t defendType;
  uint16_t alarmThreshold;
  uint16_t penaltyThreshold;
  uint16_t sessionCarCauseMin;
  uint16_t sessionCarCauseMax;
  uint16_t reserved10[2];
  uint16_t blacklistGroupType;  // of the blacklist's ACL group
  uint32_t blacklistGroupId;
  uint32_t tcpSynAttack : 1, udpAttack : 1, icmpAttack : 1, abnormalAttack : 1, fragmentAttack : 1, : 27;
  uint32_t tcpSynCarId;
  uint32_t icmpCarId;
  uint32_t fragmentCarId;
  uint32_t hostCpcarArp : 1, hostCpcarDhcp : 1, hostCpcar8021x : 1, : 29;
  uint32_t hostCpcarPps;
  uint16_t macCarId[kMacCarSlots];  // by the hash of the MAC address
  uint16_t totalCpcar : 1, : 15;
  uint16_t totalCpcarCarId;
  uint32_t reserved304[6];
};
QDT_RECORD_SIZE(HsecGlobalCfg, 328);
QDT_FIELD_AT(HsecGlobalCfg, defendType, 1, 1);
QDT_FIELD_AT(HsecGlobalCfg, alarmThreshold, 2, 2);
QDT_FIELD_AT(HsecGlobalCfg, penaltyThreshold, 4, 2);
QDT_FIELD_AT(HsecGlobalCfg, sessionCarCauseMin, 6, 2);
QDT_FIELD_AT(HsecGlobalCfg, sessionCarCauseMax, 8, 2);
QDT_FIELD_AT(HsecGlobalCfg, blacklistGroupType, 14, 2);
QDT_FIELD_AT(HsecGlobalCfg, blacklistGroupId, 16, 4);
QDT_FIELD_AT(HsecGlobalCfg, tcpSynCarId, 24, 4);
QDT_FIELD_AT(HsecGlobalCfg, icmpCarId, 28, 4);
QDT_FIELD_AT(HsecGlobalCfg, fragmentCarId, 32, 4);
QDT_FIELD_AT(HsecGlobalCfg, hostCpcarPps, 40, 4);
QDT_FIELD_AT(HsecGlobalCfg, macCarId, 44, 256);
QDT_FIELD_AT(HsecGlobalCfg, totalCpcarCarId, 302, 2);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_SECURITY_H_
