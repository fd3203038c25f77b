#ifndef HOST_SQL_SQL_VALUE_H_
#define HOST_SQL_SQL_VALUE_H_

#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "host/layout/field.h"
#include "host/sql/sqlite_api.h"

namespace qdt::host {

inline void ResultText(sqlite3_context *context, std::string_view text) {
  sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

// Numbers beyond SQLite's 63 bits are texts, so that they stay exact.
void ResultNumber(sqlite3_context *context, const FieldRef &ref, WideValue value);

// What a value of a statement says of a field: bytes to look up. Nothing when no record can have it.
bool WriteSqlValue(sqlite3_value *value, const FieldRef &ref, uint8_t *key);

inline std::string_view TextOf(sqlite3_value *value) {
  const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(value));
  return text == nullptr ? std::string_view()
                         : std::string_view(text, static_cast<size_t>(sqlite3_value_bytes(value)));
}

// Whether a constraint says column = VALUE as tables hold it: bytes for bytes, where texts are compared.
inline bool IsEquality(sqlite3_index_info *info, int constraint) {
  return info->aConstraint[constraint].op == SQLITE_INDEX_CONSTRAINT_EQ &&
         std::strcmp(sqlite3_vtab_collation(info, constraint), "BINARY") == 0;
}

// SQLite's code for the error, and its message.
inline int Told(const std::exception &error, char **message) {
  if (dynamic_cast<const std::bad_alloc *>(&error) != nullptr) return SQLITE_NOMEM;
  *message = sqlite3_mprintf("%s", error.what());
  return SQLITE_ERROR;
}

// Runs a callback of SQLite's, through which no exception may pass: what it throws becomes the message of the
// table and SQLITE_ERROR.
template <typename Action>
int Guarded(sqlite3_vtab *table, const Action &action) {
  try {
    return action();
  } catch (const std::exception &error) {
    sqlite3_free(table->zErrMsg);
    table->zErrMsg = nullptr;
    return Told(error, &table->zErrMsg);
  }
}

}  // namespace qdt::host

#endif  // HOST_SQL_SQL_VALUE_H_
