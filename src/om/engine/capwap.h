#ifndef SRC_OM_ENGINE_CAPWAP_H_
#define SRC_OM_ENGINE_CAPWAP_H_

#include "src/om/engine/layout.h"

// CAPWAP tunnels between access points and their controller (RFC 5415).
namespace qdt {

constexpr uint8_t kMaxCapwapEncapsulation = 64;

struct CapwapTunnelEntry {
  uint8_t valid : 1, state : 1, acToAc : 3, serverOrClient : 1, encrypted : 1, : 1;
  uint8_t reserved1;
  uint16_t mtu;
  uint32_t ifIndex;
  uint32_t dtlsIndex;
  uint32_t sourceAddress;  // of the outer header, host order, as the destination
  uint32_t destinationAddress;
  uint16_t sourcePort;
  uint16_t destinationPort;
  // The first word of the CAPWAP header (RFC 5415, 4.3) in the engine's own order.
  uint32_t preamble : 8, headerLength : 5, radioId : 5, wirelessBinding : 5, tFlag : 1, fFlag : 1, lFlag : 1,
      wFlag : 1, mFlag : 1, kFlag : 1, : 3;
  MacAddress apMac;
  uint8_t reserved34;
  uint8_t encapsulationSize;  // bytes of `encapsulation` that count
  uint8_t reserved36[4];
  uint8_t encapsulation[kMaxCapwapEncapsulation];  // the outer headers, ready to be put before a packet
  uint64_t boundRoute;                             // address of the destination's route
};
QDT_RECORD_SIZE(CapwapTunnelEntry, 112);
QDT_FIELD_AT(CapwapTunnelEntry, mtu, 2, 2);
QDT_FIELD_AT(CapwapTunnelEntry, ifIndex, 4, 4);
QDT_FIELD_AT(CapwapTunnelEntry, dtlsIndex, 8, 4);
QDT_FIELD_AT(CapwapTunnelEntry, sourceAddress, 12, 4);
QDT_FIELD_AT(CapwapTunnelEntry, destinationAddress, 16, 4);
QDT_FIELD_AT(CapwapTunnelEntry, sourcePort, 20, 2);
QDT_FIELD_AT(CapwapTunnelEntry, destinationPort, 22, 2);
QDT_FIELD_AT(CapwapTunnelEntry, apMac, 28, 6);
QDT_FIELD_AT(CapwapTunnelEntry, encapsulationSize, 35, 1);
QDT_FIELD_AT(CapwapTunnelEntry, encapsulation, 40, 64);
QDT_FIELD_AT(CapwapTunnelEntry, boundRoute, 104, 8);

// Key of the decapsulation table: the outer addresses in host order, and the destination port.
struct CapwapDecapKey {
  uint32_t sourceAddress;
  uint32_t destinationAddress;
  uint16_t port;
  uint16_t zero;
};
QDT_RECORD_SIZE(CapwapDecapKey, 12);
QDT_FIELD_AT(CapwapDecapKey, sourceAddress, 0, 4);
QDT_FIELD_AT(CapwapDecapKey, destinationAddress, 4, 4);
QDT_FIELD_AT(CapwapDecapKey, port, 8, 2);

// Which tunnel a packet with these outer headers came through.
struct CapwapDecapEntry {
  CapwapDecapKey key;
  uint32_t tunnelId;
  uint32_t ifIndex;
};
QDT_RECORD_SIZE(CapwapDecapEntry, 20);
QDT_FIELD_AT(CapwapDecapEntry, key, 0, 12);
QDT_FIELD_AT(CapwapDecapEntry, tunnelId, 12, 4);
QDT_FIELD_AT(CapwapDecapEntry, ifIndex, 16, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_CAPWAP_H_
