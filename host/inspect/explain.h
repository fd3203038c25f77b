#ifndef HOST_INSPECT_EXPLAIN_H_
#define HOST_INSPECT_EXPLAIN_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/inspect/find.h"

namespace qdt::host {

// One place where an explanation looks. Good until the next one.
struct ExplainStep {
  struct Asked {
    std::string_view field;
    FieldRef ref;
    WideValue value;
  };

  std::string_view step;  // "neighbour"
  uint32_t depth = 0;     // steps that led here
  const TableLayout *table = nullptr;
  std::vector<Asked> asked;            // what was looked for
  bool anyOf = false;                  // any of the fields may hold it, else they are the key
  const RecordBytes *found = nullptr;  // null: nothing
  std::string_view shows;  // fields of it that matter, joined by commas; with "?" only where they are not 0
  std::string note;        // what is stale, missing or remarkable; may be empty
};
using TellStep = std::function<void(const ExplainStep &)>;

struct ExplainRequest {
  SearchValue address;  // an IPv4, IPv6 or MAC address
  uint32_t vpn = 0;
  uint64_t limit = 10;  // entries of one step
};

// Follows an address through the tables as an operator does by hand: whose it is, where that is, how packets
// get there, and what goes there. Returns the number of entries found. Throws HostError as EntryReader does.
uint64_t ExplainAddress(const RecordSource &source, const ExplainRequest &request, const TellStep &tell);

}  // namespace qdt::host

#endif  // HOST_INSPECT_EXPLAIN_H_
