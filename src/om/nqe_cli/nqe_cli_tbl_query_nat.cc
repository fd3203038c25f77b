#include <cstring>
#include <string_view>

#include "qdt/oma.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/engine/nat.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the NAT ARP tables and of NAT policy rules.
using qdt::NatArpEntry;
using qdt::NatArpKey;

static int32_t FindNatArp(const qdt::Search &search, uint32_t table, uint32_t kind) {
  return search.FindOne<NatArpEntry>(table, NatArpKey{kind, ntohl(inet_addr(search.key1))});
}

NQE_TABLE_SEARCH(ArpPoolSection) { return FindNatArp(search, qdt::kTableArpPoolSection, qdt::kNatArpPool); }

NQE_TABLE_SEARCH(ArpPoolExclude) { return FindNatArp(search, qdt::kTableArpPoolExclude, qdt::kNatArpPool); }

NQE_TABLE_SEARCH(ArpHost) { return FindNatArp(search, qdt::kTableArpHost, qdt::kNatArpHost); }

NQE_TABLE_FORMAT_ONE(NatArp, NatArpEntry) { text.Print<"  IpNum       : %u\n">(e.addressCount); }

// The rule's text comes from the engine, not from a table.
NQE_TABLE_SEARCH(NatPolicy) {
  char *reply = nullptr;
  int32_t length = 0;
  const int32_t code = PolicyRuleDataSearchByName(search.key1, &reply, &length);
  const qdt::OwnedText rule(reply);
  if (code != 0) return code;
  const int32_t delivered = search.Deliver(rule.get(), static_cast<uint32_t>(length));
  if (delivered == QDT_TBL_MEMORY) search.Release();
  return delivered;
}

QDT_TABLE_FORMAT(NqeTableFormatNatPolicy) {
  if (record == nullptr) return QDT_TBL_DATA_SIZE;
  const auto *rule = static_cast<const char *>(record);
  // The length is not checked, but nothing is read beyond it.
  const size_t length = recordLen > 0 ? strnlen(rule, static_cast<size_t>(recordLen)) : strlen(rule);
  qdt::Text text(out, room);
  text.Print<"%s\n">(std::string_view(rule, length));
  return text.Result();
}
