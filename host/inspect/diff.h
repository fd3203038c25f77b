#ifndef HOST_INSPECT_DIFF_H_
#define HOST_INSPECT_DIFF_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/inspect/compare.h"
#include "host/record/record_source.h"
#include "host/record/text_out.h"

namespace qdt::host {

enum class Change : uint8_t { kAdded, kRemoved, kChanged };

// An entry, or a region, that two sources do not have alike.
struct Difference {
  Change change = Change::kChanged;
  const TableLayout *table = nullptr;    // null for regions
  const RegionLayout *region = nullptr;  // null for entries
  const RecordBytes *from = nullptr;     // null when it was added
  const RecordBytes *to = nullptr;       // null when it was removed
  std::span<const ValueChange> values;   // of what has changed
};

// Writes differences one by one, with constant memory, between Begin and End; Fail ends an answer that cannot
// be finished.
class DiffSink {
 public:
  virtual ~DiffSink() = default;
  virtual void Begin() {}
  virtual void Take(const Difference &difference) = 0;
  virtual void End(uint64_t count) = 0;
  virtual void Fail() {}
};

// A line each, "+ fib prefix=24 vpn=0 destination=192.0.2.0", "- ...", "~ arp next_hop=192.0.2.7 vpn=0: dmac
// 02:00:5e:00:00:01 -> 02:00:5e:00:00:02, valid true -> false"; nothing where there is none.
std::unique_ptr<DiffSink> MakeDiffLines(TextOut *out);
// {"diff": [{"table": "arp", "id": 26, "change": "changed", "key": {...}, "fields": {"dmac": {"from": ...,
// "to": ...}}}], "count": N}; regions have {"region": NAME, "change": ..., "fields": {...}}.
std::unique_ptr<DiffSink> MakeDiffJson(TextOut *out);

struct DiffRequest {
  std::vector<const TableLayout *> tables;
  std::vector<const RegionLayout *> regions;
  Volatile volatiles = Volatile::kIgnored;

  // All tables and regions whose fields are known.
  static DiffRequest Whole(const Layout &layout);
  // Adds a table or region by its name. Throws HostError with the name that was meant.
  void Add(const Layout &layout, std::string_view name);
};

struct DiffResult {
  uint64_t count = 0;
  std::string aside;  // lines that say which tables or regions one of the two lacks
};

// Gives what differs to `sink`, entries by their key, in the order of the request; of tables with several
// entries a key those that are equal go together first, and what is left in its order. Reads both sources
// once and keeps a bit for each slot of a table. Throws HostError before it begins when a table of either was
// made with another layout, and as EntryReader does, after sink->Fail.
DiffResult RunDiff(const RecordSource &from, const RecordSource &to, const DiffRequest &request,
                   DiffSink *sink);

}  // namespace qdt::host

#endif  // HOST_INSPECT_DIFF_H_
