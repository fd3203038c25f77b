#ifndef HOST_ANSWERS_DOCUMENTS_H_
#define HOST_ANSWERS_DOCUMENTS_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/inspect/entry_rules.h"
#include "host/inspect/explain.h"
#include "host/inspect/find.h"
#include "host/inspect/usage.h"
#include "host/query/statistics.h"
#include "host/record/record_json.h"
#include "host/record/record_source.h"

// The JSON documents of commands, for whoever gives them away: the command-line tool and the web interface.
// Each is one line. docs/data.md tells their forms, and SchemaDocuments their schemas.
namespace qdt::host {

// Where a value stands, as members of an object: {"table": "fib", "id": 1, "key": {...}}, or {"region":
// "..."}. The key is left out where it is null.
void WritePlace(JsonWriter *json, const TableLayout *table, const RegionLayout *region, const uint8_t *key);

// Returns the number of findings. Throws HostError as CheckArena.
std::string_view NameOf(Severity severity);
uint64_t WriteCheckDocument(TextOut *out, const RecordSource &source);

// `address` is what was asked, as it was written. Returns the number of entries found.
uint64_t WriteExplainDocument(TextOut *out, const RecordSource &source, std::string_view address,
                              const ExplainRequest &request);

// Counts up to the limit; tells whether there were more.
struct MatchCount {
  uint64_t limit;
  uint64_t found = 0;
  bool truncated = false;

  bool Take() {
    truncated = found == limit;
    found += !truncated;
    return !truncated;
  }
};
void WriteFindDocument(TextOut *out, const RecordSource &source, std::string_view text,
                       const SearchValue &value, MatchCount *count);

void WriteUsageDocument(TextOut *out, std::span<const TableUsage> tables);
void WriteStatisticsDocument(TextOut *out, const CounterList &list);

// The regions that the source has.
std::vector<const RegionLayout *> RegionsOf(const RecordSource &source);
void WriteRegionsDocument(TextOut *out, std::span<const RegionLayout *const> regions);

// A value or structure by its path; of an array all elements in one.
struct FieldRow {
  const Field *field;
  std::string path;
  const char *in;   // "key", "record", "key, record" or "part"
  uint32_t offset;  // of the first element, from the start of the key or record
};
std::vector<FieldRow> FieldRowsOf(const TableLayout *table, const RegionLayout *region);
// "u16", "text 32", "ref nhp|nhp_group", "structure".
std::string KindText(const Field &field);
// Of a table or a region; the other one is null.
void WriteFieldsDocument(TextOut *out, const TableLayout *table, const RegionLayout *region,
                         std::span<const FieldRow> rows);

// What an arena is, whose, and since when.
struct ArenaInfo {
  const Arena &arena;
  uint64_t entries = 0;
  uint32_t tables = 0;  // that have any

  const ArenaHeader &header() const { return *arena.header(); }
  bool IsCopy() const;
  // Of an engine's own file.
  bool IsRunning() const { return !IsCopy() && arena.EngineAlive(); }
};
ArenaInfo CountEntries(Arena *arena);
// {"file": ..., "kind": "snapshot", "saved": "2026-...", "version": ..., "engine": {"pid": ..., "started":
// ..., "arena": ..., "socket": ...}, "entries": N, "tables": N}, an object without a line's end.
void WriteArenaInfo(JsonWriter *json, const ArenaInfo &info, std::string_view file);

}  // namespace qdt::host

#endif  // HOST_ANSWERS_DOCUMENTS_H_
