#ifndef SRC_OM_ENGINE_SAC_H_
#define SRC_OM_ENGINE_SAC_H_

#include "src/om/engine/layout.h"
#include "src/om/engine/user.h"

// Application control (SAC): what is done with the traffic of an application, how applications are numbered,
// and what is counted of them. The meaning of the numbers is the engine's own.
namespace qdt {

struct SacApplication {
  uint16_t appId;  // 0 in a free slot
  uint8_t appType;
  uint8_t actionType;  // 1 to 5
  uint32_t actionParameter;
  uint32_t actionIndex;
};
QDT_RECORD_SIZE(SacApplication, 12);
QDT_FIELD_AT(SacApplication, appId, 0, 2);
QDT_FIELD_AT(SacApplication, appType, 2, 1);
QDT_FIELD_AT(SacApplication, actionType, 3, 1);
QDT_FIELD_AT(SacApplication, actionParameter, 4, 4);
QDT_FIELD_AT(SacApplication, actionIndex, 8, 4);

constexpr int kSacProfileApplications = 32;

struct SacProfile {
  uint32_t sacId;
  uint8_t vapStat, userStat;
  uint16_t reserved6;
  SacApplication applications[kSacProfileApplications];
};
QDT_RECORD_SIZE(SacProfile, 392);
QDT_FIELD_AT(SacProfile, sacId, 0, 4);
QDT_FIELD_AT(SacProfile, vapStat, 4, 1);
QDT_FIELD_AT(SacProfile, userStat, 5, 1);
QDT_FIELD_AT(SacProfile, applications, 8, 384);

struct SacPolicyCarKey {
  uint32_t sacId;
  uint16_t appId;
  uint16_t appType;
};
QDT_RECORD_SIZE(SacPolicyCarKey, 8);
QDT_FIELD_AT(SacPolicyCarKey, sacId, 0, 4);
QDT_FIELD_AT(SacPolicyCarKey, appId, 4, 2);
QDT_FIELD_AT(SacPolicyCarKey, appType, 6, 2);

// The rate limiter of one application of a profile.
struct SacPolicyCar {
  SacPolicyCarKey key;
  uint32_t carId;
};
QDT_RECORD_SIZE(SacPolicyCar, 12);
QDT_FIELD_AT(SacPolicyCar, key, 0, 8);
QDT_FIELD_AT(SacPolicyCar, carId, 8, 4);

constexpr uint32_t kSacGroupWords = 16;

struct SacAppGroup {
  uint32_t bitmap[kSacGroupWords];
};
QDT_RECORD_SIZE(SacAppGroup, 64);
QDT_FIELD_AT(SacAppGroup, bitmap, 0, 64);

struct SacProtocolMapping {
  uint32_t appId;
  uint32_t classId;
};
QDT_RECORD_SIZE(SacProtocolMapping, 8);
QDT_FIELD_AT(SacProtocolMapping, appId, 0, 4);
QDT_FIELD_AT(SacProtocolMapping, classId, 4, 4);

// Leads from an application id to its index.
struct SacAppMapping {
  uint32_t appIndex;
  uint32_t classId;
  char name[32];
};
QDT_RECORD_SIZE(SacAppMapping, 40);
QDT_FIELD_AT(SacAppMapping, appIndex, 0, 4);
QDT_FIELD_AT(SacAppMapping, classId, 4, 4);
QDT_FIELD_AT(SacAppMapping, name, 8, 32);

// Leads back from the index to the id.
struct SacAppReverseMapping {
  uint32_t appId;
  uint32_t classId;
  char name[32];
};
QDT_RECORD_SIZE(SacAppReverseMapping, 40);
QDT_FIELD_AT(SacAppReverseMapping, appId, 0, 4);
QDT_FIELD_AT(SacAppReverseMapping, classId, 4, 4);
QDT_FIELD_AT(SacAppReverseMapping, name, 8, 32);

struct SacPriorityMapping {
  uint32_t priority;
};
QDT_RECORD_SIZE(SacPriorityMapping, 4);
QDT_FIELD_AT(SacPriorityMapping, priority, 0, 4);

// What an application counted under one of its two sub-applications.
struct SacSubCount {
  int32_t upPackets, upBytes, downPackets, downBytes;
  uint32_t appId;
  uint32_t reserved20;
};
QDT_RECORD_SIZE(SacSubCount, 24);
QDT_FIELD_AT(SacSubCount, upPackets, 0, 4);
QDT_FIELD_AT(SacSubCount, upBytes, 4, 4);
QDT_FIELD_AT(SacSubCount, downPackets, 8, 4);
QDT_FIELD_AT(SacSubCount, downBytes, 12, 4);
QDT_FIELD_AT(SacSubCount, appId, 16, 4);

// What an application counted in all.
struct SacCount {
  int32_t upPackets, downPackets;
  int64_t upBytes, downBytes;
  uint32_t appId;
  uint32_t reserved28;
};
QDT_RECORD_SIZE(SacCount, 32);
QDT_FIELD_AT(SacCount, upPackets, 0, 4);
QDT_FIELD_AT(SacCount, downPackets, 4, 4);
QDT_FIELD_AT(SacCount, upBytes, 8, 8);
QDT_FIELD_AT(SacCount, downBytes, 16, 8);
QDT_FIELD_AT(SacCount, appId, 24, 4);

// Statistics with a slot for each application.
template <uint32_t kSlots>
struct SacStatistics {
  uint32_t lastSlot;  // the highest in use
  uint32_t realTime : 1, : 31;
  int64_t version, lastVersion;
  SacSubCount sub0[kSlots];
  SacSubCount sub1[kSlots];
  SacCount total[kSlots];
};

// Of a VAP.
using SacInterfaceStatistics = SacStatistics<201>;
QDT_RECORD_SIZE(SacInterfaceStatistics, 16104);
QDT_FIELD_AT(SacInterfaceStatistics, lastSlot, 0, 4);
QDT_FIELD_AT(SacInterfaceStatistics, version, 8, 8);
QDT_FIELD_AT(SacInterfaceStatistics, lastVersion, 16, 8);
QDT_FIELD_AT(SacInterfaceStatistics, sub0, 24, 4824);
QDT_FIELD_AT(SacInterfaceStatistics, sub1, 4848, 4824);
QDT_FIELD_AT(SacInterfaceStatistics, total, 9672, 6432);

// Of a wireless user.
using SacUserStatistics = SacStatistics<43>;
QDT_RECORD_SIZE(SacUserStatistics, 3464);
QDT_FIELD_AT(SacUserStatistics, lastSlot, 0, 4);
QDT_FIELD_AT(SacUserStatistics, version, 8, 8);
QDT_FIELD_AT(SacUserStatistics, lastVersion, 16, 8);
QDT_FIELD_AT(SacUserStatistics, sub0, 24, 1032);
QDT_FIELD_AT(SacUserStatistics, sub1, 1056, 1032);
QDT_FIELD_AT(SacUserStatistics, total, 2088, 1376);

struct SacUserEntry {
  StationKey station;
  SacUserStatistics statistics;
};
QDT_RECORD_SIZE(SacUserEntry, 3472);
QDT_FIELD_AT(SacUserEntry, station, 0, 8);
QDT_FIELD_AT(SacUserEntry, statistics, 8, 3464);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_SAC_H_
