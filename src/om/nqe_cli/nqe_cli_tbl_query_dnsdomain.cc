#include <cstring>
#include <string_view>

#include "qdt/tables.h"
#include "src/om/engine/dns_domain.h"
#include "src/om/nqe_cli/table_view.h"

// View of the configured DNS domains.
using qdt::DnsDomainEntry;

NQE_TABLE_SEARCH(DnsDomain) { return search.NextOf<DnsDomainEntry>(qdt::kTableDnsDomain); }

NQE_TABLE_FORMAT_EACH(DnsDomain, DnsDomainEntry) {
  text.Print<"  DomainID           :  %d\n  DomainMatchType    :  %u\n  Domain             :  %s\n\n">(
      e.id, e.matchType, std::string_view(e.domain, strnlen(e.domain, sizeof(e.domain))));
}
