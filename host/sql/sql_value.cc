#include "host/sql/sql_value.h"

#include <cstring>
#include <limits>

#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

// The value of a number field, or nothing: fractions and words are in no record.
std::optional<WideValue> NumberOf(sqlite3_value *value, const FieldRef &ref) {
  switch (sqlite3_value_numeric_type(value)) {
    case SQLITE_INTEGER:
      return static_cast<WideValue>(static_cast<__int128>(sqlite3_value_int64(value)));
    case SQLITE_FLOAT: {
      const double number = sqlite3_value_double(value);
      if (number >= -9.0e18 && number <= 9.0e18 &&
          number == static_cast<double>(static_cast<int64_t>(number)))
        return static_cast<WideValue>(static_cast<__int128>(static_cast<int64_t>(number)));
      [[fallthrough]];
    }
    default: {
      std::string problem;
      return ParseValue(ref, TextOf(value), &problem);
    }
  }
}

}  // namespace

void ResultNumber(sqlite3_context *context, const FieldRef &ref, WideValue value) {
  if (ref.kind != FieldKind::kSigned && value > static_cast<WideValue>(std::numeric_limits<int64_t>::max())) {
    char text[kValueRoom];
    return ResultText(context, {text, WriteValue(ref, value, text)});
  }
  sqlite3_result_int64(context, static_cast<int64_t>(value));
}

bool WriteSqlValue(sqlite3_value *value, const FieldRef &ref, uint8_t *key) {
  if (sqlite3_value_type(value) == SQLITE_NULL) return false;
  std::string problem;
  if (ref.kind == FieldKind::kText) {
    std::string bytes;
    if (!Unescape(TextOf(value), &bytes) || bytes.size() > ref.size) return false;
    ref.SetText(key, bytes);
    return true;
  }
  if (ref.kind == FieldKind::kAddress) {
    const std::optional<FieldRef> narrow = NarrowAddress(ref, TextOf(value));
    if (!narrow) return false;
    narrow->Write(key, *ParseValue(*narrow, TextOf(value), &problem));
    return true;
  }
  const std::optional<WideValue> number = FormOf(ref.kind) == ValueForm::kNumber
                                              ? NumberOf(value, ref)
                                              : ParseValue(ref, TextOf(value), &problem);
  if (!number || !ref.Fits(*number)) return false;
  ref.Write(key, *number);
  return true;
}

}  // namespace qdt::host
