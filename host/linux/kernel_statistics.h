#ifndef HOST_LINUX_KERNEL_STATISTICS_H_
#define HOST_LINUX_KERNEL_STATISTICS_H_

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/fd.h"
#include "host/netlink/netlink.h"
#include "host/regions/statistics.h"

namespace qdt::host {

// Counters of the kernel by name: "Ip.InReceives" of /proc/net/snmp and netstat, "Ip6InReceives" of snmp6.
using KernelCounters = std::map<std::string, uint64_t, std::less<>>;

// Reads lines in pairs, "Ip: NAME NAME..." and "Ip: VALUE VALUE...". What fits no pair is left out.
void ReadPairs(std::string_view text, KernelCounters *counters);
// Reads lines of a name and a value.
void ReadLines(std::string_view text, KernelCounters *counters);

// The kernel's counters of IP and of the links in the engine's statistics, as far as both count the same.
// They stand at the first core.
class KernelStatistics {
 public:
  explicit KernelStatistics(const NetworkNamespace &where);

  // Adds what has been counted since the last call, at first all. `received` are the packets that all links
  // have received.
  void Update(uint64_t received, Statistics *statistics);

  // Whether the kernel counts what the engine's counter of this number does.
  static bool Counts(uint32_t number);

 private:
  std::vector<UniqueFd> pairs_, lines_;
  std::map<uint32_t, uint64_t> seen_;  // by the engine's number of the counter
};

}  // namespace qdt::host

#endif  // HOST_LINUX_KERNEL_STATISTICS_H_
