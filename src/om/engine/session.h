#ifndef SRC_OM_ENGINE_SESSION_H_
#define SRC_OM_ENGINE_SESSION_H_

#include "src/om/engine/layout.h"

// Sessions: flows, each with the key of its initiating ("positive") and of its reply ("negative") direction.
// IPv4 addresses in host order.
namespace qdt {

// Key of one direction of an IPv4 session.
struct SessionKey {
  uint32_t source;
  uint32_t destination;
  uint16_t sourcePort;
  uint16_t destinationPort;
  uint8_t protocol;  // IP protocol number
  uint8_t reserved13;
  uint16_t vpn;
};
QDT_RECORD_SIZE(SessionKey, 16);
QDT_FIELD_AT(SessionKey, source, 0, 4);
QDT_FIELD_AT(SessionKey, destination, 4, 4);
QDT_FIELD_AT(SessionKey, sourcePort, 8, 2);
QDT_FIELD_AT(SessionKey, destinationPort, 10, 2);
QDT_FIELD_AT(SessionKey, protocol, 12, 1);
QDT_FIELD_AT(SessionKey, vpn, 14, 2);

// Key of one direction of an IPv6 session; addresses as four host-order words.
struct Ipv6SessionKey {
  uint32_t source[4];
  uint32_t destination[4];
  uint16_t sourcePort;
  uint16_t destinationPort;
  uint8_t protocol;
  uint8_t reserved37;
  uint16_t vpn;
};
QDT_RECORD_SIZE(Ipv6SessionKey, 40);
QDT_FIELD_AT(Ipv6SessionKey, source, 0, 16);
QDT_FIELD_AT(Ipv6SessionKey, destination, 16, 16);
QDT_FIELD_AT(Ipv6SessionKey, sourcePort, 32, 2);
QDT_FIELD_AT(Ipv6SessionKey, destinationPort, 34, 2);
QDT_FIELD_AT(Ipv6SessionKey, protocol, 36, 1);
QDT_FIELD_AT(Ipv6SessionKey, vpn, 38, 2);

// What address translation makes of one direction; a field counts where its bit of the session is set.
struct SessionTranslation {
  uint32_t source;
  uint32_t destination;
  uint16_t sourcePort;
  uint16_t destinationPort;
};
QDT_RECORD_SIZE(SessionTranslation, 12);
QDT_FIELD_AT(SessionTranslation, source, 0, 4);
QDT_FIELD_AT(SessionTranslation, destination, 4, 4);
QDT_FIELD_AT(SessionTranslation, sourcePort, 8, 2);
QDT_FIELD_AT(SessionTranslation, destinationPort, 10, 2);

// What a session has in addition for HTTPS, and for iptables.
struct HttpsSubSession {
  uint32_t index;
  uint32_t fwdIfIndex;
  MacAddress smac;
  MacAddress dmac;
  uint16_t vlanId;
  uint16_t ethType;
};
QDT_RECORD_SIZE(HttpsSubSession, 24);
QDT_FIELD_AT(HttpsSubSession, index, 0, 4);
QDT_FIELD_AT(HttpsSubSession, fwdIfIndex, 4, 4);
QDT_FIELD_AT(HttpsSubSession, smac, 8, 6);
QDT_FIELD_AT(HttpsSubSession, dmac, 14, 6);
QDT_FIELD_AT(HttpsSubSession, vlanId, 20, 2);
QDT_FIELD_AT(HttpsSubSession, ethType, 22, 2);

struct IptablesSubSession {
  uint32_t index;
  uint32_t destination;
  uint16_t destinationPort;
  uint16_t reserved10;  // shown all the same
};
QDT_RECORD_SIZE(IptablesSubSession, 12);
QDT_FIELD_AT(IptablesSubSession, index, 0, 4);
QDT_FIELD_AT(IptablesSubSession, destination, 4, 4);
QDT_FIELD_AT(IptablesSubSession, destinationPort, 8, 2);
QDT_FIELD_AT(IptablesSubSession, reserved10, 10, 2);

// What application control has found the session to be.
struct SacSubSession {
  uint32_t reserved0[2];
  uint32_t appId;
  uint32_t classId;
  uint32_t protocolId;
};
QDT_RECORD_SIZE(SacSubSession, 20);
QDT_FIELD_AT(SacSubSession, appId, 8, 4);
QDT_FIELD_AT(SacSubSession, classId, 12, 4);
QDT_FIELD_AT(SacSubSession, protocolId, 16, 4);

// What the engine keeps of a TCP session's flow.
struct TcpFlow {
  uint32_t reserved0;
  uint32_t congestionWindow;
  uint32_t receiveWindow;
  uint32_t receiveWindowMin;
  uint32_t ack;
  uint32_t sequence;
  uint16_t : 3, up : 4, action : 2, : 7;
  uint8_t windowScale;
  uint8_t reserved27;
  uint16_t reserved28;
  uint16_t brakeCount;
  uint16_t accelerateCount;
  uint16_t holdCount;
};
QDT_RECORD_SIZE(TcpFlow, 36);
QDT_FIELD_AT(TcpFlow, congestionWindow, 4, 4);
QDT_FIELD_AT(TcpFlow, receiveWindow, 8, 4);
QDT_FIELD_AT(TcpFlow, receiveWindowMin, 12, 4);
QDT_FIELD_AT(TcpFlow, ack, 16, 4);
QDT_FIELD_AT(TcpFlow, sequence, 20, 4);
QDT_FIELD_AT(TcpFlow, windowScale, 26, 1);
QDT_FIELD_AT(TcpFlow, brakeCount, 30, 2);
QDT_FIELD_AT(TcpFlow, accelerateCount, 32, 2);
QDT_FIELD_AT(TcpFlow, holdCount, 34, 2);

// The state of sessions that queries pass over.
constexpr uint8_t kSessionNeverListed = 1;
// Aging time of a session that never ages.
constexpr uint16_t kSessionNeverAges = 65535;
// Aging time that makes the engine age a session out.
constexpr uint16_t kSessionAgeOut = 0;

// Entry of the session table. Addresses of other records are 0 where the session has none; they lead into the
// engine's memory and are followed with ReadEngineMemory only.
struct SessionRecord {
  uint32_t index;
  uint32_t timeStamp;  // of the last refresh, seconds of the monotonic clock
  uint8_t isIpv6 : 1, : 4, valid : 1, : 2;
  uint8_t state;
  uint16_t agingTime;  // seconds
  uint32_t natIndex;
  uint32_t sourceTranslated : 1, destinationTranslated : 1, sourcePortTranslated : 1,
      destinationPortTranslated : 1, : 3, natPolicyId : 1, natAgingTime : 1, : 23;
  uint16_t ingressIfIndex;
  uint16_t egressIfIndex;
  uint32_t reserved24;
  SessionTranslation positive;
  SessionTranslation negative;
  uint8_t serviceId;
  uint8_t reserved53;
  uint8_t parentSessionIndex;
  uint8_t serverMapIndex;
  uint64_t reserved56[7];
  uint64_t positiveKey;  // of a SessionKey, or of an Ipv6SessionKey when isIpv6 is set
  uint64_t negativeKey;
  uint32_t createTime;  // seconds of the real-time clock
  uint32_t reserved132;
  uint64_t reserved136[2];
  uint64_t https;     // of an HttpsSubSession
  uint64_t iptables;  // of an IptablesSubSession
  uint64_t sac;       // of a SacSubSession
  uint64_t tcpFlow;   // of a TcpFlow
  uint64_t reserved184;
};
QDT_RECORD_SIZE(SessionRecord, 192);
QDT_FIELD_AT(SessionRecord, index, 0, 4);
QDT_FIELD_AT(SessionRecord, timeStamp, 4, 4);
QDT_FIELD_AT(SessionRecord, state, 9, 1);
QDT_FIELD_AT(SessionRecord, agingTime, 10, 2);
QDT_FIELD_AT(SessionRecord, natIndex, 12, 4);
QDT_FIELD_AT(SessionRecord, ingressIfIndex, 20, 2);
QDT_FIELD_AT(SessionRecord, egressIfIndex, 22, 2);
QDT_FIELD_AT(SessionRecord, positive, 28, 12);
QDT_FIELD_AT(SessionRecord, negative, 40, 12);
QDT_FIELD_AT(SessionRecord, serviceId, 52, 1);
QDT_FIELD_AT(SessionRecord, parentSessionIndex, 54, 1);
QDT_FIELD_AT(SessionRecord, serverMapIndex, 55, 1);
QDT_FIELD_AT(SessionRecord, positiveKey, 112, 8);
QDT_FIELD_AT(SessionRecord, negativeKey, 120, 8);
QDT_FIELD_AT(SessionRecord, createTime, 128, 4);
QDT_FIELD_AT(SessionRecord, https, 152, 8);
QDT_FIELD_AT(SessionRecord, iptables, 160, 8);
QDT_FIELD_AT(SessionRecord, sac, 168, 8);
QDT_FIELD_AT(SessionRecord, tcpFlow, 176, 8);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_SESSION_H_
