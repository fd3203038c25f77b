#include "host/linux/kernel_statistics.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "host/base/words.h"

namespace qdt::host {
namespace {

// The engine's counter (include/qdt/stats.h) and the kernel's that count the same.
struct SameCounter {
  uint32_t counter;
  std::string_view kernel[2];
};
constexpr SameCounter kSame[] = {
    {203, {"Ip.OutNoRoutes", "IpExt.InNoRoutes"}},  // no route
    {204, {"Ip6OutNoRoutes", "Ip6InNoRoutes"}},     //
    {213, {"Ip.ReasmFails", {}}},                   // reassembly failed
    {233, {"Ip6ReasmFails", {}}},                   //
    {261, {"Ip.InHdrErrors", {}}},                  // bad headers
    {432, {"Ip6InHdrErrors", {}}},                  //
    {462, {"Ip.InReceives", {}}},                   // IPv4 packets received
    {463, {"Icmp.InMsgs", {}}},                     //
    {464, {"Icmp.OutRedirects", {}}},               // ICMP messages sent
    {469, {"Icmp.OutParmProbs", {}}},               //
    {473, {"Icmp.InRedirects", {}}},                // and received
    {474, {"Icmp.InDestUnreachs", {}}},             //
    {475, {"Icmp.InParmProbs", {}}},                //
    {476, {"Icmp.InTimeExcds", {}}},                //
    {477, {"Icmp.InSrcQuenchs", {}}},               //
    {479, {"Udp.InDatagrams", {}}},                 //
    {480, {"Tcp.InSegs", {}}},                      //
    {500, {"Ip6InReceives", {}}},                   // IPv6 packets received
    {501, {"Icmp6InMsgs", {}}},                     //
    {502, {"Icmp6OutRedirects", {}}},               // ICMPv6 messages sent
    {507, {"Icmp6OutParmProblems", {}}},            //
    {510, {"Icmp6OutPktTooBigs", {}}},              //
    {511, {"Icmp6OutMsgs", {}}},                    //
    {512, {"Icmp6InDestUnreachs", {}}},             // and received
    {513, {"Icmp6InPktTooBigs", {}}},               //
    {514, {"Icmp6InParmProblems", {}}},             //
    {515, {"Icmp6InTimeExcds", {}}},                //
    {517, {"Icmp6InNeighborSolicits", "Icmp6InNeighborAdvertisements"}},
    {519, {"Ip6ReasmReqds", {}}},                      //
    {520, {"Ip6ReasmOKs", {}}},                        //
    {541, {"Ip.OutRequests", "Ip.ForwDatagrams"}},     // packets sent
    {542, {"Icmp.OutMsgs", {}}},                       //
    {543, {"Udp.OutDatagrams", {}}},                   //
    {544, {"Tcp.OutSegs", {}}},                        //
    {553, {"Ip.FragCreates", {}}},                     //
    {559, {"Ip6OutRequests", "Ip6OutForwDatagrams"}},  //
    {560, {"Icmp6OutMsgs", {}}},                       //
    {571, {"Ip6FragCreates", {}}},                     //
};
constexpr uint32_t kFromDriver = 493;  // packets received from the driver

constexpr std::string_view kBlanks = " \t";

// Takes the next word off the line; empty at its end.
std::string_view TakeWord(std::string_view *line) {
  line->remove_prefix(std::min(line->find_first_not_of(kBlanks), line->size()));
  const std::string_view word = line->substr(0, line->find_first_of(kBlanks));
  line->remove_prefix(word.size());
  return word;
}

std::string_view TakeLine(std::string_view *text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

bool ReadNumber(std::string_view word, uint64_t *number) {
  const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), *number);
  return error == std::errc() && stop == word.data() + word.size();
}

std::string ReadWhole(int fd) {
  std::string text;
  char piece[16384];
  for (ssize_t count; (count = pread(fd, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;)
    text.append(piece, static_cast<size_t>(count));
  return text;
}

}  // namespace

void ReadPairs(std::string_view text, KernelCounters *counters) {
  while (!text.empty()) {
    std::string_view names = TakeLine(&text), values = TakeLine(&text);
    const std::string_view group = TakeWord(&names);
    if (group.empty() || TakeWord(&values) != group) return;
    for (std::string_view name = TakeWord(&names); !name.empty(); name = TakeWord(&names)) {
      uint64_t value = 0;
      const std::string_view word = TakeWord(&values);
      if (!ReadNumber(word, &value)) continue;  // some are -1
      (*counters)[std::string(group.substr(0, group.size() - 1)) + "." + std::string(name)] = value;
    }
  }
}

void ReadLines(std::string_view text, KernelCounters *counters) {
  while (!text.empty()) {
    std::string_view line = TakeLine(&text);
    const std::string_view name = TakeWord(&line);
    uint64_t value = 0;
    if (ReadNumber(TakeWord(&line), &value)) (*counters)[std::string(name)] = value;
  }
}

KernelStatistics::KernelStatistics(const NetworkNamespace &where) {
  // The files show the namespace that they were opened in. Without IPv6 one of them is missing.
  where.Inside([this] {
    for (const char *path : {"/proc/thread-self/net/snmp", "/proc/thread-self/net/netstat"})
      pairs_.emplace_back(open(path, O_RDONLY | O_CLOEXEC));
    lines_.emplace_back(open("/proc/thread-self/net/snmp6", O_RDONLY | O_CLOEXEC));
  });
}

bool KernelStatistics::Counts(uint32_t number) {
  return number == kFromDriver || std::ranges::find(kSame, number, &SameCounter::counter) != std::end(kSame);
}

void KernelStatistics::Update(uint64_t received, Statistics *statistics) {
  KernelCounters counters;
  for (const UniqueFd &file : pairs_) {
    if (file.ok()) ReadPairs(ReadWhole(file.get()), &counters);
  }
  for (const UniqueFd &file : lines_) {
    if (file.ok()) ReadLines(ReadWhole(file.get()), &counters);
  }
  const auto set = [&](uint32_t counter, uint64_t now) {
    uint64_t &seen = seen_[counter];
    // A link that goes takes its counts along; what the engine has counted stays.
    if (now > seen) statistics->Add(0, counter, now - seen);
    seen = now;
  };
  for (const SameCounter &same : kSame) {
    uint64_t now = 0;
    for (const std::string_view name : same.kernel) {
      const auto at = counters.find(name);
      if (at != counters.end()) now += at->second;
    }
    set(same.counter, now);
  }
  set(kFromDriver, received);
}

}  // namespace qdt::host
