#ifndef SRC_OM_ENGINE_CAPTURE_H_
#define SRC_OM_ENGINE_CAPTURE_H_

#include "src/om/engine/layout.h"

namespace qdt {

constexpr int kMaxCaptureInterfaces = 8;

// The configuration of a packet capture. Units and the values of direction and drop type are the engine's.
struct CaptureEntry {
  uint8_t aclValid;
  uint8_t aclGroupType;
  uint16_t reserved2;
  uint32_t aclGroupId;
  uint32_t expireTime;
  uint32_t packetLength;
  uint32_t timeout;
  uint8_t captureHost;
  uint8_t direction;
  uint16_t dropType;
  uint8_t captureDropped;
  uint8_t reserved25[3];
  uint16_t vlanId;
  uint16_t packetsRemaining;
  int32_t ifIndex[kMaxCaptureInterfaces];  // 0 in a free slot
};
QDT_RECORD_SIZE(CaptureEntry, 64);
QDT_FIELD_AT(CaptureEntry, aclValid, 0, 1);
QDT_FIELD_AT(CaptureEntry, aclGroupType, 1, 1);
QDT_FIELD_AT(CaptureEntry, aclGroupId, 4, 4);
QDT_FIELD_AT(CaptureEntry, expireTime, 8, 4);
QDT_FIELD_AT(CaptureEntry, packetLength, 12, 4);
QDT_FIELD_AT(CaptureEntry, timeout, 16, 4);
QDT_FIELD_AT(CaptureEntry, captureHost, 20, 1);
QDT_FIELD_AT(CaptureEntry, direction, 21, 1);
QDT_FIELD_AT(CaptureEntry, dropType, 22, 2);
QDT_FIELD_AT(CaptureEntry, captureDropped, 24, 1);
QDT_FIELD_AT(CaptureEntry, vlanId, 28, 2);
QDT_FIELD_AT(CaptureEntry, packetsRemaining, 30, 2);
QDT_FIELD_AT(CaptureEntry, ifIndex, 32, 32);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_CAPTURE_H_
