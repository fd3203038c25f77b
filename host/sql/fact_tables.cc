#include <algorithm>

#include "host/inspect/usage.h"
#include "host/record/record_rows.h"
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
  for (const RegionLayout &region : Layout::BuiltIn().regions()) {
    if (!region.fields.empty()) tables.push_back(RegionTable(region));
  }
  return tables;
}

}  // namespace qdt::host
