#include "host/linux/linux_filler.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "host/linux/connections.h"
#include "host/linux/kernel_statistics.h"
#include "host/linux/mirror.h"

namespace qdt::host {
namespace {

// The tables that are the mirror's.
constexpr std::string_view kMirrored[] = {"fwdif",
                                          "ctrlif_map_fwdif",
                                          "bridgeinfo",
                                          "ssw_macinfo",
                                          "ssw_boardcast",
                                          "ssw_global_boardcast",
                                          "port_isolate",
                                          "port_inst_state",
                                          "vlaninfo",
                                          "vlan_bitmap",
                                          "mc_elb",
                                          "mc_route_port",
                                          "fib",
                                          "nhp",
                                          "nhp_group",
                                          "ipv6_fib",
                                          "ipv6_nhp",
                                          "ipv6_nhp_group",
                                          "arp",
                                          "nd",
                                          "arp_miss_cache",
                                          "nd_miss_cache",
                                          "portip_head",
                                          "portip",
                                          "ipv6_portip_head",
                                          "ipv6_portip",
                                          "session",
                                          "server_map"};

NetworkNamespace Open(const std::string &name) {
  return name.empty() ? NetworkNamespace() : NetworkNamespace(name);
}

// Takes away what makes a counting file readable.
void Drain(int fd) {
  char bytes[4096];
  while (read(fd, bytes, sizeof bytes) > 0) {
  }
}

}  // namespace

LinuxFiller::LinuxFiller(LinuxOptions options)
    : options_(std::move(options)),
      where_(Open(options_.netns)),
      changes_(epoll_create1(EPOLL_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      again_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      names_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!changes_.ok() || !timer_.ok() || !again_.ok() || !names_.ok())
    throw SystemError("cannot watch the kernel");
  // The way in is tried at once.
  where_.Inside([] {});
}

LinuxFiller::~LinuxFiller() = default;

void LinuxFiller::Add(const std::string &file, Scenario scenario) {
  for (const PlannedTable &table : scenario.tables()) {
    if (std::ranges::find(kMirrored, table.layout->shortName) != std::end(kMirrored) && table.count() != 0)
      throw HostError(file + ": " + std::string(table.layout->shortName) +
                      ": the kernel fills this table with --linux (leave it out of the scenario)");
  }
  scenario_ = std::make_unique<ScenarioFiller>(file, std::move(scenario));
}

Filler::Source LinuxFiller::source() const {
  return {"linux", options_.netns.empty() ? "this machine" : "namespace " + options_.netns};
}

uint64_t LinuxFiller::refused() const {
  return (mirror_ != nullptr ? mirror_->refused() : 0) +
         (connections_ != nullptr ? connections_->refused() : 0);
}

void LinuxFiller::Watch(int fd) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = fd;
  if (epoll_ctl(changes_.get(), EPOLL_CTL_ADD, fd, &event) != 0) throw SystemError("cannot watch the kernel");
}

void LinuxFiller::Fill(const FillTarget &target) {
  if (scenario_ != nullptr) scenario_->Fill(target);
  scenario_.reset();
  if (!where_.path().empty()) {
    const std::string folder = std::filesystem::path(where_.path()).parent_path();
    inotify_add_watch(names_.get(), folder.c_str(), IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE);
    Watch(names_.get());
  }
  mirror_ = std::make_unique<Mirror>(target, where_, options_.buffer);
  mirror_->Load();
  OpenConnections(target);
  statistics_ = std::make_unique<KernelStatistics>(where_);
  statistics_->Update(mirror_->links().Total().inPackets, &target.statistics);
  Watch(mirror_->notifications());
  Watch(mirror_->dumps());
  Watch(again_.get());
  const time_t period = options_.counters.count();
  const itimerspec every = {{period, 0}, {period, 0}};
  timerfd_settime(timer_.get(), 0, &every, nullptr);
  Watch(timer_.get());
}

void LinuxFiller::OpenConnections(const FillTarget &target) {
  try {
    connections_ = std::make_unique<Connections>(target, where_, options_.buffer);
    connections_->Load();
    if (!connections_->shown()) throw HostError("the kernel does not show tracked connections");
    Watch(connections_->notifications());
    Watch(connections_->dumps());
  } catch (const HostError &error) {
    connections_.reset();
    missing_ = std::string("no sessions: ") + error.what();
    syslog(LOG_WARNING, "%s", missing_.c_str());
  }
}

bool LinuxFiller::CountsStatistic(uint32_t number) const { return KernelStatistics::Counts(number); }

void LinuxFiller::Leaves(uint32_t table, const void *entry) {
  if (connections_ != nullptr) connections_->Leaves(table, entry);
}

void LinuxFiller::Follow(const FillTarget &target) {
  Drain(again_.get());
  uint64_t ticks = 0;
  const bool tick = read(timer_.get(), &ticks, sizeof ticks) == sizeof ticks;
  if (IsNamespaceGone(tick)) return LoseNamespace();
  if (mirror_ == nullptr) return;
  if (tick) {
    mirror_->WantCounters();
    statistics_->Update(mirror_->links().Total().inPackets, &target.statistics);
  }
  bool more = mirror_->Follow();
  if (connections_ != nullptr) more |= connections_->Follow();
  if (!more) return;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(again_.get(), &one, sizeof one);
}

// A namespace that has no name but that of a process in it (/proc/PID/ns/net) goes without a word: whoever
// reads the counters looks.
bool LinuxFiller::IsNamespaceGone(bool look) {
  char bytes[4096];
  bool any = look;
  while (read(names_.get(), bytes, sizeof bytes) > 0) any = true;
  return any && mirror_ != nullptr && !where_.Exists();
}

// The engine goes on, without what it mirrored. What is held of the namespace would keep it alive.
void LinuxFiller::LoseNamespace() {
  syslog(LOG_WARNING, "the network namespace %s is gone; its entries leave", options_.netns.c_str());
  mirror_->Clear();
  if (connections_ != nullptr) connections_->Clear();
  connections_.reset();
  statistics_.reset();
  mirror_.reset();
  where_ = NetworkNamespace();
}

}  // namespace qdt::host
