#include "host/sql/fact_module.h"

#include <algorithm>
#include <map>
#include <optional>

#include "host/base/host_error.h"
#include "host/sql/virtual_table.h"

namespace qdt::host {
namespace {

struct Module {
  std::shared_ptr<ArenaSet> arenas;
  FactTable facts;
};

struct Table : sqlite3_vtab {
  explicit Table(const Module &of) : sqlite3_vtab{}, module(of), showArena(of.arenas->IsMany()) {}
  std::string Declaration() const { return module.facts.Declaration(showArena, false); }

  const Module &module;
  const bool showArena;
};

struct Cursor : sqlite3_vtab_cursor {
  explicit Cursor(const Table &of) : sqlite3_vtab_cursor{}, table(of) {}

  const std::vector<FactTable::Row> &Rows();
  void Settle();

  const Table &table;
  std::map<size_t, std::vector<FactTable::Row>> rows;  // by arena
  size_t arena = 0;
  size_t endArena = 0;
  size_t at = 0;  // in the arena's rows
};

// Read once: within one statement the rows stay the same, so that joins agree.
const std::vector<FactTable::Row> &Cursor::Rows() {
  const auto [at, isNew] = rows.try_emplace(arena);
  if (isNew) table.module.facts.read(*table.module.arenas->View(arena), &at->second);
  return at->second;
}

// Goes on to the next arena that has a row.
void Cursor::Settle() {
  for (; arena < endArena && at >= Rows().size(); ++arena) at = 0;
}

int BestIndex(sqlite3_vtab *base, sqlite3_index_info *info) {
  const Table &table = *static_cast<Table *>(base);
  const int arena = table.showArena ? 0 : static_cast<int>(table.module.facts.columns.size());
  info->idxStr = const_cast<char *>("facts");
  info->estimatedCost = 1000;
  info->estimatedRows = 100;
  for (int i = 0; i < info->nConstraint; ++i) {
    if (info->aConstraint[i].iColumn != arena || !info->aConstraint[i].usable || !IsEquality(info, i))
      continue;
    info->idxNum = 1;
    info->aConstraintUsage[i].argvIndex = 1;
    info->estimatedCost = 500;
    break;
  }
  return SQLITE_OK;
}

// With idxNum 1 the argument is the name of the one arena that is asked for.
int Filter(sqlite3_vtab_cursor *base, int way, const char *, int, sqlite3_value **values) {
  auto *cursor = static_cast<Cursor *>(base);
  return Guarded(base->pVtab, [&] {
    const ArenaSet &arenas = *cursor->table.module.arenas;
    cursor->at = cursor->arena = 0;
    // Of none at all the first is asked for as well, which says so.
    cursor->endArena = std::max<size_t>(arenas.size(), 1);
    if (way == 1) {
      const std::optional<size_t> only = arenas.Find(TextOf(values[0]));
      cursor->arena = only.value_or(0);
      cursor->endArena = only ? *only + 1 : 0;
    }
    cursor->Settle();
    return SQLITE_OK;
  });
}

int Next(sqlite3_vtab_cursor *base) {
  return Guarded(base->pVtab, [&] {
    auto *cursor = static_cast<Cursor *>(base);
    ++cursor->at;
    cursor->Settle();
    return SQLITE_OK;
  });
}

int Eof(sqlite3_vtab_cursor *base) {
  const auto *cursor = static_cast<Cursor *>(base);
  return cursor->arena >= cursor->endArena ? 1 : 0;
}

void Result(sqlite3_context *context, const FactTable::Value &value) {
  if (const auto *number = std::get_if<int64_t>(&value)) return sqlite3_result_int64(context, *number);
  if (const auto *real = std::get_if<double>(&value)) return sqlite3_result_double(context, *real);
  if (const auto *text = std::get_if<std::string>(&value)) return ResultText(context, *text);
  sqlite3_result_null(context);
}

int Column(sqlite3_vtab_cursor *base, sqlite3_context *context, int number) {
  auto *cursor = static_cast<Cursor *>(base);
  const FactTable::Row &row = cursor->Rows()[cursor->at];
  const bool first = cursor->table.showArena;
  const size_t place = static_cast<size_t>(number) - (first ? 1 : 0);
  if (first ? number == 0 : place == row.size()) {
    ResultText(context, cursor->table.module.arenas->Name(cursor->arena));
  } else {
    Result(context, row[place]);
  }
  return SQLITE_OK;
}

// Each row's own among those of all arenas, whichever of them are asked: see RecordCursor::number.
int Rowid(sqlite3_vtab_cursor *base, sqlite3_int64 *row) {
  const auto *cursor = static_cast<Cursor *>(base);
  *row = static_cast<sqlite3_int64>(cursor->arena << 32 | (cursor->at + 1));
  return SQLITE_OK;
}

using Virtual = VirtualTable<Module, Table, Cursor>;
constexpr sqlite3_module kModule = Virtual::Callbacks(BestIndex, Filter, Next, Eof, Column, Rowid);

}  // namespace

std::string FactTable::Declaration(bool showArena, bool explained) const {
  std::vector<std::string> lines;
  std::vector<std::string> meanings;
  const auto add = [&](const std::string &column, const std::string &meaning) {
    lines.push_back(column);
    meanings.push_back(meaning);
  };
  if (showArena) add("\"arena\" TEXT", "the arena that the row is from");
  for (const Column &column : columns) add("\"" + column.name + "\" " + column.type, column.about);
  if (!showArena) add("\"_arena\" TEXT HIDDEN", "the arena that the row is from");
  std::string text = "CREATE TABLE \"" + name + "\"(";
  for (size_t i = 0; i < lines.size(); ++i) {
    text += (explained ? "\n  " : "") + lines[i] + (i + 1 < lines.size() ? "," : "");
    if (explained) text += " -- " + meanings[i];
  }
  return text + (explained ? "\n)" : ")");
}

int AddFactModule(sqlite3 *connection, const std::shared_ptr<ArenaSet> &arenas, FactTable table) {
  const std::string name = table.name;
  return Virtual::Register(connection, name, &kModule, {arenas, std::move(table)});
}

}  // namespace qdt::host
