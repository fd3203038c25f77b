#ifndef TOOLS_OMAD_OPTIONS_H_
#define TOOLS_OMAD_OPTIONS_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/engine_watch.h"
#include "host/base/arguments.h"

namespace qdt::omad {

// What omad bears of its clients.
struct Limits {
  size_t message = 1u << 20;  // bytes
  size_t sessions = 512;
  size_t userSessions = 128;
  size_t waiting = 256;            // commands
  std::chrono::seconds idle{600};  // 0: for ever
};

// An sshd of omad's own, with keys for its users.
struct QuickStart {
  bool wanted = false;
  std::string address = "127.0.0.1";
  uint16_t port = 830;
  std::string hostKey;                                        // private key file; empty: a new one
  std::vector<std::pair<std::string, std::string>> userKeys;  // user and public key file
};

struct Options {
  bool help = false;
  bool version = false;
  bool worker = false;
  std::string arena;
  std::vector<std::string> trusted;  // users, as they are written
  std::string socket;
  std::vector<uid_t> carriers;  // whose processes may name the user of a session
  std::vector<std::string> rules;
  std::string record = "/dev/log";
  Limits limits;
  std::chrono::seconds alarmPeriod{10};  // from one look at the engine to the next; 0: none
  host::AlarmLevels alarms;
  QuickStart quickStart;
};

extern const char kUsage[];

// Throws HostError.
Options ParseOptions(host::Arguments arguments);

// A name that can stand in logs and rules: letters, digits and ".-_@", 64 at most.
bool IsUserName(const std::string &name);

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_OPTIONS_H_
