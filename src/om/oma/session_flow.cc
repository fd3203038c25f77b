#include "src/om/oma/session_flow.h"

#include <algorithm>

#include "src/om/common/memory_probe.h"

namespace qdt {
namespace {

template <typename Key>
bool ReadKey(uint64_t address, SessionFlow &flow, Key &key) {
  if (!ReadEngineMemory(address, &key, sizeof(key))) return false;
  flow.sourcePort = key.sourcePort;
  flow.destinationPort = key.destinationPort;
  flow.protocol = key.protocol;
  flow.vpn = key.vpn;
  return true;
}

bool ReadIpv4(uint64_t address, SessionFlow &flow) {
  SessionKey key;
  if (!ReadKey(address, flow, key)) return false;
  flow.source[0] = key.source;
  flow.destination[0] = key.destination;
  return true;
}

bool ReadIpv6(uint64_t address, SessionFlow &flow) {
  Ipv6SessionKey key;
  if (!ReadKey(address, flow, key)) return false;
  std::copy_n(key.source, 4, flow.source);
  std::copy_n(key.destination, 4, flow.destination);
  return true;
}

}  // namespace

FlowState ReadFlow(const SessionRecord &session, SessionFlow &flow) {
  flow = {};
  const uint64_t address = session.positiveKey;
  if (address == 0) return FlowState::kAbsent;
  const bool whole = session.isIpv6 ? ReadIpv6(address, flow) : ReadIpv4(address, flow);
  return whole ? FlowState::kRead : FlowState::kDamaged;
}

}  // namespace qdt
