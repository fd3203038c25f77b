#include "tools/omad/options.h"

#include <algorithm>

#include "host/base/host_error.h"
#include "host/base/trust.h"
#include "host/wire/paths.h"

namespace qdt::omad {

using host::HostError;
using host::Quoted;

const char kUsage[] =
    "usage: omad [--arena PATH] [--nacm PATH ...] [LIMITS]\n"
    "       omad --port PORT --user-key USER=FILE ... [--host-key FILE] [--nacm PATH ...]\n"
    "\n"
    "Runs management commands for NETCONF sessions, each a process omad-session that sshd starts; in the "
    "foreground\n"
    "until SIGTERM or SIGINT. Prints one line when it is ready. SIGHUP has it read the rules again.\n"
    "\n"
    "  --arena PATH           the engine's arena, " QDT_DEFAULT_ARENA_TEXT
    "\n"
    "                         unless told otherwise\n"
    "  --trust USER           believe an engine of that user as well, beside this user's and root's\n"
    "  --socket PATH          where sessions connect, " QDT_DEFAULT_OMAD_TEXT
    "\n"
    "                         unless told otherwise\n"
    "  --carrier USER         processes of that user may say whose session theirs is, as those of this user "
    "and\n"
    "                         root may; those of others are their owner's\n"
    "  --nacm PATH            who may do what: a file of rules (RFC 8341, XML or JSON), or a directory of "
    "them; may\n"
    "                         be repeated. Without rules nobody changes anything\n"
    "  --log PATH             where the record of logins, refusals and changes goes: a log daemon's socket "
    "or a\n"
    "                         file; /dev/log unless told otherwise\n"
    "\n"
    "limits:\n"
    "  --max-message BYTES    of one message of a client, 1048576 unless told otherwise\n"
    "  --max-sessions N       in all, 512 unless told otherwise\n"
    "  --max-user-sessions N  of one user, 128 unless told otherwise\n"
    "  --max-waiting N        commands that wait for their turn, 256 unless told otherwise\n"
    "  --idle-time SECONDS    a session that asks nothing for so long ends, 600 unless told otherwise; 0: "
    "never\n"
    "\n"
    "alarms:\n"
    "  --alarm-threshold PERCENT  a table, or the engine's memory, that is fuller raises one; 80 unless told "
    "otherwise\n"
    "  --alarm-clear PERCENT  one that is no fuller clears it, 10 below the threshold unless told otherwise\n"
    "  --alarm-period SECONDS  how often the engine is looked at, 10 unless told otherwise; 0: never\n"
    "\n"
    "an sshd of its own, for whom these keys let in:\n"
    "  --port PORT            830 unless told otherwise\n"
    "  --address ADDRESS      where it listens, 127.0.0.1 unless told otherwise\n"
    "  --user-key USER=FILE   a public SSH key that makes its owner USER; may be repeated. All log in as the "
    "user\n"
    "                         that runs omad\n"
    "  --host-key FILE        the private SSH key of the host; a new one at each start unless told "
    "otherwise\n"
    "\n"
    "  --help, --version\n"
    "\n"
    "exit codes: 0 stopped as asked, 2 bad usage, or it cannot start\n";

namespace {

std::pair<std::string, std::string> UserAndFile(const std::string &text) {
  const size_t at = text.find('=');
  if (at == text.npos || at == 0 || at + 1 == text.size())
    throw HostError(Quoted(text) + " is not of the form USER=FILE");
  std::string user = text.substr(0, at);
  if (!IsUserName(user))
    throw HostError(Quoted(user) + " is no user's name (letters, digits and \".-_@\", 64 at most)");
  return {std::move(user), text.substr(at + 1)};
}

bool TakeLimit(host::Arguments *arguments, Limits *limits) {
  uint64_t seconds = 0;
  if (arguments->TakeNumber("--idle-time", 0, 10'000'000, &seconds)) {
    limits->idle = std::chrono::seconds(seconds);
    return true;
  }
  return arguments->TakeNumber("--max-message", 4096, 64u << 20, &limits->message) ||
         arguments->TakeNumber("--max-sessions", 1, 100'000, &limits->sessions) ||
         arguments->TakeNumber("--max-user-sessions", 1, 100'000, &limits->userSessions) ||
         arguments->TakeNumber("--max-waiting", 1, 100'000, &limits->waiting);
}

bool TakeAlarms(host::Arguments *arguments, Options *options, bool *clearIsSet) {
  uint64_t seconds = 0;
  if (arguments->TakeNumber("--alarm-period", 0, 86'400, &seconds)) {
    options->alarmPeriod = std::chrono::seconds(seconds);
    return true;
  }
  if (arguments->TakeNumber("--alarm-clear", 0, 99, &options->alarms.clear)) return *clearIsSet = true;
  return arguments->TakeNumber("--alarm-threshold", 1, 99, &options->alarms.raise);
}

bool TakeQuickStart(host::Arguments *arguments, QuickStart *start) {
  std::string value;
  if (arguments->TakeValue("--user-key", &value)) {
    start->userKeys.push_back(UserAndFile(value));
  } else if (!arguments->TakeNumber("--port", 1, 65535, &start->port) &&
             !arguments->TakeValue("--host-key", &start->hostKey) &&
             !arguments->TakeValue("--address", &start->address)) {
    return false;
  }
  start->wanted = true;
  return true;
}

}  // namespace

bool IsUserName(const std::string &name) {
  const auto fits = [](unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == '@';
  };
  return !name.empty() && name.size() <= 64 && name[0] != '-' && std::ranges::all_of(name, fits);
}

Options ParseOptions(host::Arguments arguments) {
  Options options;
  options.arena = host::DefaultArena();
  options.socket = host::DefaultOmadSocket();
  bool clearIsSet = false;
  while (!arguments.empty()) {
    std::string value;
    if (arguments.Take("--help")) {
      options.help = true;
    } else if (arguments.Take("--version")) {
      options.version = true;
    } else if (arguments.Take("--worker")) {
      options.worker = true;
    } else if (arguments.TakeValue("--trust", &value)) {
      host::TrustUser(value);
      options.trusted.push_back(value);
    } else if (arguments.TakeValue("--carrier", &value)) {
      options.carriers.push_back(host::FindUser(value, "--carrier"));
    } else if (arguments.TakeValue("--nacm", &value)) {
      options.rules.push_back(value);
    } else if (!TakeLimit(&arguments, &options.limits) && !TakeAlarms(&arguments, &options, &clearIsSet) &&
               !TakeQuickStart(&arguments, &options.quickStart) &&
               !arguments.TakeValue("--arena", &options.arena) &&
               !arguments.TakeValue("--log", &options.record) &&
               !arguments.TakeValue("--socket", &options.socket)) {
      throw HostError("cannot make sense of " + Quoted(arguments.front()) + "; try --help");
    }
  }
  if (options.quickStart.wanted && options.quickStart.userKeys.empty())
    throw HostError("nobody could log in; name a key with --user-key USER=FILE");
  host::AlarmLevels &levels = options.alarms;
  if (!clearIsSet) levels.clear = levels.raise > 10 ? levels.raise - 10 : 0;
  if (levels.clear > levels.raise)
    throw HostError("alarms would be cleared above " + std::to_string(levels.clear) + " % and raised above " +
                    std::to_string(levels.raise) + " %; --alarm-clear is at most --alarm-threshold");
  return options;
}

}  // namespace qdt::omad
