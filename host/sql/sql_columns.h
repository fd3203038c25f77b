#ifndef HOST_SQL_SQL_COLUMNS_H_
#define HOST_SQL_SQL_COLUMNS_H_

#include <string>
#include <vector>

#include "host/record/record_rows.h"

namespace qdt::host {

// One column of a table of records as SQL shows it.
struct SqlColumn {
  enum class Kind : uint8_t {
    kValue,      // a single value
    kArray,      // an array, as JSON
    kReference,  // hidden: the address that a reference holds
    kAddress,    // hidden: where the entry lies, as references to it hold it
    kElement,    // of a list's table: the element's number
    kMatch,      // hidden: what a route is to match, for lookups only
    kArena,      // the arena's name
  };
  Kind kind = Kind::kValue;
  std::string name;
  const RowColumn *row = nullptr;
  bool ofElement = false;  // stands in the element of the list, not in its owner's record
  bool hidden = false;

  const char *Type() const;
};

// A table as SQL shows it: the records of an engine's table, or the elements of a list in each of them.
class SqlTable {
 public:
  // `list` is empty, or the path of one of the table's lists (ListsOf).
  SqlTable(const TableLayout &table, std::string_view list, bool showArena);
  SqlTable(const SqlTable &) = delete;

  const TableLayout &layout() const { return layout_; }
  // Null, or the list whose elements are the rows.
  const RowColumn *list() const { return list_; }
  const std::vector<SqlColumn> &columns() const { return columns_; }
  // The columns of the key's fields, in the key's order, without constant ones.
  const std::vector<int> &key() const { return key_; }
  // How many of them are the key of the entry that this one belongs to; 0 when it belongs to none.
  size_t groupKey() const { return groupKey_; }
  int Find(SqlColumn::Kind kind) const;
  int Find(std::string_view name) const;

  // "CREATE TABLE fib(...)"; `explained` has a line a column, with what it means.
  std::string Declaration(std::string_view name, bool explained) const;

 private:
  void Add(const RowColumn &row, bool ofElement);
  void AddElement();
  void AddOwn(SqlColumn::Kind kind, const char *name, bool hidden);
  std::string UniqueName(std::string name) const;

  const TableLayout &layout_;
  const RecordShape shape_;             // of the record
  const std::vector<RowColumn> rows_;   // of shape_
  const RowColumn *const list_;         // of rows_
  RecordShape element_;                 // of the list's elements
  std::vector<RowColumn> elementRows_;  // of element_, counted from the element's beginning
  std::vector<SqlColumn> columns_;
  std::vector<int> key_;
  size_t groupKey_ = 0;
};

// A list of structures or references in each record of a table: it has a table of its own.
struct RecordList {
  std::string path;
  const Field *field;
};
std::vector<RecordList> ListsOf(const TableLayout &table);
// "fwdif_l1_services"; of an empty path "fwdif".
std::string SqlTableName(const TableLayout &table, std::string_view list);

}  // namespace qdt::host

#endif  // HOST_SQL_SQL_COLUMNS_H_
