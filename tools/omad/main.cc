// omad: the management agent. Runs the library's handlers on a running engine's arena for NETCONF sessions,
// each of which is a process of its own (omad-session).

#include <sys/resource.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/record.h"
#include "host/agent/worker.h"
#include "host/base/arguments.h"
#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/print_answer.h"
#include "host/base/program.h"
#include "host/library/services.h"
#include "host/omcc/agent_modules.h"
#include "host/omcc/model.h"
#include "host/wire/client.h"
#include "host/wire/listener.h"
#include "host/wire/paths.h"
#include "tools/omad/daemon.h"
#include "tools/omad/options.h"
#include "tools/omad/quick_start.h"

namespace qdt::omad {
namespace {

using host::Arena;
using host::Arguments;

constexpr int kFailure = 2;

void SayReady(const Options &options, const SshService *ssh) {
  std::string text = "omad: ready, pid " + std::to_string(getpid());
  if (ssh != nullptr) text += ", SSH " + ssh->Where();
  std::puts((text + ", socket " + options.socket).c_str());
  std::fflush(stdout);
}

host::UniqueFd TakeSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  host::UniqueFd fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd.ok()) throw host::SystemError("cannot wait for signals");
  return fd;
}

// A connection for each session.
void RaiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

std::vector<std::string> WorkerCommand(const Options &options) {
  std::vector<std::string> command{std::filesystem::read_symlink("/proc/self/exe"), "--worker", "--arena",
                                   options.arena};
  for (const std::string &user : options.trusted) command.push_back("--trust=" + user);
  return command;
}

int RunAgent(const Options &options) {
  RaiseFileLimit();
  const host::UniqueFd signals = TakeSignals();
  const host::Model model;
  host::ImplementAgentModules(model);
  host::Record record(options.record);
  Daemon daemon(options, model, &record, WorkerCommand(options));
  if (options.socket == host::DefaultOmadSocket()) host::MakeDefaultDirectory();
  host::Listener listener(options.socket, "agent");
  std::optional<SshService> ssh;
  if (options.quickStart.wanted) ssh.emplace(options.quickStart, options.socket);
  listener.Unlock();
  SayReady(options, ssh ? &*ssh : nullptr);
  daemon.Serve(listener.fd(), signals.get(), [&](int signal) {
    if (signal == SIGCHLD && ssh) ssh->ChildEnded();
    if (signal != SIGHUP) return;
    record.Reopen();
    const std::string problem = daemon.ReadRules();
    if (!problem.empty()) std::fprintf(stderr, "omad: %s; the old rules stay\n", problem.c_str());
  });
  return 0;
}

// The process that runs the handlers.
int RunWorkerProcess(const Options &options) {
  openlog("omad", LOG_PID, LOG_DAEMON);
  const host::Model model;
  host::ImplementStateModules(model);
  const auto attach = [&options] {
    auto arena = Arena::Attach(options.arena, Arena::Access::kLive);
    Arena::SetCurrent(arena.get());
    host::SetEngineChannel(host::SocketChannel(arena->socketPath()));
    return arena;
  };
  host::RunWorker(STDIN_FILENO, model, attach);
  return 0;
}

int Main(int argc, char **argv) {
  host::BeginProgram("omad");
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const Options options = ParseOptions(Arguments(argc, argv));
    if (options.help || options.version) {
      host::PrintAnswer(options.help ? kUsage : "omad " + host::BuildInfo(false) + "\n");
      return 0;
    }
    return options.worker ? RunWorkerProcess(options) : RunAgent(options);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "omad: %s\n", host::LineOf(error));
    return kFailure;
  }
}

}  // namespace
}  // namespace qdt::omad

int main(int argc, char **argv) { return qdt::omad::Main(argc, argv); }
