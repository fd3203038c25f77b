#ifndef SRC_OM_ENGINE_PROTOCOL_H_
#define SRC_OM_ENGINE_PROTOCOL_H_

#include <cstdint>

namespace qdt {

// IP protocols (IANA protocol numbers).
enum IpProtocol : uint8_t {
  kProtocolIcmp = 1,
  kProtocolTcp = 6,
  kProtocolUdp = 17,
};

// The engine's application protocols that have an aging time of their own.
enum AppProtocol : uint32_t {
  kAppHttp = 1,
  kAppDns = 2,
  kAppFtp = 3,
  kAppRtsp = 6,
  kAppSip = 10,
  kAppPptp = 15,
};

}  // namespace qdt

#endif  // SRC_OM_ENGINE_PROTOCOL_H_
