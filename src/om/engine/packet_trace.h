#ifndef SRC_OM_ENGINE_PACKET_TRACE_H_
#define SRC_OM_ENGINE_PACKET_TRACE_H_

#include "src/om/engine/layout.h"

// The shared block by which packets and stations are traced: the engine reads it on its fast path, prints
// what matches, and counts. Its creator is the engine; whoever sets conditions writes them in place.
namespace qdt {

constexpr char kPacketTraceRegion[] = "PKT_TRACE_CTX_PTR";

// Bits of a condition mask.
enum TraceMask : uint64_t {
  kTraceLength = 1u << 1,
  kTraceSourceFwdIf = 1u << 2,
  kTraceDestinationFwdIf = 1u << 3,
  kTraceFromControlPlane = 1u << 4,
  kTraceDiscardType = 1u << 5,
  kTraceVlan = 1u << 6,
  kTraceSourceMac = 1u << 7,
  kTraceDestinationMac = 1u << 8,
  kTraceEtherType = 1u << 9,
  kTraceEapKey = 1u << 10,
  kTraceSourceAddress = 1u << 11,
  kTraceDestinationAddress = 1u << 12,
  kTraceProtocol = 1u << 13,
  kTraceCapwap = 1u << 14,
  kTraceSourcePort = 1u << 17,
  kTraceDestinationPort = 1u << 18,
  kTraceIpFragment = 1u << 19,
  kTraceWirelessFragment = 1u << 20,
  kTraceNotFragment = 1u << 21,
  kTraceFirstFragment = 1u << 22,
  kTraceNotFirstFragment = 1u << 23,
  kTraceLastFragment = 1u << 24,
  kTraceTcpFlags = 1u << 25,
  kTraceSourceAddressV6 = 1u << 26,
  kTraceDestinationAddressV6 = 1u << 27,
  kTraceIpType = 1u << 28,
  kTraceIcmpType = 1u << 29,
  kTracePppoeKeepalive = 1u << 30,
  kTraceCauseId = 1u << 31,
};

// The discard type that stands for all of them.
constexpr uint16_t kAllDiscardTypes = 274;

// Values of ipType.
constexpr uint8_t kTraceIpv4 = 0;
constexpr uint8_t kTraceIpv6 = 1;

// Which packets are printed. The engine tests only the fields whose bit is set in `mask`.
struct PacketTraceConditions {
  uint64_t mask;
  uint16_t minLength, maxLength;
  uint8_t notFlag : 1, inner : 1, fromControlPlane : 1, eapKey : 1, capwapKeepalive : 1, pppoeKeepalive : 1,
      capwapFragment : 1, : 1;
  uint8_t tcpFlags;
  uint16_t vlanId;
  uint32_t sourceFwdIf, destinationFwdIf;
  uint32_t timeout;
  uint32_t reserved28;
  // Network order from the command, host order from the management agent.
  uint32_t sourceAddress, destinationAddress;
  MacAddress sourceMac, destinationMac;
  uint8_t protocol, reserved53;
  uint16_t etherType;
  uint8_t sourceAddressV6[16], destinationAddressV6[16];
  uint16_t sourcePort, destinationPort;
  uint16_t discardType;  // index of the discard statistic, or kAllDiscardTypes
  uint16_t causeId;
  uint8_t ipType;
  uint8_t icmpType;
  uint8_t reserved98[6];
};
QDT_RECORD_SIZE(PacketTraceConditions, 104);
QDT_FIELD_AT(PacketTraceConditions, mask, 0, 8);
QDT_FIELD_AT(PacketTraceConditions, minLength, 8, 2);
QDT_FIELD_AT(PacketTraceConditions, maxLength, 10, 2);
QDT_FIELD_AT(PacketTraceConditions, tcpFlags, 13, 1);
QDT_FIELD_AT(PacketTraceConditions, vlanId, 14, 2);
QDT_FIELD_AT(PacketTraceConditions, sourceFwdIf, 16, 4);
QDT_FIELD_AT(PacketTraceConditions, destinationFwdIf, 20, 4);
QDT_FIELD_AT(PacketTraceConditions, timeout, 24, 4);
QDT_FIELD_AT(PacketTraceConditions, sourceAddress, 32, 4);
QDT_FIELD_AT(PacketTraceConditions, destinationAddress, 36, 4);
QDT_FIELD_AT(PacketTraceConditions, sourceMac, 40, 6);
QDT_FIELD_AT(PacketTraceConditions, destinationMac, 46, 6);
QDT_FIELD_AT(PacketTraceConditions, protocol, 52, 1);
QDT_FIELD_AT(PacketTraceConditions, etherType, 54, 2);
QDT_FIELD_AT(PacketTraceConditions, sourceAddressV6, 56, 16);
QDT_FIELD_AT(PacketTraceConditions, destinationAddressV6, 72, 16);
QDT_FIELD_AT(PacketTraceConditions, sourcePort, 88, 2);
QDT_FIELD_AT(PacketTraceConditions, destinationPort, 90, 2);
QDT_FIELD_AT(PacketTraceConditions, discardType, 92, 2);
QDT_FIELD_AT(PacketTraceConditions, causeId, 94, 2);
QDT_FIELD_AT(PacketTraceConditions, ipType, 96, 1);
QDT_FIELD_AT(PacketTraceConditions, icmpType, 97, 1);

// Where and how matching packets are printed.
struct PacketTracePrint {
  uint8_t reserved0;
  uint8_t reserved1;  // cleared with every new number of packets to print
  uint8_t toolCheck;
  uint8_t toConsole;
  uint8_t toLog;
  uint8_t reserved5;
  uint16_t length;
};
QDT_RECORD_SIZE(PacketTracePrint, 8);
QDT_FIELD_AT(PacketTracePrint, reserved1, 1, 1);
QDT_FIELD_AT(PacketTracePrint, toolCheck, 2, 1);
QDT_FIELD_AT(PacketTracePrint, toConsole, 3, 1);
QDT_FIELD_AT(PacketTracePrint, toLog, 4, 1);
QDT_FIELD_AT(PacketTracePrint, length, 6, 2);

struct TracedStation {
  uint16_t reserved0;
  MacAddress mac;
};
QDT_RECORD_SIZE(TracedStation, 8);
QDT_FIELD_AT(TracedStation, mac, 2, 6);

constexpr int kMaxTracedStations = 11;

// Which traces are on. They stand in the bytes of the last station.
struct TraceSwitches {
  TracedStation reserved0[kMaxTracedStations - 1];
  uint8_t reserved80[4];
  uint8_t packets : 1, : 1, stations : 1, : 5;
  uint8_t chipTransmit : 1, : 7;
  uint8_t reserved86[2];
};
QDT_RECORD_SIZE(TraceSwitches, 88);

struct PacketTraceBlock {
  PacketTraceConditions conditions;
  PacketTracePrint print;
  uint32_t leftPrints;  // packets still to print
  uint32_t fromDriver, toDriver;
  uint32_t toSlowPath, fromSlowPath;
  uint8_t allStations;
  uint8_t stationCount;
  uint16_t reserved134;
  union {
    TracedStation stations[kMaxTracedStations];
    TraceSwitches on;
  };
};
QDT_RECORD_SIZE(PacketTraceBlock, 224);
QDT_FIELD_AT(PacketTraceBlock, conditions, 0, 104);
QDT_FIELD_AT(PacketTraceBlock, print, 104, 8);
QDT_FIELD_AT(PacketTraceBlock, leftPrints, 112, 4);
QDT_FIELD_AT(PacketTraceBlock, fromDriver, 116, 4);
QDT_FIELD_AT(PacketTraceBlock, toDriver, 120, 4);
QDT_FIELD_AT(PacketTraceBlock, toSlowPath, 124, 4);
QDT_FIELD_AT(PacketTraceBlock, fromSlowPath, 128, 4);
QDT_FIELD_AT(PacketTraceBlock, allStations, 132, 1);
QDT_FIELD_AT(PacketTraceBlock, stationCount, 133, 1);
QDT_FIELD_AT(PacketTraceBlock, stations, 136, 88);
QDT_FIELD_AT(PacketTraceBlock, on, 136, 88);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_PACKET_TRACE_H_
