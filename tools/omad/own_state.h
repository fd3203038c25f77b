#ifndef TOOLS_OMAD_OWN_STATE_H_
#define TOOLS_OMAD_OWN_STATE_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/agent/state.h"
#include "host/omcc/model.h"

namespace qdt::omad {

// What omad tells of a session.
struct SessionState {
  uint32_t number;
  std::string user;
  std::string address;
  std::chrono::system_clock::time_point since;
};

// What omad counts (RFC 6022, RFC 8341).
struct Counters {
  std::chrono::system_clock::time_point start = std::chrono::system_clock::now();
  uint32_t sessions = 0;      // that have begun
  uint32_t lostSessions = 0;  // that no client has closed
  uint32_t calls = 0;
  uint32_t errors = 0;
  uint32_t deniedOperations = 0;
  uint32_t deniedNotifications = 0;
  uint32_t notifications = 0;  // that were told
};

// Sources of state data that omad walks itself: the YANG library (RFC 8525), the schemas, sessions and
// counters of NETCONF (RFC 6022), the streams of notifications (RFC 5277), the counters of access control.
// `sessionsFrom` tells up to so many sessions from this number on.
std::vector<host::StateSource> OwnStateSources(
    const host::Model &model, std::vector<std::string> capabilities, const Counters *counters,
    std::function<std::vector<SessionState>(uint32_t from, size_t most)> sessionsFrom);

// "2026-11-22T10:00:00.123Z"
std::string TimeText(std::chrono::system_clock::time_point time);

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_OWN_STATE_H_
