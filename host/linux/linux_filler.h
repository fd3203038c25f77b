#ifndef HOST_LINUX_LINUX_FILLER_H_
#define HOST_LINUX_LINUX_FILLER_H_

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "host/engine/filler.h"
#include "host/engine/scenario_filler.h"
#include "host/netlink/netlink.h"

namespace qdt::host {

class Connections;
class KernelStatistics;
class Mirror;

struct LinuxOptions {
  std::string netns;                 // empty: the machine's own namespace
  std::chrono::seconds counters{1};  // period of the counters
  int buffer = 32 << 20;             // bytes of notifications that may wait
};

// Fills an engine from the Linux kernel: its tables follow what the kernel forwards by. Tables that the
// kernel has nothing for stay empty, or are filled from a scenario. docs/linux.md tells what stands where.
class LinuxFiller : public Filler {
 public:
  // Throws HostError when there is no such namespace.
  explicit LinuxFiller(LinuxOptions options);
  ~LinuxFiller() override;

  // A scenario for tables that the mirror does not fill. Throws HostError when it has others.
  void Add(const std::string &file, Scenario scenario);

  Source source() const override;
  void Fill(const FillTarget &target) override;
  int changes() const override { return changes_.get(); }
  void Follow(const FillTarget &target) override;
  uint64_t refused() const override;
  bool AgesIn(uint32_t) const override { return false; }
  void Leaves(uint32_t table, const void *entry) override;
  bool CountsInterfaces() const override { return true; }
  bool CountsStatistic(uint32_t number) const override;

  std::string missing() const override { return missing_; }

 private:
  void Watch(int fd);
  bool IsNamespaceGone(bool look);
  void OpenConnections(const FillTarget &target);
  void LoseNamespace();

  LinuxOptions options_;
  NetworkNamespace where_;
  std::unique_ptr<ScenarioFiller> scenario_;
  UniqueFd changes_, timer_, again_, names_;
  std::unique_ptr<Mirror> mirror_;
  std::unique_ptr<Connections> connections_;
  std::unique_ptr<KernelStatistics> statistics_;
  std::string missing_;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_LINUX_FILLER_H_
