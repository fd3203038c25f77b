#include "host/sql/record_module.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

#include "host/base/host_error.h"
#include "host/layout/value_text.h"
#include "host/sql/record_cursor.h"
#include "host/sql/virtual_table.h"

namespace qdt::host {
namespace {

using Kind = SqlColumn::Kind;

// SQLite's table: nothing but C's structure may stand before ours.
struct Table : sqlite3_vtab {
  Table(const RecordModule &of)
      : sqlite3_vtab{}, module(of), columns(*of.layout, of.list, of.arenas->IsMany()) {}

  std::string Declaration() const { return columns.Declaration(module.name, false); }

  // For as long as a cursor is open, which is always so while a statement runs that has asked for it once.
  std::shared_ptr<ColumnIndexes> Indexes() const {
    std::shared_ptr<ColumnIndexes> shared = indexes.lock();
    if (shared == nullptr) indexes = shared = std::make_shared<ColumnIndexes>();
    return shared;
  }

  const RecordModule &module;
  const SqlTable columns;
  mutable std::weak_ptr<ColumnIndexes> indexes;
};

struct Cursor : sqlite3_vtab_cursor {
  explicit Cursor(const Table &of)
      : sqlite3_vtab_cursor{}, table(of), rows(*of.module.arenas, of.columns, of.Indexes()) {}

  const Table &table;
  RecordCursor rows;
  CellWriter cells;
  std::string cell;
  std::string plan;                    // that `indexed` were taken from
  IndexedColumns indexed;              // the columns whose index was used last
  std::optional<std::string> matched;  // what a route was looked up for
  bool end = true;
};

// The ways to find rows, as EXPLAIN QUERY PLAN shows them; each tells what its arguments are. A plan with
// kOfArena has the arena's name as its last one.
enum Way : int {
  kWalk = 0,
  kKey = 1,
  kGroup = 2,
  kAddress = 3,
  kMatch = 4,
  kIndex = 5,
  kUnread = 6,
  kOfArena = 16
};

// What the statement says of each column: the number of the usable constraint column = VALUE, or -1.
class Equalities {
 public:
  Equalities(sqlite3_index_info *info, size_t columns) : constraint_(columns, -1), later_(columns) {
    for (int i = 0; i < info->nConstraint; ++i) {
      const auto &constraint = info->aConstraint[i];
      if (constraint.iColumn < 0 || !IsEquality(info, i)) continue;
      if (constraint.usable) {
        constraint_[constraint.iColumn] = i;
      } else {
        later_[constraint.iColumn] = true;
      }
    }
  }

  int Of(int column) const { return column < 0 ? -1 : constraint_[column]; }
  // Whether the statement names a value that is not known yet in the order of tables that is being tried.
  bool IsLater(int column) const { return column >= 0 && constraint_[column] < 0 && later_[column]; }
  bool OfAll(const std::vector<int> &columns, size_t count) const {
    return count != 0 && std::all_of(columns.begin(), columns.begin() + static_cast<ptrdiff_t>(count),
                                     [this](int column) { return Of(column) >= 0; });
  }

 private:
  std::vector<int> constraint_;
  std::vector<bool> later_;
};

// The names of an index's columns stand behind this in the plan.
constexpr char kIndexOn[] = "index on ";

class Planner {
 public:
  Planner(const Table &table, sqlite3_index_info *info)
      : table_(table.columns), info_(*info), equal_(info, table_.columns().size()) {
    entries_ = 1000.0;
    if (!table.module.arenas->empty()) {
      try {
        const auto view = table.module.arenas->View(0);
        const tbm::TableView *records = view->View(table_.layout());
        entries_ = records == nullptr ? 1.0 : std::max(records->EntryNum(), 1u);
      } catch (const HostError &) {
        // Said when the statement runs.
      }
      entries_ *= static_cast<double>(table.module.arenas->size());
    }
    if (table_.list() != nullptr) entries_ *= 2;
  }

  int Choose() {
    const int match = equal_.Of(table_.Find(Kind::kMatch));
    // The column has no value of its own: without this constraint there is nothing that it could be held
    // against.
    if (match < 0 && AsksForMatch()) return SQLITE_CONSTRAINT;
    if (match >= 0) {
      const int vpn = table_.Find("vpn");
      if (equal_.IsLater(vpn)) return SQLITE_CONSTRAINT;  // it says in which routes to look
      Begin(kMatch, "match", 3, 1);
      Take(match, true);
      if (equal_.Of(vpn) >= 0) Take(equal_.Of(vpn), false);
    } else if (const int address = equal_.Of(table_.Find(Kind::kAddress)); address >= 0) {
      Begin(kAddress, "_address", 1, table_.list() == nullptr ? 1 : 4);
      Take(address, false);
    } else if (equal_.OfAll(table_.key(), table_.key().size())) {
      const bool one = table_.layout().spec.lookup != Lookup::kMany;
      Begin(kKey, Names(table_.key(), table_.key().size()), one ? 2 : 4,
            one && table_.list() == nullptr ? 1 : 4);
      TakeKey(table_.key().size());
    } else if (equal_.OfAll(table_.key(), table_.groupKey())) {
      Begin(kGroup, "group " + Names(table_.key(), table_.groupKey()), 16, 16);
      TakeKey(table_.groupKey());
    } else if (const std::vector<int> columns = IndexColumns(); !columns.empty()) {
      // The first question walks the table, all others do not: what matters when it stands inside a loop.
      const double share =
          16.0 * static_cast<double>(uint64_t{4} << std::min<size_t>(2 * columns.size(), 40));
      Begin(kIndex, kIndexOn + Names(columns, columns.size()), 8 + entries_ / 4,
            std::max(1.0, entries_ / share));
      for (const int column : columns) Take(equal_.Of(column), false);
    } else {
      Begin(info_.colUsed == 0 ? kUnread : kWalk, "walk", entries_ * 1.5 + 8, entries_);
    }
    if (const int arena = equal_.Of(table_.Find(Kind::kArena)); arena >= 0) {
      info_.idxNum |= kOfArena;
      Take(arena, false);
    }
    return SQLITE_OK;
  }

 private:
  bool AsksForMatch() const {
    const int column = table_.Find(Kind::kMatch);
    for (int i = 0; column >= 0 && i < info_.nConstraint; ++i) {
      if (info_.aConstraint[i].iColumn == column && info_.aConstraint[i].op == SQLITE_INDEX_CONSTRAINT_EQ)
        return true;
    }
    return false;
  }

  // The columns that are no lists and for which one value is asked.
  std::vector<int> IndexColumns() const {
    std::vector<int> columns;
    for (int i = 0; i < static_cast<int>(table_.columns().size()); ++i) {
      const Kind kind = table_.columns()[static_cast<size_t>(i)].kind;
      if (kind != Kind::kArena && kind != Kind::kArray && equal_.Of(i) >= 0) columns.push_back(i);
    }
    return columns;
  }

  std::string Names(const std::vector<int> &columns, size_t count) const {
    std::string names;
    for (size_t i = 0; i < count; ++i)
      names += (names.empty() ? "" : ",") + table_.columns()[static_cast<size_t>(columns[i])].name;
    return names;
  }

  void Begin(Way way, const std::string &shown, double cost, double rows) {
    info_.idxNum = way;
    info_.idxStr = sqlite3_mprintf("%s", shown.c_str());
    if (info_.idxStr == nullptr) throw std::bad_alloc();
    info_.needToFreeIdxStr = 1;
    info_.estimatedCost = cost;
    info_.estimatedRows = static_cast<sqlite3_int64>(std::max(rows, 1.0));
  }

  void TakeKey(size_t count) {
    for (size_t i = 0; i < count; ++i) Take(equal_.Of(table_.key()[i]), false);
  }

  // Without `omit` SQLite compares the values once more, so that a lookup finds what a walk would: values may
  // be written in ways that mean the same and are other texts.
  void Take(int constraint, bool omit) {
    info_.aConstraintUsage[constraint].argvIndex = ++arguments_;
    info_.aConstraintUsage[constraint].omit = omit;
  }

  const SqlTable &table_;
  sqlite3_index_info &info_;
  const Equalities equal_;
  double entries_;
  int arguments_ = 0;
};

uint64_t HashOf(std::string_view text) { return std::hash<std::string_view>()(text); }
uint64_t HashOf(int64_t number) { return std::hash<int64_t>()(number) * 0x9e3779b97f4a7c15u; }
uint64_t Joined(uint64_t hash, uint64_t next) { return (hash ^ next) * 0xff51afd7ed558ccdu + (hash >> 29); }

// Hands over the values of one row, or hashes them.
class RowReader {
 public:
  explicit RowReader(Cursor *cursor) : cursor_(*cursor), bytes_(cursor->rows.bytes()) {}

  void Result(sqlite3_context *context, const SqlColumn &column) {
    switch (column.kind) {
      case Kind::kArena:
        return ResultText(context, cursor_.rows.arena());
      case Kind::kElement:
        return sqlite3_result_int64(context, cursor_.rows.element());
      case Kind::kAddress:
        return sqlite3_result_int64(context, static_cast<int64_t>(cursor_.rows.address()));
      case Kind::kMatch:
        return ResultText(context, Matched());
      default:
        break;
    }
    if (!HasValue(column)) return sqlite3_result_null(context);
    const FieldRef ref = RefOf(column);
    const uint8_t *place = Bytes(column);
    if (column.kind == Kind::kReference) return ResultNumber(context, kAddressRef, ref.Get(place));
    if (column.kind == Kind::kValue && FormOf(ref.kind) == ValueForm::kNumber) {
      const WideValue value = ref.Read(place);
      return ResultNumber(context, ref, IsTimeAgo(ref.kind) ? bytes_.source.SecondsAgo(ref, value) : value);
    }
    Cell(column, ref, place);
    if (cursor_.cell.empty() && ref.kind == FieldKind::kReference) return sqlite3_result_null(context);
    ResultText(context, cursor_.cell);
  }

  uint64_t Hash(const SqlColumn &column) {
    if (column.kind == Kind::kElement) return HashOf(int64_t{cursor_.rows.element()});
    if (!HasValue(column)) return 0;
    const FieldRef ref = RefOf(column);
    const uint8_t *place = Bytes(column);
    if (column.kind == Kind::kReference) return HashOf(static_cast<int64_t>(ref.Get(place)));
    if (FormOf(ref.kind) == ValueForm::kNumber) {
      const WideValue value = ref.Read(place);
      return HashOf(static_cast<int64_t>(IsTimeAgo(ref.kind) ? bytes_.source.SecondsAgo(ref, value) : value));
    }
    Cell(column, ref, place);
    return HashOf(std::string_view(cursor_.cell));
  }

 private:
  static constexpr FieldRef kAddressRef{0, 8, FieldKind::kUnsigned, 0, 0};

  // What the row was looked up for. Who asks for it of rows that were found in another way compares it with
  // something that SQLite has kept to itself, and would take NULL for an answer.
  const std::string &Matched() const {
    if (cursor_.matched) return *cursor_.matched;
    throw HostError("match of " + cursor_.table.module.name +
                    " has to be compared by = with a value that is known before (name its table first)");
  }

  // Whether the record has the structure in which the column's value stands.
  bool HasValue(const SqlColumn &column) const {
    const Field *part = column.row->part;
    return column.ofElement || part == nullptr ||
           (bytes_.entry->Has(*part) && (part->pointer == 0 || !bytes_.entry->IsStrayed(*part)));
  }

  FieldRef RefOf(const SqlColumn &column) const {
    const ShapeNode &node = *column.row->node;
    const uint32_t base = column.row->base + (column.ofElement ? cursor_.rows.elementBase() : 0);
    return node.field->ref.At(base + node.element.value_or(0) * node.field->stride);
  }

  const uint8_t *Bytes(const SqlColumn &column) const {
    return column.row->node->inKey ? bytes_.key : bytes_.record;
  }

  void Cell(const SqlColumn &column, const FieldRef &ref, const uint8_t *place) {
    cursor_.cell.clear();
    const ShapeNode &node = *column.row->node;
    if (node.IsArray()) {
      RowColumn row = *column.row;
      if (column.ofElement) row.base += cursor_.rows.elementBase();
      row.part = nullptr;
      cursor_.cells.Append(bytes_, row, &cursor_.cell);
    } else if (ref.kind == FieldKind::kReference) {
      AppendReference(bytes_.source.Resolve(node.field->targets, ref.Get(place)), &cursor_.cell);
    } else {
      AppendValue(&bytes_.source, ref, place, &cursor_.cell);
    }
  }

  Cursor &cursor_;
  const RecordBytes bytes_;
};

// Reads the arguments of a plan.
class Filter {
 public:
  Filter(Cursor *cursor, int way, const char *shown, int count, sqlite3_value **values)
      : cursor_(*cursor),
        table_(cursor->table.columns),
        way_(way),
        shown_(shown),
        values_(values, values + count) {}

  void Start() {
    RecordCursor &rows = cursor_.rows;
    rows.OfArena(std::nullopt);
    cursor_.matched.reset();
    if ((way_ & kOfArena) != 0) {
      const std::optional<size_t> arena = cursor_.table.module.arenas->Find(TextOf(values_.back()));
      if (!arena) return rows.Nothing();
      rows.OfArena(arena);
      values_.pop_back();
    }
    switch (way_ & 15) {
      case kKey:
        return StartKey(table_.key().size(), [&](std::vector<uint8_t> key) { rows.Key(std::move(key)); });
      case kGroup:
        return StartKey(table_.groupKey(), [&](std::vector<uint8_t> key) { rows.Group(std::move(key)); });
      case kAddress:
        return StartAddress();
      case kMatch:
        return StartMatch();
      case kIndex:
        return StartIndex();
      default:
        return rows.Walk((way_ & 15) == kUnread);
    }
  }

 private:
  template <typename Found>
  void StartKey(size_t count, const Found &found) {
    std::vector<uint8_t> key(table_.layout().spec.keySize);
    for (const Field &field : table_.layout().key.all()) {
      if (field.constant) field.ref.Write(key.data(), *field.constant);
    }
    for (size_t i = 0; i < count; ++i) {
      const SqlColumn &column = table_.columns()[table_.key()[i]];
      if (MayDiffer(values_[i], column) && sqlite3_value_type(values_[i]) != SQLITE_NULL)
        return cursor_.rows.Walk(false);
      if (!WriteSqlValue(values_[i], column.row->node->field->ref, key.data())) return cursor_.rows.Nothing();
    }
    found(std::move(key));
  }

  void StartAddress() {
    constexpr FieldRef kAddress{0, 8, FieldKind::kSigned, 0, 0};
    uint8_t address[8];
    if (!WriteSqlValue(values_[0], kAddress, address)) return cursor_.rows.Nothing();
    cursor_.rows.Address(kAddress.Get(address));
  }

  void StartMatch() {
    cursor_.matched = TextOf(values_[0]);
    const TableSpec &spec = table_.layout().spec;
    std::vector<uint8_t> key(spec.keySize);
    const Field *destination = table_.layout().key.Find("destination");
    const Field *vpn = table_.layout().key.Find("vpn");
    if (destination == nullptr || !WriteSqlValue(values_[0], destination->ref, key.data()))
      return cursor_.rows.Nothing();
    if (values_.size() > 1 && (vpn == nullptr || !WriteSqlValue(values_[1], vpn->ref, key.data())))
      return cursor_.rows.Nothing();
    cursor_.rows.Match(std::move(key));
  }

  // Where a value and a column could be equal in ways that their hashes do not show, all rows are looked at.
  void StartIndex() {
    const IndexedColumns &columns = Columns();
    uint64_t hash = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
      if (sqlite3_value_type(values_[i]) == SQLITE_NULL) return cursor_.rows.Nothing();
      const std::optional<uint64_t> one = Hash(values_[i], table_.columns()[static_cast<size_t>(columns[i])]);
      if (!one) return cursor_.rows.Walk(false);
      hash = Joined(hash, *one);
    }
    const auto hashOf = [&] {
      RowReader row(&cursor_);
      uint64_t all = 0;
      for (const int column : columns)
        all = Joined(all, row.Hash(table_.columns()[static_cast<size_t>(column)]));
      return all;
    };
    cursor_.rows.Indexed(columns, hashOf, hash);
  }

  // The columns that the plan names.
  const IndexedColumns &Columns() {
    if (cursor_.plan == shown_) return cursor_.indexed;
    cursor_.plan = shown_;
    cursor_.indexed.clear();
    for (std::string_view rest = shown_.substr(sizeof(kIndexOn) - 1); !rest.empty();) {
      const std::string_view name = rest.substr(0, rest.find(','));
      cursor_.indexed.push_back(table_.Find(name));
      rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    }
    return cursor_.indexed;
  }

  static bool IsNumber(const SqlColumn &column) { return std::strcmp(column.Type(), "INTEGER") == 0; }

  // Whether SQLite may find a value equal to texts that are spelled otherwise: numbers it may compare as
  // such.
  static bool MayDiffer(sqlite3_value *value, const SqlColumn &column) {
    return !IsNumber(column) && sqlite3_value_type(value) != SQLITE_TEXT;
  }

  // As RowReader::Hash for a value that SQLite would find equal to the column's.
  static std::optional<uint64_t> Hash(sqlite3_value *value, const SqlColumn &column) {
    if (MayDiffer(value, column)) return std::nullopt;
    if (!IsNumber(column)) return HashOf(TextOf(value));
    if (sqlite3_value_numeric_type(value) != SQLITE_INTEGER) return std::nullopt;
    return HashOf(int64_t{sqlite3_value_int64(value)});
  }

  Cursor &cursor_;
  const SqlTable &table_;
  const int way_;
  const std::string_view shown_;
  std::vector<sqlite3_value *> values_;
};

int BestIndex(sqlite3_vtab *table, sqlite3_index_info *info) {
  return Guarded(table, [&] { return Planner(*static_cast<Table *>(table), info).Choose(); });
}

int Next(sqlite3_vtab_cursor *base) {
  auto *cursor = static_cast<Cursor *>(base);
  return Guarded(base->pVtab, [&] {
    cursor->end = !cursor->rows.Next();
    return SQLITE_OK;
  });
}

int FilterRows(sqlite3_vtab_cursor *base, int way, const char *shown, int count, sqlite3_value **values) {
  auto *cursor = static_cast<Cursor *>(base);
  const int started = Guarded(base->pVtab, [&] {
    Filter(cursor, way, shown, count, values).Start();
    return SQLITE_OK;
  });
  return started == SQLITE_OK ? Next(base) : started;
}

int Eof(sqlite3_vtab_cursor *cursor) { return static_cast<Cursor *>(cursor)->end ? 1 : 0; }

int Column(sqlite3_vtab_cursor *base, sqlite3_context *context, int number) {
  auto *cursor = static_cast<Cursor *>(base);
  return Guarded(base->pVtab, [&] {
    RowReader(cursor).Result(context, cursor->table.columns.columns()[static_cast<size_t>(number)]);
    return SQLITE_OK;
  });
}

int Rowid(sqlite3_vtab_cursor *cursor, sqlite3_int64 *row) {
  *row = static_cast<Cursor *>(cursor)->rows.number();
  return SQLITE_OK;
}

using Virtual = VirtualTable<RecordModule, Table, Cursor>;
constexpr sqlite3_module kModule = Virtual::Callbacks(BestIndex, FilterRows, Next, Eof, Column, Rowid);

}  // namespace

int AddRecordModule(sqlite3 *connection, RecordModule module) {
  const std::string name = module.name;
  return Virtual::Register(connection, name, &kModule, std::move(module));
}

}  // namespace qdt::host
