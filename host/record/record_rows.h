#ifndef HOST_RECORD_RECORD_ROWS_H_
#define HOST_RECORD_RECORD_ROWS_H_

#include <optional>
#include <string>
#include <vector>

#include "host/record/plain_value.h"
#include "host/record/record_json.h"

namespace qdt::host {

// One column of a table of records: a single value by its path ("positive.source"), or an array, which is
// shown as JSON.
struct RowColumn {
  const ShapeNode *node;
  FieldSet beside;              // the fields of the node's structure
  uint32_t base = 0;            // where that begins
  const Field *part = nullptr;  // the structure that not all records have
  std::string path;
  std::optional<PlainValue> plain = std::nullopt;  // how the value is written where that takes no more

  bool IsNumber() const { return !node->IsArray() && FormOf(node->field->ref.kind) == ValueForm::kNumber; }
};

// `shape` outlives what is returned. `fields` are those of the record.
std::vector<RowColumn> ColumnsOf(const RecordShape &shape, const FieldSet &fields);

// Makes the texts of one record's cells. References are "nhp/5" (table, then the key's fields), "nhp/stale",
// or another address as it is; a cell is empty where the record has no such value.
class CellWriter {
 public:
  void Append(const RecordBytes &record, const RowColumn &column, std::string *cell);

 private:
  StringOut out_;
};

// "5", "2/4001": a whole key as references and answers show it.
void AppendKeyText(const TableLayout &table, const uint8_t *key, std::string *text);
// "index=5", "group_type=2 group_id=4001".
void AppendNamedKey(const TableLayout &table, const uint8_t *key, std::string *text);
// One value of a key or record that is no reference, escaped.
void AppendValue(const RecordSource *source, const FieldRef &ref, const uint8_t *bytes, std::string *text);
void AppendReference(const Reference &reference, std::string *text);

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_ROWS_H_
