// omad: the management agent. Answers NETCONF clients by running the library's handlers on a running engine's
// arena.

#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/agent/worker.h"
#include "host/base/arguments.h"
#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/trust.h"
#include "host/base/words.h"
#include "host/library/services.h"
#include "host/omcc/model.h"
#include "host/wire/client.h"
#include "host/wire/paths.h"
#include "tools/omad/server.h"

namespace qdt::omad {
namespace {

using host::Arena;
using host::Arguments;
using host::HostError;
using host::Quoted;

constexpr int kFailure = 2;
// NETCONF's own modules (RFC 6241, RFC 6022), where Debian's package libyuma-base puts them.
constexpr char kModulePath[] = "/usr/share/yuma/modules/ietf";

constexpr char kUsage[] =
    "usage: omad --host-key FILE --user-key USER=FILE ... [--arena PATH]\n"
    "\n"
    "Answers NETCONF clients for a forwarding engine, in the foreground until SIGTERM or SIGINT; prints one "
    "line when\n"
    "it is ready.\n"
    "\n"
    "  --arena PATH           the engine's arena, " QDT_DEFAULT_ARENA_TEXT
    "\n"
    "                         unless told otherwise\n"
    "  --trust USER           believe an engine of that user as well, beside this user's and root's\n"
    "  --host-key FILE        the server's private SSH key (ssh-keygen -t ecdsa -N '')\n"
    "  --user-key USER=FILE   a public SSH key that logs USER in; may be repeated\n"
    "  --password-file FILE   also take passwords: a line USER:HASH each (openssl passwd -6)\n"
    "  --address ADDRESS      where to listen, 127.0.0.1 unless told otherwise\n"
    "  --port PORT            830 unless told otherwise\n"
    "  --unix PATH            also listen on a socket for processes of this user\n"
    "  --no-ssh               listen on the socket alone\n"
    "  --modules DIR          NETCONF's own YANG modules, /usr/share/yuma/modules/ietf unless told "
    "otherwise\n"
    "  --verbose              say what clients do\n"
    "  --help, --version\n"
    "\n"
    "exit codes: 0 stopped as asked, 2 bad usage or an endpoint cannot be opened\n";

struct CommandLine {
  bool help = false;
  bool version = false;
  bool worker = false;
  std::string arena = host::DefaultArena();
  std::vector<std::string> trusted;  // users
  std::string modules = kModulePath;
  ServerOptions server;
};

std::pair<std::string, std::string> SplitAt(const std::string &text, char separator,
                                            const std::string &what) {
  const size_t at = text.find(separator);
  if (at == text.npos || at == 0 || at + 1 == text.size())
    throw HostError(Quoted(text) + " is not of the form " + what);
  return {text.substr(0, at), text.substr(at + 1)};
}

uint16_t ParsePort(const std::string &text) {
  size_t end = 0;
  unsigned long port = 0;
  try {
    port = std::stoul(text, &end);
  } catch (const std::exception &) {
  }
  if (end != text.size() || text.empty() || port == 0 || port > 65535)
    throw HostError(Quoted(text) + " is no port; name one from 1 to 65535");
  return static_cast<uint16_t>(port);
}

void ReadPasswords(const std::string &path, ServerOptions *server) {
  std::ifstream file(path);
  if (!file) throw HostError("cannot read the passwords in " + path);
  std::string line;
  while (std::getline(file, line)) {
    if (!line.empty() && line[0] != '#') server->passwords.push_back(SplitAt(line, ':', "USER:HASH"));
  }
  if (server->passwords.empty()) throw HostError(path + " holds no password; a line is USER:HASH");
}

CommandLine Parse(Arguments arguments) {
  CommandLine line;
  ServerOptions &server = line.server;
  while (!arguments.empty()) {
    std::string value;
    if (arguments.Take("--help")) {
      line.help = true;
    } else if (arguments.Take("--version")) {
      line.version = true;
    } else if (arguments.Take("--worker")) {
      line.worker = true;
    } else if (arguments.Take("--no-ssh")) {
      server.ssh = false;
    } else if (arguments.Take("--verbose")) {
      server.verbose = true;
    } else if (arguments.TakeValue("--trust", &value)) {
      host::TrustUser(value);
      line.trusted.push_back(value);
    } else if (arguments.TakeValue("--user-key", &value)) {
      server.userKeys.push_back(SplitAt(value, '=', "USER=FILE"));
    } else if (arguments.TakeValue("--password-file", &value)) {
      ReadPasswords(value, &server);
    } else if (arguments.TakeValue("--port", &value)) {
      server.port = ParsePort(value);
    } else if (!arguments.TakeValue("--arena", &line.arena) &&
               !arguments.TakeValue("--modules", &line.modules) &&
               !arguments.TakeValue("--host-key", &server.hostKey) &&
               !arguments.TakeValue("--address", &server.address) &&
               !arguments.TakeValue("--unix", &server.unixSocket)) {
      throw HostError("cannot make sense of " + Quoted(arguments.front()) + "; try --help");
    }
  }
  return line;
}

void CheckReadable(const std::string &path, const std::string &what) {
  if (access(path.c_str(), R_OK) != 0) throw host::SystemError("cannot read " + what + " " + path);
}

void Check(const CommandLine &line) {
  const ServerOptions &server = line.server;
  if (!server.ssh && server.unixSocket.empty())
    throw HostError("nowhere to listen; --no-ssh needs --unix PATH");
  CheckReadable(line.modules + "/ietf-netconf@2011-06-01.yang",
                "NETCONF's YANG modules (package libyuma-base, or --modules DIR):");
  if (!server.ssh) return;
  if (server.hostKey.empty()) throw HostError("no host key; name one with --host-key FILE");
  CheckReadable(server.hostKey, "the host key");
  if (server.userKeys.empty() && server.passwords.empty())
    throw HostError("nobody could log in; name a key with --user-key USER=FILE");
  for (const auto &[user, path] : server.userKeys) CheckReadable(path, "the key of " + user + ",");
}

// The model, and with it the modules that make a NETCONF server.
void LoadServerModules(const host::Model &model) {
  const char *xpath[] = {"xpath", nullptr};
  if (ly_ctx_load_module(model.context(), "ietf-netconf", nullptr, xpath) == nullptr ||
      ly_ctx_load_module(model.context(), "ietf-netconf-monitoring", nullptr, nullptr) == nullptr) {
    throw HostError("NETCONF's YANG modules do not load: " + host::LibyangMessage(model.context()));
  }
}

void SayReady(const ServerOptions &options) {
  std::string text = "omad: ready, pid " + std::to_string(getpid());
  if (options.ssh) text += ", SSH " + options.address + ":" + std::to_string(options.port);
  if (!options.unixSocket.empty()) text += ", socket " + options.unixSocket;
  std::puts(text.c_str());
  std::fflush(stdout);
}

int RunAgent(const CommandLine &line) {
  Check(line);
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const host::UniqueFd stop(signalfd(-1, &signals, SFD_CLOEXEC));
  if (!stop.ok()) throw host::SystemError("cannot wait for signals");

  const host::Model model(line.modules);
  LoadServerModules(model);
  std::vector<std::string> command{std::filesystem::read_symlink("/proc/self/exe"),
                                   "--worker",
                                   "--arena",
                                   line.arena,
                                   "--modules",
                                   line.modules};
  for (const std::string &user : line.trusted) command.push_back("--trust=" + user);
  host::AgentWorker worker(command);
  Serve(line.server, model, &worker, stop.get(), SayReady);
  return 0;
}

// The process that runs the handlers.
int RunWorkerProcess(const CommandLine &line) {
  openlog("omad", LOG_PID, LOG_DAEMON);
  const host::Model model;
  const auto attach = [&line] {
    auto arena = Arena::Attach(line.arena, Arena::Access::kLive);
    Arena::SetCurrent(arena.get());
    host::SetEngineChannel(host::SocketChannel(arena->socketPath()));
    return arena;
  };
  host::RunWorker(STDIN_FILENO, model, attach);
  return 0;
}

int Main(int argc, char **argv) {
  host::KeepStandardFds();
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const CommandLine line = Parse(Arguments(argc, argv));
    if (line.help || line.version) {
      std::fputs(line.help ? kUsage : ("omad " + host::BuildInfo(false) + "\n").c_str(), stdout);
      return 0;
    }
    return line.worker ? RunWorkerProcess(line) : RunAgent(line);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "omad: %s\n", error.what());
    return kFailure;
  }
}

}  // namespace
}  // namespace qdt::omad

int main(int argc, char **argv) { return qdt::omad::Main(argc, argv); }
