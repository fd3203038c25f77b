#include <algorithm>

#include "src/om/oma/frag_reass.h"

// IPv6 packets that wait for reassembly.
namespace qdt::reassembly {
namespace {

struct Ipv6 {
  using Entry = Ipv6ReassemblyEntry;
  struct Address {
    uint32_t words[4];  // host order
  };
  static constexpr int32_t kNumber = 6;
  static constexpr char kRegion[] = "IP6_REASS_CTX_PTR";
  static constexpr format::Format kBlock =
      "\n  Vrf : %-20d      Protocol : %d\n"
      "  SRC Addr : %-46s First Arrived Flag: %u\n"
      "  DST Addr : %-46s Last Arrived Flag : %u\n"
      "  SRC Port : %-12u         DST Port : %-12u\n"
      "  Vlan : %-16u         Reassemble : %-12u\n"
      "  Packet ID : %-15u     Frag Count: %u\n"
      "  TTL(ms) : %-15u       Left-time(ms) : %d\n";
  static constexpr char kPrintFailed[] = "[Qdt IPv6]ip6 reass sprintf_s failed, ret: %d\n\n";
  static constexpr char kNoRegion[] = "[Qdt IPv6]get fragctl by name %s fail\n";
  static constexpr const char *kNoMemory = "[Qdt IPv6]malloc buf for tbl usage failed\n";
  static constexpr const char *kBadParameter = "[Qdt IPv6]verify param fail\n";
  static constexpr const char *kRingFailed = "[Qdt IPv6]get frag reass tbl failed\n";
  static constexpr const char *kSendFailed = "[Qdt IPv6]send msg failed\n";

  static Address ParseAddress(const char *text) {
    Address address{};
    if (text != nullptr) ToHostWords(ParseIpv6(text), address.words);
    return address;
  }

  static bool Passes(const Address &filter, const uint32_t (&address)[4]) {
    const auto &words = filter.words;
    return std::all_of(words, words + 4, [](uint32_t word) { return word == 0; }) ||
           std::equal(words, words + 4, address);
  }

  static int32_t CheckEngine() { return kDone; }
  static int32_t CheckBlock() { return kDone; }
};

}  // namespace
}  // namespace qdt::reassembly

using qdt::reassembly::Ipv6;

int32_t QdtOmaIpv6FragReassProc(AgentRequest request) {
  return qdt::reassembly::ListEntries<Ipv6>(request, QDT_HERE);
}

int32_t QdtOmaIpv6FragReassGetTbl(const void *region, char *buffer, uint32_t size, const uint32_t *source,
                                  const uint32_t *destination) {
  Ipv6::Address from, to;
  std::copy_n(source, 4, from.words);
  std::copy_n(destination, 4, to.words);
  return qdt::reassembly::PrintRing<Ipv6>(region, buffer, size, from, to);
}

int32_t QdtOmaIpv6FragReassPrintTblInfo(char *buffer, uint32_t size, uint32_t offset, const void *entry) {
  return qdt::reassembly::PrintEntry<Ipv6>(buffer, size, offset, entry);
}
