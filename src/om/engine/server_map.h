#ifndef SRC_OM_ENGINE_SERVER_MAP_H_
#define SRC_OM_ENGINE_SERVER_MAP_H_

#include "src/om/engine/layout.h"

// Server maps: what the engine admits before any session has seen it. Addresses in host order; 0 is any
// address, port or protocol.
namespace qdt {

enum class ServerMapType : uint8_t {
  kNatServer = 0,
  kNoPat = 1,
  kAspf = 2,
  kNatServerReverse = 14,
  kNoPat15 = 15,  // no-PAT and ASPF have two types each
  kAspf16 = 16,
  kLast = 21,  // no entry has a type above
};

// Lifetimes of entries that never age, and of those that are aged out.
constexpr uint32_t kServerMapNeverAges = 0xFFFFFFFF;
constexpr uint32_t kServerMapAgedOut = 0;

// The further addresses of an entry, of which each kind has a form of its own.
struct NatServerMapping {
  uint32_t address;  // translated
  uint16_t port;
  uint16_t reserved6;
  uint32_t hits;
};
struct AspfMapping {
  uint32_t addresses[2];
};
struct NoPatMapping {
  uint32_t reserved0[2];
  uint32_t addresses[2];
};

// Entry of the server maps' hash map.
struct ServerMapEntry {
  uint32_t source;
  uint32_t destination;
  uint16_t sourcePort;
  uint16_t destinationPort;
  uint16_t vrf;
  uint16_t protocol;
  uint16_t zone;
  ServerMapType type;
  uint8_t reserved19;
  uint32_t flag;
  uint32_t ttl;        // seconds
  uint32_t timeStamp;  // seconds of the monotonic clock
  uint32_t reserved32[3];
  union {
    NatServerMapping nat;
    AspfMapping aspf;
    NoPatMapping noPat;
  };
};
QDT_RECORD_SIZE(ServerMapEntry, 60);
QDT_FIELD_AT(ServerMapEntry, source, 0, 4);
QDT_FIELD_AT(ServerMapEntry, destination, 4, 4);
QDT_FIELD_AT(ServerMapEntry, sourcePort, 8, 2);
QDT_FIELD_AT(ServerMapEntry, destinationPort, 10, 2);
QDT_FIELD_AT(ServerMapEntry, vrf, 12, 2);
QDT_FIELD_AT(ServerMapEntry, protocol, 14, 2);
QDT_FIELD_AT(ServerMapEntry, zone, 16, 2);
QDT_FIELD_AT(ServerMapEntry, type, 18, 1);
QDT_FIELD_AT(ServerMapEntry, flag, 20, 4);
QDT_FIELD_AT(ServerMapEntry, ttl, 24, 4);
QDT_FIELD_AT(ServerMapEntry, timeStamp, 28, 4);
QDT_FIELD_AT(ServerMapEntry, nat.address, 44, 4);
QDT_FIELD_AT(ServerMapEntry, nat.port, 48, 2);
QDT_FIELD_AT(ServerMapEntry, nat.hits, 52, 4);
QDT_FIELD_AT(ServerMapEntry, aspf.addresses, 44, 8);
QDT_FIELD_AT(ServerMapEntry, noPat.addresses, 52, 8);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_SERVER_MAP_H_
