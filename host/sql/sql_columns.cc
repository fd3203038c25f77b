#include "host/sql/sql_columns.h"

#include <algorithm>

namespace qdt::host {
namespace {

std::string NameOf(std::string_view path) {
  std::string name;
  for (const char c : path) {
    if (c == '.' || c == '[') {
      name += '_';
    } else if (c != ']') {
      name += c;
    }
  }
  return name;
}

bool IsReference(const RowColumn &row) {
  return row.node->field->ref.kind == FieldKind::kReference && !row.node->IsStructure();
}

void AddLists(const FieldSet &fields, const std::string &prefix, std::vector<RecordList> *lists) {
  for (const Field &field : fields.all()) {
    const std::string path = prefix + std::string(field.name);
    const bool isStructure = !field.fields.empty();
    if (field.count == 0 && isStructure) AddLists(field.fields, path + ".", lists);
    if (field.count != 0 && (isStructure || field.ref.kind == FieldKind::kReference))
      lists->push_back({path, &field});
  }
}

const Field &FieldOf(const SqlColumn &column) { return *column.row->node->field; }

std::string MeaningOf(const SqlColumn &column) {
  switch (column.kind) {
    case SqlColumn::Kind::kReference:
      return "address that " + NameOf(column.row->path) + " holds";
    case SqlColumn::Kind::kAddress:
      return "where the entry lies, as references to it hold it";
    case SqlColumn::Kind::kElement:
      return "number of the element, from 0";
    case SqlColumn::Kind::kMatch:
      return "an address: the route with the longest prefix that holds it";
    case SqlColumn::Kind::kArena:
      return "the arena that the row is from";
    default:
      break;
  }
  std::string text(FieldOf(column).about);
  if (!FieldOf(column).unit.empty()) text += (text.empty() ? "" : ", ") + std::string(FieldOf(column).unit);
  return text;
}

}  // namespace

const char *SqlColumn::Type() const {
  switch (kind) {
    case Kind::kReference:
    case Kind::kAddress:
    case Kind::kElement:
      return "INTEGER";
    case Kind::kValue:
      return row->IsNumber() ? "INTEGER" : "TEXT";
    default:
      return "TEXT";
  }
}

SqlTable::SqlTable(const TableLayout &table, std::string_view list, bool showArena)
    : layout_(table),
      shape_(RecordShape::Whole(table)),
      rows_(ColumnsOf(shape_, table.fields)),
      list_(list.empty() ? nullptr : &*std::ranges::find(rows_, list, &RowColumn::path)) {
  if (showArena) AddOwn(SqlColumn::Kind::kArena, "arena", false);
  for (const RowColumn &row : rows_) {
    const bool isKey = row.node->inKey && !row.node->field->constant;
    if (isKey || list_ == nullptr) Add(row, false);
    if (isKey) key_.push_back(Find(NameOf(row.path)));
  }
  const bool isRoute = PrefixAddressSize(table.spec.lookup) != 0;
  if (list_ != nullptr) {
    AddOwn(SqlColumn::Kind::kElement, "element", false);
    AddElement();
  } else if (isRoute) {
    AddOwn(SqlColumn::Kind::kMatch, "match", true);
  }
  AddOwn(SqlColumn::Kind::kAddress, "_address", true);
  if (!showArena) AddOwn(SqlColumn::Kind::kArena, "_arena", true);
  const auto ofGroup = [&](int column) {
    const FieldRef &ref = columns_[column].row->node->field->ref;
    return ref.offset + ref.size <= table.spec.groupKeySize;
  };
  groupKey_ = static_cast<size_t>(std::ranges::count_if(key_, ofGroup));
}

// Columns of the list's elements: the fields of a structure, or the one reference.
void SqlTable::AddElement() {
  const ShapeNode &node = *list_->node;
  if (node.IsStructure()) {
    element_.nodes = node.inner;
    elementRows_ = ColumnsOf(element_, node.field->fields);
  } else {
    ShapeNode one = node;
    one.element = 0;
    one.name = "reference";
    element_.nodes.push_back(std::move(one));
    elementRows_ = ColumnsOf(element_, FieldSet());
  }
  for (const RowColumn &row : elementRows_) Add(row, true);
}

void SqlTable::Add(const RowColumn &row, bool ofElement) {
  const SqlColumn::Kind kind = row.node->IsArray() ? SqlColumn::Kind::kArray : SqlColumn::Kind::kValue;
  columns_.push_back({kind, UniqueName(NameOf(row.path)), &row, ofElement, false});
  if (kind == SqlColumn::Kind::kValue && IsReference(row)) {
    columns_.push_back(
        {SqlColumn::Kind::kReference, UniqueName(NameOf(row.path) + "_address"), &row, ofElement, true});
  }
}

void SqlTable::AddOwn(SqlColumn::Kind kind, const char *name, bool hidden) {
  columns_.push_back({kind, UniqueName(name), nullptr, false, hidden});
}

// Two paths may make one name: a.b and a_b.
std::string SqlTable::UniqueName(std::string name) const {
  while (Find(name) >= 0) name += '_';
  return name;
}

int SqlTable::Find(SqlColumn::Kind kind) const {
  const auto at = std::ranges::find(columns_, kind, &SqlColumn::kind);
  return at == columns_.end() ? -1 : static_cast<int>(at - columns_.begin());
}

int SqlTable::Find(std::string_view name) const {
  const auto at = std::ranges::find(columns_, name, &SqlColumn::name);
  return at == columns_.end() ? -1 : static_cast<int>(at - columns_.begin());
}

std::string SqlTable::Declaration(std::string_view name, bool explained) const {
  std::string text = "CREATE TABLE \"" + std::string(name) + "\"(";
  for (const SqlColumn &column : columns_) {
    const bool last = &column == &columns_.back();
    text += explained ? "\n  \"" : "\"";
    text += column.name + "\" " + column.Type() + (column.hidden ? " HIDDEN" : "") + (last ? "" : ",");
    if (explained) text += " -- " + MeaningOf(column);
  }
  return text + (explained ? "\n)" : ")");
}

std::vector<RecordList> ListsOf(const TableLayout &table) {
  std::vector<RecordList> lists;
  AddLists(table.fields, "", &lists);
  return lists;
}

std::string SqlTableName(const TableLayout &table, std::string_view list) {
  std::string name(table.shortName);
  if (!list.empty()) name += "_" + NameOf(list);
  return name;
}

}  // namespace qdt::host
