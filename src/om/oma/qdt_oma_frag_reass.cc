#include <string_view>

#include "platform/tbm.h"
#include "src/om/engine/table_ids.h"
#include "src/om/oma/frag_reass.h"

// IPv4 packets that wait for reassembly, and what serves both versions.
namespace qdt::reassembly {
namespace {

// The listing shows nothing of the global table: only whether it is there counts.
int32_t FindGlobal() {
  constexpr uint32_t kKey = 0;
  void *global = nullptr;
  return TbmTblSearch(kEngineInstance, kTableGlobal, &kKey, &global);
}

struct Ipv4 {
  using Entry = Ipv4ReassemblyEntry;
  using Address = uint32_t;  // host order
  static constexpr int32_t kNumber = 4;
  static constexpr char kRegion[] = "IP_REASS_CTX_PTR";
  static constexpr format::Format kBlock =
      "\n  Vrf : %-20d      Protocol : %d\n"
      "  SRC Addr : %-20s First Arrived Flag: %u\n"
      "  DST Addr : %-20s Last Arrived Flag : %u\n"
      "  SRC Port : %-12u         DST Port : %-12u\n"
      "  Vlan : %-16u         Reassemble : %-12u\n"
      "  Packet ID : %-15u     Frag Count: %u\n"
      "  TTL(ms) : %-15u       Left-time(ms) : %d\n";
  static constexpr char kPrintFailed[] = "sprintf_s failed, ret: %d\n\n";
  static constexpr char kNoRegion[] = "get fragctl by name %s fail\n";
  static constexpr const char *kNoMemory = "malloc buf for tbl usage failed\n";
  static constexpr const char *kBadParameter = "[Qdt IPv4]verify param fail\n";
  static constexpr const char *kRingFailed = nullptr;
  static constexpr const char *kSendFailed = nullptr;

  static Address ParseAddress(const char *text) { return text == nullptr ? 0 : ntohl(inet_addr(text)); }

  static bool Passes(Address filter, Address address) { return filter == 0 || filter == address; }

  static int32_t CheckEngine() {
    const int32_t code = FindGlobal();
    if (code != 0) QDT_LOG_ERROR("Search CAP_TABLE_GLOBAL fail for FragReass, ret: %d\n", code);
    return code;
  }

  static int32_t CheckBlock() {
    const int32_t code = FindGlobal();
    if (code != 0) QDT_LOG_ERROR("[ErrCode: %d]Error in Search CAP_TABLE_GLOBAL\n", code);
    return code;
  }
};

// Whether an address is of another version, which the buffer is then told by the line F. One that was not
// given is of every version.
template <format::Format F>
bool IsOfOtherVersion(const char *address, int32_t version, char *buffer, uint32_t size) {
  if (address == nullptr || QdtOmaGetIpVer(address) == version) return false;
  Text(buffer, size).Print<F>(address, version);
  return true;
}

}  // namespace
}  // namespace qdt::reassembly

using qdt::kDone;
using qdt::kFailed;
using qdt::reassembly::Ipv4;

int32_t QdtOmaFragReassProc(AgentRequest request) {
  const char *const type = qdt::FindText(request, "type");
  const bool isIpv6 = type != nullptr && std::string_view(type) == "ipv6";
  return isIpv6 ? QdtOmaIpv6FragReassProc(request) : QdtOmaIpv4FragReassProc(request);
}

int32_t QdtOmaIpv4FragReassProc(AgentRequest request) {
  return qdt::reassembly::ListEntries<Ipv4>(request, QDT_HERE);
}

int32_t QdtOmaFragVerifyParam(char *buffer, uint32_t size, int32_t ipType, const char *sourceText,
                              const char *destinationText) {
  using qdt::reassembly::IsOfOtherVersion;
  const bool isRefused = IsOfOtherVersion<"  Input error, source-ip is %s, but ip-type is %d">(
                             sourceText, ipType, buffer, size) ||
                         IsOfOtherVersion<"  Input error, destination-ip is %s, but ip-type is %d">(
                             destinationText, ipType, buffer, size);
  return isRefused ? kFailed : kDone;
}

int32_t QdtOmaFragReassGetTbl(const void *region, char *buffer, uint32_t size, uint32_t source,
                              uint32_t destination) {
  return qdt::reassembly::PrintRing<Ipv4>(region, buffer, size, source, destination);
}

int32_t QdtOmaFragReassPrintTblInfo(char *buffer, uint32_t size, uint32_t offset, const void *entry) {
  return qdt::reassembly::PrintEntry<Ipv4>(buffer, size, offset, entry);
}
