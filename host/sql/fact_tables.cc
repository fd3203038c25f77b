#include <algorithm>

#include "host/arena/arena_layout.h"
#include "host/base/host_error.h"
#include "host/base/time_text.h"
#include "host/inspect/check.h"
#include "host/inspect/usage.h"
#include "host/layout/value_text.h"
#include "host/query/statistics.h"
#include "host/record/record_rows.h"
#include "host/regions/statistics.h"
#include "host/sql/fact_module.h"

namespace qdt::host {
namespace {

using Row = FactTable::Row;

FactTable UsageTable() {
  return {"usage",
          "how full the tables are",
          {{"name", "TEXT", "the table's name"},
           {"id", "INTEGER", "its number in the engine"},
           {"entries", "INTEGER", "entries that it holds"},
           {"capacity", "INTEGER", "entries that it can hold"},
           {"percent", "REAL", "share of the capacity that is in use"},
           {"bytes", "INTEGER", "storage that it takes"}},
          [](const RecordSource &source, std::vector<Row> *rows) {
            for (const TableUsage &usage : UsageOf(source)) {
              rows->push_back({std::string(usage.table->shortName), int64_t{usage.table->spec.id},
                               int64_t{usage.entries}, int64_t{usage.capacity}, usage.Percent(),
                               static_cast<int64_t>(usage.bytes)});
            }
          }};
}

FactTable ListOfTables() {
  return {"nqe_tables",
          "the engine's tables",
          {{"name", "TEXT", "the table's name"},
           {"id", "INTEGER", "its number in the engine"},
           {"about", "TEXT", "what it holds"},
           {"fields", "INTEGER", "fields that are known of its entries; 0: it cannot be read"}},
          [](const RecordSource &source, std::vector<Row> *rows) {
            for (const TableLayout &table : source.layout().tables()) {
              rows->push_back({std::string(table.shortName), int64_t{table.spec.id}, std::string(table.about),
                               static_cast<int64_t>(table.key.all().size() + table.fields.all().size())});
            }
          }};
}

std::string Escaped(std::string_view text) {
  std::string escaped;
  AppendEscaped(text, &escaped);
  return escaped;
}

FactTable FindingsTable() {
  return {"findings",
          "what the tables say that cannot be true, see nqecli check",
          {{"severity", "TEXT", "error or warning"},
           {"table_name", "TEXT", "the table or region"},
           {"key", "TEXT", "the entry's key; empty where it is about the whole table"},
           {"field", "TEXT", "the field, by its path"},
           {"problem", "TEXT", "what is wrong"}},
          [](const RecordSource &source, std::vector<Row> *rows) {
            CheckArena(source, [rows](const Finding &finding) {
              std::string key;
              if (finding.key != nullptr) AppendNamedKey(*finding.table, finding.key, &key);
              const std::string_view name =
                  finding.table != nullptr ? finding.table->shortName : finding.region->spec.name;
              rows->push_back({std::string(finding.severity == Severity::kError ? "error" : "warning"),
                               std::string(name), std::move(key), std::string(finding.field),
                               std::string(finding.problem)});
            });
          }};
}

// A row for each counter and core; the sum over all cores is a question of SQL.
FactTable StatisticsTable() {
  return {"statistics",
          "what the engine's forwarding cores have counted",
          {{"number", "INTEGER", "the counter's number"},
           {"name", "TEXT", "its name; NULL for one without"},
           {"class", "TEXT", "normal, discard or error"},
           {"core", "INTEGER", "the forwarding core, from 0"},
           {"value", "INTEGER", "what it has counted"}},
          [](const RecordSource &source, std::vector<Row> *rows) {
            if (source.arena().FindRegion(kStatisticsRegion, nullptr) == nullptr) return;
            for (const Counter &counter : ReadCounters(source, "").counters) {
              for (size_t core = 0; core < counter.cores.size(); ++core) {
                FactTable::Value name;
                if (!counter.name.empty()) name = counter.name;
                rows->push_back({int64_t{counter.number}, std::move(name), std::string(counter.kind),
                                 static_cast<int64_t>(core), static_cast<int64_t>(counter.cores[core])});
              }
            }
          }};
}

FactTable SnapshotsTable() {
  return {"snapshots",
          "the arenas that are asked: when they were saved, of which engine, by which version",
          {{"path", "TEXT", "the file; NULL for the copy that a frozen engine is read from"},
           {"saved", "TEXT", "when it was saved, UTC; NULL for an engine's own file"},
           {"version", "TEXT", "the program that wrote it"},
           {"pid", "INTEGER", "the engine's process"},
           {"started", "TEXT", "when the engine was started, UTC"},
           {"arena_path", "TEXT", "where the engine had its arena; NULL where that is not recorded"},
           {"socket", "TEXT", "where the engine listens"}},
          [](const RecordSource &source, std::vector<Row> *rows) {
            const ArenaHeader &header = *source.arena().header();
            FactTable::Value saved;
            if (header.savedTime != 0) saved = UtcText(header.savedTime);
            FactTable::Value arena;
            if (header.arenaPath[0] != 0) arena = Escaped(header.arenaPath);
            FactTable::Value path;
            if (!IsFrozenCopy(source)) path = Escaped(source.arena().path());
            rows->push_back({std::move(path), std::move(saved), Escaped(header.program),
                             static_cast<int64_t>(header.enginePid), UtcText(header.startTime),
                             std::move(arena), Escaped(header.socketPath)});
          }};
}

// One row: what the region holds now.
FactTable RegionTable(const RegionLayout &region) {
  const auto shape = std::make_shared<const RecordShape>(RecordShape::Whole(region));
  const auto columns = std::make_shared<const std::vector<RowColumn>>(ColumnsOf(*shape, region.fields));
  FactTable table{std::string(region.spec.name), std::string(region.about), {}, {}};
  for (const RowColumn &column : *columns) {
    std::string name = column.path;
    std::replace(name.begin(), name.end(), '.', '_');
    table.columns.push_back(
        {std::move(name), column.IsNumber() ? "INTEGER" : "TEXT", std::string(column.node->field->about)});
  }
  table.read = [&region, shape, columns](const RecordSource &source, std::vector<Row> *rows) {
    const std::vector<uint8_t> bytes = source.ReadRegion(region);
    if (bytes.empty()) return;
    const RecordBytes record(source, bytes.data());
    CellWriter cells;
    Row row;
    for (const RowColumn &column : *columns) {
      const FieldRef ref = column.node->field->ref.At(column.base);
      if (column.IsNumber() && ref.Read(bytes.data()) <= INT64_MAX) {
        row.emplace_back(static_cast<int64_t>(ref.Read(bytes.data())));
      } else {
        std::string cell;
        cells.Append(record, column, &cell);
        row.emplace_back(std::move(cell));
      }
    }
    rows->push_back(std::move(row));
  };
  return table;
}

}  // namespace

std::vector<FactTable> FactTables() {
  std::vector<FactTable> tables;
  tables.push_back(UsageTable());
  tables.push_back(ListOfTables());
  tables.push_back(FindingsTable());
  tables.push_back(StatisticsTable());
  tables.push_back(SnapshotsTable());
  for (const RegionLayout &region : Layout::BuiltIn().regions()) {
    if (!region.fields.empty()) tables.push_back(RegionTable(region));
  }
  return tables;
}

}  // namespace qdt::host
