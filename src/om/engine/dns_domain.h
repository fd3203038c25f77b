#ifndef SRC_OM_ENGINE_DNS_DOMAIN_H_
#define SRC_OM_ENGINE_DNS_DOMAIN_H_

#include "src/om/engine/layout.h"

// The configured DNS domains.
namespace qdt {

struct DnsDomainEntry {
  char domain[128];
  uint8_t matchType;
  uint8_t reserved129[3];
  uint8_t id;
  uint8_t reserved133[3];
};
QDT_RECORD_SIZE(DnsDomainEntry, 136);
QDT_FIELD_AT(DnsDomainEntry, domain, 0, 128);
QDT_FIELD_AT(DnsDomainEntry, matchType, 128, 1);
QDT_FIELD_AT(DnsDomainEntry, id, 132, 1);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_DNS_DOMAIN_H_
