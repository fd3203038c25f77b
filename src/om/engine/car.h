#ifndef SRC_OM_ENGINE_CAR_H_
#define SRC_OM_ENGINE_CAR_H_

#include "src/om/engine/layout.h"

// Rate limiters (committed access rate, CAR), and which of them limit the packets that go to the control
// plane (CPCAR).
namespace qdt {

// A rate limiter. Rates are amounts per tick of the processor's timer with 32 fraction bits.
struct CarEntry {
  uint8_t packetMode : 1, cirOffset : 2, pirOffset : 2, : 3;  // counts packets, otherwise bytes
  uint8_t type;
  uint16_t reserved2;
  int32_t lockHeld;  // of the entry's spin lock
  int32_t lockOwner;
  int32_t lockId;
  uint32_t reserved16[2];
  uint64_t timestamp;
  uint64_t committedTokens;
  uint64_t peakTokens;
  uint64_t committedRate;
  uint64_t committedBurst;  // in packet mode its upper half is the limit in packets a second
  uint64_t peakRate;
  uint64_t peakBurst;
  uint64_t configuredCommittedBurst;
  uint64_t configuredPeakBurst;
  uint32_t permitGreen : 1, : 31;
  uint32_t permitYellow : 1, : 31;
  uint32_t permitRed : 1, : 31;
  uint32_t reserved108;
  int64_t passedPackets;
  int64_t passedBytes;
  int64_t droppedPackets;
  int64_t droppedBytes;
};
QDT_RECORD_SIZE(CarEntry, 144);
QDT_FIELD_AT(CarEntry, type, 1, 1);
QDT_FIELD_AT(CarEntry, lockHeld, 4, 4);
QDT_FIELD_AT(CarEntry, lockOwner, 8, 4);
QDT_FIELD_AT(CarEntry, lockId, 12, 4);
QDT_FIELD_AT(CarEntry, timestamp, 24, 8);
QDT_FIELD_AT(CarEntry, committedTokens, 32, 8);
QDT_FIELD_AT(CarEntry, peakTokens, 40, 8);
QDT_FIELD_AT(CarEntry, committedRate, 48, 8);
QDT_FIELD_AT(CarEntry, committedBurst, 56, 8);
QDT_FIELD_AT(CarEntry, peakRate, 64, 8);
QDT_FIELD_AT(CarEntry, peakBurst, 72, 8);
QDT_FIELD_AT(CarEntry, configuredCommittedBurst, 80, 8);
QDT_FIELD_AT(CarEntry, configuredPeakBurst, 88, 8);
QDT_FIELD_AT(CarEntry, passedPackets, 112, 8);
QDT_FIELD_AT(CarEntry, passedBytes, 120, 8);
QDT_FIELD_AT(CarEntry, droppedPackets, 128, 8);
QDT_FIELD_AT(CarEntry, droppedBytes, 136, 8);

struct CpcarKey {
  uint16_t protocol;  // the engine's number of a protocol that ends at the host
  uint16_t wireless;
};
QDT_RECORD_SIZE(CpcarKey, 4);
QDT_FIELD_AT(CpcarKey, protocol, 0, 2);
QDT_FIELD_AT(CpcarKey, wireless, 2, 2);

// The rate limit of one protocol to the control plane.
struct CpcarEntry {
  CpcarKey key;
  uint32_t carId;
  uint32_t priority;
  uint32_t passedPackets;
  uint32_t droppedPackets;
};
QDT_RECORD_SIZE(CpcarEntry, 20);
QDT_FIELD_AT(CpcarEntry, key, 0, 4);
QDT_FIELD_AT(CpcarEntry, carId, 4, 4);
QDT_FIELD_AT(CpcarEntry, priority, 8, 4);
QDT_FIELD_AT(CpcarEntry, passedPackets, 12, 4);
QDT_FIELD_AT(CpcarEntry, droppedPackets, 16, 4);

// The rate limit of one session to the control plane.
struct SessionCpcarEntry {
  uint32_t sourceAddress;  // host order, as the destination
  uint32_t destinationAddress;
  uint16_t sourcePort;
  uint16_t destinationPort;
  uint8_t protocol;
  uint8_t reserved13[3];
  uint32_t carId;
  uint32_t reserved20;
};
QDT_RECORD_SIZE(SessionCpcarEntry, 24);
QDT_FIELD_AT(SessionCpcarEntry, sourceAddress, 0, 4);
QDT_FIELD_AT(SessionCpcarEntry, destinationAddress, 4, 4);
QDT_FIELD_AT(SessionCpcarEntry, sourcePort, 8, 2);
QDT_FIELD_AT(SessionCpcarEntry, destinationPort, 10, 2);
QDT_FIELD_AT(SessionCpcarEntry, protocol, 12, 1);
QDT_FIELD_AT(SessionCpcarEntry, carId, 16, 4);

// Maps a port of a protocol to a host protocol.
struct CpcarPortEntry {
  uint16_t port;
  uint8_t protocol;
  uint8_t isSource;  // whether the port is a source port
  uint16_t hostProtocol;
  uint16_t reserved6;
};
QDT_RECORD_SIZE(CpcarPortEntry, 8);
QDT_FIELD_AT(CpcarPortEntry, port, 0, 2);
QDT_FIELD_AT(CpcarPortEntry, protocol, 2, 1);
QDT_FIELD_AT(CpcarPortEntry, isSource, 3, 1);
QDT_FIELD_AT(CpcarPortEntry, hostProtocol, 4, 2);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_CAR_H_
