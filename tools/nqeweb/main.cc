// nqeweb: engines in a browser, as an interface for programs, and as metrics. It reads arenas as nqecli does,
// and changes nothing unless it is told that it may.

#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>

#include "host/base/arguments.h"
#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/print_answer.h"
#include "host/base/program.h"
#include "host/base/trust.h"
#include "host/console/console.h"
#include "host/web/guard.h"
#include "host/web/lost_pages.h"
#include "host/web/page_files.h"
#include "host/web/server.h"
#include "host/wire/paths.h"
#include "tools/nqeweb/metrics_routes.h"
#include "tools/nqeweb/page.h"

namespace qdt::nqeweb {
namespace {

using host::HostError;

constexpr int kFailure = 2;

constexpr char kUsage[] =
    "usage: nqeweb [--arena PATH]... [--snapshot FILE]... [--listen ADDRESS:PORT] [...]\n"
    "\n"
    "Shows engines in a browser, and to programs under /api/v1/. Prints one line when it is ready.\n"
    "\n"
    "options:\n"
    "  --arena PATH         a running engine's arena, " QDT_DEFAULT_ARENA_TEXT
    "\n"
    "                       where nothing is named\n"
    "  --snapshot FILE      a saved arena\n"
    "  --listen ADDRESS:PORT\n"
    "                       127.0.0.1:8080 unless told otherwise; beyond this machine it takes a token and "
    "TLS\n"
    "  --name NAME          a name of this machine under which browsers may ask\n"
    "  --token-file FILE    whose first line all requests for data need\n"
    "  --certificate FILE, --key FILE\n"
    "                       speak TLS\n"
    "  --allow-changes      take requests that change something; they need a token\n"
    "  --curves             keep the curves of the last ten minutes also while nobody looks, of 16 engines "
    "at "
    "most\n"
    "  --connections N      clients at a time, 128 unless told otherwise; a quarter of them may be "
    "listeners\n"
    "  --patience SECONDS   for a request to come and for an answer to be taken, 10 unless told otherwise\n"
    "  --statement-time SECONDS\n"
    "                       for a statement of SQL or an exact text, 5 unless told otherwise\n"
    "  --trust USER         believe engines of that user as well, beside this user's and root's\n"
    "  --help, --version\n"
    "\n"
    "exit codes: 0 stopped as asked, 2 bad usage, or it cannot listen\n";

struct CommandLine {
  bool help = false;
  bool version = false;
  std::vector<host::WebEngines::Named> paths;
  host::WebAddress address;
  std::vector<std::string> names{"localhost"};
  std::string tokenFile, certificate, key;
  bool allowChanges = false;
  bool curves = false;
  std::vector<std::string> trusted;
  host::WebLimits limits;
  uint32_t statementTime = 5;  // seconds
};

CommandLine ReadCommandLine(host::Arguments arguments) {
  CommandLine line;
  std::string value;
  uint32_t number = 0;
  while (!arguments.empty()) {
    if (arguments.Take("--help")) {
      line.help = true;
    } else if (arguments.Take("--version")) {
      line.version = true;
    } else if (arguments.TakeValue("--arena", &value)) {
      line.paths.push_back({value, false});
    } else if (arguments.TakeValue("--snapshot", &value)) {
      line.paths.push_back({value, true});
    } else if (arguments.TakeValue("--listen", &value)) {
      line.address = host::ReadWebAddress(value);
    } else if (arguments.TakeValue("--name", &value)) {
      for (char &c : value) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      line.names.push_back(value);
    } else if (arguments.TakeValue("--trust", &value)) {
      host::TrustUser(value);
      line.trusted.push_back(value);
    } else if (arguments.TakeNumber("--connections", 1, 4096, &number)) {
      line.limits.connections = number;
      line.limits.streams = std::max(number / 4, 1u);
    } else if (arguments.TakeNumber("--patience", 1, 3600, &number)) {
      line.limits.asking = line.limits.taking = std::chrono::seconds(number);
    } else if (arguments.TakeNumber("--statement-time", 1, 3600, &line.statementTime)) {
    } else if (arguments.Take("--allow-changes")) {
      line.allowChanges = true;
    } else if (arguments.Take("--curves")) {
      line.curves = true;
    } else if (!arguments.TakeValue("--token-file", &line.tokenFile) &&
               !arguments.TakeValue("--certificate", &line.certificate) &&
               !arguments.TakeValue("--key", &line.key)) {
      throw HostError("unknown option " + host::Quoted(arguments.front()) + "; try --help");
    }
  }
  if (line.paths.empty()) line.paths.push_back({host::DefaultArena(), false});
  return line;
}

// What may not be served as it was asked for.
void CheckSafe(const CommandLine &line) {
  if (line.certificate.empty() != line.key.empty()) throw HostError("TLS takes both --certificate and --key");
  if (line.allowChanges && line.tokenFile.empty())
    throw HostError("--allow-changes takes a token (--token-file FILE; openssl rand -hex 32 makes one)");
  if (line.address.IsLoopback()) return;
  if (line.tokenFile.empty() || line.certificate.empty())
    throw HostError(line.address.Text() +
                    " can be reached from other machines: that takes --token-file, --certificate and --key");
}

// A descriptor that becomes readable when the process is asked to end.
host::UniqueFd StopSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  // Before the first thread, which takes it over.
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  host::UniqueFd fd(signalfd(-1, &signals, SFD_CLOEXEC));
  if (!fd.ok()) throw host::SystemError("cannot wait for signals");
  return fd;
}

// Where nqecli and its companions stand: beside this program.
std::string OwnFolder() { return std::filesystem::read_symlink("/proc/self/exe").remove_filename(); }

int Run(const CommandLine &line) {
  const host::UniqueFd stop = StopSignals();
  host::WatchLostPages();
  std::optional<host::TlsIdentity> identity;
  if (!line.certificate.empty()) identity.emplace(line.certificate, line.key);
  host::GuardOptions guarded;
  guarded.names = line.names;
  if (!line.tokenFile.empty()) guarded.token = host::ReadToken(line.tokenFile);
  guarded.allowChanges = line.allowChanges;
  guarded.tls = identity.has_value();
  const host::Guard guard(guarded);

  host::WebEngines engines(line.paths);
  host::ConsoleOptions shown;
  shown.programs = OwnFolder();
  shown.trusted = line.trusted;
  shown.allowChanges = line.allowChanges;
  shown.curves = line.curves;
  shown.child.time = std::chrono::seconds(line.statementTime);
  host::Console console(shown, &engines);
  host::Routes routes;
  host::AddPageRoutes(&routes, PageFiles());
  console.AddTo(&routes);
  const host::MetricsExporter exporter(MetricsTargets(&engines), host::Layout::BuiltIn(), host::Survive);
  AddMetricsRoutes(&routes, &exporter);

  host::WebServer server(line.address, line.limits, identity ? &*identity : nullptr,
                         [&](const host::WebRequest &request) { return guard.Answer(routes, request); });
  std::printf("nqeweb: ready at %s://%s/\n", identity ? "https" : "http", server.address().Text().c_str());
  std::fflush(stdout);
  server.Run(stop.get(), [&console] { console.Stop(); });
  return 0;
}

int Main(int argc, char **argv) {
  const CommandLine line = ReadCommandLine({argc, argv});
  if (line.help || line.version) {
    host::PrintAnswer(line.help ? kUsage : "nqeweb " + host::BuildInfo(false) + "\n");
    return 0;
  }
  CheckSafe(line);
  return Run(line);
}

}  // namespace
}  // namespace qdt::nqeweb

int main(int argc, char **argv) {
  qdt::host::BeginProgram("nqeweb");
  try {
    return qdt::nqeweb::Main(argc, argv);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "nqeweb: %s\n", qdt::host::LineOf(error));
  }
  return qdt::nqeweb::kFailure;
}
