// nqed: the lab engine. Fills an arena from a scenario file, publishes it and answers command lines on its
// socket.

#include <malloc.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>

#include "host/base/arguments.h"
#include "host/base/print_answer.h"
#include "host/base/program.h"
#include "host/base/trust.h"
#include "host/base/words.h"
#ifdef QDT_HAS_CAPTURE
#include "host/capture/captured_traffic.h"
#endif
#include "host/commands/commands.h"
#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "host/engine/statistics_presets.h"
#include "host/layout/layout_files.h"
#include "host/library/services.h"
#include "host/packet/traffic.h"
#include "host/wire/client.h"
#include "host/wire/listener.h"
#include "host/wire/paths.h"
#include "host/wire/server.h"
#ifdef QDT_HAS_LINUX
#include "host/linux/linux_filler.h"
#endif

namespace qdt::host {
namespace {

constexpr int kFailure = 2;
constexpr std::chrono::seconds kAgingPeriod{1};  // what times are counted in
constexpr uint32_t kMostClients = 512;           // descriptors are left for files beside them
constexpr uint32_t kMostPatience = 86400;        // seconds
constexpr uint32_t kMostBuffer = 1u << 30;       // bytes
constexpr size_t kMostMistakes = 20;             // that --check tells of

constexpr char kUsage[] =
    "usage: nqed --scenario FILE [--arena PATH] [--socket PATH] [--layout DIR] [--cores N] [--traffic RATE]\n"
    "            [--capture INTERFACE[:N]]... [--pcap FILE [--fast] [--at N]]\n"
    "            [--clients N] [--patience SECONDS] [--capacity TABLE=N]...\n"
    "       nqed --linux [--netns NAME] [--counters SECONDS] [--scenario FILE] [...]\n"
    "       nqed --check FILE... [--layout DIR] [--cores N]\n"
    "       nqed status [--arena PATH] [--trust USER]\n"
    "\n"
    "Runs the lab engine in the foreground until SIGTERM or SIGINT; prints one line when it is ready.\n"
    "\n"
    "  --scenario FILE  what the engine's tables hold (YAML); with --linux those that the kernel has nothing "
    "for\n"
    "  --linux          the tables follow the Linux kernel of this machine\n"
    "  --netns NAME     or of a network namespace, by its name or its path\n"
    "  --counters SECONDS\n"
    "                   period in which the kernel's counters are read, 1 unless told otherwise\n"
    "  --netlink-buffer BYTES\n"
    "                   notifications of the kernel that may wait, 33554432 unless told otherwise\n"
    "  --capacity TABLE=N\n"
    "                   room for N entries in a table, what its layout says unless told otherwise\n"
    "  --check FILE...  only tell all mistakes of scenarios, 20 at most, and what may be one\n"
    "  --arena PATH     shared file to publish, " QDT_DEFAULT_ARENA_TEXT
    "\n"
    "                   unless told otherwise\n"
    "  --socket PATH    socket for command lines, the arena's path and \".sock\" unless told otherwise\n"
    "  --layout DIR     table layouts, the built-in ones unless told otherwise\n"
    "  --cores N        forwarding cores that keep statistics, 4 unless told otherwise\n"
    "  --traffic RATE   simulate so many packets a second, none unless told otherwise\n"
    "  --capture INTERFACE[:N]\n"
    "                   take packets from a network interface, as those of forwarding interface N, or of "
    "the\n"
    "                   one of its kernel's index\n"
    "  --pcap FILE      take packets from a file (pcap), at their own pace\n"
    "  --fast           or as fast as they are read\n"
    "  --at N           forwarding interface that they come in at, told by their addresses unless given\n"
    "  --clients N      connections to the socket at a time, 128 unless told otherwise\n"
    "  --patience SECONDS\n"
    "                   for a client that says nothing, or takes no reply, 30 unless told otherwise\n"
    "  --trust USER     status: believe an engine of that user as well, beside this user's and root's\n"
    "  --help, --version\n"
    "\n"
    "exit codes: 0 stopped as asked (status: the engine runs; --check: no mistake), 2 bad usage, nothing "
    "published\n"
    "(status: no engine; --check: mistakes)\n";

// An interface to capture at, and the forwarding interface that stands for it; 0: not told.
struct CaptureOption {
  std::string interface;
  uint32_t fwdIf = 0;
};

struct CommandLine {
  bool status = false;
  bool help = false;
  bool version = false;
  bool linux = false;
  std::string netns;
  uint32_t counters = 0, netlinkBuffer = 0;  // 0: not told
  bool defaultPlace = false;                 // whether nobody has named an arena
  std::string scenario;                      // file
  bool check = false;
  std::vector<std::string> checked;  // files
  std::string layoutDir;             // empty: the layouts that the program was built with
  std::vector<std::pair<std::string, uint32_t>>
      capacities;        // of tables, where the layout says something else
  uint32_t traffic = 0;  // simulated packets a second
  std::vector<CaptureOption> captures;
  std::string pcap;  // file
  bool fast = false;
  uint32_t at = 0;  // 0: not told
  EngineOptions options;
  ServerLimits limits;
};

std::string AbsolutePath(const std::string &path) {
  std::error_code failure;
  const std::filesystem::path absolute = std::filesystem::absolute(path, failure);
  if (failure) throw HostError("the working directory is gone; change to another, or name absolute paths");
  return absolute;
}

// Takes --capacity when it is the next word.
bool TakeCapacity(Arguments *arguments, std::vector<std::pair<std::string, uint32_t>> *capacities) {
  constexpr uint32_t kMostEntries = 1u << 24;
  std::string value;
  if (!arguments->TakeValue("--capacity", &value)) return false;
  const size_t equals = value.find('=');
  std::optional<uint64_t> count;
  if (equals != std::string::npos) count = ReadNumber(std::string_view(value).substr(equals + 1));
  if (!count || *count == 0 || *count > kMostEntries)
    throw HostError("--capacity " + Quoted(value) + " is not TABLE=N with a number from 1 to " +
                    std::to_string(kMostEntries));
  capacities->emplace_back(value.substr(0, equals), static_cast<uint32_t>(*count));
  return true;
}

// Takes --capture when it is the next word. Names of interfaces have no colon.
bool TakeCapture(Arguments *arguments, std::vector<CaptureOption> *captures) {
  std::string value;
  if (!arguments->TakeValue("--capture", &value)) return false;
  const size_t colon = value.find(':');
  CaptureOption option{value.substr(0, colon), 0};
  if (colon != std::string::npos) {
    const std::optional<uint64_t> number = ReadNumber(std::string_view(value).substr(colon + 1));
    if (!number || *number == 0 || *number > UINT32_MAX)
      throw HostError("--capture " + Quoted(value) +
                      ": behind the colon stands the number of a forwarding interface");
    option.fwdIf = static_cast<uint32_t>(*number);
  }
  captures->push_back(option);
  return true;
}

CommandLine Parse(Arguments arguments) {
  CommandLine line;
  EngineOptions &options = line.options;
  auto clients = static_cast<uint32_t>(line.limits.clients);
  auto patience =
      static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(line.limits.patience).count());
  std::string trusted;
  while (!arguments.empty()) {
    if (arguments.Take("--help")) {
      line.help = true;
    } else if (arguments.Take("--version")) {
      line.version = true;
    } else if (arguments.Take("--check")) {
      line.check = true;
    } else if (line.check && !arguments.AtOption()) {
      line.checked.emplace_back(arguments.front());
      arguments.Take(arguments.front());
    } else if (arguments.Take("status")) {
      line.status = true;
    } else if (arguments.Take("--linux")) {
      line.linux = true;
    } else if (arguments.Take("--fast")) {
      line.fast = true;
    } else if (arguments.TakeValue("--trust", &trusted)) {
      TrustUser(trusted);
    } else if (!arguments.TakeValue("--netns", &line.netns) && !TakeCapacity(&arguments, &line.capacities) &&
               !arguments.TakeNumber("--counters", 1, kMostPatience, &line.counters) &&
               !arguments.TakeNumber("--netlink-buffer", 1, kMostBuffer, &line.netlinkBuffer) &&
               !TakeCapture(&arguments, &line.captures) && !arguments.TakeValue("--pcap", &line.pcap) &&
               !arguments.TakeNumber("--at", 1, UINT32_MAX, &line.at) &&
               !arguments.TakeValue("--scenario", &line.scenario) &&
               !arguments.TakeValue("--arena", &options.arena) &&
               !arguments.TakeValue("--socket", &options.socket) &&
               !arguments.TakeValue("--layout", &line.layoutDir) &&
               !arguments.TakeNumber("--cores", 1, kMaxCores, &options.cores) &&
               !arguments.TakeNumber("--traffic", 1, Traffic::kMaxRate, &line.traffic) &&
               !arguments.TakeNumber("--clients", 1, kMostClients, &clients) &&
               !arguments.TakeNumber("--patience", 1, kMostPatience, &patience)) {
      throw HostError("cannot make sense of " + Quoted(arguments.front()) + "; try --help");
    }
  }
  if (!line.linux && (!line.netns.empty() || line.counters != 0 || line.netlinkBuffer != 0))
    throw HostError("--netns, --counters and --netlink-buffer go with --linux");
  if (line.pcap.empty() && (line.fast || line.at != 0))
    throw HostError("--fast and --at go with --pcap FILE");
  line.limits = {clients, std::chrono::seconds(patience)};
  line.defaultPlace = options.arena.empty();
  if (line.defaultPlace) options.arena = DefaultArena();
  if (options.socket.empty()) options.socket = options.arena + kSocketEnding;
  for (std::string *path : {&options.arena, &options.socket, &line.scenario, &line.pcap}) {
    if (!path->empty()) *path = AbsolutePath(*path);
  }
  return line;
}

// The signals that stop the engine, as a file to wait for.
class StopSignals {
 public:
  StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    fd_ = UniqueFd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_.ok()) throw SystemError("cannot wait for signals");
  }
  int fd() const { return fd_.get(); }

 private:
  UniqueFd fd_;
};

int ShowStatus(const EngineOptions &options) {
  // Attaching tells a live engine from an arena that one left behind.
  const auto arena = Arena::Attach(options.arena, Arena::Access::kLive);
  const EngineReply reply = EngineClient(arena->socketPath()).Run("status");
  if (reply.status != kReplyOk) throw HostError("the engine refuses to tell its status: " + reply.text);
  PrintAnswer(reply.text);
  return 0;
}

Layout LayoutOf(const CommandLine &line) {
  const Layout layout = line.layoutDir.empty() ? Layout::BuiltIn() : ReadLayoutDirectory(line.layoutDir);
  return line.capacities.empty() ? layout : layout.WithCapacities(line.capacities);
}

// What is wrong goes to standard error, a line each that begins with its place.
int CheckScenarios(const CommandLine &line) {
  if (line.checked.empty()) throw HostError("--check takes the names of scenarios; try --help");
  if (!line.scenario.empty() || line.status) throw HostError("--check stands for itself; leave the rest out");
  const Layout layout = LayoutOf(line);
  Mistakes mistakes(kMostMistakes);
  std::string good;
  try {
    for (const std::string &file : line.checked) {
      const size_t before = mistakes.count();
      std::vector<std::string> warnings;
      const Scenario scenario = Scenario::Check(file, layout, &mistakes, kMostMistakes, &warnings);
      CheckPresets(scenario.statistics(), line.options.cores, &mistakes);
      for (const std::string &warning : warnings) std::fprintf(stderr, "%s\n", warning.c_str());
      if (mistakes.count() == before) good += file + ": no mistakes\n";
    }
  } catch (const Mistakes::Enough &) {
  }
  for (const std::string &mistake : mistakes.lines()) std::fprintf(stderr, "%s\n", mistake.c_str());
  if (mistakes.lines().size() == kMostMistakes)
    std::fprintf(stderr, "nqed: these are the first %zu mistakes; there may be more\n", kMostMistakes);
  PrintAnswer(good);
  return mistakes.count() == 0 ? 0 : kFailure;
}

// What reading the scenario took is free by now, but in pieces: the C library keeps them unless it is asked.
void ReturnFreeMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

#ifdef QDT_HAS_LINUX
std::unique_ptr<Filler> MakeLinuxFiller(const CommandLine &line, const Layout &layout) {
  LinuxOptions options;
  options.netns = line.netns;
  if (line.counters != 0) options.counters = std::chrono::seconds(line.counters);
  if (line.netlinkBuffer != 0) options.buffer = static_cast<int>(line.netlinkBuffer);
  auto filler = std::make_unique<LinuxFiller>(options);
  if (!line.scenario.empty()) filler->Add(line.scenario, Scenario::Load(line.scenario, layout));
  return filler;
}
#else
std::unique_ptr<Filler> MakeLinuxFiller(const CommandLine &, const Layout &) {
  throw HostError("--linux: not built in (install libnl-3-dev and build again)");
}
#endif

std::unique_ptr<Filler> MakeFiller(const CommandLine &line, const Layout &layout) {
  if (line.linux) return MakeLinuxFiller(line, layout);
  return std::make_unique<ScenarioFiller>(line.scenario, Scenario::Load(line.scenario, layout));
}

// The packets that go through an engine, wherever they come from.
class Packets {
 public:
  Packets(Engine *engine, const CommandLine &line) {
    const bool captures = !line.captures.empty() || !line.pcap.empty();
    if (line.traffic == 0 && !captures) return;
    pipeline_.emplace(engine, EngineTraceOutput());
    if (line.traffic != 0) traffic_.emplace(engine, line.traffic, &*pipeline_);
    if (captures) Capture(engine, line);
  }

  void Serve(Server *server) {
    if (traffic_) server->AddTick(Traffic::kPeriod, [this] { traffic_->Tick(); });
#ifdef QDT_HAS_CAPTURE
    if (!captured_) return;
    server->AddWatch(captured_->changes(), [this] { captured_->Follow(); });
    if (captured_->replays())
      server->AddSteps(CapturedTraffic::kPeriod, [this] { return captured_->Step(); });
    server->AddTick(CapturedTraffic::kCheckPeriod, [this] {
      LeaveNamespaceThatIsGone();
      captured_->Check();
    });
#endif
  }

 private:
#ifdef QDT_HAS_CAPTURE
  void Capture(Engine *engine, const CommandLine &line) {
    captured_.emplace(engine, &*pipeline_, SayOfCaptures);
    for (const CaptureOption &option : line.captures)
      captured_->Capture(option.interface, option.fwdIf, NamespaceOf(line));
    if (!line.pcap.empty()) captured_->Replay(line.pcap, line.at, line.fast);
  }

  // Interfaces are those of the namespace that is mirrored.
  int NamespaceOf(const CommandLine &line) {
#ifdef QDT_HAS_LINUX
    if (!line.netns.empty()) where_ = NetworkNamespace(line.netns);
    return where_.fd();
#else
    static_cast<void>(line);
    return -1;
#endif
  }

  // What is open inside would keep the namespace, its interfaces and the other ends of their links alive.
  void LeaveNamespaceThatIsGone() {
#ifdef QDT_HAS_LINUX
    if (where_.Exists()) return;
    captured_->LeaveInterfaces("the network namespace is gone");
    where_ = NetworkNamespace();
#endif
  }

#ifdef QDT_HAS_LINUX
  NetworkNamespace where_;
#endif
  std::optional<Pipeline> pipeline_;
  std::optional<CapturedTraffic> captured_;
#else
  void Capture(Engine *, const CommandLine &) {
    throw HostError("--capture and --pcap: not built in (install libpcap-dev and build again)");
  }

  std::optional<Pipeline> pipeline_;
#endif
  std::optional<Traffic> traffic_;
};

int RunEngine(const CommandLine &line) {
  const EngineOptions &options = line.options;
  if (line.scenario.empty() && !line.linux)
    throw HostError("no scenario; name one with --scenario FILE, or mirror this machine with --linux");
  if (line.defaultPlace) MakeDefaultDirectory();
  // Said at once, not after a long load.
  Arena::CheckFree(options.arena);
  const Layout layout = LayoutOf(line);
  const std::unique_ptr<Filler> filler = MakeFiller(line, layout);

  // From here on there are files to take along when the engine is told to stop.
  const StopSignals stop;
  Engine engine(options, layout, filler.get());
  ReturnFreeMemory();
  Packets packets(&engine, line);
  const EngineChannel channel = [&engine](std::string_view words) { return RunCommandLine(engine, words); };
  SetEngineChannel(channel);
  Listener listener(options.socket);
  engine.Publish();
  listener.Unlock();
  Server server(listener.fd(), channel, line.limits);
  server.AddSteps(kAgingPeriod, [&engine] { return engine.AgeStep(); });
  if (engine.changes() >= 0) server.AddWatch(engine.changes(), [&engine] { engine.Follow(); });
  packets.Serve(&server);

  if (const std::string missing = filler->missing(); !missing.empty())
    std::fprintf(stderr, "nqed: %s\n", missing.c_str());
  const TableUse use = CountEntries();
  // The engine runs on when nobody reads that.
  std::printf("nqed: ready, pid %d, arena %s, socket %s, %llu entries in %u tables\n", getpid(),
              options.arena.c_str(), options.socket.c_str(), static_cast<unsigned long long>(use.entries),
              use.tables);
  std::fflush(stdout);
  syslog(LOG_INFO, "ready, arena %s", options.arena.c_str());
  server.Serve(stop.fd());
  syslog(LOG_INFO, "stopping, arena %s", options.arena.c_str());
  engine.Retire();
  SetEngineChannel(nullptr);
  return 0;
}

int Main(int argc, char **argv) {
  BeginProgram("nqed");
  // What these would end is an error of a system call instead, which cleans up and says so.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  openlog("nqed", LOG_PID, LOG_DAEMON);
  try {
    const CommandLine line = Parse(Arguments(argc, argv));
    if (line.help) {
      PrintAnswer(kUsage);
      return 0;
    }
    if (line.version) {
      PrintAnswer("nqed " + BuildInfo(false) + "\n");
      return 0;
    }
    if (line.check) return CheckScenarios(line);
    return line.status ? ShowStatus(line.options) : RunEngine(line);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "nqed: %s\n", LineOf(error));
    return kFailure;
  }
}

}  // namespace
}  // namespace qdt::host

int main(int argc, char **argv) { return qdt::host::Main(argc, argv); }
